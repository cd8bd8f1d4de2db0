// "B∑AMRID∑R" smears each band of rows from its sharpest edge to the right; "DOCTOR OCULAR" adds
// three tinted, shifted copies; "BRAINFEED3R" stacks seven copies that grow and turn. Their random
// values come from seeds derived from the controls, so a live picture holds still.
#include <array>
#include <cstdlib>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/math_utils.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

// The blend modes the echo effects choose among.
constexpr std::array<CGBlendMode, 3> kEchoModes = {kCGBlendModeOverlay, kCGBlendModeDarken, kCGBlendModeHardLight};

CGBlendMode echoMode(int64_t index) { return at(std::span<const CGBlendMode>(kEchoModes), size_t(index)); }

}  // namespace

void beamRider(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const double reach = controls[0];                       // fraction of the way from the edge to the right border
  const int64_t seed = truncInt(controls[10] * 10000.0);  // of the band height
  const int64_t width = int64_t(CGBitmapContextGetWidth(context));
  const int64_t height = int64_t(CGBitmapContextGetHeight(context));
  const double w = double(width), h = double(height);
  CGContextSetBlendMode(context, kCGBlendModeNormal);

  // Between 1 and a hundredth of the height, that hundredth in single precision.
  const int64_t bandHeight = truncInt(MathUtils::seededRandom(seed, 1.0, std::max(1.0, double(float(h) / 100.0f))));
  for (int64_t y = 0; y < height; y += bandHeight) {
    // The first of the largest luminance steps between neighbours on the band's first row.
    int largest = 0;
    int64_t edge = 0;
    for (int64_t x = 0; x + 1 < width; ++x) {
      const int step = std::abs(int(uint8_t(luminance(readPixel(context, x, y)))) -
                                int(uint8_t(luminance(readPixel(context, x + 1, y)))));
      if (step > largest) largest = step, edge = x;
    }
    const int64_t length = truncInt(double(width - edge) * reach);
    const KColor start = readPixel(context, edge, y);
    const KColor end = readPixel(context, edge + length, y);  // clamped to the last column
    if (largest < 11 || length <= 0) continue;
    for (int64_t x = edge; x < edge + length; ++x) {
      const float t = float(x - edge) / float(length);
      auto channel = [t](uint8_t a, uint8_t b) { return truncInt(float(a) + (float(b) - float(a)) * t); };
      const KColor c = packColor(channel(start.r, end.r), channel(start.g, end.g), channel(start.b, end.b));
      for (int64_t k = 0; k < bandHeight; ++k) writePixel(context, x, y + k, c);
    }
  }

  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
  // The result goes into the layer as well.
  if (CGImageRef image = CGBitmapContextCreateImage(context)) CGContextDrawImage(layerContext, CGRectMake(0.0, 0.0, w, h), image);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

void doctorocular(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const CGBlendMode mode = echoMode(truncInt(std::floor(controls[0] * 3.0)));  // of the layer
  const int64_t redSeed = truncInt(controls[1] * 10000.0);                     // of the tint
  const int64_t greenSeed = truncInt(controls[2] * 10000.0);
  const int64_t blueSeed = truncInt(controls[3] * 10000.0);
  const double shift = controls[4];  // seed of each copy's shift, times the pass: pass 0 always has seed 0
  const double w = double(CGBitmapContextGetWidth(context)), h = double(CGBitmapContextGetHeight(context));
  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGImageRef image = CGBitmapContextCreateImage(context);
  if (!image) fatal();

  for (int pass = 0; pass < 3; ++pass) {
    const KColor tint = packColor(truncInt(MathUtils::seededRandom(redSeed, 0.0, 255.0)),
                                  truncInt(MathUtils::seededRandom(greenSeed, 0.0, 255.0)),
                                  truncInt(MathUtils::seededRandom(blueSeed, 0.0, 255.0)));
    CGImageRef tinted = ImageUtils::tintImage(image, tint);
    const double dx = MathUtils::seededRandom(truncInt(shift * double(pass) * 50000.0), w / -10.0, w / 10.0);
    CGContextSetBlendMode(layerContext, mode);
    CGContextDrawImage(layerContext, CGRectMake(dx, 0.0, w, h), tinted);
    // Under the surface's blend mode as it stands.
    CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
    if (pass < 2) {
      // Each pass builds on the one before.
      image = CGBitmapContextCreateImage(context);
      if (!image) fatal();
    }
  }
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
}

void brainfeed3r(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const CGBlendMode mode = echoMode(truncInt(controls[0] * 3.0));      // of the layer
  const double growX = MathUtils::unitMap(controls[0], 0.8, 1.211);    // width factor per pass
  const double growY = MathUtils::unitMap(controls[1], 0.8, 1.211);    // height factor per pass
  const double turn = MathUtils::unitMap(controls[2], -0.05, 0.05);    // radians added per pass
  const double w = double(CGBitmapContextGetWidth(context)), h = double(CGBitmapContextGetHeight(context));
  const CGImageRef image = CGBitmapContextCreateImage(context);  // every pass draws this one picture
  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGContextSetBlendMode(layerContext, mode);
  CGContextSetInterpolationQuality(layerContext, kCGInterpolationNone);

  // The rotations are not bracketed: they add up on the layer's transform pass on pass, and the one
  // at the end takes back only the last angle, so the layer stays turned for the effects after.
  double angle = 0.0, sx = 1.0, sy = 1.0;
  for (int counter = 6;; --counter) {
    CGContextTranslateCTM(layerContext, w * 0.5, h * 0.5);
    CGContextRotateCTM(layerContext, angle);
    CGContextTranslateCTM(layerContext, w * -0.5, h * -0.5);
    if (!image) fatal();
    CGContextDrawImage(layerContext, CGRectMake(0.0, 0.0, sx * w, sy * h), image);
    angle = angle + turn;
    CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
    sx = growX * sx;
    sy = growY * sy;
    if (counter == 0) break;
  }
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
  CGContextRotateCTM(layerContext, -angle);
}

}  // namespace zorvex::Filters
