// "MXLHXLLXND", "DROPFRAME", "§P∆Iƒ" and "5HR00M".
#include <gtest/gtest.h>

#include <set>

#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::layerFor;

bool isBlack(KColor c) { return c == KColor{0, 0, 0}; }

TEST(Mxlhxllx, BrightShapesGlideFromTheOffsetToTheOrigin) {
  // A white 2 x 2 block on black, 16 x 8. The offset is (0.75 * 16 - 8, 0.25 * 8 - 4) = (4, -2) in
  // drawing space: 4 right and 2 down. With 0 steps one copy lands there; with 2 steps copies land at
  // the offset, half of it and the origin. A turn control of 0.5 turns nothing.
  for (double stepsControl : {0.0, 0.04}) {
    auto s = testing::solidSurface(16, 8, {0, 0, 0});
    for (int y = 1; y <= 2; ++y)
      for (int x = 1; x <= 2; ++x) writePixel(s, x, y, {255, 255, 255});
    Filters::mxlhxllx(s, controlsWith({{0, 0.75}, {1, 0.25}, {2, stepsControl}, {3, 0.5}}));
    std::set<std::pair<int, int>> white;
    for (auto [dx, dy] : stepsControl == 0.0 ? std::vector<std::pair<int, int>>{{0, 0}, {4, 2}}
                                             : std::vector<std::pair<int, int>>{{0, 0}, {2, 1}, {4, 2}})
      for (int y = 1; y <= 2; ++y)
        for (int x = 1; x <= 2; ++x) white.insert({x + dx, y + dy});
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 16; ++x)
        EXPECT_EQ(readPixel(s, x, y), (white.count({x, y}) ? KColor{255, 255, 255} : KColor{0, 0, 0}))
            << stepsControl << ": " << x << "," << y;
  }
}

TEST(Dropframe, ASteadyWaveShiftsEveryStripAndUncoversTheOldPicture) {
  // Wave values (0.25, 0, 0) give a shift of -0.25 for every strip: 4 pixels left on a 16-wide
  // picture. Strips are 1 row high at 400 rows. The last 4 columns keep the picture as it was. No
  // wave keeps the picture.
  for (auto [controls, shift, h] : {std::tuple{controlsWith({{0, 0.25}}), 4, 400}, {controlsWith({{4, 0.3}}), 0, 40}}) {
    auto s = testing::gradientSurface(16, h);
    Filters::dropframe(s, layerFor(s), controls);
    for (int y = 0; y < h; y += h / 40)
      for (int x = 0; x < 16; ++x) ASSERT_EQ(readPixel(s, x, y), testing::gradientPixel(x < 16 - shift ? x + shift : x, y)) << x << "," << y;
    EXPECT_EQ(s->state().interpolation, kCGInterpolationNone);
  }
  // The layer lands on top.
  testing::Scene s(testing::gradientSurface(16, 40));
  CGContextSetRGBFillColor(s.layerContext(), 0, 0, 1, 1);
  CGContextFillRect(s.layerContext(), CGRectMake(0, 0, 16, 40));
  Filters::dropframe(s.surface, s.layer, rollControls(3));
  EXPECT_TRUE(testing::samePixels(s.surface, testing::solidSurface(16, 40, {0, 0, 255})));
}

TEST(Spdif, EchoesFadeAwayAlongTheChosenAxis) {
  // Only pass 1 has a rectangle: (0.1 * 40, 0.1 * 40, 0.5 * 12, 0.5 * 16) = (4, 4, 6, 8), red on black.
  // Five echoes after it, each moved by reach 0.5 of the rectangle: 3 pixels right, or 4 down.
  for (double direction : {0.0, 0.5}) {
    auto s = testing::solidSurface(40, 40, {0, 0, 0});
    for (int y = 4; y < 12; ++y)
      for (int x = 4; x < 10; ++x) writePixel(s, x, y, {255, 0, 0});
    Filters::spdif(s, layerFor(s),
                   controlsWith({{3, 0.1}, {4, 0.1}, {5, 0.5}, {6, 0.5}, {19, direction}, {20, 0.75}}));
    EXPECT_EQ(readPixel(s, 6, 6), (KColor{255, 0, 0}));
    EXPECT_TRUE(isBlack(readPixel(s, 3, 8)));
    EXPECT_TRUE(isBlack(readPixel(s, 7, 3)));
    // The fourth echo, at a fifth of the opacity; the fifth has none; nothing across.
    const bool across = direction < 0.5;
    EXPECT_GT((across ? readPixel(s, 20, 8) : readPixel(s, 7, 26)).r, 20) << direction;
    EXPECT_TRUE(isBlack(across ? readPixel(s, 23, 8) : readPixel(s, 7, 29))) << direction;
    EXPECT_TRUE(isBlack(across ? readPixel(s, 7, 13) : readPixel(s, 11, 8))) << direction;
  }
  // Zero controls give empty pieces and no change.
  auto s = testing::gradientSurface(20, 20);
  Filters::spdif(s, layerFor(s), ControlValues(kControlCount, 0.0));
  EXPECT_TRUE(testing::samePixels(s, testing::gradientSurface(20, 20)));
}

TEST(Shroom, HalvesAreSqueezedTowardTheCentreAndMixedInAtHalfOpacity) {
  // 40 x 240, one pass, bands of 3 rows, each half drawn 10 wide against the centre line. The white
  // columns 0 and 1 land squeezed into column 10, at half opacity over black; the last band's rows
  // (237 to 239) are not drawn.
  auto s = testing::solidSurface(40, 240, {0, 0, 0});
  for (int y = 0; y < 240; ++y)
    for (int x = 0; x < 2; ++x) writePixel(s, x, y, {255, 255, 255});
  Filters::shroom(s, layerFor(s), ControlValues(kControlCount, 0.0));
  for (int y = 0; y < 240; ++y) {
    const KColor c = readPixel(s, 10, y);
    if (y < 237) EXPECT_NEAR(c.g, 128, 2) << y;
    else EXPECT_TRUE(isBlack(c)) << y;
    EXPECT_EQ(readPixel(s, 0, y).g, 255);
    for (int x : {9, 11, 19, 20, 29, 30}) EXPECT_TRUE(isBlack(readPixel(s, x, y))) << x << "," << y;
  }
  EXPECT_EQ(s->state().alpha, 0.5);
  EXPECT_EQ(s->state().interpolation, kCGInterpolationMedium);
}

#ifndef __EMSCRIPTEN__
TEST(DisplacedPiecesDeathTest, ShortControlsAreFatal) {
  auto s = testing::solidSurface(8, 8, {0, 0, 0});
  const double four[4] = {};
  EXPECT_DEATH(Filters::dropframe(s, layerFor(s), Controls(four)), "");
  const double fifteen[15] = {};
  EXPECT_DEATH(Filters::shroom(s, layerFor(s), Controls(fifteen)), "");
  const double twenty[20] = {};
  EXPECT_DEATH(Filters::spdif(s, layerFor(s), Controls(twenty)), "");
}
#endif

}  // namespace
}  // namespace zorvex
