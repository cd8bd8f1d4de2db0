// The picture reduced to coarse blocks mixed under a blend mode that a control picks. "CHIP13h" stacks
// the picture at 128, 64, 32 and 16 pixels square, each stretched over the whole surface; "BLITBOMB"
// paints a grid of flat squares sampled from the picture, each big cell split into smaller squares.
#include <array>
#include <span>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/pixels.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

// The mode of blendTable at truncate(controls[0] * 7.0). An empty vector, a product that is not finite
// or out of range, and an index outside 0 to 6 (a control of 1.0 or more) are fatal.
CGBlendMode blendModeFromControls(Controls controls) {
  const std::array<CGBlendMode, 7> blendTable = {kCGBlendModeMultiply, kCGBlendModeDarken, kCGBlendModeHardLight,
                                                 kCGBlendModeLighten,  kCGBlendModeOverlay, kCGBlendModeScreen,
                                                 kCGBlendModeSoftLight};
  const int64_t index = truncInt(controls[0] * 7.0);
  if (index < 0) fatal();
  return at(std::span<const CGBlendMode>(blendTable), size_t(index));
}

}  // namespace

void chip13h(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const CGBlendMode mode = blendModeFromControls(controls);   // how the smaller pictures mix in
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  // 128.0 for every width above zero, whatever the aspect ratio; a width of 0 gives a NaN, fatal in the
  // resize.
  const double side = w / (w * 0.0078125);

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  const CGImageRef coarse = ImageUtils::resizeContextToNewCGImage(context, side, side);
  const CGContextRef layerContext = CGLayerGetContext(layer);
  // The 128 picture goes down under the settings earlier effects left on the layer.
  CGContextDrawImage(layerContext, CGRectMake(0.0, 0.0, w, h), coarse);
  for (const double factor : {0.5, 0.25, 0.125}) {
    CGContextSetBlendMode(layerContext, mode);
    CGContextSetInterpolationQuality(layerContext, kCGInterpolationNone);
    // Each from `coarse`, not from the one before: 64, 32 and 16 pixels square, as hard squares.
    const CGImageRef smaller = ImageUtils::getResizedCGImageFromImage(
        coarse, double(CGImageGetWidth(coarse)) * factor, double(CGImageGetHeight(coarse)) * factor);
    CGContextDrawImage(layerContext, CGRectMake(0.0, 0.0, w, h), smaller);
  }
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

void blitbomb(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const CGBlendMode mode = blendModeFromControls(controls);   // for each square and for the composite
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  if (controls.count() < 2) fatal();
  const double cell = (w / 5.0 - w / 15.0) * controls[1] + w / 15.0;   // cell side, from the width
  const double squares = (5.0 - 1.0) * controls[2] + 1.0;              // squares along a cell, 1 to 5

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGContextSetBlendMode(layerContext, mode);
  CGContextSetBlendMode(context, mode);
  if (cell == 0.0) fatal();
  const double square = cell / squares;
  // A cell is finished before the next starts; its squares are blended over what came before.
  stride(0.0, w, cell, [&](double x, int64_t) {
    stride(0.0, h, cell, [&](double y, int64_t) {
      const double top = h - y;
      stride(0.0, cell, square, [&](double dx, int64_t) {
        stride(0.0, cell, square, [&](double dy, int64_t) {
          // Sampled from the unchanged surface; past the right and bottom edges the read clamps, so
          // edge squares repeat the last column and row.
          const double px = x + dx;
          const double py = y + dy;
          const KColor pixel = readPixel(context, truncInt(px), truncInt(py));
          // Bytes over 256: a byte of 255 gives 0.99609375.
          CGContextSetRGBFillColor(layerContext, pixel.r * 0.00390625, pixel.g * 0.00390625, pixel.b * 0.00390625,
                                   1.0);
          // The lower edge is `top - dy` with no `- square`: squares sit one square above the rows
          // they were sampled from, and those of the top row fall off the surface.
          CGContextFillRect(layerContext, CGRectMake(px, top - dy, square, square));
        });
      });
    });
  });
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

}  // namespace zorvex::Filters
