// Picture files for the command line: PNG and JPEG in (with a JPEG's orientation tag), PNG and JPEG out.
#pragma once

#include <string>

#include "core/imaging/uikit.h"

namespace zorvex::native {

// Pictures larger than this are refused before they are decoded.
inline constexpr int64_t kMaxPixels = 100'000'000;
inline constexpr int64_t kMaxSide = 32768;

// Reads a PNG or JPEG (told apart by their first bytes). The picture comes as stored, with the
// orientation its EXIF tag gives. On failure `error` says why and the result is nil.
UIImage readImage(const std::string& path, std::string& error);

// Writes PNG or JPEG by the extension (.png, .jpg, .jpeg; any case), with `xmpPacket` as its XMP
// unless it is empty. False with `error` set on failure.
bool writeImage(const CGImageRef& image, const std::string& path, std::string& error, int jpegQuality = 92,
                const std::string& xmpPacket = {});

// True when the path ends in an extension writeImage knows.
bool isWritableImagePath(const std::string& path);

}  // namespace zorvex::native
