#include "core/imaging/image_utils.h"

#include "core/imaging/fatal.h"
#include "core/imaging/platform.h"
#include "core/imaging/text.h"

namespace zorvex {
namespace {

CGContextRef contextWithInfo(double width, double height, uint32_t info) {
  const int64_t w = truncInt(width), h = truncInt(height);
  if (w <= 0 || h <= 0) return nullptr;
  return CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, size_t(checkedMul(w, 4)), CGColorSpaceCreateDeviceRGB(),
                               info);
}

CGRect fullRect(const CGContextRef& c) {
  return CGRectMake(0, 0, double(CGBitmapContextGetWidth(c)), double(CGBitmapContextGetHeight(c)));
}

CGRect imageRect(const CGImageRef& image) {
  return CGRectMake(0, 0, double(CGImageGetWidth(image)), double(CGImageGetHeight(image)));
}

}  // namespace

namespace ImageUtils {

CGContextRef makeContext(int64_t width, int64_t height, bool hasAlpha) {
  if (width <= 0 || height <= 0) return nullptr;
  return CGBitmapContextCreate(nullptr, size_t(width), size_t(height), 8, size_t(checkedMul(width, 4)),
                               CGColorSpaceCreateDeviceRGB(),
                               hasAlpha ? kCGImageAlphaPremultipliedLast : kCGImageAlphaNoneSkipLast);
}

CGContextRef resizeContextTo(const CGContextRef& context, CGSize size) {
  CGContextRef out = std::isfinite(size.width) && std::isfinite(size.height) && size.width >= 1 && size.height >= 1
                         ? contextWithInfo(size.width, size.height, kCGImageAlphaPremultipliedFirst)
                         : nullptr;
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  if (!out || !snapshot) {
    consoleLine("Cant! " + describe(size));
    return nullptr;
  }
  CGContextSetInterpolationQuality(out, kCGInterpolationHigh);
  CGContextDrawImage(out, fullRect(out), snapshot);
  return out;
}

CGImageRef resizeContextToNewCGImage(const CGContextRef& context, CGSize size) {
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  if (!snapshot) fatal();
  return getResizedCGImageFromImage(snapshot, size);
}

CGImageRef getResizedCGImageFromImage(const CGImageRef& image, CGSize size) {
  CGContextRef out = contextWithInfo(size.width, size.height, kCGImageAlphaPremultipliedFirst);
  if (!out || !image) fatal();
  CGContextDrawImage(out, CGRectMake(0, 0, size.width, size.height), image);
  CGImageRef result = CGBitmapContextCreateImage(out);
  if (!result) fatal();
  return result;
}

CGImageRef flipImageVert(const CGImageRef& image) {
  CGContextRef out = contextWithInfo(double(CGImageGetWidth(image)), double(CGImageGetHeight(image)),
                                     kCGImageAlphaPremultipliedFirst);
  if (!out) return nullptr;
  CGContextTranslateCTM(out, 0, double(CGImageGetHeight(image)));
  CGContextScaleCTM(out, 1, -1);
  CGContextDrawImage(out, imageRect(image), image);
  return CGBitmapContextCreateImage(out);
}

CGImageRef flipImageHoriz(const CGImageRef& image) {
  CGContextRef out = contextWithInfo(double(CGImageGetWidth(image)), double(CGImageGetHeight(image)),
                                     kCGImageAlphaPremultipliedFirst);
  if (!out) return nullptr;
  CGContextTranslateCTM(out, double(CGImageGetWidth(image)), 0);
  CGContextScaleCTM(out, -1, 1);
  CGContextDrawImage(out, imageRect(image), image);
  return CGBitmapContextCreateImage(out);
}

CGImageRef rotateCGImage(const CGImageRef& image, int64_t steps) {
  if (!image) return nullptr;
  const int64_t s = steps % 4;
  const double w = double(CGImageGetWidth(image)), h = double(CGImageGetHeight(image));
  const CGSize canvas = (s == 0 || s == 2 || s == -2) ? CGSize{w, h} : CGSize{h, w};
  UIGraphicsBeginImageContext(canvas);
  CGContextRef c = UIGraphicsGetCurrentContext();
  CGContextTranslateCTM(c, w / 2, h / 2);
  CGContextRotateCTM(c, double(s) * 3.141592653589793 * 0.5);
  CGContextTranslateCTM(c, -(w / 2), -(h / 2));
  CGContextDrawImage(c, CGRectMake(0, 0, w, h), image);
  UIImage result = UIGraphicsGetImageFromCurrentImageContext();
  UIGraphicsEndImageContext();
  return result.CGImage;
}

CGImageRef tintImage(const CGImageRef& image, KColor color) {
  CGContextRef out = contextWithInfo(double(CGImageGetWidth(image)), double(CGImageGetHeight(image)),
                                     kCGImageAlphaNoneSkipLast);
  if (!out) return nullptr;
  CGContextDrawImage(out, imageRect(image), image);
  CGContextSetBlendMode(out, kCGBlendModeColor);
  CGContextSetRGBFillColor(out, color.r / 256.0, color.g / 256.0, color.b / 256.0, 1.0);
  CGContextFillRect(out, fullRect(out));
  return CGBitmapContextCreateImage(out);
}

CGImageRef fadeImage(const CGImageRef& image, double alpha) {
  CGContextRef out = contextWithInfo(double(CGImageGetWidth(image)), double(CGImageGetHeight(image)),
                                     kCGImageAlphaPremultipliedLast);
  if (!out) return nullptr;
  CGContextSetAlpha(out, alpha);
  CGContextDrawImage(out, imageRect(image), image);
  return CGBitmapContextCreateImage(out);
}

UIImage rotatedImage(const UIImage& image, double degrees, bool mirror) {
  if (!image) return {};
  const double rad = degrees / 180.0 * 3.141592653589793;
  const CGSize size = image.size();
  const CGSize box = CGRectApplyAffineTransform(CGRectMake(0, 0, size.width, size.height),
                                                CGAffineTransformMakeRotation(rad))
                         .size;
  UIGraphicsBeginImageContext(box);
  CGContextRef c = UIGraphicsGetCurrentContext();
  CGContextTranslateCTM(c, box.width / 2, box.height / 2);
  CGContextRotateCTM(c, rad);
  CGContextScaleCTM(c, mirror ? -1.0 : 1.0, -1.0);
  CGContextDrawImage(c, CGRectMake(-size.width / 2, -size.height / 2, size.width, size.height), image.CGImage);
  UIImage result = UIGraphicsGetImageFromCurrentImageContext();
  UIGraphicsEndImageContext();
  return result;
}

}  // namespace ImageUtils

namespace KCGContextProcessing {

CGContextRef resizeContext(const CGContextRef& context, CGSize size) {
  const int32_t w = truncInt32(size.width), h = truncInt32(size.height);
  if (w <= 0 || h <= 0) return nullptr;
  CGContextRef out = CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, size_t(w) * 4,
                                           CGColorSpaceCreateDeviceRGB(), kCGImageAlphaPremultipliedFirst);
  if (!out) return nullptr;
  CGImageRef snapshot = CGBitmapContextCreateImage(context);
  CGContextDrawImage(out, fullRect(out), snapshot);
  return out;
}

}  // namespace KCGContextProcessing

namespace KImageProcessing {

UIImage rotate(const UIImage& image, UIImageOrientation orientation) {
  if (!image) return {};
  const CGSize size = image.size();
  const double W = size.width, H = size.height;
  const float aspect = float(W) / float(H);
  CGAffineTransform t = CGAffineTransformIdentity;
  switch (orientation) {
    case UIImageOrientationDown:
      t = CGAffineTransformTranslate(t, W, H);
      t = CGAffineTransformRotate(t, 3.14159265);
      break;
    case UIImageOrientationLeft:
      t = CGAffineTransformTranslate(t, H - W, H);
      t = CGAffineTransformRotate(t, -1.570796325);
      t = CGAffineTransformScale(t, 1.0 / aspect, aspect);
      break;
    case UIImageOrientationRight:
      t = CGAffineTransformTranslate(t, H, 0);
      t = CGAffineTransformRotate(t, 1.570796325);
      t = CGAffineTransformScale(t, 1.0 / aspect, aspect);
      break;
    default:
      break;
  }
  UIGraphicsBeginImageContextWithOptions(size, true, 1.0);
  CGContextRef c = UIGraphicsGetCurrentContext();
  if (orientation == UIImageOrientationLeft || orientation == UIImageOrientationRight) {
    CGContextScaleCTM(c, -1, 1);
    CGContextTranslateCTM(c, -H, 0);
  } else {
    CGContextScaleCTM(c, 1, -1);
    CGContextTranslateCTM(c, 0, -H);
  }
  CGContextConcatCTM(c, t);
  CGContextDrawImage(c, CGRectMake(0, 0, W, H), image.CGImage);
  UIImage result = UIGraphicsGetImageFromCurrentImageContext();
  UIGraphicsEndImageContext();
  return result;
}

UIImage correctForCameraOrientation(const UIImage& image) {
  const UIImageOrientation o = image.imageOrientation;
  const bool unmirrored = o == UIImageOrientationUp || o == UIImageOrientationDown || o == UIImageOrientationLeft ||
                          o == UIImageOrientationRight;
  return rotate(image, unmirrored ? o : UIImageOrientationUp);
}

}  // namespace KImageProcessing
}  // namespace zorvex
