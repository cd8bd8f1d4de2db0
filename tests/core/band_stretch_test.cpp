// "M0T0R" and "XEXOX".
#include <gtest/gtest.h>

#include "tests/core/kernel_scene.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::gradientPixel;
using testing::KernelScene;

TEST(Motor, BandsWidenInAStraightLineAndGrowFromTheLeftEdgeRightward) {
  // 100 x 100: bands of one row, each drawn two rows high from the row above it. Seed 2 (drand48
  // 0.9124) between -0.001 and 0.04 gives a step of 0.03641, so band i has scale 1 + (i + 1) * 0.03641
  // and starts at x = (scale - 1) * 50, not at the centred -(scale - 1) * 50.
  KernelScene s(testing::gradientSurface(100, 100));
  s.markLayer(7, 90, {255, 0, 0});
  Filters::motor(s.surface, s.layer, controlsWith({{0, 0.0}, {1, 1.0}, {2, 1.0}, {3, 0.0002}}));
  EXPECT_EQ(readPixel(s.surface, 0, 0), gradientPixel(0, 0));    // left of band 0, which starts at 1.82
  EXPECT_EQ(readPixel(s.surface, 14, 0), gradientPixel(10, 1));  // band 1: scale 1.0728 from 3.64
  EXPECT_EQ(readPixel(s.surface, 50, 49), gradientPixel(50, 49));  // bands 49 and 50 start at 91.0 and 92.8
  EXPECT_EQ(readPixel(s.surface, 95, 49), gradientPixel(0, 50));
  EXPECT_EQ(readPixel(s.surface, 5, 99), gradientPixel(5, 99));  // from band 54 on they start off the picture
  EXPECT_EQ(readPixel(s.surface, 7, 90), (KColor{255, 0, 0}));  // the untouched layer still goes on top
}

TEST(Xex0x, ColumnsAreOneSampleSmearedOverOneOfTwoWidths) {
  // 100 wide: narrow columns (seed 0) are truncate(4.51) = 4 pixels, wide ones truncate(19.51) = 19.
  // With index 0 at 0.0 every column is narrow; at 0.5 the coins of seeds 50000 i make columns 3 to 7
  // wide. Column 0 is always narrow.
  const std::vector<int> evenStarts = [] {
    std::vector<int> v;
    for (int x = 0; x < 100; x += 4) v.push_back(x);
    return v;
  }();
  const std::vector<int> mixedStarts = {0, 4, 8, 12, 31, 50, 69, 88};
  for (const auto& [pattern, starts] : {std::pair{0.0, evenStarts}, {0.5, mixedStarts}}) {
    KernelScene s(testing::gradientSurface(100, 10));
    Filters::xex0x(s.surface, s.layer, controlsWith({{0, pattern}, {1, 0.9}}));
    size_t k = 0;
    for (int x = 0; x < 100; ++x) {
      if (k + 1 < starts.size() && x == starts[k + 1]) ++k;
      for (int y = 0; y < 10; y += 3)
        ASSERT_EQ(readPixel(s.surface, x, y), gradientPixel(starts[k], y)) << pattern << " " << x << "," << y;
    }
  }
}

}  // namespace
}  // namespace zorvex
