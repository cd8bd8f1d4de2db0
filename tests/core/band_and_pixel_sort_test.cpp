// "VAN STROKE" and "YUBARI".
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/imaging/platform.h"
#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

ControlValues controlsWith(std::initializer_list<std::pair<size_t, double>> values) {
  ControlValues c(kControlCount, 0.0);
  for (auto [i, v] : values) c[i] = v;
  return c;
}

struct ConsoleLines final : Platform {
  std::vector<std::string> lines;
  ConsoleLines() { setPlatform(this); }
  ~ConsoleLines() override { setPlatform(nullptr); }
  void consoleLine(std::string_view line) override { lines.emplace_back(line); }
  uint32_t random32() override { return 0; }
  double now() override { return 0; }
};

void paintRows(const CGContextRef& c, int from, int to, KColor color) {
  for (int y = from; y < to; ++y)
    for (int x = 0; x < int(CGBitmapContextGetWidth(c)); ++x) writePixel(c, x, y, color);
}

TEST(VanStroke, TheBandOfHighestRedGoesToTheTop) {
  // 20 bands of 2 rows; band 5 (rows 10 and 11) is the only red one, so it sorts last and is laid
  // out highest. The key is readPixel's middle byte, which is red in the reduced context.
  auto s = testing::solidSurface(8, 40, {0, 0, 0});
  paintRows(s, 10, 12, {255, 0, 0});
  Filters::vonstroke(s, controlsWith({{0, 0.0}, {1, 0.0}}));
  for (int y = 0; y < 40; ++y) EXPECT_EQ(readPixel(s, 3, y).r, y < 2 ? 255 : 0) << y;
}

TEST(VanStroke, TheHueKeySeesAlphaAsRed) {
  // In the reduced context a green band reads as (alpha 255, R 0, G 200): its hue is negative, the
  // lowest of all, so it lands at the bottom. The true hue of green would put it at the top.
  auto s = testing::solidSurface(8, 40, {0, 0, 0});
  paintRows(s, 10, 12, {0, 200, 0});
  Filters::vonstroke(s, controlsWith({{0, 0.0}, {1, 0.7}}));
  for (int y = 0; y < 40; ++y) EXPECT_EQ(readPixel(s, 3, y).g, y >= 38 ? 200 : 0) << y;
}

TEST(VanStroke, BandsPastTheTopAreReportedAndSkipped) {
  // 100 bands on 50 rows: bandHeight is held at 1, and the 50 source rows past the picture are missing.
  ConsoleLines console;
  auto s = testing::gradientSurface(8, 50);
  Filters::vonstroke(s, controlsWith({{0, 1.0}, {1, 0.5}}));
  ASSERT_EQ(console.lines.size(), 50u);
  EXPECT_EQ(console.lines[0].rfind("Bad subregion (0.0, ", 0), 0u) << console.lines[0];
  EXPECT_NE(console.lines[0].find(", 8.0, 1.0)\nImage size is 8 x 50"), std::string::npos) << console.lines[0];
}

// Row 0 of an 8 x 8 picture holds greys whose even columns are 70 50 90 60 and odd ones 10 30 20 40;
// row 4 is 200 throughout. Rows 4-7 of the result hold row 0's weave, rows 0-3 row 4's: upside down.
std::vector<int> weaveOfRowZero(double weave) {
  ConsoleLines console;
  auto s = testing::solidSurface(8, 8, {0, 0, 0});
  const uint8_t row0[8] = {70, 10, 50, 30, 90, 20, 60, 40};
  for (int x = 0; x < 8; ++x) writePixel(s, x, 0, {row0[x], row0[x], row0[x]});
  paintRows(s, 4, 5, {200, 200, 200});
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(8, 8), nullptr);
  Filters::yubari(s, layer, controlsWith({{0, 0.0}, {1, weave}}));
  EXPECT_EQ(console.lines, std::vector<std::string>{"h/599 : 0.016 rowheight : 4"});
  for (int y = 0; y < 4; ++y) EXPECT_NEAR(readPixel(s, 5, y).r, 200, 1) << y;
  std::vector<int> out;
  for (int x = 0; x < 8; ++x) {
    for (int y = 5; y < 8; ++y) EXPECT_EQ(readPixel(s, x, y), readPixel(s, x, 4));
    out.push_back(readPixel(s, x, 4).r);
  }
  return out;
}

void expectGreysNear(const std::vector<int>& actual, const std::vector<int>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 1) << i;
}

TEST(Yubari, SortedRowsWeaveMirroredOrInterleaved) {
  // Rising luminance: odd 10 20 30 40 from the left, even 50 60 70 90 mirrored on the right.
  expectGreysNear(weaveOfRowZero(0.2), {10, 20, 30, 40, 90, 70, 60, 50});
  // Interleaved: even columns take the odd list, odd columns the even list.
  expectGreysNear(weaveOfRowZero(0.6), {10, 50, 20, 60, 30, 70, 40, 90});
}

TEST(Yubari, OddSizesStayInBounds) {
  ConsoleLines console;
  for (double weave : {0.0, 0.7})
    for (double key : {0.0, 0.2, 0.4, 0.55, 0.7, 0.9}) {  // every comparator, the mixed one last
      auto s = testing::gradientSurface(5, 7);
      Filters::yubari(s, CGLayerCreateWithContext(s, CGSizeMake(5, 7), nullptr), controlsWith({{0, key}, {1, weave}}));
    }
}

#ifndef __EMSCRIPTEN__
TEST(BandAndPixelSortDeathTest, MissingControlsAndAnEmptyWeaveAreFatal) {
  auto s = testing::gradientSurface(1, 8);
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(1, 8), nullptr);
  const double one[] = {0.5};
  EXPECT_DEATH(Filters::vonstroke(s, Controls(one)), "");
  EXPECT_DEATH(Filters::yubari(s, layer, Controls(one)), "");
  EXPECT_DEATH(Filters::yubari(s, layer, controlsWith({{1, 0.5}})), "");  // width 1: no odd pixels
}
#endif

}  // namespace
}  // namespace zorvex
