// "VAN STROKE" and "YUBARI".
#include <gtest/gtest.h>

#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using ConsoleLines = testing::TestPlatform;

TEST(VanStroke, TheMarkedBandSortsByRedOrByHueWithAlphaAsRed) {
  // 20 bands of 2 rows; only band 5 is marked. By red (the middle byte of the reduced pixel) it sorts
  // last and goes to the top. By hue, green reads as (alpha 255, R 0, G 200), whose hue is the lowest
  // of all, so it goes to the bottom, where its true hue would put it at the top.
  for (auto [key, mark, first, last] : {std::tuple{0.0, KColor{255, 0, 0}, 0, 2}, std::tuple{0.7, KColor{0, 200, 0}, 38, 40}}) {
    auto s = testing::solidSurface(8, 40, {0, 0, 0});
    for (int x = 0; x < 8; ++x) writePixel(s, x, 10, mark), writePixel(s, x, 11, mark);
    Filters::vonstroke(s, controlsWith({{0, 0.0}, {1, key}}));
    for (int y = 0; y < 40; ++y) EXPECT_EQ(readPixel(s, 3, y), y >= first && y < last ? mark : KColor{}) << y;
  }
}

TEST(VanStroke, BandsPastTheTopAreReportedAndSkipped) {
  // 100 bands on 50 rows: bandHeight is held at 1, and 50 source rows lie past the picture.
  ConsoleLines console;
  auto s = testing::gradientSurface(8, 50);
  Filters::vonstroke(s, controlsWith({{0, 1.0}, {1, 0.5}}));
  ASSERT_EQ(console.lines.size(), 50u);
  EXPECT_EQ(console.lines[0].rfind("Bad subregion (0.0, ", 0), 0u) << console.lines[0];
  EXPECT_NE(console.lines[0].find(", 8.0, 1.0)\nImage size is 8 x 50"), std::string::npos) << console.lines[0];
}

TEST(Yubari, SortedRowsWeaveMirroredOrInterleavedAndUpsideDown) {
  // Row 0 holds greys, even columns 70 50 90 60 and odd ones 10 30 20 40; row 4 is 200. Sorted by
  // rising luminance, row 0's weave fills rows 4-7 and row 4's rows 0-3.
  const std::pair<double, std::array<int, 8>> cases[] = {
      {0.2, {10, 20, 30, 40, 90, 70, 60, 50}},   // odd list from the left, even list mirrored
      {0.6, {10, 50, 20, 60, 30, 70, 40, 90}}};  // even columns from the odd list and vice versa
  for (const auto& [weave, expected] : cases) {
    ConsoleLines console;
    auto s = testing::solidSurface(8, 8, {0, 0, 0});
    const uint8_t row0[8] = {70, 10, 50, 30, 90, 20, 60, 40};
    for (int x = 0; x < 8; ++x) writePixel(s, x, 0, {row0[x], row0[x], row0[x]}), writePixel(s, x, 4, {200, 200, 200});
    Filters::yubari(s, testing::layerFor(s), controlsWith({{0, 0.0}, {1, weave}}));
    EXPECT_EQ(console.lines, std::vector<std::string>{"h/599 : 0.016 rowheight : 4"});
    for (int x = 0; x < 8; ++x)
      for (int y = 0; y < 8; ++y) EXPECT_NEAR(readPixel(s, x, y).g, y < 4 ? 200 : expected[x], 1) << x << "," << y;
  }
  for (double key : {0.0, 0.2, 0.4, 0.55, 0.7, 0.9})  // every comparator, odd width and height
    for (double weave : {0.0, 0.7}) {
      auto s = testing::gradientSurface(5, 7);
      Filters::yubari(s, testing::layerFor(s), controlsWith({{0, key}, {1, weave}}));
    }
}

}  // namespace
}  // namespace zorvex
