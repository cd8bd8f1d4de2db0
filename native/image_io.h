// Picture files for the command line: PNG and JPEG in (with a JPEG's orientation tag), PNG and JPEG out.
#pragma once

#include <cstdio>
#include <string>

#include "core/imaging/uikit.h"

namespace zorvex::native {

// Pictures larger than this are refused before they are decoded.
inline constexpr int64_t kMaxPixels = 100'000'000;
inline constexpr int64_t kMaxSide = 32768;

// The most bytes a picture file is read to: a picture of at most 100 megapixels, stored in the
// largest form (a PNG of 16-bit RGBA, uncompressed) takes about 800 MiB.
inline constexpr uint64_t kMaxImageFileBytes = uint64_t(1) << 30;

// Reads a PNG or JPEG (told apart by their first bytes) from a regular file or, for "-", standard
// input, streaming, never more than kMaxImageFileBytes. The picture comes as stored, with the
// orientation its EXIF tag gives. On failure `error` says why (without the path) and the result is
// nil. A JPEG whose data ends early or is damaged in places gives what decodes, and `warning` (when
// given) says so.
UIImage readImage(const std::string& path, std::string& error, std::string* warning = nullptr);

// The same from an open stream, read from its current place; `maxPixels` lower than the limit keeps
// fuzzing quick.
UIImage readImage(FILE* stream, std::string& error, std::string* warning = nullptr, int64_t maxPixels = kMaxPixels);

// Writes PNG or JPEG by the extension (.png, .jpg, .jpeg; any case), with `xmpPacket` as its XMP
// unless it is empty, atomically: a new file of a unique name beside `path` renamed over it, so that
// a reader sees the old file or the whole new one. False with `error` set on failure.
bool writeImage(const CGImageRef& image, const std::string& path, std::string& error, int jpegQuality = 92,
                const std::string& xmpPacket = {});

// True when the path ends in an extension writeImage knows.
bool isWritableImagePath(const std::string& path);

}  // namespace zorvex::native
