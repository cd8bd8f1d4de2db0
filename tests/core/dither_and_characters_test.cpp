// "BITBOY" and "TI994X".
#include <gtest/gtest.h>

#include <set>

#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::floatsWith;

// The ordered dither's thresholds, row by row.
const int kMatrix[16] = {1, 9, 3, 11, 13, 5, 15, 7, 4, 12, 2, 10, 16, 8, 14, 6};

TEST(GrayDither, BlueHasNoSayAndOpaqueAlphaCountsInTheGrey) {
  // R = G = 0 with opaque alpha read as a colour gives grey 85 whatever the blue: white where the
  // threshold is below 85 (matrix values 1 to 5), black elsewhere. Screen lays the white over the
  // picture and leaves it where the dither is black. At 640 wide each dither pixel is 2 x 2.
  for (int width : {320, 640}) {
    for (KColor base : {KColor{0, 0, 0}, KColor{0, 0, 200}}) {
      auto s = testing::solidSurface(width, 8, base);
      KCGContextProcessing::grayDitherContext(s, ControlFloats(floatsWith({{0, 0.09f}})));
      const int scale = width / 320;
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < width; ++x) {
          const int sx = x / scale, sy = y / scale;
          const bool lit = kMatrix[(sy % 4) * 4 + sx % 4] <= 5;
          ASSERT_EQ(readPixel(s, x, y), (lit ? KColor{255, 255, 255} : base)) << width << ": " << x << "," << y;
        }
      EXPECT_EQ(s->state().blendMode, kCGBlendModeScreen);
    }
  }
}

TEST(CharacterCells, GlyphsOfBothLevelsLandInTheirCells) {
  // Pure blue, 64 x 64, two levels, both in the second font (seeds 0 give about 64.09). Alpha counts as
  // red, so the brightness is 54 and every cell gets glyph 1, whose ink is column 2 of row 1 and
  // column 1 of row 2, row 0 at the bottom. Level 0 has cells of 2 (squares of 1), level 1 cells of 4
  // (squares of 1); the last cell of each row and column is left out. The ink is blue, and Difference
  // on the surface turns it black over blue.
  auto s = testing::solidSurface(64, 64, {0, 0, 255});
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(64, 64), nullptr);
  KCGContextProcessing::TI994B(s, layer, ControlFloats(floatsWith({{6, 0.76f}})));
  std::set<std::pair<int, int>> ink;  // buffer coordinates
  for (int cy = 0; cy < 31; ++cy)
    for (int cx = 0; cx < 31; ++cx) {
      ink.insert({2 * cx + 1, 2 * cy + 1});  // drawing y 62 - 2cy
      ink.insert({2 * cx, 2 * cy});          // drawing y 63 - 2cy
    }
  for (int cy = 0; cy < 15; ++cy)
    for (int cx = 0; cx < 15; ++cx) {
      ink.insert({4 * cx + 2, 4 * cy + 2});
      ink.insert({4 * cx + 1, 4 * cy + 1});
    }
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x)
      ASSERT_EQ(readPixel(s, x, y), (ink.count({x, y}) ? KColor{0, 0, 0} : KColor{0, 0, 255})) << x << "," << y;
  EXPECT_EQ(CGLayerGetContext(layer)->state().blendMode, kCGBlendModeHardLight);
  EXPECT_EQ(s->state().blendMode, kCGBlendModeDifference);
}

TEST(CharacterCells, DrawCharFillsWholeSquaresFromTheBottomRow) {
  auto c = testing::solidSurface(8, 8, {255, 255, 255});
  CGContextSetRGBFillColor(c, 0, 0, 0, 1);
  uint8_t glyph[16] = {};
  glyph[0 * 4 + 3] = 1;  // row 0, column 3: bottom right
  glyph[3 * 4 + 0] = 1;  // row 3, column 0: top left
  KCGContextProcessing::draw4x4Char(glyph, CGPointMake(0, 0), 8, 8, c);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      const bool inked = (x >= 6 && y >= 6) || (x < 2 && y < 2);
      EXPECT_EQ(readPixel(c, x, y).r, inked ? 0 : 255) << x << "," << y;
    }
}

}  // namespace
}  // namespace zorvex
