// "BUNKER", "FINGERBLIB" and "KOMPLIANCE". These kernels draw tiles under the layer's interpolation
// quality, which they don't set; the tests make it nearest so that the scaled tiles are exact.
#include <gtest/gtest.h>

#include "tests/core/kernel_scene.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::gradientPixel;
using testing::KernelScene;

KernelScene nearestScene(CGContextRef picture) {
  KernelScene s(std::move(picture));
  CGContextSetInterpolationQuality(s.layerContext(), kCGInterpolationNone);
  return s;
}

TEST(Bunker, SourcesCrowdTowardsTheCentreOnBothAxes) {
  // 2 x 2 tiles of 32 x 24 on 64 x 48, zoom 2: the centre tile's corner is (16, 12); the bottom-left
  // tile (dy 0) takes its source from (8, 18) counted from the top, the top-left one (dy 24) from (8, 6).
  // Tiles are drawn one pixel larger, 33 x 25.
  KernelScene s = nearestScene(testing::gradientSurface(64, 48));
  Filters::bunker(s.surface, s.layer, controlsWith({{0, 0.15}, {1, 0.15}, {2, 1.0 / 3.0}}));
  EXPECT_EQ(readPixel(s.surface, 0, 47), gradientPixel(8, 41));
  EXPECT_EQ(readPixel(s.surface, 0, 0), gradientPixel(8, 7));
  EXPECT_EQ(readPixel(s.surface, 63, 0), gradientPixel(54, 7));
  EXPECT_EQ(readPixel(s.surface, 63, 47), gradientPixel(54, 41));

  // One tile at zoom 1: the whole picture, one pixel larger, so the bottom row stays and the top row
  // is pushed off.
  KernelScene one = nearestScene(testing::gradientSurface(64, 48));
  Filters::bunker(one.surface, one.layer, controlsWith({}));
  EXPECT_EQ(readPixel(one.surface, 0, 47), gradientPixel(0, 47));
  EXPECT_EQ(readPixel(one.surface, 0, 0), gradientPixel(0, 1));
}

TEST(Fingerblib, TilesGrowUpAndRightByTheirCornerAndLaterOnesLieOnTop) {
  // 60 x 40 with cell 20: two tiles along the top row only. The first has a white corner (side 31.89,
  // over columns 0-31 and rows 0-19), the second a black one (side 12.05, columns 20-31, rows 8-19),
  // painted after and so on top. Both keep their lower-left corner at row 20.
  auto picture = testing::gradientSurface(60, 40);
  writePixel(picture, 0, 0, {255, 255, 255});
  writePixel(picture, 20, 0, {0, 0, 0});
  KernelScene s = nearestScene(picture);
  Filters::fingerblib(s.surface, s.layer, controlsWith({{0, 0.0}}));
  EXPECT_EQ(readPixel(s.surface, 25, 15), gradientPixel(29, 12));  // the black-cornered tile, on top
  EXPECT_EQ(readPixel(s.surface, 10, 5), gradientPixel(6, 10));    // the white-cornered one
  EXPECT_EQ(readPixel(s.surface, 24, 3), gradientPixel(15, 9));
  for (auto [x, y] : {std::pair{40, 5}, {35, 10}, {5, 30}, {55, 39}})  // gaps and margins show the picture
    EXPECT_EQ(readPixel(s.surface, x, y), gradientPixel(x, y)) << x << "," << y;
}

TEST(Kompliance, TilesAreUpsideDownAndOnlyTheTurnsModuloFourCount) {
  // Cell 10 on a 30 x 100 picture whose rows are all different and whose columns are all alike. A tile
  // drawn 11 rows high from the top at y - 1 shows rows y + 1 and y + 7 from its rows 2 and 7.
  auto run = [](double turnsControl) {
    auto picture = testing::blankSurface(30, 100);
    for (int y = 0; y < 100; ++y)
      for (int x = 0; x < 30; ++x) writePixel(picture, x, y, {uint8_t(2 * y), 0, 0});
    KernelScene s = nearestScene(picture);
    Filters::kompliance(s.surface, s.layer, controlsWith({{0, 1.0}, {1, turnsControl}}));
    return s.surface;
  };
  for (double control : {0.0, 0.045}) {  // 0 and 4 turns: upside down
    auto out = run(control);
    for (int y = 0; y < 100; y += 10) {
      EXPECT_EQ(readPixel(out, 13, y + 1).r, 2 * (y + 7)) << control << " " << y;
      EXPECT_EQ(readPixel(out, 13, y + 7).r, 2 * (y + 2)) << control << " " << y;
    }
  }
  auto half = run(0.025);  // 2 turns: upside down and turned over, which is mirrored left to right
  for (int y = 0; y < 100; y += 10) EXPECT_EQ(readPixel(half, 13, y + 1).r, 2 * (y + 2)) << y;
  auto quarter = run(0.015);  // 1 turn: the rows become columns
  EXPECT_EQ(readPixel(quarter, 12, 31), readPixel(quarter, 12, 37));
  EXPECT_NE(readPixel(quarter, 11, 33), readPixel(quarter, 17, 33));
}

}  // namespace
}  // namespace zorvex
