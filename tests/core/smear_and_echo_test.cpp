// "B∑AMRID∑R", "DOCTOR OCULAR" and "BRAINFEED3R".
#include <gtest/gtest.h>

#include <cmath>

#include "core/imaging/math_utils.h"
#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::layerFor;

void paint(const CGContextRef& s, int x0, int x1, int y, KColor c) {
  for (int x = x0; x < x1; ++x) writePixel(s, x, y, c);
}

TEST(BeamRider, SmearsFromTheFirstLargestEdgeOverTheBand) {
  // Row 0 steps from black to white at 5 | 6: the smear runs from 5 for trunc(15 * 0.5) = 7 columns,
  // black to the white of column 12, over the band's rows. Row 7 has equal steps at 1 | 2 and 3 | 4:
  // the first wins, and the smear from 1 to the black of column 10 hides the white pair. On 10 rows
  // bands are one row high; on 1000 they are drawn from 1 to 10 by the seed of control 10.
  for (int h : {10, 1000}) {
    const int64_t band = h == 10 ? 1 : truncInt(MathUtils::seededRandom(truncInt(0.7 * 10000.0), 1.0, 10.0));
    auto s = testing::solidSurface(20, h, {0, 0, 0});
    paint(s, 6, 20, 0, {255, 255, 255});
    if (h == 10) paint(s, 2, 4, 7, {255, 255, 255});
    Filters::beamRider(s, layerFor(s), controlsWith({{0, 0.5}, {10, 0.7}}));
    for (int x = 0; x < 20; ++x) {
      const int smear = x < 5 ? 0 : x < 12 ? int(255.0f * (float(x - 5) / 7.0f)) : 255;
      EXPECT_EQ(readPixel(s, x, 0), (KColor{uint8_t(smear), uint8_t(smear), uint8_t(smear)})) << x;
      EXPECT_EQ(readPixel(s, x, int(band) - 1).r, x < 12 || band == 1 ? smear : 0) << x;  // all the band
      EXPECT_EQ(readPixel(s, x, int(band)).r, 0) << x;  // the next band is flat black
      EXPECT_EQ(readPixel(s, x, 7).r, h == 10 || band <= 7 || x >= 12 ? 0 : smear) << x;
    }
  }
  // A flat picture has no edge of 11; a length of 0 writes nothing.
  for (auto [s, reach] : {std::pair{testing::solidSurface(20, 10, {90, 20, 200}), 0.9}, {testing::gradientSurface(20, 10), 0.0}}) {
    const CGImageRef before = CGBitmapContextCreateImage(s);
    Filters::beamRider(s, layerFor(s), controlsWith({{0, reach}}));
    for (int x = 0; x < 20; ++x) EXPECT_EQ(readPixel(s, x, 5), testing::pixelOf(before, x, 5));
  }
}

TEST(DoctorOcular, EveryPassShiftsByTheSeedZeroShiftWhenControlFourIsZero) {
  // The copies are drawn at dx = seededRandom(0, -10, 10), about -6.6: the columns whose centres lie
  // right of 100 + dx are never covered and keep the picture; the rest are tinted.
  const double dx = MathUtils::seededRandom(0, -10.0, 10.0);
  auto s = testing::solidSurface(100, 20, {200, 30, 30});
  auto layer = layerFor(s);
  Filters::doctorocular(s, layer, controlsWith({{0, 0.9}, {1, 0.2}, {2, 0.5}, {3, 0.8}, {4, 0.0}}));
  for (int x = 0; x < 100; ++x) EXPECT_EQ(readPixel(s, x, 10) == (KColor{200, 30, 30}), x + 0.5 > 100 + dx) << x;
  EXPECT_EQ(CGLayerGetContext(layer)->state().blendMode, kCGBlendModeNormal);
}

TEST(Brainfeed3r, UnturnedCopiesShrinkTowardTheBottomLeft) {
  // Darken, growth 0.9644 a pass, no turn. The black top-right pixel of a white picture comes back at
  // the top-right corner of each of the seven copies: with nearest-neighbour sampling, pass n covers
  // the pixels whose centres lie in [99, 100) * 0.9644^n, across and up.
  const double grow = MathUtils::unitMap(0.4, 0.8, 1.211);
  auto s = testing::solidSurface(100, 100, {255, 255, 255});
  writePixel(s, 99, 0, {0, 0, 0});
  Filters::brainfeed3r(s, layerFor(s), controlsWith({{0, 0.4}, {1, 0.4}, {2, 0.5}}));
  for (int y = 0; y < 100; ++y)
    for (int x = 0; x < 100; ++x) {
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
  Filters::brainfeed3r(s, layer, controlsWith({{0, 0.1}, {1, 0.9}, {2, 0.9}}));
  const CGAffineTransform t = CGContextGetCTM(CGLayerGetContext(layer));
  EXPECT_NEAR(std::atan2(t.b, t.a), 14 * MathUtils::unitMap(0.9, -0.05, 0.05), 1e-12);
}

}  // namespace
}  // namespace zorvex
