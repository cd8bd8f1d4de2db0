// "POLYBOMB" (once "TRIBOMB") turns the picture into flat cells: triangles it draws itself, or
// hexagons or crystals from an image filter. "KAL1D0" is the triangle kaleidoscope filter alone.
// All filter work goes through applyCIFilter.
#include "core/imaging/fatal.h"
#include "core/imaging/math_utils.h"
#include "core/imaging/pixels.h"
#include "core/kernels/kernels.h"

namespace zorvex {

namespace VideoEffectsCI {

void applyCIFilter(std::string_view name, const CIParameters& parameters, const CGContextRef& context,
                   const CGLayerRef& layer) {
  CGImageRef source = CGBitmapContextCreateImage(context);
  if (!source) return;
  const CIFilters::Filter* filter = CIFilters::filterWithName(name);
  if (!filter) return;
  CIParameters settings = filter->defaults();
  for (const auto& [key, value] : parameters.entries()) {
    const CIValue* known = settings.find(key);
    if (!known || known->index() != value.index()) fatal();
    settings.set(key, value);
  }
  const double w = double(CGImageGetWidth(source)), h = double(CGImageGetHeight(source));
  CGImageRef result = filter->apply(source, settings);
  if (!result) fatal();
  CGContextDrawImage(context, CGRectMake(0.0, 0.0, w, h), result);
  if (CGContextRef layerContext = CGLayerGetContext(layer)) CGContextDrawImage(layerContext, CGRectMake(0.0, 0.0, w, h), result);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

void kal1d0(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context)), h = double(CGBitmapContextGetHeight(context));
  const double size = controls[0] * w;                  // side of the triangle
  const double rotation = controls[1] * 10.0;           // radians
  const CIVector point{controls[4] * w, controls[5] * h};  // its first vertex
  const double decay = controls[2] * 0.5 + 0.5;         // fade of each generation of reflections
  applyCIFilter("CITriangleKaleidoscope",
                {{"inputSize", size}, {"inputRotation", rotation}, {"inputPoint", point}, {"inputDecay", decay}},
                context, layer);
}

void hexagonalPixellate(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double scale = MathUtils::unitMap(controls[0], w / 50.0, w / 5.0);  // cell size
  applyCIFilter("CIHexagonalPixellate", {{"inputScale", scale}, {"inputCenter", CIVector{10.0, 10.0}}}, context, layer);
}

void crystallize(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double radius = MathUtils::unitMap(controls[0], w / 50.0, w / 5.0);  // cell size
  applyCIFilter("CICrystallize", {{"inputRadius", radius}, {"inputCenter", CIVector{10.0, 10.0}}}, context, layer);
}

}  // namespace VideoEffectsCI

namespace Filters {

void tribomb(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context)), h = double(CGBitmapContextGetHeight(context));
  const double side = MathUtils::unitMap(controls[0], w / 50.0, w / 5.0);  // cell size
  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGContextSetInterpolationQuality(layerContext, kCGInterpolationNone);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  const double kind = controls[10];  // hexagons, crystals, or from 0.666 triangles
  if (kind < 0.333) return VideoEffectsCI::hexagonalPixellate(context, layer, controls);
  if (kind < 0.666) return VideoEffectsCI::crystallize(context, layer, controls);

  const double rowHeight = side * 0.866, half = side * 0.5;
  auto clampX = [w](double v) { return v < 0 ? int64_t{0} : v < w ? truncInt(v) : truncInt(w - 1); };
  // Columns start a whole picture width to the left; every second row is shifted by half a cell.
  stride(-w, w, side, [&](double x0, int64_t) {
    stride(0.0, h, rowHeight, [&](double y, int64_t j) {
      const double x = j % 2 == 0 ? x0 : x0 + half;
      const double top = h - y;  // row y of the buffer lies under the cell
      const int64_t sampleRow = truncInt(rowHeight * 0.5 + y);
      auto paint = [&](KColor c) {
        CGContextSetRGBFillColor(layerContext, c.r / 256.0, c.g / 256.0, c.b / 256.0, 1.0);
        CGContextSetRGBStrokeColor(layerContext, c.r / 256.0, c.g / 256.0, c.b / 256.0, 1.0);
      };
      // The upward triangle; its path is left open, so the stroke misses the closing edge.
      paint(readPixel(context, clampX(x), sampleRow));
      CGContextMoveToPoint(layerContext, x, top);
      CGContextAddLineToPoint(layerContext, x + side, top);
      CGContextAddLineToPoint(layerContext, x + half, top - rowHeight);
      CGContextDrawPath(layerContext, kCGPathEOFillStroke);
      // The downward triangle beside it.
      paint(readPixel(context, clampX(x + half), sampleRow));
      CGContextMoveToPoint(layerContext, x + half, top - rowHeight);
      CGContextAddLineToPoint(layerContext, x + side, top);
      CGContextAddLineToPoint(layerContext, x + half + side, top - rowHeight);
      CGContextDrawPath(layerContext, kCGPathEOFillStroke);
    });
  });
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
}

}  // namespace Filters
}  // namespace zorvex
