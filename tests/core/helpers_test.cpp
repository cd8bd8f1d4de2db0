// The pixel, colour, numeric and picture helpers the kernels share.
#include <gtest/gtest.h>

#include <cmath>

#include "core/imaging/drand48.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/math_utils.h"
#include "core/imaging/text.h"
#include "core/stack/controls.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::gradientPixel;
using testing::pixelOf;

TEST(PixelAccess, ReadsClampAndWritesDoNot) {
  auto c = testing::gradientSurface(5, 4);
  EXPECT_EQ(readPixel(c, -5, -5), gradientPixel(0, 0));
  EXPECT_EQ(readPixel(c, 10, 9), gradientPixel(4, 3));
  auto before = testing::gradientSurface(5, 4);
  for (auto [x, y] : {std::pair{-1, 0}, {5, 0}, {0, 4}}) writePixel(c, x, y, {1, 2, 3});
  EXPECT_TRUE(testing::samePixels(c, before));
  writePixel(c, 2, 1, {1, 2, 3});
  const uint8_t* p = static_cast<const uint8_t*>(CGBitmapContextGetData(c)) + 4 * (1 * 5 + 2);
  EXPECT_EQ(p[3], 255);
  EXPECT_EQ(readPixel(nullptr, 0, 0), KColor{});
  uint8_t raw[2 * 2 * 4] = {};
  writePixelRaw(raw, 1, 1, 2, 2, {7, 8, 9}, 40);
  writePixelRaw(raw, 2, 0, 2, 2, {7, 8, 9});
  EXPECT_EQ(raw[12], 7);
  EXPECT_EQ(raw[15], 40);
  EXPECT_EQ(raw[4], 0);
}

TEST(Colour, LuminanceHueAndConversions) {
  EXPECT_EQ(luminance({255, 255, 255}), 254);
  EXPECT_EQ(luminance({0, 0, 0}), 0);
  EXPECT_EQ(packColor(0x1FF, 0x102, -1), (KColor{255, 2, 255}));
  EXPECT_EQ((KColor{1, 2, 3}).packed(), 0x030201u);
  EXPECT_TRUE(colorToCGColor({255, 0, 128})->r == 0.99609375 && colorToCGColor({255, 0, 128})->b == 0.5);
  EXPECT_TRUE(std::isnan(hue({90, 90, 90})));
  EXPECT_NEAR(hue({255, 0, 0}), 0.0, 1e-12);          // red: branch 1
  EXPECT_NEAR(hue({0, 255, 0}), 2.0 / 60, 1e-12);     // green: branch 2
  EXPECT_NEAR(hue({0, 0, 255}), 4.0 / 60, 1e-12);     // blue: branch 3
  EXPECT_NEAR(hue({255, 0, 255}), 5.0 / 60, 1e-12);   // magenta: branch 3
  EXPECT_LT(hue({255, 0, 128}), 0.0);                  // red toward blue dips below zero
  // Amplitude 0 gives the middle value for the whole palette.
  EXPECT_EQ(cosinePalette(3.3, 0.2, 0, 0.4, 0, 0.9, 0, 1, 2, 3), (KColor{127, 127, 127}));
  EXPECT_EQ(cosinePalette(0, 0, 0.9999, 0, 0.9999, 0.5, 0.9999, 1, 1, 1).r, 254);
}

TEST(Numbers, MappingAndWaves) {
  using namespace MathUtils;
  EXPECT_EQ(clamp(5, 0, 3), 3);
  EXPECT_EQ(remap(0.5, 0, 1, 10, 20), 15);
  EXPECT_EQ(remap(2, 0, 1, 10, 20), 30);  // not clamped
  EXPECT_EQ(unitMap(0.25, 4, 8), 5);
  // A negative remainder is returned as it is.
  for (auto [x, y] : {std::pair{0.0, 0.0}, {1.0, 1.0}, {2.0, 0.0}, {3.0, -1.0}, {4.0, 0.0}, {0.5, 0.5}, {-0.5, -0.5}})
    EXPECT_NEAR(triangleWave(x), y, 1e-7) << x;
  // pulseSum: n below 1 gives 0; each wave adds or subtracts its level.
  const double controls[] = {0.1, 0.5, 0.25, 0.0, 0.0};
  EXPECT_EQ(pulseSum(controls, 0, 1.0), 0.0);
  // i = 0: x = controls[4]*t + controls[0] = 0.1 < duty 0.5: + 0.25.
  EXPECT_EQ(pulseSum(controls, 1, 7.0), 0.25);
}

TEST(Numbers, SeededAndStatelessRandomness) {
  using namespace MathUtils;
  EXPECT_EQ(seededRandom(42, 3, 9), seededRandom(42, 3, 9));
  EXPECT_EQ(seededRandom(42, 5, 5), 5);
  EXPECT_NEAR(seededUnitRandom(0), 0.170828036106627, 1e-12);
  EXPECT_EQ(noiseInRange(12.7f, 0, 1), noiseInRange(12.0f, 0, 1));  // the seed is truncated
  EXPECT_NEAR(noiseInRange(0, 0, 1), 0.6409, 1e-4);                 // where every seed-0 point lies
  EXPECT_NEAR(noiseInRange(0, 0, 100), 64.09, 1e-2);
  for (int s = 0; s < 1000; ++s) {
    const float v = noiseInRange(float(s * 7919), 0, 10);
    EXPECT_TRUE(v >= 0 && v < 10) << s;
  }
}

TEST(Generators, Drand48FollowsThePosixSequence) {
  srand48(0);
  EXPECT_NEAR(drand48(), 0.170828036106627, 1e-12);
  EXPECT_NEAR(drand48(), 0.749901980484964, 1e-12);
  // Only the low 32 bits of the seed count.
  for (auto [seed, low] : {std::pair{0x100000005ll, 5ll}, {-1ll, 0xFFFFFFFFll}}) {
    srand48(seed);
    const double a = drand48();
    srand48(low);
    EXPECT_EQ(drand48(), a);
  }
}

TEST(Generators, ControlRollIsFixedBySeed) {
  const ControlValues a = rollControls(1234), b = rollControls(1234), c = rollControls(1235);
  ASSERT_EQ(a.size(), kControlCount);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, c);
  double sum = 0;
  for (double v : a) {
    EXPECT_TRUE(v >= 0.0 && v <= 0.9999 && v == std::round(v * 10000) / 10000.0) << v;  // four decimals
    sum += v;
  }
  EXPECT_NEAR(sum / 1000, 0.5, 0.05);
  // A fingerprint of the stream, the same in every build. (If the roll is ever changed on purpose,
  // every stored seed changes its look: update these numbers only then.)
  EXPECT_EQ(rollControls(0)[0], 0.7535);
  EXPECT_EQ(rollControls(0)[999], 0.0062);
  EXPECT_EQ(rollControls(42)[1], 0.2291);
}

TEST(Text, NumbersAsTheDiagnosticsWriteThem) {
  EXPECT_EQ(describe(1080.0), "1080.0");
  EXPECT_EQ(describe(0.1), "0.1");
  EXPECT_EQ(describe(2.0 / 3.0), "0.6666666666666666");
  EXPECT_EQ(describe(1e16), "1e+16");
  EXPECT_EQ(describe(CGSize{100, 20.5}), "(100.0, 20.5)");
}

TEST(Redraw, MakeAndResizeContexts) {
  EXPECT_EQ(ImageUtils::makeContext(3, 2)->pixels().format, PixelFormat::RGBX);
  EXPECT_EQ(ImageUtils::makeContext(3, 2, true)->pixels().format, PixelFormat::RGBA);
  EXPECT_FALSE(ImageUtils::makeContext(0, 2));
  auto src = testing::solidSurface(8, 8, {200, 100, 50});
  auto r = ImageUtils::resizeContextTo(src, CGSizeMake(3, 2));
  ASSERT_TRUE(r);
  EXPECT_EQ(r->pixels().format, PixelFormat::ARGB);
  // In memory a pixel of it is alpha, R, G, B: readPixel sees alpha as red.
  EXPECT_EQ(readPixel(r, 1, 1), (KColor{255, 200, 100}));
  EXPECT_FALSE(ImageUtils::resizeContextTo(src, CGSizeMake(0, 2)));
  auto small = KCGContextProcessing::resizeContext(src, CGSizeMake(4.9, 2.2));
  ASSERT_TRUE(small);
  EXPECT_EQ(CGBitmapContextGetWidth(small), 4u);
  EXPECT_EQ(CGBitmapContextGetHeight(small), 2u);
  EXPECT_FALSE(KCGContextProcessing::resizeContext(src, CGSizeMake(0.5, 2)));
  auto img = ImageUtils::getResizedCGImageFromImage(CGBitmapContextCreateImage(src), 5.0, 6.0);
  EXPECT_EQ(CGImageGetWidth(img), 5u);
  EXPECT_EQ(pixelOf(img, 2, 3), (KColor{200, 100, 50}));
}

TEST(Redraw, FlipsTintsAndFades) {
  auto img = CGBitmapContextCreateImage(testing::gradientSurface(4, 3));
  auto v = ImageUtils::flipImageVert(img), h = ImageUtils::flipImageHoriz(img);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) {
      EXPECT_EQ(pixelOf(v, x, y), gradientPixel(x, 2 - y));
      EXPECT_EQ(pixelOf(h, x, y), gradientPixel(3 - x, y));
    }
  // A grey picture under a red tint takes the tint's hue at its own luminosity.
  auto tinted = ImageUtils::tintImage(CGBitmapContextCreateImage(testing::solidSurface(2, 2, {128, 128, 128})), {255, 0, 0});
  const KColor t = pixelOf(tinted, 0, 0);
  EXPECT_GT(t.r, t.g);
  EXPECT_EQ(t.g, t.b);
  auto faded = ImageUtils::fadeImage(img, 0.5);
  EXPECT_EQ(faded->format(), PixelFormat::RGBA);
  EXPECT_NEAR(faded->pixels().at(0, 0)[3], 128, 1);
}

TEST(Redraw, QuarterTurnsMirrorTopToBottom) {
  auto img = CGBitmapContextCreateImage(testing::gradientSurface(4, 4));
  // With steps 4 (and 0) the picture is not turned, but the y-down canvas mirrors it.
  for (int64_t steps : {0, 4, -4}) {
    auto r = ImageUtils::rotateCGImage(img, steps);
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 4; ++x) EXPECT_EQ(pixelOf(r, x, y), gradientPixel(x, 3 - y)) << steps;
  }
  // One quarter turn of a square: a turn of the mirrored picture; two turns: mirrored left to right.
  auto two = ImageUtils::rotateCGImage(img, 2);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(pixelOf(two, x, y), gradientPixel(3 - x, y));
  EXPECT_TRUE(testing::sameRGB(ImageUtils::rotateCGImage(img, 1), ImageUtils::rotateCGImage(img, -3)));
  // A picture that isn't square gets a swapped canvas for odd turns.
  auto wide = CGBitmapContextCreateImage(testing::gradientSurface(6, 2));
  EXPECT_EQ(CGImageGetWidth(ImageUtils::rotateCGImage(wide, 1)), 2u);
}

// Stored pixels sw x sh shown under an orientation come out upright.
void expectUpright(UIImageOrientation o, int sw, int sh, KColor (*expected)(int dx, int dy, int sw, int sh)) {
  auto stored = CGBitmapContextCreateImage(testing::gradientSurface(sw, sh));
  const UIImage upright = KImageProcessing::correctForCameraOrientation(UIImage{stored, o});
  ASSERT_TRUE(upright);
  const int dw = int(CGImageGetWidth(upright.CGImage)), dh = int(CGImageGetHeight(upright.CGImage));
  const bool turned = o == UIImageOrientationLeft || o == UIImageOrientationRight;
  EXPECT_EQ(dw, turned ? sh : sw);
  EXPECT_EQ(dh, turned ? sw : sh);
  for (int y = 0; y < dh; ++y)
    for (int x = 0; x < dw; ++x) EXPECT_EQ(pixelOf(upright.CGImage, x, y), expected(x, y, sw, sh)) << o << " " << x << "," << y;
}

TEST(Orientation, PicturesComeOutUpright) {
  // Up and the mirrored tags: the stored pixels as they are.
  for (auto o : {UIImageOrientationUp, UIImageOrientationUpMirrored, UIImageOrientationDownMirrored}) {
    expectUpright(o, 6, 4, [](int x, int y, int, int) { return gradientPixel(x, y); });
  }
  // A mirrored quarter-turn tag counts as up too, but its shown size is swapped: the stored pixels,
  // unturned, are stretched into it.
  const UIImage squeezed = KImageProcessing::correctForCameraOrientation(
      UIImage{CGBitmapContextCreateImage(testing::gradientSurface(6, 4)), UIImageOrientationLeftMirrored});
  EXPECT_EQ(CGImageGetWidth(squeezed.CGImage), 4u);
  EXPECT_EQ(CGImageGetHeight(squeezed.CGImage), 6u);
  expectUpright(UIImageOrientationDown, 6, 4, [](int x, int y, int sw, int sh) { return gradientPixel(sw - 1 - x, sh - 1 - y); });
  // Right: the stored top row becomes the rightmost column.
  expectUpright(UIImageOrientationRight, 4, 6, [](int x, int y, int, int sh) { return gradientPixel(y, sh - 1 - x); });
  // Left: the stored top row becomes the leftmost column, read upward.
  expectUpright(UIImageOrientationLeft, 4, 6, [](int x, int y, int sw, int) { return gradientPixel(sw - 1 - y, x); });
}

}  // namespace
}  // namespace zorvex
