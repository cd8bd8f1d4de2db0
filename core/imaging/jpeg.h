// Our baseline JPEG codec, in place of the platform's UIImageJPEGRepresentation and
// UIImage initWithData:.
//
// The encoder writes a JFIF baseline stream: YCbCr with 4:2:0 chroma, the standard Huffman tables,
// no restart markers, the standard quantisation tables scaled as libjpeg scales them.
//
// The decoder reads baseline (and extended 8-bit Huffman) streams: any sampling factors, one to
// four components, restart markers, several scans. It tolerates damage, since the glitch effects
// live from it: an undecodable Huffman code, data that ends early, bytes past the end, a marker out
// of place never stop it; it decodes what follows as the bits fall and leaves what it can't reach
// (the rest of a restart interval once the data has run out) in middle grey. It gives nil only when the headers give no usable frame.
// Whatever the bytes, it stays inside its buffers, its work is bounded by the frame size and the
// stream length, and the frame size is bounded by `JPEGLimits`.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/imaging/cg.h"
#include "core/imaging/uikit.h"

namespace zorvex {

// The stream of the picture's RGB (premultiplied pixels as they are; a grey picture as grey RGB) at
// `quality` from 0.0 (worst) to 1.0, which is libjpeg quality max(1, round(100 * quality)). Empty
// for nil and for pictures wider or higher than 65535.
std::vector<uint8_t> encodeJPEG(const CGImageRef& image, double quality);

// Frames beyond these are refused before anything is allocated for them.
struct JPEGLimits {
  int64_t maxPixels = 100'000'000;
  int32_t maxSide = 32768;
};

// The picture of a stream as an RGBX image (bitmap info 5), or nil when its headers give no usable
// frame.
CGImageRef decodeJPEG(std::span<const uint8_t> stream, const JPEGLimits& limits = {});

// The platform's names. A nil image gives an empty stream; a stream with no usable frame gives a
// nil UIImage.
std::vector<uint8_t> UIImageJPEGRepresentation(const UIImage& image, double compressionQuality);
UIImage UIImageWithData(std::span<const uint8_t> data);

}  // namespace zorvex
