// The fast drawing paths against the general path: random pictures, layouts, rectangles,
// transforms, blend modes, alphas, clips and interpolation qualities, drawn both ways into equal
// destinations, must give the same bytes.
#include <gtest/gtest.h>

#include <random>

#include "core/imaging/image_utils.h"
#include "core/imaging/raster_internal.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

struct FastPathsOff {
  FastPathsOff() { setFastPathsEnabled(false); }
  ~FastPathsOff() { setFastPathsEnabled(true); }
};

// The same drawing on `fast` with the fast paths on and on `slow` with them off.
template <class Draw>
void bothWays(const CGContextRef& fast, const CGContextRef& slow, Draw draw) {
  draw(fast);
  FastPathsOff off;
  draw(slow);
}

class Random {
 public:
  explicit Random(uint32_t seed) : gen_(seed) {}
  int range(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen_); }
  double real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(gen_); }
  bool chance(double p) { return real(0, 1) < p; }
  // Whole, half or arbitrary values, as kernels give all three.
  double coordinate(double lo, double hi) {
    const double v = real(lo, hi);
    switch (range(0, 2)) {
      case 0: return std::round(v);
      case 1: return std::round(v * 2) / 2;
      default: return v;
    }
  }

 private:
  std::mt19937 gen_;
};

const PixelFormat kFormats[] = {PixelFormat::RGBX, PixelFormat::RGBA, PixelFormat::ARGB, PixelFormat::Gray};
// Half the time the surface's own layout, which the kernels use most.
PixelFormat randomFormat(Random& r) { return r.chance(0.5) ? PixelFormat::RGBX : kFormats[r.range(0, 3)]; }

CGContextRef contextOf(PixelFormat f, int w, int h) {
  const uint32_t info = f == PixelFormat::RGBX ? kCGImageAlphaNoneSkipLast
                        : f == PixelFormat::RGBA ? kCGImageAlphaPremultipliedLast
                        : f == PixelFormat::ARGB ? kCGImageAlphaPremultipliedFirst
                                                 : kCGImageAlphaNone;
  return CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, 0,
                               f == PixelFormat::Gray ? CGColorSpaceCreateDeviceGray() : CGColorSpaceCreateDeviceRGB(), info);
}

CGContextRef randomContext(Random& r, int w, int h, PixelFormat f) {
  auto c = contextOf(f, w, h);
  const PixelView& p = c->pixels();
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const uint8_t a = hasAlpha(f) && r.chance(0.5) ? uint8_t(r.range(0, 255)) : 255;
      raster::storePixel(f, p.at(x, y),
                         {uint8_t(r.range(0, a)), uint8_t(r.range(0, a)), uint8_t(r.range(0, a)), a});
    }
  return c;
}

CGContextRef copyOf(const CGContextRef& c) {
  const PixelView& p = c->pixels();
  auto d = contextOf(p.format, p.width, p.height);
  std::copy(p.data, p.data + p.stride * p.height, d->pixels().data);
  return d;
}

// A random drawing state, applied the same way to both destinations.
struct State {
  CGBlendMode mode;
  double alpha;
  CGInterpolationQuality quality;
  CGAffineTransform ctm;
  CGImageRef mask;
  CGRect maskRect;

  static State random(Random& r, int w, int h, bool rotate) {
    State s;
    s.mode = r.chance(0.4) ? kCGBlendModeNormal : CGBlendMode(r.range(0, kCGBlendModeCount - 1));
    s.alpha = r.chance(0.6) ? 1.0 : r.real(0, 1);
    s.quality = r.chance(0.5) ? kCGInterpolationNone : r.chance(0.5) ? kCGInterpolationHigh : kCGInterpolationDefault;
    s.ctm = CGAffineTransformIdentity;
    if (r.chance(0.5)) s.ctm = CGAffineTransformTranslate(s.ctm, r.coordinate(-10, 10), r.coordinate(-10, 10));
    if (r.chance(0.4)) s.ctm = CGAffineTransformScale(s.ctm, r.coordinate(-3, 3), r.coordinate(-3, 3));
    if (rotate) s.ctm = CGAffineTransformRotate(s.ctm, r.real(-3.2, 3.2));
    if (r.chance(0.3)) {
      s.mask = CGBitmapContextCreateImage(randomContext(r, r.range(1, w), r.range(1, h), PixelFormat::RGBX));
      s.maskRect = CGRectMake(r.coordinate(-5, w), r.coordinate(-5, h), r.coordinate(1, w + 5), r.coordinate(1, h + 5));
    }
    return s;
  }
  void apply(const CGContextRef& c) const {
    CGContextSetBlendMode(c, mode);
    CGContextSetAlpha(c, alpha);
    CGContextSetInterpolationQuality(c, quality);
    if (mask) CGContextClipToMask(c, maskRect, mask);
    CGContextConcatCTM(c, ctm);
  }
};

TEST(FastPaths, ImageDrawsMatchTheGeneralPath) {
  Random r(20261121);
  for (int iteration = 0; iteration < 1500; ++iteration) {
    const int w = r.range(1, 48), h = r.range(1, 48);
    const PixelFormat df = randomFormat(r);
    auto fast = randomContext(r, w, h, df);
    auto slow = copyOf(fast);
    const int sw = r.range(1, 40), sh = r.range(1, 40);
    CGImageRef image = CGBitmapContextCreateImage(randomContext(r, sw, sh, randomFormat(r)));
    if (r.chance(0.3)) {
      image = CGImageCreateWithImageInRect(image, CGRectMake(r.range(0, sw - 1), r.range(0, sh - 1), r.range(1, sw), r.range(1, sh)));
    }
    const State s = State::random(r, w, h, r.chance(0.15));
    CGRect rect = CGRectMake(r.coordinate(-20, w), r.coordinate(-20, h), r.coordinate(-60, 80), r.coordinate(-60, 80));
    if (r.chance(0.25)) rect.size = CGSizeMake(double(CGImageGetWidth(image)), double(CGImageGetHeight(image)));  // shifts
    s.apply(fast);
    s.apply(slow);
    bothWays(fast, slow, [&](const CGContextRef& c) { CGContextDrawImage(c, rect, image); });
    ASSERT_TRUE(testing::samePixels(fast, slow)) << "iteration " << iteration;
  }
}

TEST(FastPaths, LayerCompositesMatchTheGeneralPath) {
  Random r(7);
  for (int iteration = 0; iteration < 300; ++iteration) {
    const int w = r.range(1, 64), h = r.range(1, 64);
    auto fast = randomContext(r, w, h, PixelFormat::RGBX);
    auto slow = copyOf(fast);
    auto layer = CGLayerCreateWithContext(fast, CGSizeMake(w, h), nullptr);
    auto layerPixels = randomContext(r, w, h, PixelFormat::RGBA);
    CGContextDrawImage(CGLayerGetContext(layer), CGRectMake(0, 0, w, h), CGBitmapContextCreateImage(layerPixels));
    const State s = State::random(r, w, h, false);
    s.apply(fast);
    s.apply(slow);
    const CGPoint at = r.chance(0.7) ? CGPointZero : CGPointMake(r.coordinate(-w, w), r.coordinate(-h, h));
    bothWays(fast, slow, [&](const CGContextRef& c) { CGContextDrawLayerAtPoint(c, at, layer); });
    ASSERT_TRUE(testing::samePixels(fast, slow)) << "iteration " << iteration;
  }
}

TEST(FastPaths, ClipMasksMatchTheGeneralPath) {
  Random r(31);
  for (int iteration = 0; iteration < 400; ++iteration) {
    const int w = r.range(1, 40), h = r.range(1, 40);
    auto fast = testing::blankSurface(w, h), slow = testing::blankSurface(w, h);
    State s = State::random(r, w, h, false);
    if (!s.mask) {
      s.mask = CGBitmapContextCreateImage(randomContext(r, r.range(1, w), r.range(1, h), randomFormat(r)));
      s.maskRect = CGRectMake(r.coordinate(-5, w), r.coordinate(-5, h), r.coordinate(-20, w + 5), r.coordinate(-20, h + 5));
    }
    // A clip already in place is intersected with the new one.
    for (auto* c : {&fast, &slow}) {
      if (iteration % 2) CGContextClipToMask(*c, CGRectMake(0, 0, w, h), s.mask);
      CGContextConcatCTM(*c, s.ctm);
    }
    bothWays(fast, slow, [&](const CGContextRef& c) { CGContextClipToMask(c, s.maskRect, s.mask); });
    ASSERT_EQ(fast->state().clip->coverage, slow->state().clip->coverage) << "iteration " << iteration;
  }
}

TEST(FastPaths, RectangleFillsMatchTheRasterizer) {
  Random r(99);
  for (int iteration = 0; iteration < 1000; ++iteration) {
    const int w = r.range(1, 40), h = r.range(1, 40);
    auto fast = randomContext(r, w, h, kFormats[r.range(0, 2)]);
    auto slow = copyOf(fast);
    State s = State::random(r, w, h, false);
    const bool clear = r.chance(0.2);
    const CGRect rect = CGRectMake(r.coordinate(-10, w), r.coordinate(-10, h), r.coordinate(-30, 50), r.coordinate(-30, 50));
    const double color[4] = {r.real(0, 1), r.real(0, 1), r.real(0, 1), r.chance(0.6) ? 1.0 : r.real(0, 1)};
    for (auto* c : {&fast, &slow}) {
      s.apply(*c);
      CGContextSetRGBFillColor(*c, color[0], color[1], color[2], color[3]);
    }
    bothWays(fast, slow, [&](const CGContextRef& c) { clear ? CGContextClearRect(c, rect) : CGContextFillRect(c, rect); });
    ASSERT_TRUE(testing::samePixels(fast, slow)) << "iteration " << iteration;
  }
}

TEST(FastPaths, QuarterTurnsAndMirrorsCopyWhatTheDrawSamples) {
  Random r(2026);
  for (const auto& [w, h] : {std::pair{1, 1}, {2, 3}, {5, 4}, {17, 9}, {64, 31}, {301, 1003}}) {
    for (const PixelFormat f : kFormats) {
      const UIImage image{CGBitmapContextCreateImage(randomContext(r, w, h, f)), UIImageOrientationUp};
      for (const double degrees : {0.0, 90.0, -90.0, 180.0, 270.0, -180.0, 360.0, 45.0}) {
        for (const bool mirror : {false, true}) {
          const UIImage fast = ImageUtils::rotatedImage(image, degrees, mirror);
          FastPathsOff off;
          const UIImage slow = ImageUtils::rotatedImage(image, degrees, mirror);
          ASSERT_TRUE(testing::samePixels(fast.CGImage, slow.CGImage))
              << w << "x" << h << " format " << int(f) << " turned " << degrees << (mirror ? " mirrored" : "");
        }
      }
    }
  }
}

}  // namespace
}  // namespace zorvex
