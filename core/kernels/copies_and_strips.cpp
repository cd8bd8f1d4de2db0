// Rectangles cut from a fresh image of the surface and pasted back elsewhere. "GRABOID" copies five
// rectangles whose source and destination are read straight from the controls; "VETH" mirrors seeded
// bands or columns and drops each beside the place it was cut from; "FOLD4RAP5" folds the left edge
// over itself at a shrinking width, then mirrors the left half over the right.
#include "core/imaging/drand48.h"
#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

// A mirrored copy of a strip. The strip exists, so failing to make its copy is an impossible state.
CGImageRef mirroredStrip(const CGImageRef& strip, bool leftToRight) {
  CGImageRef mirrored = leftToRight ? ImageUtils::flipImageHoriz(strip) : ImageUtils::flipImageVert(strip);
  if (!mirrored) fatal();
  return mirrored;
}

}  // namespace

void graboid(const CGContextRef& context, Controls controls) {
  for (size_t pass = 0; pass < 5; ++pass) {
    // The source indices step by 5 and the destination indices by 8, so the two sets overlap and some
    // indices are never read. An index past the end is fatal, after the earlier passes have drawn.
    const size_t from = pass * 5, to = pass * 8;
    const double w = double(CGBitmapContextGetWidth(context));
    const double h = double(CGBitmapContextGetHeight(context));
    const double a = controls[from];           // source left, across w - 1
    const double b = controls[from + 1];       // source width, as a share of what lies right of it
    const double c = controls[from + 2];       // source top, down h - 1 from the top
    const double d = controls[from + 3];       // source height, as a share of what lies below it
    const double e = controls[to];             // destination left
    const double f = controls[to + 1];         // destination width share
    const double g = controls[to + 2];         // destination bottom, up from the bottom
    const double k = controls[to + 3];         // destination height share

    // Taken anew in each pass, so a later pass sees what the earlier ones pasted.
    CGImageRef snapshot = CGBitmapContextCreateImage(context);
    CGImageRef part;
    if (snapshot) {
      const double sx = (w - 1.0) * a;
      const double sy = (h - 1.0) * c;
      part = CGImageCreateWithImageInRect(snapshot, CGRectMake(sx, sy, (w - sx) * b, (h - sy) * d));
    }
    CGContextSetBlendMode(context, kCGBlendModeNormal);
    CGContextSetInterpolationQuality(context, kCGInterpolationNone);
    if (part) {
      // `sy` counted from the top and `dy` counts from the bottom, uncorrected: the piece lands upright
      // at the vertically opposite place.
      const double dx = (w - 1.0) * e;
      const double dy = (h - 1.0) * g;
      CGContextDrawImage(context, CGRectMake(dx, dy, (w - dx) * f, (h - dy) * k), part);
    }
  }
}

void veth(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  if (controls.count() < 4) fatal();
  const bool columns = controls[0] >= 0.5;                      // below 0.5 bands, from 0.5 columns
  const double slice = controls[1] * h * 0.5;                   // strip thickness, from the height for both
  const int64_t passes = truncInt(controls[2] * 5.0 + 2.0);     // 2 to 6
  const int64_t seedStep = truncInt(controls[3] * 5.0 + 2.0);   // 2 to 6
  if (passes == 0) return;

  const double travel = columns ? (w - slice) + -1.0 : h - slice;
  const CGContextRef layerContext = CGLayerGetContext(layer);
  for (int64_t pass = 0; pass < passes; ++pass) {
    // Pass 0 always has seed 0: its strip sits at the same relative place whatever the controls say.
    srand48(checkedMul(seedStep, pass));
    const double r = drand48();
    const double position = r * travel;
    CGContextSetBlendMode(context, kCGBlendModeNormal);
    CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
    CGImageRef snapshot = CGBitmapContextCreateImage(context);
    if (!snapshot) continue;
    CGImageRef strip = CGImageCreateWithImageInRect(
        snapshot, columns ? CGRectMake(position, 0.0, slice, h) : CGRectMake(0.0, position, w, slice));
    if (!strip) continue;
    const CGImageRef mirrored = mirroredStrip(strip, columns);
    // Right beside its source: above it for bands (drawing y is up), left of it for columns. It may
    // hang over the edge of the picture.
    CGContextDrawImage(context,
                       columns ? CGRectMake(position - slice, 0.0, slice, h) : CGRectMake(0.0, h - position, w, slice),
                       mirrored);
    // Nothing was painted into the layer, but what earlier effects left there goes back on top.
    CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
  }
}

void fold4rap5(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  // First of all, before any control is read, the layer goes onto the surface under its blend mode.
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const double ratio = controls[0] * (0.7 - 0.5) + 0.5;   // fold ratio, 0.5 to 0.7

  const double reach = ratio * w;
  double fold = ratio * reach;
  const CGContextRef layerContext = CGLayerGetContext(layer);
  for (int i = 0; i < 5; ++i) {
    // The strip of width `fold` that begins `fold` from the left edge, mirrored onto the edge. The layer
    // is never cleared, so each composite brings back the wider strips of the earlier folds too.
    CGImageRef snapshot = CGBitmapContextCreateImage(context);
    if (!snapshot) continue;  // `fold` stays
    CGImageRef strip = CGImageCreateWithImageInRect(snapshot, CGRectMake(fold, 0.0, fold, h));
    if (!strip) continue;
    const CGImageRef mirrored = mirroredStrip(strip, true);
    CGContextSetInterpolationQuality(context, kCGInterpolationNone);
    CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
    CGContextDrawImage(layerContext, CGRectMake(0.0, 0.0, fold, h), mirrored);
    CGContextSetBlendMode(context, kCGBlendModeNormal);
    CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
    fold = ratio * fold;
  }

  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  if (!snapshot) return;
  const double half = w * 0.5;
  CGImageRef strip = CGImageCreateWithImageInRect(snapshot, CGRectMake(0.0, 0.0, half, h));
  if (!strip) return;
  const CGImageRef mirrored = mirroredStrip(strip, true);
  // The left half stretched to `reach`, not `half`: it may run past the right edge. The layer's blend
  // mode and interpolation quality are whatever they are.
  CGContextDrawImage(layerContext, CGRectMake(half, 0.0, reach, h), mirrored);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

}  // namespace zorvex::Filters
