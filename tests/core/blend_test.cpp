// Blend modes checked against their published formulas, computed here independently in double
// precision on a few chosen premultiplied pixels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "core/imaging/blend.h"
#include "core/imaging/blend_modes.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using raster::RGBA8;

struct D4 {
  double r, g, b, a;
};
D4 unit(RGBA8 p) { return {p.r / 255.0, p.g / 255.0, p.b / 255.0, p.a / 255.0}; }

// The separable PDF composition: sc(1-da) + dc(1-sa) + sa da B(dc/da, sc/sa).
D4 pdf(D4 s, D4 d, const std::function<double(double, double)>& B) {
  auto ch = [&](double sc, double dc) {
    const double cs = s.a > 0 ? sc / s.a : 0, cb = d.a > 0 ? dc / d.a : 0;
    return sc * (1 - d.a) + dc * (1 - s.a) + s.a * d.a * B(cb, cs);
  };
  return {ch(s.r, d.r), ch(s.g, d.g), ch(s.b, d.b), s.a + d.a - s.a * d.a};
}

void expectNear(RGBA8 got, D4 want, const char* what) {
  auto near = [](uint8_t g, double w) { return std::abs(g - std::clamp(w, 0.0, 1.0) * 255.0) <= 1.01; };
  EXPECT_TRUE(near(got.r, want.r) && near(got.g, want.g) && near(got.b, want.b) && near(got.a, want.a))
      << what << ": got " << int(got.r) << "," << int(got.g) << "," << int(got.b) << "," << int(got.a) << " want "
      << want.r * 255 << "," << want.g * 255 << "," << want.b * 255 << "," << want.a * 255;
}

// Opaque and translucent sources over opaque and translucent backdrops.
const RGBA8 kSources[] = {{200, 100, 50, 255}, {60, 180, 240, 255}, {90, 20, 120, 160}, {0, 0, 0, 0}};
const RGBA8 kBackdrops[] = {{100, 200, 250, 255}, {30, 30, 30, 255}, {80, 40, 10, 128}, {255, 255, 255, 255}};

TEST(BlendModes, SeparableModesFollowTheirFormulas) {
  struct Case {
    CGBlendMode mode;
    std::function<double(double, double)> B;  // B(backdrop, source)
  };
  const Case cases[] = {
      {kCGBlendModeMultiply, [](double b, double s) { return b * s; }},
      {kCGBlendModeScreen, [](double b, double s) { return b + s - b * s; }},
      {kCGBlendModeOverlay, [](double b, double s) { return b <= 0.5 ? 2 * s * b : 1 - 2 * (1 - s) * (1 - b); }},
      {kCGBlendModeDarken, [](double b, double s) { return std::min(b, s); }},
      {kCGBlendModeLighten, [](double b, double s) { return std::max(b, s); }},
      {kCGBlendModeColorDodge, [](double b, double s) { return b == 0 ? 0 : s >= 1 ? 1 : std::min(1.0, b / (1 - s)); }},
      {kCGBlendModeColorBurn, [](double b, double s) { return b >= 1 ? 1 : s <= 0 ? 0 : 1 - std::min(1.0, (1 - b) / s); }},
      {kCGBlendModeHardLight, [](double b, double s) { return s <= 0.5 ? 2 * s * b : 1 - 2 * (1 - s) * (1 - b); }},
      {kCGBlendModeSoftLight,
       [](double b, double s) {
         const double d = b <= 0.25 ? ((16 * b - 12) * b + 4) * b : std::sqrt(b);
         return s <= 0.5 ? b - (1 - 2 * s) * b * (1 - b) : b + (2 * s - 1) * (d - b);
       }},
      {kCGBlendModeDifference, [](double b, double s) { return std::abs(b - s); }},
      {kCGBlendModeExclusion, [](double b, double s) { return b + s - 2 * b * s; }},
  };
  for (const Case& c : cases)
    for (RGBA8 s : kSources)
      for (RGBA8 d : kBackdrops) expectNear(raster::blendPixel(c.mode, s, d), pdf(unit(s), unit(d), c.B), "separable");
}

TEST(BlendModes, NonSeparableModesKeepLuminosityAndHue) {
  auto lum = [](RGBA8 p) { return 0.3 * p.r + 0.59 * p.g + 0.11 * p.b; };
  const RGBA8 s{200, 40, 40, 255}, d{40, 90, 200, 255};
  // Luminosity: the backdrop's hue and saturation with the source's luminosity.
  EXPECT_NEAR(lum(raster::blendPixel(kCGBlendModeLuminosity, s, d)), lum(s), 1.5);
  // Color: the source's hue and saturation with the backdrop's luminosity.
  EXPECT_NEAR(lum(raster::blendPixel(kCGBlendModeColor, s, d)), lum(d), 1.5);
  const RGBA8 c = raster::blendPixel(kCGBlendModeColor, s, d);
  EXPECT_GT(c.r, c.g);  // reddish, as the source
  EXPECT_EQ(c.g, c.b);
  // Saturation of a grey source gives a grey with the backdrop's luminosity.
  const RGBA8 g = raster::blendPixel(kCGBlendModeSaturation, {128, 128, 128, 255}, d);
  EXPECT_EQ(g.r, g.g);
  EXPECT_EQ(g.g, g.b);
  EXPECT_NEAR(g.r, lum(d), 1.5);
  // Hue keeps the backdrop's luminosity.
  EXPECT_NEAR(lum(raster::blendPixel(kCGBlendModeHue, s, d)), lum(d), 1.5);
}

TEST(BlendModes, PorterDuffAndPlusModes) {
  for (RGBA8 s8 : kSources)
    for (RGBA8 d8 : kBackdrops) {
      const D4 s = unit(s8), d = unit(d8);
      auto pd = [&](double fa, double fb) {
        return D4{s.r * fa + d.r * fb, s.g * fa + d.g * fb, s.b * fa + d.b * fb, s.a * fa + d.a * fb};
      };
      expectNear(raster::blendPixel(kCGBlendModeNormal, s8, d8), pd(1, 1 - s.a), "normal");
      expectNear(raster::blendPixel(kCGBlendModeClear, s8, d8), pd(0, 0), "clear");
      expectNear(raster::blendPixel(kCGBlendModeCopy, s8, d8), pd(1, 0), "copy");
      expectNear(raster::blendPixel(kCGBlendModeSourceIn, s8, d8), pd(d.a, 0), "source in");
      expectNear(raster::blendPixel(kCGBlendModeSourceOut, s8, d8), pd(1 - d.a, 0), "source out");
      expectNear(raster::blendPixel(kCGBlendModeSourceAtop, s8, d8), pd(d.a, 1 - s.a), "source atop");
      expectNear(raster::blendPixel(kCGBlendModeDestinationOver, s8, d8), pd(1 - d.a, 1), "destination over");
      expectNear(raster::blendPixel(kCGBlendModeDestinationIn, s8, d8), pd(0, s.a), "destination in");
      expectNear(raster::blendPixel(kCGBlendModeDestinationOut, s8, d8), pd(0, 1 - s.a), "destination out");
      expectNear(raster::blendPixel(kCGBlendModeDestinationAtop, s8, d8), pd(1 - d.a, s.a), "destination atop");
      expectNear(raster::blendPixel(kCGBlendModeXOR, s8, d8), pd(1 - d.a, 1 - s.a), "xor");
      auto darker = [](double x, double y) { return std::max(0.0, 1 - ((1 - y) + (1 - x))); };
      auto lighter = [](double x, double y) { return std::min(1.0, x + y); };
      expectNear(raster::blendPixel(kCGBlendModePlusDarker, s8, d8),
                 {darker(s.r, d.r), darker(s.g, d.g), darker(s.b, d.b), darker(s.a, d.a)}, "plus darker");
      expectNear(raster::blendPixel(kCGBlendModePlusLighter, s8, d8),
                 {lighter(s.r, d.r), lighter(s.g, d.g), lighter(s.b, d.b), lighter(s.a, d.a)}, "plus lighter");
    }
}

// Drawing with a mode into each layout: a surface without alpha keeps the premultiplied result,
// which is the pixel over black.
TEST(BlendModes, CompositingIntoEachLayout) {
  const RGBA8 src{90, 20, 120, 160};
  for (PixelFormat f : {PixelFormat::RGBX, PixelFormat::RGBA, PixelFormat::ARGB}) {
    uint8_t px[4];
    raster::storePixel(f, px, {100, 200, 250, 255});
    const PixelView view{px, 1, 1, 4, f};
    raster::compositeSpan(kCGBlendModeMultiply, view, 0, 0, 1, &src, false, nullptr, 255);
    const RGBA8 want = raster::blendPixel(kCGBlendModeMultiply, src, {100, 200, 250, 255});
    EXPECT_EQ(raster::loadPixel(f, px), want) << int(f);
  }
  uint8_t px[4] = {10, 20, 30, 255};
  const PixelView view{px, 1, 1, 4, PixelFormat::RGBX};
  raster::compositeSpan(kCGBlendModeClear, view, 0, 0, 1, &src, false, nullptr, 255);
  EXPECT_EQ(raster::loadPixel(PixelFormat::RGBX, px), (RGBA8{0, 0, 0, 255}));  // clear is black here
  // A coverage of one half moves the destination half way toward the blend.
  const RGBA8 s{0, 100, 200, 255};
  const uint8_t half = 128;
  raster::storePixel(PixelFormat::RGBA, px, {200, 100, 0, 255});
  raster::compositeSpan(kCGBlendModeNormal, {px, 1, 1, 4, PixelFormat::RGBA}, 0, 0, 1, &s, false, &half, 255);
  const RGBA8 r = raster::loadPixel(PixelFormat::RGBA, px);
  EXPECT_TRUE(std::abs(r.r - 100) <= 1 && std::abs(r.b - 100) <= 1 && r.a == 255) << int(r.r) << " " << int(r.b);
}

// The span compositor (chunked, vectorised, in place for the normal mode) against the per-pixel
// definition: blend, then move the destination toward it by coverage * alpha / 255.
TEST(BlendModes, SpansMatchThePixelDefinitionInEveryLayout) {
  std::mt19937 rng(5);
  auto byte = [&] { return uint8_t(rng()); };
  for (int round = 0; round < 400; ++round) {
    const CGBlendMode mode = CGBlendMode(round % kCGBlendModeCount);
    const PixelFormat f = PixelFormat(rng() % 4);
    const int n = 1 + int(rng() % 70);
    const bool solid = rng() % 4 == 0, withCoverage = rng() % 2 == 0;
    const uint8_t alpha = rng() % 3 ? 255 : byte();
    std::vector<RGBA8> src(static_cast<size_t>(n));
    std::vector<uint8_t> cov(static_cast<size_t>(n)), dst(static_cast<size_t>(n) * 4);
    for (int i = 0; i < n; ++i) {
      const uint8_t a = rng() % 3 ? byte() : rng() % 2 ? 255 : 0;
      const bool malformed = rng() % 10 == 0;  // colour above alpha must not spill
      auto c = [&] { return malformed ? byte() : uint8_t(rng() % (a + 1u)); };
      src[size_t(i)] = {c(), c(), c(), a};
      cov[size_t(i)] = rng() % 3 ? 255 : byte();
      for (int k = 0; k < 4; ++k) dst[size_t(i) * 4 + size_t(k)] = byte();
      if (hasAlpha(f)) {  // a valid premultiplied destination
        raster::RGBA8 d = raster::loadPixel(f, &dst[size_t(i) * 4]);
        d = {uint8_t(std::min(d.r, d.a)), uint8_t(std::min(d.g, d.a)), uint8_t(std::min(d.b, d.a)), d.a};
        raster::storePixel(f, &dst[size_t(i) * 4], d);
      }
    }
    std::vector<uint8_t> want = dst;
    const int bpp = bytesPerPixel(f);
    for (int i = 0; i < n; ++i) {
      uint8_t* p = &want[size_t(i * bpp)];
      const RGBA8 d = raster::loadPixel(f, p);
      const uint32_t strength = withCoverage ? raster::div255(cov[size_t(i)] * uint32_t{alpha}) : alpha;
      const RGBA8 r = raster::blendPixel(mode, src[solid ? 0 : size_t(i)], d);
      raster::storePixel(f, p, raster::lerpPixel(d, r, strength));
    }
    const PixelView view{dst.data(), n, 1, n * 4, f};
    raster::compositeSpan(mode, view, 0, 0, n, src.data(), solid, withCoverage ? cov.data() : nullptr, alpha);
    for (int i = 0; i < n * bpp; ++i) {
      if (f == PixelFormat::RGBX && i % 4 == 3) continue;
      ASSERT_EQ(int(dst[size_t(i)]), int(want[size_t(i)])) << "mode " << mode << " layout " << int(f) << " byte " << i;
    }
  }
}

TEST(BlendModes, PickerTable) {
  EXPECT_EQ(cgBlendMode(BlendMode::plusDarker), kCGBlendModePlusDarker);
  EXPECT_EQ(cgBlendMode(BlendMode::plusLighter), kCGBlendModePlusLighter);
  EXPECT_EQ(cgBlendMode(allBlendModes[1]), kCGBlendModeColor);
  EXPECT_EQ(rawValue(BlendMode::colorBurn), "Color Burn");
  EXPECT_EQ(blendModeFromLabel("Soft Light"), BlendMode::softLight);
  EXPECT_FALSE(blendModeFromLabel("soft light"));
  // Only normal and darken have an index equal to their platform number.
  for (size_t i = 0; i < allBlendModes.size(); ++i) {
    const bool same = size_t(cgBlendMode(allBlendModes[i])) == i;
    EXPECT_EQ(same, allBlendModes[i] == BlendMode::normal || allBlendModes[i] == BlendMode::darken) << i;
  }
}

TEST(BlendModes, ControlAndSeededPicks) {
  using namespace KCGContextProcessing;
  EXPECT_EQ(getBlendmodeForNormalizedControl(0.0f), kCGBlendModeMultiply);
  EXPECT_EQ(getBlendmodeForNormalizedControl(0.999f), kCGBlendModeColor);
  EXPECT_EQ(getBlendmodeForNormalizedControl(1.0f), kCGBlendModeMultiply);
  // Across many seeds all thirteen entries come up, the normal mode included.
  bool seen[kCGBlendModeCount] = {};
  for (int32_t seed = 0; seed < 5000; ++seed) seen[getRandomGoodBlendModeWithSeed(seed)] = true;
  for (CGBlendMode m : goodBlendModes) EXPECT_TRUE(seen[m]) << m;
}

TEST(BlendModes, RandomPickReachesTheThirteenthOnlyAtTheTop) {
  // 2^32 - 1 rounds to 1.0 in single precision: index 12.
  for (auto [draw, mode] : {std::pair{0u, kCGBlendModeMultiply}, {0xFFFFFFFFu, kCGBlendModeNormal}}) {
    testing::TestPlatform platform({draw});
    EXPECT_EQ(KCGContextProcessing::getRandomGoodBlendMode(), mode);
  }
}

}  // namespace
}  // namespace zorvex
