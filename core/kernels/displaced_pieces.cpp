// Effects that cut pieces out of the picture and set them down elsewhere, often several times:
// "MXLHXLLXND" repeats a threshold shape on its way from an offset back to the origin; "DROPFRAME"
// tears the picture into strips shifted by a square wave; "§P∆Iƒ" fades rectangles away along a line;
// "5HR00M" stretches the two halves of horizontal bands away from the centre line.
#include <array>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/math_utils.h"
#include "core/imaging/pixels.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {

void mxlhxllx(const CGContextRef& context, Controls controls) {
  const int64_t W = int64_t(CGBitmapContextGetWidth(context));
  const int64_t H = int64_t(CGBitmapContextGetHeight(context));
  const double w = double(W), h = double(H);
  const double startX = controls[0] * w + w * -0.5;               // the first copy's offset
  const double startY = controls[1] * h + h * -0.5;
  const int64_t steps = truncInt(controls[2] * 50.0);             // 0 to 49
  const double turn = controls[3];                                 // the last copy turns by turn - 0.5
  const int64_t lower = truncInt(controls[7] * 10.0) + 123;       // 123 to 132

  const CGImageRef image = CGBitmapContextCreateImage(context);
  const CGContextRef maskContext = ImageUtils::makeContext(W, H, false);
  uint8_t* maskData = static_cast<uint8_t*>(CGBitmapContextGetData(maskContext));
  // The mask passes the bright parts. The extra row and column read clamped and are not written.
  for (int64_t x = 0; x <= W; ++x)
    for (int64_t y = 0; y <= H; ++y) {
      const int level = luminance(readPixel(context, x, y)) & 255;
      const uint8_t v = level < lower ? 0 : 255;
      writePixelRaw(maskData, x, y, W, H, {v, v, v}, v);
    }
  const CGImageRef mask = CGBitmapContextCreateImage(maskContext);
  const CGRect whole = CGRectMake(0, 0, w, h);
  CGContextSaveGState(context);
  CGContextClearRect(context, whole);
  CGContextClipToMask(context, whole, mask);
  CGContextDrawImage(context, whole, image);
  CGContextRestoreGState(context);

  // With no steps the divisions give infinities that are never used: one pass at the full offset.
  double x = startX, y = startY;
  const double stepX = x / double(steps), stepY = y / double(steps), stepAngle = 1.0 / double(steps);
  double angle = 0.0;
  for (int64_t i = 0; i <= steps; ++i) {
    CGContextSaveGState(context);
    const double px = double(truncInt(x)), py = double(truncInt(y));
    // The clip is set before the turn, so the shape does not turn with the picture inside it.
    CGContextClipToMask(context, CGRectMake(px, py, w, h), mask);
    CGContextRotateCTM(context, angle * (turn + -0.5));
    CGContextDrawImage(context, CGRectMake(px, py, w, h), image);
    CGContextRestoreGState(context);
    if (i == steps) break;
    y = y - stepY;
    x = x - stepX;
    angle = angle + stepAngle;
  }
}

void dropframe(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  if (controls.count() < 5) fatal();
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  // The square waves read a three-value copy, so their indices wrap at 3.
  const std::array<double, 3> values = {controls[0], controls[1], controls[2]};
  const double stripHeight = MathUtils::unitMap(controls[4], h / 400.0, h / 20.0);

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  const CGImageRef image = CGBitmapContextCreateImage(context);
  CGContextSetBlendMode(CGLayerGetContext(layer), kCGBlendModeNormal);
  stride(0.0, h, stripHeight, [&](double y, int64_t) {
    const double shift = MathUtils::pulseSum(values, 2, y / h * 50.0);
    const CGImageRef strip = CGImageCreateWithImageInRect(image, CGRectMake(0.0, y, w, stripHeight));
    if (!strip) fatal();
    // The surface is not cleared: what a strip uncovers keeps the picture as it was.
    CGContextDrawImage(context, CGRectMake(shift * w, h - y - stripHeight, w, stripHeight), strip);
  });
  // The layer is not written here; what it held lands on top, under the surface's blend mode.
  CGContextDrawLayerAtPoint(context, CGPointMake(0, 0), layer);
}

void spdif(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const int64_t last = truncInt(controls[0] * 10.0 + 10.0);   // passes 0 to last, last 10 to 19
  const int64_t echoes = truncInt(controls[1] * 10.0) + 5;     // 5 to 14, plus the piece itself
  const bool alongX = controls[19] < 0.5;                      // otherwise along y
  const double reach = controls[20] + controls[20] + -1.0;     // each echo moves reach rectangles

  CGImageRef source = CGBitmapContextCreateImage(context);
  if (!source) fatal();
  const CGContextRef layerContext = CGLayerGetContext(layer);
  for (int64_t i = 0; i <= last; ++i) {
    // Pass 0 reads index 0 four times: its rectangle starts from the first control alone.
    const double rx = controls[size_t(3 * i)] * w;
    const double ry = controls[size_t(4 * i)] * h;
    const double rw = controls[size_t(5 * i)] * w * 0.3;
    const double rh = controls[size_t(6 * i)] * h * 0.4;
    const CGImageRef piece = CGImageCreateWithImageInRect(source, CGRectMake(rx, ry, rw, rh));
    const double dx = alongX ? reach : 0.0, dy = alongX ? 0.0 : reach;
    const double moveX = rw * dx, moveY = rh * dy;
    double alpha = 1.0, px = rx, py = ry;
    for (int64_t j = 0; piece && j <= echoes; ++j) {
      CGContextDrawImage(layerContext, CGRectMake(px, h - py - rh, rw, rh), ImageUtils::fadeImage(piece, alpha));
      alpha = alpha - 1.0 / double(echoes);
      px = px + moveX;
      py = py + moveY;
    }
    CGContextDrawLayerAtPoint(context, CGPointMake(0, 0), layer);
    if (i != last) {
      // The next rectangle can pick up what this one laid down.
      source = CGBitmapContextCreateImage(context);
      if (!source) fatal();
    }
  }
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0, 0), layer);
}

void shroom(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  CGContextSetInterpolationQuality(context, kCGInterpolationMedium);
  if (controls.count() < 16) fatal();
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const int64_t passes = truncInt(controls[15] * 9.0) + 1;   // 1 to 9
  const size_t count = controls.count();                     // band j of pass p stretches by (j * p) mod count
  const double half = w * 0.5;

  const CGContextRef layerContext = CGLayerGetContext(layer);
  for (int64_t p = 0; p < passes; ++p) {
    const CGImageRef image = CGBitmapContextCreateImage(context);
    if (!image) return;
    const double bandHeight = MathUtils::unitMap(controls[size_t(p)], h / 80.0, h / 3.0);
    stride(0.0, h - bandHeight, bandHeight, [&](double y, int64_t j) {
      const double k = controls[size_t(uint64_t(j * p) % count)];
      const double width = half * (k + 0.5);
      // The left half stays against the centre line and grows toward the left; the right one rightward.
      if (const CGImageRef left = CGImageCreateWithImageInRect(image, CGRectMake(0.0, y, half, bandHeight)))
        CGContextDrawImage(layerContext, CGRectMake(half - width, h - y - bandHeight, width, bandHeight), left);
      if (const CGImageRef right = CGImageCreateWithImageInRect(image, CGRectMake(half, y, half, bandHeight)))
        CGContextDrawImage(layerContext, CGRectMake(half, h - y - bandHeight, width, bandHeight), right);
    });
    // The alpha of 0.5 stays on the surface for whatever draws on it next.
    CGContextSetBlendMode(context, kCGBlendModeNormal);
    CGContextSetAlpha(context, 0.5);
    CGContextDrawLayerAtPoint(context, CGPointMake(0, 0), layer);
  }
}

}  // namespace zorvex::Filters
