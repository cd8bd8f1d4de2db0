// "B∑AMRID∑R", "DOCTOR OCULAR" and "BRAINFEED3R".
#include <gtest/gtest.h>

#include <cmath>

#include "core/imaging/math_utils.h"
#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

ControlValues controlsWith(std::initializer_list<std::pair<size_t, double>> values) {
  ControlValues c(kControlCount, 0.0);
  for (auto [i, v] : values) c[i] = v;
  return c;
}

CGLayerRef layerFor(const CGContextRef& s) {
  return CGLayerCreateWithContext(
      s, CGSizeMake(double(CGBitmapContextGetWidth(s)), double(CGBitmapContextGetHeight(s))), nullptr);
}

void paint(const CGContextRef& s, int x0, int x1, int y, KColor c) {
  for (int x = x0; x < x1; ++x) writePixel(s, x, y, c);
}

TEST(BeamRider, SmearsFromTheFirstLargestEdge) {
  // 20 x 10, so bands are one row high. Row 3 steps from black to white at x = 5 | 6: the smear runs
  // from 5 for trunc(15 * 0.5) = 7 columns, black to the white of column 12. Row 7 has two equal
  // steps, at 1 | 2 and 3 | 4: the first wins, and the smear from 1 to the black of column 10 hides
  // the white pair.
  auto s = testing::solidSurface(20, 10, {0, 0, 0});
  paint(s, 6, 20, 3, {255, 255, 255});
  paint(s, 2, 4, 7, {255, 255, 255});
  Filters::beamRider(s, layerFor(s), controlsWith({{0, 0.5}, {10, 0.3}}));
  for (int x = 0; x < 20; ++x) {
    const int expected = x < 5 ? 0 : x < 12 ? int(255.0f * (float(x - 5) / 7.0f)) : 255;
    EXPECT_EQ(readPixel(s, x, 3), (KColor{uint8_t(expected), uint8_t(expected), uint8_t(expected)})) << x;
    EXPECT_EQ(readPixel(s, x, 7).r, 0) << x;
  }
}

TEST(BeamRider, FlatRowsAndZeroLengthLeaveThePicture) {
  auto flat = testing::solidSurface(20, 10, {90, 20, 200});
  Filters::beamRider(flat, layerFor(flat), controlsWith({{0, 0.9}}));
  EXPECT_TRUE(testing::samePixels(flat, testing::solidSurface(20, 10, {90, 20, 200})));
  auto edged = testing::gradientSurface(20, 10);
  Filters::beamRider(edged, layerFor(edged), controlsWith({{0, 0.0}}));
  EXPECT_TRUE(testing::samePixels(edged, testing::gradientSurface(20, 10)));
}

TEST(BeamRider, ABandSharesTheSmearOfItsFirstRow) {
  // 1000 rows: the band height is drawn between 1 and 10 from the seed of control 10.
  const int64_t band = truncInt(MathUtils::seededRandom(truncInt(0.7 * 10000.0), 1.0, 10.0));
  ASSERT_GE(band, 2);
  auto s = testing::solidSurface(20, 1000, {0, 0, 0});
  paint(s, 6, 20, 0, {255, 255, 255});
  Filters::beamRider(s, layerFor(s), controlsWith({{0, 0.5}, {10, 0.7}}));
  EXPECT_EQ(readPixel(s, 8, 0).r, 109);
  EXPECT_EQ(readPixel(s, 8, int(band) - 1).r, 109);
  EXPECT_EQ(readPixel(s, 8, int(band)).r, 0);
}

TEST(DoctorOcular, EveryPassShiftsByTheSeedZeroShiftWhenControlFourIsZero) {
  // The copies are drawn at dx = seededRandom(0, -10, 10), about -6.6: the columns whose centres lie
  // right of 100 + dx are never covered and keep the picture; the rest are tinted.
  const double dx = MathUtils::seededRandom(0, -10.0, 10.0);
  auto s = testing::solidSurface(100, 20, {200, 30, 30});
  auto layer = layerFor(s);
  Filters::doctorocular(s, layer, controlsWith({{0, 0.9}, {1, 0.2}, {2, 0.5}, {3, 0.8}, {4, 0.0}}));
  for (int x = 0; x < 100; ++x) {
    const bool uncovered = x + 0.5 > 100 + dx;
    EXPECT_EQ(readPixel(s, x, 10) == (KColor{200, 30, 30}), uncovered) << x;
  }
  EXPECT_EQ(s->state().blendMode, kCGBlendModeNormal);
  EXPECT_EQ(CGLayerGetContext(layer)->state().blendMode, kCGBlendModeNormal);
}

TEST(Brainfeed3r, UnturnedCopiesShrinkTowardTheBottomLeft) {
  // Darken, growth 0.9644 a pass, no turn. The black top-right pixel of a white picture comes back at
  // the top-right corner of each of the seven copies, pass n scaled by 0.9644^n.
  const double grow = MathUtils::unitMap(0.4, 0.8, 1.211);
  auto s = testing::solidSurface(100, 100, {255, 255, 255});
  writePixel(s, 99, 0, {0, 0, 0});
  Filters::brainfeed3r(s, layerFor(s), controlsWith({{0, 0.4}, {1, 0.4}, {2, 0.5}}));
  for (int y = 0; y < 100; ++y)
    for (int x = 0; x < 100; ++x) {
      // Nearest-neighbour: the mark of pass n covers the pixels whose centres fall in
      // [99, 100) * 0.9644^n across and (from the bottom) up.
      bool mark = false;
      for (int n = 0; n < 7; ++n) {
        const double lo = 99 * std::pow(grow, n), hi = 100 * std::pow(grow, n);
        mark |= x + 0.5 >= lo && x + 0.5 < hi && 99 - y + 0.5 >= lo && 99 - y + 0.5 < hi;
      }
      ASSERT_EQ(readPixel(s, x, y).r, mark ? 0 : 255) << x << "," << y;
    }
}

TEST(Brainfeed3r, TheTurnsAddUpOnTheLayer) {
  // Passes turn by 0, t, 2t ... 6t, 21t in all; the last step takes back 7t, leaving 14t.
  auto s = testing::gradientSurface(40, 30);
  auto layer = layerFor(s);
  const double turn = MathUtils::unitMap(0.9, -0.05, 0.05);
  Filters::brainfeed3r(s, layer, controlsWith({{0, 0.1}, {1, 0.9}, {2, 0.9}}));
  const CGAffineTransform t = CGContextGetCTM(CGLayerGetContext(layer));
  EXPECT_NEAR(std::atan2(t.b, t.a), 14 * turn, 1e-12);
  EXPECT_EQ(CGContextGetInterpolationQuality(CGLayerGetContext(layer)), kCGInterpolationNone);
}

#ifndef __EMSCRIPTEN__
TEST(SmearAndEchoDeathTest, ShortControlsAreFatal) {
  auto s = testing::gradientSurface(16, 12);
  const std::vector<double> ten(10, 0.5), four(4, 0.5), two(2, 0.5);
  EXPECT_DEATH(Filters::beamRider(s, layerFor(s), Controls(ten)), "");
  EXPECT_DEATH(Filters::doctorocular(s, layerFor(s), Controls(four)), "");
  EXPECT_DEATH(Filters::brainfeed3r(s, layerFor(s), Controls(two)), "");
}
#endif

}  // namespace
}  // namespace zorvex
