// "ISAM" stretches vertical slices by the brightness of their column, like the bars of a level meter;
// "01RECTINE" maps the blue byte of every pixel through a 256-entry cosine palette; "ARECIBO" cuts the
// picture by a luminance threshold and stacks eleven tinted, scaled and turned copies inside that shape.
#include <algorithm>
#include <array>
#include <vector>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/math_utils.h"
#include "core/imaging/pixels.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

float lerp(float a, float b, float t) { return (b - a) * t + a; }

// The copies' blend modes: hard light, screen, overlay, difference, lighten, darken, soft light.
constexpr std::array<CGBlendMode, 7> kAreciboBlendModes = {
    kCGBlendModeHardLight, kCGBlendModeScreen, kCGBlendModeOverlay, kCGBlendModeDifference,
    kCGBlendModeLighten,   kCGBlendModeDarken, kCGBlendModeSoftLight};

}  // namespace

void isam(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double w = double(CGBitmapContextGetWidth(context));
  const double h = double(CGBitmapContextGetHeight(context));
  const CGImageRef image = CGBitmapContextCreateImage(context);
  const double offset = controls[2];  // shifts every bar's height by -0.1 to +0.1 of h

  // What the layer held from the effects before now covers the surface, and the levels see that.
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGContextDrawLayerAtPoint(context, CGPointMake(0, 0), layer);

  // One value is both the row step of the sampling and the slice width, derived from the height alone.
  const double step = std::max(h / 800.0, 1.0);
  const int64_t columns = int64_t(CGBitmapContextGetWidth(context));
  std::vector<double> level(size_t(columns), 0.0);
  for (int64_t x = 0; x < columns; ++x) {
    int64_t sum = 0, count = 0;
    stride(0.0, h, step, [&](double y, int64_t) {
      sum += luminance(readPixel(context, x, truncInt(y))) & 255;
      ++count;
    });
    level[size_t(x)] = double(sum) / double(count) * 0.00390625;
  }

  const CGContextRef layerContext = CGLayerGetContext(layer);
  if (!layerContext) fatal();
  stride(0.0, w, step, [&](double x, int64_t) {
    const CGImageRef slice = CGImageCreateWithImageInRect(image, CGRectMake(x, 0.0, step, h));
    if (!slice) fatal();
    const double l = at(std::span<const double>(level), size_t(truncInt(x)));
    const double barHeight = (l + l + offset * 0.2 - 0.1) * h;
    // Squeezed or stretched about the horizontal middle, one pixel wider than its place.
    CGContextDrawImage(layerContext, CGRectMake(x, h * 0.5 + barHeight * -0.5, step + 1.0, barHeight), slice);
  });
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0, 0), layer);
}

void oirectine(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  if (controls.count() < 9) fatal();
  const double phaseR = controls[0];                               // turns
  const double ampR = controls[1];
  const double phaseG = controls[2];
  const double ampG = controls[3];
  const double phaseB = controls[4];
  const double ampB = controls[5];
  const double freqR = MathUtils::unitMap(controls[6], 0.5, 3.0);
  const double freqG = MathUtils::unitMap(controls[7], 0.5, 3.0);
  const double period = MathUtils::unitMap(controls[8], 10.0, 100.0);

  // Blue's frequency is the palette index itself, so the blue channel runs wild.
  std::array<KColor, 256> palette{};
  for (int i = 0; i < 256; ++i) {
    const double t = i / period;
    palette[size_t(i)] = cosinePalette(t, phaseR, ampR, phaseG, ampG, phaseB, ampB, freqR, freqG, double(i));
  }
  const int64_t w = int64_t(CGBitmapContextGetWidth(context));
  const int64_t h = int64_t(CGBitmapContextGetHeight(context));
  for (int64_t y = 0; y < h; ++y)
    for (int64_t x = 0; x < w; ++x) writePixel(context, x, y, palette[readPixel(context, x, y).b]);

  const CGContextRef layerContext = CGLayerGetContext(layer);
  if (layerContext) {
    const CGImageRef image = CGBitmapContextCreateImage(context);
    if (!image) fatal();
    CGContextDrawImage(layerContext, CGRectMake(0, 0, double(w), double(h)), image);
  }
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0, 0), layer);
}

void arecibo(const CGContextRef& context, Controls controls) {
  const int64_t W = int64_t(CGBitmapContextGetWidth(context));
  const int64_t H = int64_t(CGBitmapContextGetHeight(context));
  const double w = double(W), h = double(H);
  const double turn = controls[3];                             // (turn - 0.5) * t radians per copy
  const int64_t threshold = truncInt(controls[7] * 10.0) + 123;  // 123 to 132
  const float startR = float(controls[7]);                     // the tint at the first copy
  const float startG = float(controls[8]);
  const float startB = float(controls[9]);
  const float endR = float(controls[10]);                      // the tint toward the last copy
  const float endG = float(controls[11]);
  const float endB = float(controls[12]);
  const double scalePerCopy = controls[11];
  const bool shrink = controls[14] > 0.5;                      // otherwise the copies grow
  const CGBlendMode mode = at(std::span<const CGBlendMode>(kAreciboBlendModes), size_t(truncInt(controls[20] * 7.0)));

  const CGImageRef image = CGBitmapContextCreateImage(context);
  const CGContextRef maskContext = ImageUtils::makeContext(W, H, false);
  if (!image || !maskContext) fatal();
  uint8_t* maskData = static_cast<uint8_t*>(CGBitmapContextGetData(maskContext));
  if (!maskData) fatal();

  // The mask passes the dark parts. The extra row and column read clamped and are not written.
  for (int64_t x = 0; x <= W; ++x)
    for (int64_t y = 0; y <= H; ++y) {
      const int level = luminance(readPixel(context, x, y)) & 255;
      const uint8_t v = level <= threshold ? 255 : 0;
      writePixelRaw(maskData, x, y, W, H, {v, v, v}, 255);
    }
  // Two quarter turns in the y-down canvas: the shape comes out mirrored left to right.
  const CGImageRef mask = ImageUtils::rotateCGImage(CGBitmapContextCreateImage(maskContext), 2);
  const CGRect whole = CGRectMake(0, 0, w, h);
  CGContextSaveGState(context);
  CGContextClearRect(context, whole);
  CGContextClipToMask(context, whole, mask);
  CGContextDrawImage(context, whole, image);
  CGContextRestoreGState(context);

  float t = 0.0f;  // the copy's progress, by tenths in single precision: the last is just short of 1
  for (int copy = 0; copy < 11; ++copy) {
    CGContextSaveGState(context);
    const float r = lerp(startR, endR, t) * 255.0f;
    const float g = lerp(startG, endG, t) * 255.0f;
    const float b = lerp(startB, endB, t) * 255.0f;
    const CGImageRef tinted = ImageUtils::tintImage(image, packColor(truncInt(r), truncInt(g), truncInt(b)));
    CGContextSetBlendMode(context, mode);
    // The clip is set before the transform, so the shape neither scales nor turns; both pivot on the
    // bottom-left corner.
    CGContextClipToMask(context, whole, mask);
    const double s = scalePerCopy * double(t);
    const double scale = shrink ? 1.0 - s : s + 1.0;
    CGContextScaleCTM(context, scale, scale);
    CGContextRotateCTM(context, (turn + -0.5) * double(t));
    CGContextDrawImage(context, whole, tinted);
    CGContextRestoreGState(context);
    t = t + 0.1f;
  }
}

}  // namespace zorvex::Filters
