// KColor and single-pixel access, for the surface layout (four bytes a pixel, rows of 4 * width
// bytes, the top row first), and colour arithmetic.
#pragma once

#include <algorithm>
#include <cstdint>

#include "core/imaging/cg.h"

namespace zorvex {

struct KColor {
  uint8_t r = 0, g = 0, b = 0;
  bool operator==(const KColor&) const = default;

  // The 32-bit form: r in bits 0-7, g in 8-15, b in 16-23, the top byte 0.
  uint32_t packed() const { return uint32_t(r) | uint32_t(g) << 8 | uint32_t(b) << 16; }
  static KColor fromPacked(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16)}; }
};

// Bytes 0, 1 and 2 of the pixel at (x, y), both clamped into the surface first, so a read is never out
// of bounds. Black for a context with no buffer.
inline KColor readPixel(const CGContextRef& context, int64_t x, int64_t y) {
  if (!context) return {};
  const PixelView& p = context->pixels();
  x = std::clamp<int64_t>(x, 0, p.width - 1);
  y = std::clamp<int64_t>(y, 0, p.height - 1);
  const uint8_t* q = p.data + y * p.stride + x * 4;
  return {q[0], q[1], q[2]};
}

// Writes R, G, B and 255 at (x, y); nothing outside the surface.
inline void writePixel(const CGContextRef& context, int64_t x, int64_t y, KColor c) {
  if (!context) return;
  const PixelView& p = context->pixels();
  if (x < 0 || y < 0 || x >= p.width || y >= p.height) return;
  uint8_t* q = p.data + y * p.stride + x * 4;
  q[0] = c.r;
  q[1] = c.g;
  q[2] = c.b;
  q[3] = 255;
}

// The same on a bare buffer of `width` by `height` pixels, four bytes each, with the fourth byte given.
inline void writePixelRaw(uint8_t* buffer, int64_t x, int64_t y, int64_t width, int64_t height, KColor c,
                          uint8_t alpha = 255) {
  if (!buffer || x < 0 || y < 0 || x >= width || y >= height) return;
  uint8_t* q = buffer + 4 * (y * width + x);
  q[0] = c.r;
  q[1] = c.g;
  q[2] = c.b;
  q[3] = alpha;
}

// A KColor from the low 8 bits of each integer.
inline KColor packColor(int64_t r, int64_t g, int64_t b) { return {uint8_t(r & 255), uint8_t(g & 255), uint8_t(b & 255)}; }

// 0.2126 R + 0.7152 G + 0.0722 B, the R and G terms first, truncated: white gives 254.
inline int luminance(KColor c) { return int((0.2126 * c.r + 0.7152 * c.g) + 0.0722 * c.b); }

// The hue of the bytes taken as byte / 256, divided (not multiplied) by 60; not-a-number for a grey.
double hue(KColor c);

// Device RGB with each component byte / 256 and alpha 1.
CGColorRef colorToCGColor(KColor c);

// A colour from three cosine waves; an amplitude above 1 is fatal.
KColor cosinePalette(double t, double phaseR, double ampR, double phaseG, double ampG, double phaseB, double ampB,
                     double freqR, double freqG, double freqB);

}  // namespace zorvex
