// Contexts, images, crops, layers, drawing state, clipping and fills: the behaviour the kernels build on.
#include <gtest/gtest.h>

#include <numeric>

#include "core/imaging/blend.h"
#include "core/imaging/pixels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

TEST(Contexts, CreationAndTheCasesThatGiveNil) {
  auto rgb = CGColorSpaceCreateDeviceRGB();
  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 0, 10, 8, 0, rgb, kCGImageAlphaNoneSkipLast));
  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 0, 8, 0, rgb, kCGImageAlphaNoneSkipLast));
  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 16, 0, rgb, kCGImageAlphaNoneSkipLast));
  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 8, 39, rgb, kCGImageAlphaNoneSkipLast));  // rows too short
  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 8, 0, CGColorSpaceCreateDeviceGray(), kCGImageAlphaNoneSkipLast));
  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 1 << 20, 1 << 20, 8, 0, rgb, kCGImageAlphaNoneSkipLast));  // too large
  // A new context is cleared; one around given memory uses it as it is.
  auto c = CGBitmapContextCreate(nullptr, 10, 7, 8, 40, rgb, kCGImageAlphaNoneSkipLast);
  ASSERT_TRUE(c);
  const auto* p = static_cast<const uint8_t*>(CGBitmapContextGetData(c));
  EXPECT_TRUE(std::all_of(p, p + 280, [](uint8_t b) { return b == 0; }));
  std::vector<uint8_t> mem(4 * 4 * 3, 9);
  auto wrapped = CGBitmapContextCreate(mem.data(), 4, 3, 8, 16, rgb, kCGImageAlphaPremultipliedFirst);
  ASSERT_TRUE(wrapped);
  EXPECT_EQ(CGBitmapContextGetData(wrapped), mem.data());
  EXPECT_EQ(wrapped->pixels().format, PixelFormat::ARGB);
  // Nil handles are accepted everywhere.
  CGContextRef none;
  CGContextDrawImage(none, CGRectMake(0, 0, 1, 1), CGBitmapContextCreateImage(c));
  CGContextFillRect(none, CGRectMake(0, 0, 1, 1));
  EXPECT_FALSE(CGBitmapContextCreateImage(none));
  EXPECT_FALSE(CGLayerGetContext(nullptr));
}

TEST(Images, SnapshotsAreCopiesAndCropsAreViewsThatExpandOutwardAndCutAtTheEdges) {
  auto c = testing::gradientSurface(20, 10);
  auto image = CGBitmapContextCreateImage(c);
  CGContextFillRect(c, CGRectMake(0, 0, 20, 10));  // later drawing leaves the snapshot as it was
  EXPECT_EQ(testing::pixelOf(image, 3, 2), testing::gradientPixel(3, 2));
  auto crop = CGImageCreateWithImageInRect(image, CGRectMake(2.5, 3.2, 4.0, 2.0));
  ASSERT_TRUE(crop);
  EXPECT_EQ(CGImageGetWidth(crop), 5u);   // 2..7
  EXPECT_EQ(CGImageGetHeight(crop), 3u);  // 3..6
  EXPECT_EQ(testing::pixelOf(crop, 0, 0), testing::gradientPixel(2, 3));
  // A crop shares the picture's pixels.
  EXPECT_EQ(crop->owner(), image->owner());
  // Height 0 at a fractional y: the one row under it; at a whole y: nothing.
  auto row = CGImageCreateWithImageInRect(image, CGRectMake(0, 4.5, 20, 0));
  ASSERT_TRUE(row);
  EXPECT_EQ(CGImageGetHeight(row), 1u);
  EXPECT_EQ(testing::pixelOf(row, 7, 0), testing::gradientPixel(7, 4));
  EXPECT_FALSE(CGImageCreateWithImageInRect(image, CGRectMake(0, 5.0, 20, 0)));
  // Partly outside: only the part inside. Wholly outside: nil.
  auto part = CGImageCreateWithImageInRect(image, CGRectMake(15, -3, 10, 5));
  ASSERT_TRUE(part);
  EXPECT_EQ(CGImageGetWidth(part), 5u);
  EXPECT_EQ(CGImageGetHeight(part), 2u);
  EXPECT_EQ(testing::pixelOf(part, 0, 0), testing::gradientPixel(15, 0));
  EXPECT_FALSE(CGImageCreateWithImageInRect(image, CGRectMake(20, 0, 5, 5)));
  EXPECT_FALSE(CGImageCreateWithImageInRect(image, CGRectMake(-6, 0, 5, 5)));
  EXPECT_FALSE(CGImageCreateWithImageInRect(image, CGRectMake(NAN, 0, 5, 5)));
  // A negative size covers the same pixels as the standardised rectangle.
  auto neg = CGImageCreateWithImageInRect(image, CGRectMake(6, 5, -4, -2));
  ASSERT_TRUE(neg);
  EXPECT_EQ(testing::pixelOf(neg, 0, 0), testing::gradientPixel(2, 3));
  // A crop of a crop counts from its own corner.
  auto inner = CGImageCreateWithImageInRect(crop, CGRectMake(1, 1, 2, 2));
  EXPECT_EQ(testing::pixelOf(inner, 0, 0), testing::gradientPixel(3, 4));
}

TEST(Drawing, TheTwoYAxes) {
  auto c = testing::blankSurface(6, 4);
  // A picture drawn at (0, 0, w, h) comes out the right way up: its top row at buffer offset 0.
  auto picture = CGBitmapContextCreateImage(testing::gradientSurface(6, 4));
  CGContextDrawImage(c, CGRectMake(0, 0, 6, 4), picture);
  EXPECT_EQ(readPixel(c, 0, 0), testing::gradientPixel(0, 0));
  EXPECT_EQ(readPixel(c, 5, 3), testing::gradientPixel(5, 3));
  // A rectangle at y = 0 lands in the last row of the buffer.
  CGContextSetRGBFillColor(c, 1, 1, 1, 1);
  CGContextFillRect(c, CGRectMake(0, 0, 6, 1));
  EXPECT_EQ(readPixel(c, 2, 3), (KColor{255, 255, 255}));
  EXPECT_NE(readPixel(c, 2, 2), (KColor{255, 255, 255}));
}

TEST(Drawing, ScalingMirroringAndInterpolation) {
  auto c = testing::blankSurface(8, 8);
  auto two = CGBitmapContextCreateImage(testing::gradientSurface(2, 2));
  CGContextSetInterpolationQuality(c, kCGInterpolationNone);
  CGContextDrawImage(c, CGRectMake(0, 0, 8, 8), two);  // hard 4x4 blocks
  EXPECT_EQ(readPixel(c, 3, 3), testing::gradientPixel(0, 0));
  EXPECT_EQ(readPixel(c, 4, 3), testing::gradientPixel(1, 0));
  EXPECT_EQ(readPixel(c, 4, 4), testing::gradientPixel(1, 1));
  // A negative width mirrors left to right; a negative height top to bottom.
  CGContextDrawImage(c, CGRectMake(8, 0, -8, 8), two);
  EXPECT_EQ(readPixel(c, 0, 0), testing::gradientPixel(1, 0));
  CGContextDrawImage(c, CGRectMake(0, 8, 8, -8), two);
  EXPECT_EQ(readPixel(c, 0, 0), testing::gradientPixel(0, 1));
  // Smooth interpolation blends neighbours; a zero-sized rectangle draws nothing.
  CGContextSetInterpolationQuality(c, kCGInterpolationHigh);
  CGContextDrawImage(c, CGRectMake(0, 0, 8, 8), two);
  const KColor mid = readPixel(c, 4, 0), a = testing::gradientPixel(0, 0), b = testing::gradientPixel(1, 0);
  EXPECT_GT(mid.r, std::min(a.r, b.r));
  EXPECT_LT(mid.r, std::max(a.r, b.r));
  const KColor before = readPixel(c, 2, 2);
  CGContextDrawImage(c, CGRectMake(2, 2, 0, 4), two);
  EXPECT_EQ(readPixel(c, 2, 2), before);
}

TEST(Drawing, ShrinkingAtHighQualityAveragesTheFootprint) {
  // A picture of alternating black and white rows shrunk to one row per pair comes out mid-grey.
  auto stripes = testing::blankSurface(4, 8);
  for (int y = 0; y < 8; y += 2) {
    for (int x = 0; x < 4; ++x) writePixel(stripes, x, y, {255, 255, 255});
  }
  auto c = testing::blankSurface(4, 4);
  CGContextSetInterpolationQuality(c, kCGInterpolationHigh);
  CGContextDrawImage(c, CGRectMake(0, 0, 4, 4), CGBitmapContextCreateImage(stripes));
  for (int y = 0; y < 4; ++y) EXPECT_NEAR(readPixel(c, 1, y).r, 128, 1) << y;
}

TEST(Layers, StartTransparentAndKeepTheirState) {
  auto c = testing::gradientSurface(5, 5);
  auto layer = CGLayerCreateWithContext(c, CGSizeMake(5, 5), nullptr);
  ASSERT_TRUE(layer);
  auto lc = CGLayerGetContext(layer);
  EXPECT_EQ(lc->pixels().format, PixelFormat::RGBA);
  auto before = CGBitmapContextCreateImage(c);
  CGContextDrawLayerAtPoint(c, CGPointZero, layer);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 5; ++x) EXPECT_EQ(readPixel(c, x, y), testing::pixelOf(before, x, y));
  // The layer's context is the same object on every call, so its state persists.
  CGContextSetBlendMode(lc, kCGBlendModeMultiply);
  EXPECT_EQ(CGLayerGetContext(layer)->state().blendMode, kCGBlendModeMultiply);
  // What is drawn into the layer lands on the surface at the given point.
  CGContextSetBlendMode(lc, kCGBlendModeNormal);
  CGContextSetRGBFillColor(lc, 0, 0, 1, 1);
  CGContextFillRect(lc, CGRectMake(0, 0, 1, 1));
  CGContextDrawLayerAtPoint(c, CGPointMake(2, 2), layer);
  EXPECT_EQ(readPixel(c, 2, 2), (KColor{0, 0, 255}));
}

TEST(State, SaveRestoreAndPersistence) {
  auto c = testing::blankSurface(4, 4);
  CGContextSetBlendMode(c, kCGBlendModeScreen);
  CGContextSaveGState(c);
  CGContextSetBlendMode(c, kCGBlendModeDarken);
  CGContextTranslateCTM(c, 3, 4);
  CGContextSetAlpha(c, 0.25);
  CGContextRestoreGState(c);
  EXPECT_EQ(c->state().blendMode, kCGBlendModeScreen);
  EXPECT_EQ(c->state().ctm, CGAffineTransformIdentity);
  EXPECT_EQ(c->state().alpha, 1.0);
  CGContextRestoreGState(c);  // with nothing saved: no change
  EXPECT_EQ(c->state().blendMode, kCGBlendModeScreen);
  // The last transform called applies first to a drawn point.
  CGContextTranslateCTM(c, 10, 0);
  CGContextScaleCTM(c, 2, 2);
  const CGPoint p = CGPointApplyAffineTransform({1, 1}, CGContextGetCTM(c));
  EXPECT_EQ(p.x, 12);
  EXPECT_EQ(p.y, 2);
  // The alpha scales later drawing.
  auto d = testing::blankSurface(2, 2);
  CGContextSetAlpha(d, 0.5);
  CGContextSetRGBFillColor(d, 1, 1, 1, 1);
  CGContextFillRect(d, CGRectMake(0, 0, 2, 2));
  EXPECT_NEAR(readPixel(d, 0, 0).r, 128, 1);
}

TEST(Clipping, MaskGreyLevelIsCoverage) {
  auto c = testing::blankSurface(4, 1);
  auto mask = testing::blankSurface(4, 1);
  const uint8_t levels[4] = {0, 64, 255, 128};
  for (int x = 0; x < 4; ++x) writePixel(mask, x, 0, {levels[x], levels[x], levels[x]});
  CGContextSaveGState(c);
  CGContextClipToMask(c, CGRectMake(0, 0, 4, 1), CGBitmapContextCreateImage(mask));
  CGContextSetRGBFillColor(c, 1, 1, 1, 1);
  CGContextFillRect(c, CGRectMake(-10, -10, 30, 30));
  for (int x = 0; x < 4; ++x) EXPECT_NEAR(readPixel(c, x, 0).r, levels[x], 1) << x;
  CGContextRestoreGState(c);
  // After the restore nothing is clipped (and the fill colour is black again, being state too);
  // outside the mask's rectangle nothing passes.
  EXPECT_EQ(c->state().fill.r, 0.0);
  CGContextSetRGBFillColor(c, 1, 1, 1, 1);
  CGContextFillRect(c, CGRectMake(0, 0, 4, 1));
  EXPECT_EQ(readPixel(c, 0, 0).r, 255);
  auto d = testing::blankSurface(4, 2);
  CGContextClipToMask(d, CGRectMake(0, 0, 4, 1), CGBitmapContextCreateImage(testing::solidSurface(4, 1, {255, 255, 255})));
  CGContextSetRGBFillColor(d, 1, 1, 1, 1);
  CGContextFillRect(d, CGRectMake(0, 0, 4, 2));
  EXPECT_EQ(readPixel(d, 0, 1).r, 255);  // the bottom row: inside the mask
  EXPECT_EQ(readPixel(d, 0, 0).r, 0);    // the top row: outside it
}

TEST(Fills, RectanglesAreAntiAliased) {
  auto c = testing::blankSurface(4, 4);
  CGContextSetRGBFillColor(c, 1, 1, 1, 1);
  CGContextFillRect(c, CGRectMake(0.5, 0, 2.0, 4));
  EXPECT_NEAR(readPixel(c, 0, 0).r, 128, 1);
  EXPECT_EQ(readPixel(c, 1, 0).r, 255);
  EXPECT_NEAR(readPixel(c, 2, 0).r, 128, 1);
  EXPECT_EQ(readPixel(c, 3, 0).r, 0);
  // Components are 0 to 1: 255 / 256 gives 254.
  CGContextSetRGBFillColor(c, 255 / 256.0, 0, 0, 1);
  CGContextFillRect(c, CGRectMake(0, 0, 4, 4));
  EXPECT_EQ(readPixel(c, 0, 0).r, 254);
  // Clearing the surface, which has no alpha, leaves black.
  CGContextClearRect(c, CGRectMake(0, 0, 4, 4));
  EXPECT_EQ(readPixel(c, 2, 2), (KColor{0, 0, 0}));
}

int64_t inkOf(const CGContextRef& c) {
  int64_t sum = 0;
  for (int y = 0; y < int(CGBitmapContextGetHeight(c)); ++y)
    for (int x = 0; x < int(CGBitmapContextGetWidth(c)); ++x) sum += readPixel(c, x, y).r;
  return sum;
}

TEST(Fills, EllipsesPathsAndFillRules) {
  auto c = testing::blankSurface(100, 100);
  CGContextSetRGBFillColor(c, 1, 1, 1, 1);
  CGContextFillEllipseInRect(c, CGRectMake(10, 10, 80, 80));
  EXPECT_NEAR(inkOf(c) / 255.0, 3.14159265 * 40 * 40, 40);
  // Two overlapping squares in one path: non-zero fills the overlap, even-odd leaves it out.
  auto twoSquares = [](const CGContextRef& ctx, CGPathDrawingMode mode) {
    CGContextSetRGBFillColor(ctx, 1, 1, 1, 1);
    CGContextBeginPath(ctx);
    CGContextAddRect(ctx, CGRectMake(0, 0, 20, 20));
    CGContextAddRect(ctx, CGRectMake(10, 10, 20, 20));
    CGContextDrawPath(ctx, mode);
  };
  auto nz = testing::blankSurface(40, 40), eo = testing::blankSurface(40, 40);
  twoSquares(nz, kCGPathFill);
  twoSquares(eo, kCGPathEOFill);
  EXPECT_EQ(inkOf(nz) / 255, 700);
  EXPECT_EQ(inkOf(eo) / 255, 600);
  EXPECT_EQ(readPixel(eo, 15, 24).r, 0);  // the overlap, rows counted from the top
  EXPECT_EQ(readPixel(nz, 15, 24).r, 255);
}

TEST(Fills, StrokesFollowTheLine) {
  auto c = testing::blankSurface(20, 20);
  CGContextSetRGBStrokeColor(c, 1, 1, 1, 1);
  CGContextSetLineWidth(c, 2);
  CGContextMoveToPoint(c, 2, 10);
  CGContextAddLineToPoint(c, 18, 10);
  CGContextStrokePath(c);
  EXPECT_EQ(readPixel(c, 10, 9).r, 255);  // y 9..11 in drawing space: rows 9 and 10
  EXPECT_EQ(readPixel(c, 10, 10).r, 255);
  EXPECT_EQ(readPixel(c, 10, 8).r, 0);
  EXPECT_EQ(readPixel(c, 1, 9).r, 0);  // butt caps: nothing before the start
  EXPECT_NEAR(inkOf(c) / 255.0, 16 * 2, 0.5);
  // An open triangle stroked and filled: the stroke runs along two sides only.
  auto t = testing::blankSurface(40, 40);
  CGContextSetRGBFillColor(t, 1, 0, 0, 1);
  CGContextSetRGBStrokeColor(t, 0, 1, 0, 1);
  CGContextMoveToPoint(t, 5, 35);
  CGContextAddLineToPoint(t, 35, 35);
  CGContextAddLineToPoint(t, 20, 5);
  CGContextDrawPath(t, kCGPathEOFillStroke);
  EXPECT_EQ(readPixel(t, 20, 20), (KColor{255, 0, 0}));  // inside: fill
  EXPECT_GT(readPixel(t, 20, 5).g, 100);                  // top edge: stroke
  EXPECT_GT(readPixel(t, 16, 26).r, 100);                 // the unclosed side: fill only
  EXPECT_LT(readPixel(t, 16, 26).g, 50);
  EXPECT_GT(readPixel(t, 24, 26).g, 100);                 // the closed-by-drawing side: stroke
}

}  // namespace
}  // namespace zorvex
