#include "core/imaging/image_utils.h"

#include <cmath>
#include <utility>

#include "core/imaging/blend.h"
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

namespace {

// The buffer pixel that a point of the buffer's own coordinates falls in.
std::pair<int64_t, int64_t> bufferPixel(CGPoint d) { return {int64_t(std::floor(d.x)), int64_t(std::floor(d.y))}; }

// A draw of `source` into `rect` of `c` under a whole number of quarter turns and mirrors, in which
// every pixel of the picture lands on one pixel of the context: each is copied there, as the draw
// would leave it over a clear context. False (nothing drawn) when the draw is not such a one.
bool copyQuarterTurned(const CGContextRef& c, const CGRect& rect, const CGImageRef& source) {
  const PixelView& src = source->pixels();
  const PixelView& dst = c->pixels();
  if (rect.size.width != src.width || rect.size.height != src.height) return false;
  // The picture's pixel space (u right, v down from its top row) to the rectangle in user space, as
  // the draw places it, and on to the buffer (rows from the top).
  const CGAffineTransform pictureToUser{1, 0, 0, -1, rect.origin.x, rect.origin.y + rect.size.height};
  const CGAffineTransform flip{1, 0, 0, -1, 0, double(dst.height)};
  const CGAffineTransform t = CGAffineTransformConcat(pictureToUser, CGAffineTransformConcat(CGContextGetCTM(c), flip));
  auto centre = [&](double col, double row) { return CGPointApplyAffineTransform(CGPoint{col + 0.5, row + 0.5}, t); };
  // Where pixel (0, 0) goes, and the steps of one column and of one row.
  const auto [x0, y0] = bufferPixel(centre(0, 0));
  const auto [x1, y1] = bufferPixel(centre(1, 0));
  const auto [x2, y2] = bufferPixel(centre(0, 1));
  const int64_t colX = x1 - x0, colY = y1 - y0, rowX = x2 - x0, rowY = y2 - y0;
  const bool unitSteps = std::abs(colX) + std::abs(colY) == 1 && std::abs(rowX) + std::abs(rowY) == 1 && colX * rowX + colY * rowY == 0;
  if (!unitSteps) return false;
  // Every centre exactly half way between pixel edges (no sampling between pixels), and the whole
  // picture on the context.
  for (const CGPoint d : {centre(0, 0), centre(src.width - 1, src.height - 1)}) {
    if (std::abs(d.x - std::floor(d.x) - 0.5) > 1e-6 || std::abs(d.y - std::floor(d.y) - 0.5) > 1e-6) return false;
  }
  const int64_t xl = x0 + colX * (src.width - 1) + rowX * (src.height - 1);
  const int64_t yl = y0 + colY * (src.width - 1) + rowY * (src.height - 1);
  if (std::min(x0, xl) < 0 || std::min(y0, yl) < 0 || std::max(x0, xl) >= dst.width || std::max(y0, yl) >= dst.height) return false;
  for (int32_t row = 0; row < src.height; ++row) {
    const uint8_t* in = src.row(row);
    int64_t x = x0 + rowX * row, y = y0 + rowY * row;
    for (int32_t col = 0; col < src.width; ++col, x += colX, y += colY)
      raster::storePixel(dst.format, dst.at(int32_t(x), int32_t(y)), raster::loadPixel(src.format, in + size_t(col) * bytesPerPixel(src.format)));
  }
  return true;
}

}  // namespace

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
  const CGRect rect = CGRectMake(-size.width / 2, -size.height / 2, size.width, size.height);
  // The quarter turns and mirrors of the edit tools move whole pixels: copied, not sampled.
  const bool quarter = std::fmod(degrees, 90.0) == 0;
  if (!(quarter && fastPathsEnabled() && copyQuarterTurned(c, rect, image.CGImage)))
    CGContextDrawImage(c, rect, image.CGImage);
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
