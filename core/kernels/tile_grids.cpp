// The picture cut into a grid of tiles, each tile changed and painted into the layer, which then goes
// onto the surface. "BUNKER" pulls each tile's source towards the centre; "FINGERBLIB" scales each tile
// by the brightness of its corner pixel; "KOMPLIANCE" turns every tile by the same quarter turns. All
// tiles come from one snapshot taken before the first is painted, so tiles never contain each other.
#include <cmath>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/pixels.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

// A count of grid cells from its single-precision value: floored, and fatal when it is not finite, is
// negative or leaves the 64-bit range.
int64_t gridCount(float value) {
  const int64_t n = truncInt(std::floor(value));
  if (n < 0) fatal();
  return n;
}

}  // namespace

void bunker(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  if (controls.count() < 3) fatal();
  const float colsValue = float(controls[0] * 10.0 + 1.0);       // columns of the grid, floored: 1 to 10
  const float rowsValue = float(controls[1] * 10.0 + 1.0);       // rows of the grid, floored: 1 to 10
  const double zoom = std::fmax(controls[2] * 3.0 + 1.0, 1.0);   // 1 to 4; a NaN reads as 1.0

  const int64_t rows = gridCount(rowsValue);
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  const CGContextRef layerContext = CGLayerGetContext(layer);
  if (rows != 0) {
    const int64_t cols = gridCount(colsValue);
    const double tileW = w / double(cols);
    const double tileH = h / double(rows);
    // The corner of a tile at the centre of the picture.
    const double cx = w * 0.5 - tileW * 0.5;
    const double cy = h * 0.5 - tileH * 0.5;
    for (int64_t row = 0; row < rows; ++row) {
      for (int64_t col = 0; col < cols; ++col) {
        // `dy` is measured upward and `sy` downward, so the plus in `sy` is the same correction towards
        // the centre as the minus in `sx`. The tile keeps its size; only its source moves.
        const double dy = tileH * double(row);
        const double sy = cy + (cy - dy) / zoom;
        const double dx = tileW * double(col);
        const double sx = cx - (cx - dx) / zoom;
        if (!snapshot) continue;
        CGImageRef tile = CGImageCreateWithImageInRect(snapshot, CGRectMake(sx, sy, tileW, tileH));
        if (!tile) continue;
        // One pixel more each way closes the seams. Drawn under whatever state the layer holds.
        CGContextDrawImage(layerContext, CGRectMake(dx, dy, tileW + 1.0, tileH + 1.0), tile);
      }
    }
  }
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

void fingerblib(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const double cell = h / (controls[0] * (20.0 - 2.0) + 2.0);   // tile side: 2 to 20 tiles along the height

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  if (cell == 0.0) fatal();
  const double base = cell / 1.66;
  const CGContextRef layerContext = CGLayerGetContext(layer);
  // Columns left to right, and in each column tiles from the top down, later tiles on top. No tile
  // starts in the right and bottom margins of one `cell`.
  stride(0.0, w - cell, cell, [&](double x, int64_t) {
    stride(0.0, h - cell, cell, [&](double y, int64_t) {
      if (!snapshot) return;
      CGImageRef tile = CGImageCreateWithImageInRect(snapshot, CGRectMake(x, y, cell, cell));
      if (!tile) return;
      // The surface is not changed in the loop, so this is the tile's own top-left pixel.
      const KColor pixel = readPixel(context, truncInt(x), truncInt(y));
      const int luma = luminance(pixel) & 0xff;
      // About 0.6 of a cell for black up to about 1.6 for white; the lower left corner stays put, so
      // tiles grow to the right and upward.
      const double side = base + cell * (luma * 0.00390625);
      CGContextDrawImage(layerContext, CGRectMake(x, (h - y) - cell, side, side), tile);
    });
  });
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

void kompliance(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const double cell = controls[0] * (h / 10.0 - h / 50.0) + h / 50.0;   // tile side, from the height

  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  if (controls.count() < 2) fatal();
  const int64_t turns = truncInt(controls[1] * (100.0 - 0.0) + 0.0);    // quarter turns, 0 to 99
  if (cell == 0.0) fatal();

  const CGContextRef layerContext = CGLayerGetContext(layer);
  stride(0.0, w, cell, [&](double x, int64_t) {
    stride(0.0, h, cell, [&](double y, int64_t) {
      if (!snapshot) fatal();
      // Tiles at the right and bottom edges are cut short by the picture and stretched back to the
      // full square by the draw.
      CGImageRef tile = CGImageCreateWithImageInRect(snapshot, CGRectMake(x, y, cell, cell));
      if (!tile) fatal();
      // The turn's y-down canvas also mirrors the tile top to bottom, for every number of turns.
      CGImageRef turned = ImageUtils::rotateCGImage(tile, turns);
      if (!turned) fatal();
      CGContextDrawImage(layerContext, CGRectMake(x, (h - y) - cell, cell + 1.0, cell + 1.0), turned);
    });
  });
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

}  // namespace zorvex::Filters
