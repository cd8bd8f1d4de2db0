// "ISAM", "01RECTINE" and "ARECIBO".
#include <gtest/gtest.h>

#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::layerFor;

TEST(Isam, AColumnsBrightnessSetsTheHeightOfItsBar) {
  // Column 5 is green of luminance 64, so its level is 0.25 and with no offset its bar is h / 2 high:
  // the slice, drawn one pixel wider, lands on column 6 in the middle half of the rows. Dark columns
  // give bars of no height.
  auto s = testing::solidSurface(8, 16, {0, 0, 0});
  for (int y = 0; y < 16; ++y) writePixel(s, 5, y, {0, 90, 0});
  Filters::isam(s, layerFor(s), controlsWith({{2, 0.5}}));
  for (int y = 0; y < 16; ++y) {
    EXPECT_EQ(readPixel(s, 5, y), (KColor{0, 90, 0})) << y;
    EXPECT_EQ(readPixel(s, 6, y), (y >= 4 && y < 12 ? KColor{0, 90, 0} : KColor{0, 0, 0})) << y;
    for (int x : {0, 4, 7}) EXPECT_EQ(readPixel(s, x, y), (KColor{0, 0, 0})) << x << "," << y;
  }
}

TEST(Isam, LevelsSeeTheLayerWhileSlicesComeFromThePictureBefore) {
  // A white column left in the layer makes column 2 bright for the measure, so the picture's own
  // black column 2 is stretched over all rows and hides it.
  testing::Scene s(testing::solidSurface(8, 16, {0, 0, 0}));
  CGContextSetRGBFillColor(s.layerContext(), 1, 1, 1, 1);
  CGContextFillRect(s.layerContext(), CGRectMake(2, 0, 1, 16));
  Filters::isam(s.surface, s.layer, controlsWith({{2, 0.5}}));
  for (int y = 0; y < 16; ++y) EXPECT_EQ(s.at(2, y), (KColor{0, 0, 0})) << y;
  // 1600 rows: step 2, slices start at even columns, and the bright odd column 1 is measured and
  // ignored.
  auto tall = testing::solidSurface(4, 1600, {0, 0, 0});
  for (int y = 0; y < 1600; ++y) writePixel(tall, 1, y, {255, 255, 255});
  auto before = CGBitmapContextCreateImage(tall);
  Filters::isam(tall, layerFor(tall), controlsWith({{2, 0.5}}));
  EXPECT_TRUE(testing::sameRGB(CGBitmapContextCreateImage(tall), before));
}

TEST(Oirectine, TheBlueByteIndexesTheCosinePalette) {
  // Phases 0, amplitudes 0.5, frequencies 0.5, period 10; blue's frequency is the index itself.
  const ControlValues c = controlsWith({{1, 0.5}, {3, 0.5}, {5, 0.5}});
  auto s = testing::solidSurface(4, 2, {0, 0, 0});
  const KColor in[4] = {{0, 0, 10}, {200, 30, 10}, {9, 9, 77}, {1, 2, 255}};
  for (int x = 0; x < 4; ++x) writePixel(s, x, 1, in[x]);
  auto layer = layerFor(s);
  Filters::oirectine(s, layer, c);
  for (int x = 0; x < 4; ++x) {
    const int b = in[x].b;
    EXPECT_EQ(readPixel(s, x, 1), cosinePalette(b / 10.0, 0, 0.5, 0, 0.5, 0, 0.5, 0.5, 0.5, double(b))) << x;
  }
  EXPECT_EQ(readPixel(s, 0, 1), readPixel(s, 1, 1));  // red and green bytes play no part
  EXPECT_EQ(readPixel(s, 0, 0), cosinePalette(0, 0, 0.5, 0, 0.5, 0, 0.5, 0.5, 0.5, 0));
  // The result is also left in the layer.
  EXPECT_EQ(testing::pixelOf(CGBitmapContextCreateImage(CGLayerGetContext(layer)), 2, 1), readPixel(s, 2, 1));
}

TEST(Oirectine, ZeroAmplitudesGive127Everywhere) {
  auto s = testing::gradientSurface(9, 7);
  Filters::oirectine(s, layerFor(s), controlsWith({{0, 0.3}, {6, 0.9}, {8, 0.4}}));
  EXPECT_TRUE(testing::samePixels(s, testing::solidSurface(9, 7, {127, 127, 127})));
}

TEST(Arecibo, TheDarkShapeIsMirroredLeftToRightAndTheCopiesStayInIt) {
  // White with a black block in the top-left corner: the mask passes the dark parts, turned twice in
  // the y-down canvas, so only the top-right corner of the picture survives; unscaled, unturned copies
  // (lighten) keep it white. Everything else is cleared.
  auto s = testing::solidSurface(12, 8, {255, 255, 255});
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) writePixel(s, x, y, {0, 0, 0});
  Filters::arecibo(s, controlsWith({{3, 0.5}, {11, 0.0}, {20, 0.5715}}));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) {
      const KColor p = readPixel(s, x, y);
      if (x >= 9 && y < 2) EXPECT_GT(luminance(p), 240) << x << "," << y;
      else EXPECT_EQ(p, (KColor{0, 0, 0})) << x << "," << y;
    }
}

TEST(Arecibo, AnAllBrightPictureIsClearedAndStaysClear) {
  auto s = testing::solidSurface(10, 6, {250, 250, 250});
  Filters::arecibo(s, rollControls(7));
  EXPECT_TRUE(testing::samePixels(s, testing::blankSurface(10, 6)));
}

#ifndef __EMSCRIPTEN__
TEST(ColumnsPaletteMaskDeathTest, ShortControlsAreFatal) {
  auto s = testing::solidSurface(8, 8, {0, 0, 0});
  const double eight[8] = {};
  EXPECT_DEATH(Filters::oirectine(s, layerFor(s), Controls(eight)), "");
  const double twelve[12] = {};
  EXPECT_DEATH(Filters::arecibo(s, Controls(twelve)), "");
}
#endif

}  // namespace
}  // namespace zorvex
