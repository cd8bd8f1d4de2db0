// Thin parts of the picture stretched sideways by widths from a freshly seeded generator. "M0T0R" makes
// each horizontal band a little wider or narrower than the one above it; "XEXOX" smears single pixel
// columns sideways up to the next sample. A seeded draw is always srand48(seed) then drand48(), so it
// depends on the seed alone and the picture holds still while the controls do.
#include "core/imaging/drand48.h"
#include "core/imaging/fatal.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {

void motor(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const double band = controls[0] * (h / 15.0 - h / 100.0) + h / 100.0;   // band height
  const double low = controls[1] * (-0.001 - -0.04) + -0.04;              // low end of the width step
  const double high = controls[2] * (0.04 - 0.001) + 0.001;               // high end of the width step
  const int64_t seed = truncInt(controls[3] * 10000.0);                   // the same for every band

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  // The only blend mode set, on a layer that nothing is painted into.
  CGContextSetBlendMode(CGLayerGetContext(layer), kCGBlendModeNormal);
  double scale = 1.0;
  stride(0.0, h, band, [&](double y, int64_t) {
    // One seed, so one step: `scale` climbs or falls in a straight line from band to band, and moves
    // on even for a band that is skipped.
    srand48(seed);
    const double r = drand48();
    scale = scale + ((high - low) * r + low);
    if (!snapshot) return;
    CGImageRef strip = CGImageCreateWithImageInRect(snapshot, CGRectMake(0.0, y, w, band));
    if (!strip) return;
    // Into the surface itself, under its blend mode. The left edge adds half the growth rather than
    // subtracting it, so a band is not centred; it may have zero or negative width.
    const double wide = scale * w;
    CGContextDrawImage(context, CGRectMake((wide - w) * 0.5, (h - y) - band, wide, band + 1.0), strip);
  });
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

void xex0x(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double pattern = controls[0] * 100000.0;   // the seed of column i is truncate(pattern * i)
  // Index 1 is not read.
  const double wideSeed = controls[2] * 1000000.0;     // width of the wide columns
  const double narrowSeed = controls[3] * 1000000.0;   // width of the narrow columns

  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  int64_t left = 0;
  int64_t i = 0;
  // Column 0 has seed 0 for any controls and is always narrow. A column narrower than one pixel moves
  // nothing; on a picture 3 pixels wide or less no column is wider, and this never ends.
  do {
    srand48(truncInt(pattern * double(i)));
    const double coin = drand48();
    double span;
    if (coin > 0.5) {
      srand48(truncInt(wideSeed));
      span = (w / 3.0 - w / 6.0) * drand48() + w / 6.0;
    } else {
      srand48(truncInt(narrowSeed));
      span = (w / 6.0 - w / 50.0) * drand48() + w / 50.0;
    }
    const double height = double(CGBitmapContextGetHeight(context));
    CGImageRef column;
    if (snapshot) column = CGImageCreateWithImageInRect(snapshot, CGRectMake(double(left), 0.0, 1.0, height));
    const int64_t step = truncInt(span);
    if (layerContext) {
      if (!column) fatal();
      // One pixel column smeared over `step` pixels, under the layer's interpolation quality.
      CGContextDrawImage(layerContext, CGRectMake(double(left), 0.0, double(step), height), column);
    }
    left = checkedAdd(left, step);
    ++i;
  } while (left < int64_t(CGBitmapContextGetWidth(context)));
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

}  // namespace zorvex::Filters
