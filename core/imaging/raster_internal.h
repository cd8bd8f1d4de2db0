// Pieces shared by the files of the raster engine; not for kernels.
#pragma once

#include <cmath>
#include <vector>

#include "core/imaging/blend.h"
#include "core/imaging/cg.h"

namespace zorvex {

// The clip as a coverage byte per pixel of the context, in buffer rows (top row first), with the
// box outside which every byte is 0.
class ClipMask {
 public:
  ClipMask(int32_t width, int32_t height) : width(width), height(height), coverage(size_t(width) * size_t(height), 0) {}
  const uint8_t* row(int32_t y) const { return coverage.data() + size_t(y) * size_t(width); }
  uint8_t* row(int32_t y) { return coverage.data() + size_t(y) * size_t(width); }

  int32_t width, height;
  int32_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;  // box of non-zero bytes; empty when x0 >= x1
  std::vector<uint8_t> coverage;
};

namespace raster {

// Integer box of pixels [x0, x1) x [y0, y1) in buffer coordinates.
struct PixelBox {
  int32_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  bool empty() const { return x0 >= x1 || y0 >= y1; }
};

// From the user space of `c` to buffer coordinates: x to the right, y down from the top row.
inline CGAffineTransform userToBuffer(const CGContext& c) {
  const CGAffineTransform flip{1, 0, 0, -1, 0, static_cast<CGFloat>(c.pixels().height)};
  return CGAffineTransformConcat(c.state().ctm, flip);
}

// The pixels a draw may touch: the context, cut by the clip's box and by `bounds` (in buffer
// coordinates, made whole outward).
PixelBox drawableBox(const CGContext& c, double minX, double minY, double maxX, double maxY);

// Draws `src` mapped into `rect` of user space (the image's top row at the top of the rectangle).
void drawPixels(CGContext& c, CGRect rect, const PixelView& src);

// A closed outline in buffer coordinates.
struct Polygon {
  std::vector<CGPoint> points;
};
enum class FillRule { NonZero, EvenOdd };

// Fills `polys` (buffer coordinates) with `color` (premultiplied) under the state of `c`; with
// `clear` set the shape is cleared to transparent black instead, whatever the blend mode and alpha.
void fillPolygons(CGContext& c, const std::vector<Polygon>& polys, FillRule rule, RGBA8 color, bool clear);

RGBA8 premultipliedColor(const CGColor& col);

}  // namespace raster
}  // namespace zorvex
