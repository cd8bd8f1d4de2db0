// "CHIP13h" and "BLITBOMB".
#include <gtest/gtest.h>

#include "tests/core/kernel_scene.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::KernelScene;

TEST(Chip13h, ThreeSmallerPicturesBlendOverTheFirstByTheChosenMode) {
  // A flat grey 128: Multiply (index 0) three times gives 64, 32, 16; Screen (index 5) 192, 224, 240.
  for (auto [control, mode, level] : {std::tuple{0.0, kCGBlendModeMultiply, 16}, {0.75, kCGBlendModeScreen, 240}}) {
    KernelScene s(testing::solidSurface(64, 48, {128, 128, 128}));
    Filters::chip13h(s.surface, s.layer, controlsWith({{0, control}}));
    EXPECT_NEAR(readPixel(s.surface, 30, 20).g, level, 1) << control;
    EXPECT_EQ(s.layerContext()->state().blendMode, mode);
  }
  // Every picture is stretched over the whole surface, not kept square: the top-left quarter of a
  // 256 x 128 picture stays its top-left quarter under Lighten.
  auto picture = testing::solidSurface(256, 128, {0, 0, 0});
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 128; ++x) writePixel(picture, x, y, {255, 255, 255});
  KernelScene s(picture);
  Filters::chip13h(s.surface, s.layer, controlsWith({{0, 0.45}}));
  EXPECT_EQ(readPixel(s.surface, 10, 10).r, 255);
  EXPECT_EQ(readPixel(s.surface, 120, 56).r, 255);
  EXPECT_EQ(readPixel(s.surface, 136, 10).r, 0);
  EXPECT_EQ(readPixel(s.surface, 10, 72).r, 0);
}

TEST(Blitbomb, SquaresSitOneSquareAboveWhereTheyWereSampled) {
  // 60 x 60 black under Lighten, cells and squares of 4. The white pixel at (8, 8) is the corner of a
  // cell whose square fills rows 4-7 with 255 / 256 of white, that is 254; the one at (20, 0) is in the
  // top row, whose squares fall off the surface.
  auto picture = testing::solidSurface(60, 60, {0, 0, 0});
  writePixel(picture, 8, 8, {255, 255, 255});
  writePixel(picture, 20, 0, {255, 255, 255});
  KernelScene s(picture);
  Filters::blitbomb(s.surface, s.layer, controlsWith({{0, 0.45}, {1, 0.0}, {2, 0.0}}));
  for (int y = 4; y < 8; ++y)
    for (int x = 8; x < 12; ++x) EXPECT_EQ(readPixel(s.surface, x, y), (KColor{254, 254, 254})) << x << "," << y;
  EXPECT_EQ(readPixel(s.surface, 8, 8).r, 255);  // Lighten keeps the picture's own white
  EXPECT_EQ(readPixel(s.surface, 9, 9).r, 0);
  EXPECT_EQ(readPixel(s.surface, 9, 3).r, 0);
  EXPECT_EQ(readPixel(s.surface, 20, 0).r, 255);
  EXPECT_EQ(readPixel(s.surface, 21, 0).r, 0);
  EXPECT_EQ(s.surface->state().blendMode, kCGBlendModeLighten);
}

}  // namespace
}  // namespace zorvex
