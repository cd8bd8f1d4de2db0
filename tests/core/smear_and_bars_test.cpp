// "AGENCY" and "INTERFACE".
#include <gtest/gtest.h>

#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::Scene;

TEST(Agency, WholeRowsGiveNoLineAndNoCompositeButZeroDepthComposites) {
  // Row control, depth control, whether the layer (red in its top-left corner) lands on the surface.
  for (auto [row, depth, composited] : {std::tuple{0.5, 0.7, false}, {0.0, 0.7, false}, {0.3, 0.0, true}}) {
    Scene s(testing::solidSurface(10, 8, {9, 9, 9}));
    s.markLayer(0, 0, {255, 0, 0});
    Filters::agency(s.surface, s.layer, controlsWith({{0, row}, {1, depth}}));
    EXPECT_EQ(s.at(0, 0), (composited ? KColor{255, 0, 0} : KColor{9, 9, 9})) << row;
    EXPECT_EQ(s.at(5, 5), (KColor{9, 9, 9})) << row;
    EXPECT_EQ(s.surface->state().interpolation, kCGInterpolationNone);
  }
}

TEST(Agency, TheChosenRowIsSmearedDownward) {
  // A 16 x 64 picture, black with one green row at 20; y = 20.5 picks that row, and the band reaches
  // half of 0.5 * 64 = 16 rows down from it.
  Scene s(testing::solidSurface(16, 64, {0, 0, 0}));
  for (int x = 0; x < 16; ++x) writePixel(s.surface, x, 20, {0, 255, 0});
  Filters::agency(s.surface, s.layer, controlsWith({{0, 20.5 / 64}, {1, 0.5}}));
  for (int y = 0; y < 64; ++y) {
    const bool smeared = y >= 21 && y <= 36;
    EXPECT_EQ(readPixel(s.surface, 7, y).g, (smeared || y == 20) ? 255 : 0) << y;
  }
}

TEST(Interface, BarsFromTheBottomAndNoneNearTheTop) {
  Scene s(testing::solidSurface(8, 1000, {255, 255, 255}));
  Filters::interface(s.surface, s.layer, controlsWith({{0, 0.0}, {1, 0.0}}));  // spacing 10, thickness 1.5
  int bars = 0;
  for (int y = 999; y >= 0; --y) {
    if (readPixel(s.surface, 3, y).r == 0 && (y == 999 || readPixel(s.surface, 3, y + 1).r != 0)) ++bars;
  }
  EXPECT_EQ(bars, 99);
  EXPECT_EQ(readPixel(s.surface, 3, 999).r, 0);       // the first bar on the bottom edge
  EXPECT_NEAR(readPixel(s.surface, 3, 998).r, 128, 1); // its half row
  for (int y = 0; y < 18; ++y) EXPECT_EQ(readPixel(s.surface, 3, y).r, 255) << y;
  EXPECT_EQ(readPixel(s.surface, 3, 19).r, 0);        // the last bar, from 980 to 981.5
  EXPECT_EQ(CGLayerGetContext(s.layer)->state().fill.a, 1.0);
}

TEST(Interface, ThickestBarsStayUnderHalfTheSpacing) {
  Scene s(testing::solidSurface(4, 200, {255, 255, 255}));
  Filters::interface(s.surface, s.layer, controlsWith({{0, 0.9999}, {1, 0.9999}}));
  // spacing = 0.9999 * 8 + 2 = 9.9992; thickness just under half of it: 20 bars of 5 rows.
  double ink = 0;
  for (int y = 0; y < 200; ++y) ink += (255 - readPixel(s.surface, 1, y).r) / 255.0;
  EXPECT_GT(ink, 98.0);
  EXPECT_LE(ink, 100.0);
}

#ifndef __EMSCRIPTEN__
TEST(SmearAndBarsDeathTest, TooFewControlsAreFatal) {
  Scene s(testing::blankSurface(8, 8));
  const double one[] = {0.5};
  EXPECT_DEATH(Filters::agency(s.surface, s.layer, Controls(one)), "");
  EXPECT_DEATH(Filters::interface(s.surface, s.layer, Controls(one)), "");
}
#endif

}  // namespace
}  // namespace zorvex
