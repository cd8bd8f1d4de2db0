// "POLYBOMB", "KAL1D0", applyCIFilter and our three image filters.
#include <gtest/gtest.h>

#include <cmath>

#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::layerFor;

// The buffer pixel that a point in filter coordinates (y up) falls in, on a picture `h` rows high.
std::pair<int, int> pixelAt(double x, double y, int h) { return {int(std::floor(x)), int(std::floor(h - y))}; }

TEST(Polybomb, EachBranchTakesItsCellColourFromTheRightPlace) {
  // w = 100 and control 0 of 0.5: cells of 11. Triangles (control 10 of exactly 0.666) sample buffer
  // row 4: the upward one at x0 = 10 samples (10, 4), the one at x0 = -1 the clamped column 0.
  auto s = testing::solidSurface(100, 60, {0, 0, 0});
  writePixel(s, 10, 4, {255, 0, 0});
  writePixel(s, 0, 4, {0, 255, 0});
  Filters::tribomb(s, layerFor(s), controlsWith({{0, 0.5}, {10, 0.666}}));
  EXPECT_EQ(readPixel(s, 15, 3), (KColor{254, 0, 0}));  // in (10, 60), (21, 60), (15.5, 50.5)
  EXPECT_EQ(readPixel(s, 4, 2), (KColor{0, 254, 0}));
  EXPECT_EQ(readPixel(s, 21, 6), (KColor{}));           // the downward triangle beside it
  // Hexagons are centred on the lattice through (10, 10); crystals on seeds from the grid there.
  for (double kind : {0.0, 0.5}) {
    const CIVector site = kind < 0.333 ? CIVector{10, 10} : CIFilters::crystalSeed(0, 0, 11.0, {10, 10});
    const auto [mx, my] = pixelAt(site.x, site.y, 60);
    s = testing::solidSurface(100, 60, {0, 0, 0});
    writePixel(s, mx, my, {255, 0, 0});
    Filters::tribomb(s, layerFor(s), controlsWith({{0, 0.5}, {10, kind}}));
    EXPECT_EQ(readPixel(s, mx, my), (KColor{255, 0, 0})) << kind;
    if (kind < 0.333) {
      EXPECT_EQ(readPixel(s, mx + 4, my - 3), (KColor{255, 0, 0}));
    }
    EXPECT_EQ(readPixel(s, 80, 5), (KColor{})) << kind;
  }
}

TEST(ImageFilters, FlatPicturesStayFlatAndUnknownNamesChangeNothing) {
  const std::pair<const char*, CIParameters> cases[] = {
      {"CIHexagonalPixellate", {{"inputScale", 5.0}}},
      {"CICrystallize", {{"inputRadius", 4.0}, {"inputCenter", CIVector{-3, 7}}}},
      {"CITriangleKaleidoscope", {{"inputSize", 9.0}, {"inputPoint", CIVector{20, 30}}, {"inputDecay", 0.6}}},
      {"CIBloom", {}}};
  for (const auto& [name, parameters] : cases) {
    auto s = testing::solidSurface(40, 30, {30, 140, 220});
    auto layer = layerFor(s);
    if (name == std::string_view("CIBloom")) CGContextFillRect(CGLayerGetContext(layer), CGRectMake(0, 0, 40, 30));
    VideoEffectsCI::applyCIFilter(name, parameters, s, layer);
    // The kaleidoscope's faded reflections go over the same colour twice (surface, then layer).
    int off = 0;
    for (int y = 0; y < 30; ++y)
      for (int x = 0; x < 40; ++x) {
        const KColor c = readPixel(s, x, y);
        off = std::max({off, std::abs(c.r - 30), std::abs(c.g - 140), std::abs(c.b - 220)});
      }
    EXPECT_LE(off, name == std::string_view("CITriangleKaleidoscope") ? 2 : 0) << name;
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
  for (const auto& [out, sites] : {std::pair{CIFilters::hexagonalPixellate(in, 6.0, {7, 9}), lattice},
                                   std::pair{CIFilters::crystallize(in, 5.0, {7, 9}), seeds}})
    for (int row = 0; row < 30; ++row)
      for (int col = 0; col < 40; ++col) {
        const CIVector p{col + 0.5, 30 - row - 0.5};
        auto distance = [&](const CIVector& s) { return std::hypot(s.x - p.x, s.y - p.y); };
        const CIVector best = *std::min_element(sites.begin(), sites.end(),
                                                [&](auto& a, auto& b) { return distance(a) < distance(b); });
        const auto [sx, sy] = pixelAt(best.x, best.y, 30);
        ASSERT_EQ(testing::pixelOf(out, col, row), testing::pixelOf(in, std::clamp(sx, 0, 39), std::clamp(sy, 0, 29)));
      }
}

TEST(ImageFilters, KaleidoscopeMirrorsAcrossEdgesAndFadesEachGeneration) {
  // The triangle (20, 20), (50, 20), (35, 45.98), unturned; decay 0.5.
  const CGImageRef in = CGBitmapContextCreateImage(testing::gradientSurface(64, 48));
  const CGImageRef kaleidoscope = CIFilters::triangleKaleidoscope(in, {20, 20}, 30.0, 0.0, 0.5);
  const PixelView& out = kaleidoscope->pixels();  // a view: the image must outlive it
  const KColor inside = testing::pixelOf(in, 35, 22);  // centre (35.5, 25.5)
  EXPECT_EQ(out.at(35, 22)[0], inside.r);
  EXPECT_EQ(out.at(35, 22)[3], 255);
  EXPECT_NEAR(out.at(35, 33)[0], inside.r * 0.5, 1);  // (35.5, 14.5): one reflection, across y = 20
  EXPECT_EQ(out.at(35, 33)[3], 128);
  EXPECT_EQ(out.at(35, 0)[3], 32);  // beyond the apex, three mirror lines away
  EXPECT_EQ(CIFilters::triangleKaleidoscope(in, {20, 20}, 0.0, 0.0, 0.5)->pixels().at(5, 5)[3], 0);  // no triangle
}

TEST(Kal1d0, AMarkInTheTriangleShowsInItsMirrorImage) {
  // 64 x 64: size 32, no turn, first vertex (16, 16), decay 0.85. The white pixel of (32.5, 24.5)
  // comes back across y = 16 at (32.5, 7.5), drawn faded and then the layer over it.
  auto s = testing::solidSurface(64, 64, {0, 0, 0});
  writePixel(s, 32, 39, {255, 255, 255});
  VideoEffectsCI::kal1d0(s, layerFor(s), controlsWith({{0, 0.5}, {1, 0.0}, {2, 0.7}, {4, 0.25}, {5, 0.25}}));
  EXPECT_EQ(readPixel(s, 32, 39).r, 255);
  EXPECT_NEAR(readPixel(s, 32, 56).r, 255 * (0.85 + 0.85 * 0.15), 2);
  EXPECT_EQ(readPixel(s, 20, 56).r, 0);
}

#ifndef __EMSCRIPTEN__
// For all the kernels of these families: a vector too short for an index, an empty weave list, and
// filter parameters the filter doesn't know or of the wrong kind.
TEST(MeshSortAndEchoDeathTest, ImpossibleCasesAreFatal) {
  auto s = testing::gradientSurface(1, 12);
  auto shortOf = [](size_t n) { return std::vector<double>(n, 0.7); };
  EXPECT_DEATH(Filters::vonstroke(s, Controls(shortOf(1))), "");
  EXPECT_DEATH(Filters::yubari(s, layerFor(s), Controls(shortOf(1))), "");
  EXPECT_DEATH(Filters::yubari(s, layerFor(s), controlsWith({{1, 0.5}})), "");  // width 1: no odd pixels
  EXPECT_DEATH(Filters::tribomb(s, layerFor(s), Controls(shortOf(10))), "");
  EXPECT_DEATH(VideoEffectsCI::kal1d0(s, layerFor(s), Controls(shortOf(5))), "");
  EXPECT_DEATH(Filters::beamRider(s, layerFor(s), Controls(shortOf(10))), "");
  EXPECT_DEATH(Filters::doctorocular(s, layerFor(s), Controls(shortOf(4))), "");
  EXPECT_DEATH(Filters::brainfeed3r(s, layerFor(s), Controls(shortOf(2))), "");
  EXPECT_DEATH(VideoEffectsCI::applyCIFilter("CICrystallize", {{"inputScale", 3.0}}, s, layerFor(s)), "");
  EXPECT_DEATH(VideoEffectsCI::applyCIFilter("CICrystallize", {{"inputRadius", CIVector{1, 2}}}, s, layerFor(s)), "");
}
#endif

}  // namespace
}  // namespace zorvex
