// "POLYBOMB", "KAL1D0", applyCIFilter and our three image filters.
#include <gtest/gtest.h>

#include <cmath>

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

// The buffer pixel a point in filter coordinates (y up) falls in, on a picture `h` rows high.
std::pair<int, int> pixelAt(double x, double y, int h) { return {int(std::floor(x)), int(std::floor(h - y))}; }

TEST(Polybomb, TriangleTakesTheColourUnderItsSampleAndClampsLeftColumns) {
  // w = 100, control 0 of 0.5: side 11, rows 9.526 apart, samples on buffer row 4. The upward
  // triangle of column x0 = 10 samples (10, 4); the one at x0 = -1 samples the clamped column 0.
  auto s = testing::solidSurface(100, 60, {0, 0, 0});
  writePixel(s, 10, 4, {255, 0, 0});
  writePixel(s, 0, 4, {0, 255, 0});
  Filters::tribomb(s, layerFor(s), controlsWith({{0, 0.5}, {10, 0.666}}));  // 0.666 draws triangles
  EXPECT_GE(readPixel(s, 15, 3).r, 250);  // inside the triangle (10, 60), (21, 60), (15.5, 50.5)
  EXPECT_EQ(readPixel(s, 15, 3).g, 0);
  EXPECT_GE(readPixel(s, 4, 2).g, 250);   // inside the triangle at x0 = -1
  EXPECT_EQ(readPixel(s, 21, 6), (KColor{0, 0, 0}));  // the downward triangle beside it
  EXPECT_EQ(readPixel(s, 60, 40), (KColor{0, 0, 0}));
}

TEST(Polybomb, HexagonsAndCrystalsAreCentredFromTenTen) {
  const int h = 60;
  for (double kind : {0.0, 0.5}) {
    // The cell whose centre (hexagons) or seed (crystals, grid square (0, 0)) gets the mark.
    const CIVector seed = kind < 0.333 ? CIVector{10, 10} : CIFilters::crystalSeed(0, 0, 11.0, {10, 10});
    const auto [mx, my] = pixelAt(seed.x, seed.y, h);
    auto s = testing::solidSurface(100, h, {0, 0, 0});
    writePixel(s, mx, my, {255, 0, 0});
    Filters::tribomb(s, layerFor(s), controlsWith({{0, 0.5}, {10, kind}}));
    EXPECT_EQ(readPixel(s, mx, my), (KColor{255, 0, 0})) << kind;
    if (kind < 0.333) {
      EXPECT_EQ(readPixel(s, mx + 4, my - 3), (KColor{255, 0, 0}));
      EXPECT_EQ(readPixel(s, mx + 11, my), (KColor{0, 0, 0}));  // the next lattice point
    }
    EXPECT_EQ(readPixel(s, 80, 5), (KColor{0, 0, 0})) << kind;
  }
}

TEST(ImageFilters, FlatPicturesStayFlat) {
  const std::pair<const char*, CIParameters> cases[] = {
      {"CIHexagonalPixellate", {{"inputScale", 5.0}}},
      {"CICrystallize", {{"inputRadius", 4.0}, {"inputCenter", CIVector{-3, 7}}}},
      {"CITriangleKaleidoscope", {{"inputSize", 9.0}, {"inputPoint", CIVector{20, 30}}, {"inputDecay", 0.6}}},
  };
  for (const auto& [name, parameters] : cases) {
    auto s = testing::solidSurface(40, 30, {30, 140, 220});
    VideoEffectsCI::applyCIFilter(name, parameters, s, layerFor(s));
    // The faded reflections of the kaleidoscope go over the same colour twice (the surface, then the
    // layer), give or take a rounding each time.
    int off = 0;
    for (int y = 0; y < 30; ++y)
      for (int x = 0; x < 40; ++x) {
        const KColor c = readPixel(s, x, y);
        off = std::max({off, std::abs(c.r - 30), std::abs(c.g - 140), std::abs(c.b - 220)});
      }
    EXPECT_LE(off, std::string_view(name) == "CITriangleKaleidoscope" ? 2 : 0) << name;
  }
}

// Each output pixel has the colour of the picture at the nearest of `sites` (found by brute force).
void expectNearestSiteColours(const CGImageRef& in, const CGImageRef& out, const std::vector<CIVector>& sites) {
  const int w = int(CGImageGetWidth(in)), h = int(CGImageGetHeight(in));
  for (int row = 0; row < h; ++row)
    for (int col = 0; col < w; ++col) {
      const double x = col + 0.5, y = h - row - 0.5;
      const CIVector* best = &sites[0];
      for (const CIVector& s : sites)
        if (std::hypot(s.x - x, s.y - y) < std::hypot(best->x - x, best->y - y)) best = &s;
      const auto [sx, sy] = pixelAt(best->x, best->y, h);
      const KColor expected = testing::pixelOf(in, std::clamp(sx, 0, w - 1), std::clamp(sy, 0, h - 1));
      ASSERT_EQ(testing::pixelOf(out, col, row), expected) << col << "," << row;
    }
}

TEST(ImageFilters, CellsTakeTheColourAtTheirNearestCentreOrSeed) {
  const CGImageRef in = CGBitmapContextCreateImage(testing::gradientSurface(40, 30));
  std::vector<CIVector> lattice, seeds;
  for (int j = -4; j < 12; ++j)
    for (int i = -6; i < 12; ++i) {
      lattice.push_back({7 + (i + (j % 2 != 0 ? 0.5 : 0.0)) * 6, 9 + j * 6 * std::sqrt(3.0) / 2});
      seeds.push_back(CIFilters::crystalSeed(i, j, 5.0, {7, 9}));
    }
  expectNearestSiteColours(in, CIFilters::hexagonalPixellate(in, 6.0, {7, 9}), lattice);
  expectNearestSiteColours(in, CIFilters::crystallize(in, 5.0, {7, 9}), seeds);
}

TEST(ImageFilters, KaleidoscopeMirrorsAcrossEdgesAndFadesEachGeneration) {
  // The triangle (20, 20), (50, 20), (35, 45.98), unturned; decay 0.5.
  const CGImageRef in = CGBitmapContextCreateImage(testing::gradientSurface(64, 48));
  const CGImageRef out = CIFilters::triangleKaleidoscope(in, {20, 20}, 30.0, 0.0, 0.5);
  const KColor inside = testing::pixelOf(in, 35, 22);  // centre (35.5, 25.5)
  EXPECT_EQ(testing::pixelOf(out, 35, 22), inside);
  EXPECT_EQ(out->pixels().at(35, 22)[3], 255);
  // (35.5, 14.5), one reflection across the edge y = 20.
  const uint8_t* mirrored = out->pixels().at(35, 33);
  EXPECT_EQ(mirrored[3], 128);
  EXPECT_NEAR(mirrored[0], inside.r * 0.5, 1);
  EXPECT_NEAR(mirrored[1], inside.g * 0.5, 1);
  // Beyond the apex, where three lines lie between it and the triangle: decay cubed.
  EXPECT_EQ(out->pixels().at(35, 0)[3], 32);
  // No triangle, no picture.
  EXPECT_EQ(CIFilters::triangleKaleidoscope(in, {20, 20}, 0.0, 0.0, 0.5)->pixels().at(5, 5)[3], 0);
}

TEST(Kal1d0, AMarkInTheTriangleShowsInItsMirrorImage) {
  // 64 x 64, size 32, no turn, first vertex (16, 16), decay 0.85. A white mark at the pixel of
  // (32.5, 24.5) inside the triangle comes back mirrored across y = 16 at (32.5, 7.5).
  auto s = testing::solidSurface(64, 64, {0, 0, 0});
  writePixel(s, 32, 39, {255, 255, 255});
  VideoEffectsCI::kal1d0(s, layerFor(s), controlsWith({{0, 0.5}, {1, 0.0}, {2, 0.7}, {4, 0.25}, {5, 0.25}}));
  EXPECT_EQ(readPixel(s, 32, 39).r, 255);
  EXPECT_NEAR(readPixel(s, 32, 56).r, 255 * (0.85 + 0.85 * 0.15), 2);  // drawn, then the layer over it
  EXPECT_EQ(readPixel(s, 20, 56).r, 0);
}

TEST(ApplyCIFilter, AnUnknownNameChangesNothing) {
  auto s = testing::gradientSurface(16, 12);
  auto layer = layerFor(s);
  CGContextSetRGBFillColor(CGLayerGetContext(layer), 1, 0, 0, 1);
  CGContextFillRect(CGLayerGetContext(layer), CGRectMake(0, 0, 16, 12));
  VideoEffectsCI::applyCIFilter("CIBloom", {}, s, layer);
  EXPECT_TRUE(testing::samePixels(s, testing::gradientSurface(16, 12)));
}

#ifndef __EMSCRIPTEN__
TEST(MeshAndFiltersDeathTest, ShortControlsUnknownKeysAndWrongKindsAreFatal) {
  auto s = testing::gradientSurface(16, 12);
  const std::vector<double> ten(10, 0.7);
  EXPECT_DEATH(Filters::tribomb(s, layerFor(s), Controls(ten)), "");
  EXPECT_DEATH(VideoEffectsCI::applyCIFilter("CICrystallize", {{"inputScale", 3.0}}, s, layerFor(s)), "");
  EXPECT_DEATH(VideoEffectsCI::applyCIFilter("CICrystallize", {{"inputRadius", CIVector{1, 2}}}, s, layerFor(s)), "");
}
#endif

}  // namespace
}  // namespace zorvex
