// Compositing of premultiplied RGBA pixels onto a destination in any of the context layouts, under
// each of the 28 blend modes. Every drawing path ends here, so a fast path and the general path
// that hand the same source pixels and coverage give the same result.
#pragma once

#include <cstdint>

#include "core/imaging/cg.h"

namespace zorvex::raster {

// A pixel as four premultiplied bytes R, G, B, A.
struct RGBA8 {
  uint8_t r, g, b, a;
  bool operator==(const RGBA8&) const = default;
};

// Exact rounding division of x (0 to 255 * 255) by 255.
inline uint32_t div255(uint32_t x) {
  x += 128;
  return (x + (x >> 8)) >> 8;
}

// The blend of source `s` over destination `d`, both premultiplied, under `mode`, at full strength.
RGBA8 blendPixel(CGBlendMode mode, RGBA8 s, RGBA8 d);

// The destination moved toward the blend by `strength` / 255: d + (blend - d) * strength / 255.
inline RGBA8 lerpPixel(RGBA8 d, RGBA8 r, uint32_t strength) {
  const uint32_t inv = 255 - strength;
  return {static_cast<uint8_t>(div255(r.r * strength + d.r * inv)),
          static_cast<uint8_t>(div255(r.g * strength + d.g * inv)),
          static_cast<uint8_t>(div255(r.b * strength + d.b * inv)),
          static_cast<uint8_t>(div255(r.a * strength + d.a * inv))};
}

// A destination pixel as premultiplied RGBA (alpha 255 for layouts without alpha, grey spread to
// three channels), and back. Storing into a layout without alpha keeps the premultiplied colour, which
// is the pixel over black, and sets the skipped byte to 255.
RGBA8 loadPixel(PixelFormat f, const uint8_t* p);
void storePixel(PixelFormat f, uint8_t* p, RGBA8 v);

// Composites `n` pixels of row `y` of `dst`, starting at column `x`. `src` holds n premultiplied
// pixels, or one when `solid` is set. `coverage` (n bytes, or null for all 255) and `alpha`
// (0 to 255) give the strength of each pixel, coverage * alpha / 255.
void compositeSpan(CGBlendMode mode, const PixelView& dst, int32_t x, int32_t y, int32_t n, const RGBA8* src,
                   bool solid, const uint8_t* coverage, uint8_t alpha);

// Moves `n` pixels toward transparent black by their coverage (null: all the way).
void clearSpan(const PixelView& dst, int32_t x, int32_t y, int32_t n, const uint8_t* coverage);

// One pixel of layout F as premultiplied RGBA, inline for per-pixel loops.
template <PixelFormat F>
inline RGBA8 loadAs(const uint8_t* p) {
  if constexpr (F == PixelFormat::RGBX) return {p[0], p[1], p[2], 255};
  else if constexpr (F == PixelFormat::RGBA) return {p[0], p[1], p[2], p[3]};
  else if constexpr (F == PixelFormat::ARGB) return {p[1], p[2], p[3], p[0]};
  else return {p[0], p[0], p[0], 255};
}

// Converts `n` pixels of a row in layout `f` to premultiplied RGBA.
void loadRow(PixelFormat f, const uint8_t* p, int32_t n, RGBA8* out);

}  // namespace zorvex::raster
