// "GRABOID", "VETH" and "FOLD4RAP5".
#include <gtest/gtest.h>

#include "tests/core/kernel_scene.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::gradientPixel;
using testing::KernelScene;

TEST(Graboid, SameNumbersMoveThePieceUprightToTheOppositePlace) {
  // Pass 0 reads indices 0-3 for the source and the destination alike: the top-left quarter
  // (rows counted from the top) lands, upright and unscaled, on the bottom-left quarter (drawing y up).
  // Every later pass reads a zero width and draws nothing.
  auto surface = testing::gradientSurface(20, 10);
  Filters::graboid(surface, controlsWith({{0, 0.0}, {1, 0.5}, {2, 0.0}, {3, 0.5}}));
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x)
      ASSERT_EQ(readPixel(surface, x, y), gradientPixel(x, x < 10 && y >= 5 ? y - 5 : y)) << x << "," << y;

  auto untouched = testing::gradientSurface(20, 10);
  Filters::graboid(untouched, controlsWith({}));  // zero widths everywhere: no part, nothing drawn
  EXPECT_TRUE(testing::samePixels(untouched, testing::gradientSurface(20, 10)));
}

TEST(Veth, StripsLandMirroredBesideTheirSource) {
  // 100 x 100, slice 10, two passes with seeds 0 and 2 (drand48 0.1708 and 0.9124). Bands: travel 90,
  // strips cut at rows 15.37 and 82.12 land mirrored just above, in rows 5-14 and 72-81. Columns: travel
  // 89, strips at 15.20 and 81.21 land left of themselves, in columns 5-14 and 71-80.
  for (const bool columns : {false, true}) {
    KernelScene s(testing::gradientSurface(100, 100));
    s.markLayer(50, 50, {255, 0, 0});
    // veth keeps the surface's interpolation; nearest makes the 11 cut rows into 10 exact.
    CGContextSetInterpolationQuality(s.surface, kCGInterpolationNone);
    Filters::veth(s.surface, s.layer, controlsWith({{0, columns ? 0.5 : 0.0}, {1, 0.2}}));
    auto at = [&](int along, int across) {
      return columns ? readPixel(s.surface, along, across) : readPixel(s.surface, across, along);
    };
    auto original = [&](int along, int across) {
      return columns ? gradientPixel(along, across) : gradientPixel(across, along);
    };
    const std::pair<int, int> moved[] = {{14, 15}, {5, 25}, {columns ? 80 : 81, columns ? 81 : 82},
                                         {columns ? 71 : 72, columns ? 91 : 92}};
    const int kept[] = {4, 15, 30, 70, columns ? 81 : 82, 99};
    for (int across = 0; across < 100; across += 7) {
      for (auto [to, from] : moved) ASSERT_EQ(at(to, across), original(from, across)) << columns << " " << to;
      for (int k : kept) ASSERT_EQ(at(k, across), original(k, across)) << columns << " " << k;
    }
    EXPECT_EQ(readPixel(s.surface, 50, 50), (KColor{255, 0, 0})) << "the layer goes back on top";
  }
}

TEST(Fold4rap5, FoldsShrinkByHalvesAndTheLeftHalfMirrorsOverTheRight) {
  // Ratio 0.5 on 64 columns: folds of 16, 8, 4, 2 and 1, then the left half mirrored over the right.
  // Working the folds through, the left edge ends as original columns 21 21 21 20 20 21 22 23 23 22 ...
  KernelScene s(testing::gradientSurface(64, 16));
  s.markLayer(20, 0, {255, 0, 0});  // composited before the first fold, so the first strip carries it
  Filters::fold4rap5(s.surface, s.layer, controlsWith({{0, 0.0}}));
  const int left[16] = {21, 21, 21, 20, 20, 21, 22, 23, 23, 22, 21, 20, 19, 18, 17, 16};
  for (int y = 1; y < 16; ++y) {
    for (int x = 0; x < 32; ++x) {
      const int source = x < 16 ? left[x] : x;
      ASSERT_EQ(readPixel(s.surface, x, y), gradientPixel(source, y)) << x << "," << y;
      ASSERT_EQ(readPixel(s.surface, 63 - x, y), gradientPixel(source, y)) << 63 - x << "," << y;
    }
  }
  // The red pixel: in the layer at 20, mirrored by the first fold to 11, and both mirrored to the right.
  for (int x : {11, 20, 43, 52}) EXPECT_EQ(readPixel(s.surface, x, 0), (KColor{255, 0, 0})) << x;

  // At ratio 0.7 the closing mirror of the left half (50 columns) is stretched to 70 and runs off the
  // right edge: column 50 + k shows column 49 - floor((k + 0.5) * 50 / 70).
  KernelScene wide(testing::gradientSurface(100, 8));
  CGContextSetInterpolationQuality(wide.layerContext(), kCGInterpolationNone);
  Filters::fold4rap5(wide.surface, wide.layer, controlsWith({{0, 1.0}}));
  for (auto [k, from] : {std::pair{0, 49}, {20, 35}, {49, 14}})
    EXPECT_EQ(readPixel(wide.surface, 50 + k, 3), readPixel(wide.surface, from, 3)) << k;
}

}  // namespace
}  // namespace zorvex
