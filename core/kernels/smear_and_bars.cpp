// "AGENCY" smears one pixel row down over a band; "INTERFACE" lays evenly spaced black bars.
// Both paint into the layer, then composite the whole layer onto the surface at the origin.
#include "core/imaging/fatal.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {

void agency(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  if (controls.count() < 2) fatal();
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  if (!snapshot) return;
  const double y = controls[0] * h;                // the row to smear, from the top
  const double depth = (controls[1] * h) * -0.5;   // the band, downward from that row: negative
  // A rectangle of height 0 at a fractional y expands to the one row floor(y); at a whole y it is empty.
  CGImageRef line = CGImageCreateWithImageInRect(snapshot, CGRectMake(0.0, y, w, 0.0));
  if (!line) return;
  CGContextDrawImage(CGLayerGetContext(layer), CGRectMake(0.0, h - y, w, depth), line);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

void interface(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const double spacing = controls[0] * (h / 20.0 - h / 100.0) + h / 100.0;   // between bars
  if (controls.count() < 2) fatal();
  const double thickness = controls[1] * (spacing * 0.5 - spacing * 0.15) + spacing * 0.15;
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  const CGContextRef layerContext = CGLayerGetContext(layer);
  // Drawing y points up, so the first bar lies on the bottom edge; a zero spacing is fatal.
  stride(0.0, h - spacing, spacing, [&](double y, int64_t) {
    CGContextSetRGBFillColor(layerContext, 0.0, 0.0, 0.0, 1.0);
    CGContextFillRect(layerContext, CGRectMake(0.0, y, w, thickness));
  });
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

}  // namespace zorvex::Filters
