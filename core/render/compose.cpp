#include "core/render/compose.h"

#include "core/imaging/fatal.h"
#include "core/imaging/uikit.h"

namespace zorvex {

CGSize previewSize(int64_t W, int64_t H, int64_t F) {
  if (F >= W) return {double(W), double(H)};
  return {double(F), double(truncInt(double(F) / (double(W) / double(H))))};
}

CGRect AVMakeRectWithAspectRatioInsideRect(CGSize aspect, CGRect bounds) {
  if (!(aspect.width > 0) || !(aspect.height > 0)) return {bounds.origin, {0, 0}};
  const double scale = std::min(bounds.size.width / aspect.width, bounds.size.height / aspect.height);
  const double w = aspect.width * scale, h = aspect.height * scale;
  return {{bounds.origin.x + (bounds.size.width - w) / 2, bounds.origin.y + (bounds.size.height - h) / 2}, {w, h}};
}

Surface makeSurface(int64_t w, int64_t h) {
  if (w <= 0 || h <= 0) return {};
  CGContextRef c = CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, size_t(checkedMul(w, 4)),
                                         CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
  if (!c) return {};
  return {c, CGLayerCreateWithContext(c, CGSize{double(w), double(h)}, nullptr)};
}

CGImageRef composeFinal(const CGImageRef& base, const CGImageRef& effected, int64_t w, int64_t h, BlendMode mode,
                        double alpha) {
  UIGraphicsBeginImageContextWithOptions(CGSize{double(w), double(h)}, false, 1.0);
  CGContextRef c = UIGraphicsGetCurrentContext();
  CGContextTranslateCTM(c, 0, double(h));
  CGContextScaleCTM(c, 1, -1);
  CGContextDrawImage(c, CGRectMake(0, 0, double(w), double(h)), base);
  CGContextSetBlendMode(c, cgBlendMode(mode));
  CGContextSetAlpha(c, alpha);
  CGContextDrawImage(c, CGRectMake(0, 0, double(w), double(h)), effected);
  UIImage image = UIGraphicsGetImageFromCurrentImageContext();
  UIGraphicsEndImageContext();
  return image.CGImage;
}

CGImageRef composeForDisplay(const CGImageRef& base, const CGImageRef& effected, int64_t tw, int64_t th,
                             BlendMode mode, double alpha, bool hideEffects) {
  UIGraphicsBeginImageContextWithOptions(CGSize{double(tw), double(th)}, true, 1.0);
  CGContextRef c = UIGraphicsGetCurrentContext();
  CGContextTranslateCTM(c, 0, double(th));
  CGContextScaleCTM(c, 1, -1);
  if (base) {
    const CGRect target = AVMakeRectWithAspectRatioInsideRect(
        CGSize{double(CGImageGetWidth(base)), double(CGImageGetHeight(base))}, CGRectMake(0, 0, double(tw), double(th)));
    CGContextDrawImage(c, target, base);
    if (effected && !hideEffects) {
      CGContextSetBlendMode(c, cgBlendMode(mode));
      CGContextSetAlpha(c, alpha);
      CGContextDrawImage(c, target, effected);
    }
  }
  UIImage image = UIGraphicsGetImageFromCurrentImageContext();
  UIGraphicsEndImageContext();
  return image.CGImage;
}

}  // namespace zorvex
