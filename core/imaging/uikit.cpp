#include "core/imaging/uikit.h"

#include <cmath>
#include <vector>

namespace zorvex {
namespace {
thread_local std::vector<CGContextRef> gImageContexts;

// Whole pixels for a size in points; a size that misses a whole number by rounding noise alone counts
// as that number.
size_t pixelsFor(CGFloat points) {
  if (!(points > 0) || !std::isfinite(points)) return 0;
  return size_t(std::ceil(points - 1e-6));
}
}  // namespace

CGSize UIImage::size() const {
  if (!CGImage) return {};
  const CGSize stored{double(CGImage->width()), double(CGImage->height())};
  switch (imageOrientation) {
    case UIImageOrientationLeft:
    case UIImageOrientationRight:
    case UIImageOrientationLeftMirrored:
    case UIImageOrientationRightMirrored:
      return {stored.height, stored.width};
    default:
      return stored;
  }
}

void UIGraphicsBeginImageContextWithOptions(CGSize size, bool opaque, CGFloat scale) {
  if (scale <= 0) scale = 1.0;
  const size_t w = pixelsFor(size.width * scale), h = pixelsFor(size.height * scale);
  CGContextRef c = CGBitmapContextCreate(nullptr, w, h, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                         opaque ? kCGImageAlphaNoneSkipLast : kCGImageAlphaPremultipliedFirst);
  if (c) {
    c->state().ctm = {scale, 0, 0, -scale, 0, double(h)};
    c->savedStates().clear();
  }
  gImageContexts.push_back(std::move(c));
}

void UIGraphicsBeginImageContext(CGSize size) { UIGraphicsBeginImageContextWithOptions(size, false, 1.0); }

CGContextRef UIGraphicsGetCurrentContext() { return gImageContexts.empty() ? nullptr : gImageContexts.back(); }

UIImage UIGraphicsGetImageFromCurrentImageContext() {
  return UIImage{CGBitmapContextCreateImage(UIGraphicsGetCurrentContext()), UIImageOrientationUp};
}

void UIGraphicsEndImageContext() {
  if (!gImageContexts.empty()) gImageContexts.pop_back();
}

}  // namespace zorvex
