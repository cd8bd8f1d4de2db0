// "PRECOG1" and "L225". The scratch block laid over the warp is uncleared memory; the tests hand the
// kernels a block of known bytes so that the outcome does not depend on the allocator.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/imaging/platform.h"
#include "tests/core/kernel_scene.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::gradientPixel;
using testing::KernelScene;

uint8_t scratchPattern[4] = {0, 0, 0, 0};  // alpha first: all zero is transparent
size_t scratchAsked = 0;

class KnownScratch {
 public:
  explicit KnownScratch(std::array<uint8_t, 4> argb = {0, 0, 0, 0}) {
    std::memcpy(scratchPattern, argb.data(), 4);
    Filters::setWarpScratchAllocator([](size_t bytes) {
      scratchAsked = bytes;
      auto* p = static_cast<uint8_t*>(std::malloc(bytes));
      for (size_t i = 0; i < bytes; ++i) p[i] = scratchPattern[i % 4];
      return static_cast<void*>(p);
    });
  }
  ~KnownScratch() { Filters::setWarpScratchAllocator(nullptr); }
};

class Console final : public Platform {
 public:
  std::vector<std::string> lines;
  void consoleLine(std::string_view line) override { lines.emplace_back(line); }
  uint32_t random32() override { return 0; }
  double now() override { return 0; }
};

using Kernel = void (*)(const CGContextRef&, const CGLayerRef&, Controls);
const std::pair<const char*, Kernel> kWarps[] = {{"PRECOG1", Filters::precog1}, {"L225", Filters::l225}};

TEST(WaveWarps, WithoutDisplacementRowZeroAndColumnZeroCopyTheirNeighbours) {
  // On 49 rows, (y / 49) * 49 falls just short of y for y = 2, 4, 8, 16, 27 and 32, which then copy
  // the row above them. Column 0 and row 0 can never be a source.
  KnownScratch zeros;
  auto rowFrom = [](int y) {
    for (int k : {2, 4, 8, 16, 27, 32})
      if (y == k) return y - 1;
    return std::max(y, 1);
  };
  for (auto [name, warp] : kWarps) {
    KernelScene s(testing::gradientSurface(64, 49));
    warp(s.surface, s.layer, controlsWith({}));
    for (int y = 0; y < 49; ++y)
      for (int x = 0; x < 64; ++x)
        ASSERT_EQ(readPixel(s.surface, x, y), gradientPixel(std::max(x, 1), rowFrom(y))) << name << " " << x << "," << y;
    EXPECT_EQ(scratchAsked, 64u * 4 * 49);
  }
}

TEST(WaveWarps, TheSidewaysShiftFollowsTheRowAndMirrorsAtTheEdges) {
  // 64 x 48, phase 0, wave length down the full height, amountX 8, no vertical shift. Each row y moves
  // by 8 cos(y / 48) for PRECOG1 and by 8 * (y / 48) for L225; row 0 reads row 1.
  KnownScratch zeros;
  const auto controls = controlsWith({{2, 1.0}, {4, 0.25}});
  KernelScene cosine(testing::gradientSurface(64, 48));
  Filters::precog1(cosine.surface, cosine.layer, controls);
  EXPECT_EQ(readPixel(cosine.surface, 0, 0), gradientPixel(8, 1));
  EXPECT_EQ(readPixel(cosine.surface, 33, 1), gradientPixel(40, 1));    // 33 + 7.998
  EXPECT_EQ(readPixel(cosine.surface, 36, 47), gradientPixel(40, 47));  // 36 + 4.470
  EXPECT_EQ(readPixel(cosine.surface, 60, 1), gradientPixel(61, 1));    // 67 mirrors to 128 - 67

  KernelScene triangle(testing::gradientSurface(64, 48));
  Filters::l225(triangle.surface, triangle.layer, controls);
  EXPECT_EQ(readPixel(triangle.surface, 5, 0), gradientPixel(5, 1));
  EXPECT_EQ(readPixel(triangle.surface, 36, 24), gradientPixel(40, 24));  // 36 + 4
  EXPECT_EQ(readPixel(triangle.surface, 33, 47), gradientPixel(40, 47));  // 33 + 7.833
  EXPECT_EQ(readPixel(triangle.surface, 60, 47), gradientPixel(61, 47));  // 67 mirrors to 128 - 67

  // A negative source beyond the width (amountX 96, wave -1 at row 0): PRECOG1 mirrors it at both
  // edges, 95 to 33; L225 only at the near one, 96 clamped to 63. Unreachable with controls below 1.0.
  const auto far = controlsWith({{0, 3.0 / (2 * 3.141592653589793)}, {2, 1.0}, {4, 3.0}});
  KernelScene farCosine(testing::gradientSurface(64, 48));
  Filters::precog1(farCosine.surface, farCosine.layer, far);
  EXPECT_EQ(readPixel(farCosine.surface, 0, 0), gradientPixel(33, 1));
  KernelScene farTriangle(testing::gradientSurface(64, 48));
  Filters::l225(farTriangle.surface, farTriangle.layer, far);
  EXPECT_EQ(readPixel(farTriangle.surface, 0, 0), gradientPixel(63, 1));
}

TEST(WaveWarps, TheScratchBlockIsLaidOverAsAlphaFirstPixelsAndTheLayerOnTop) {
  Console console;
  setPlatform(&console);
  KnownScratch opaque({255, 10, 20, 30});
  for (auto [name, warp] : kWarps) {
    KernelScene s(testing::gradientSurface(40, 30));
    s.markLayer(7, 9, {255, 0, 0});
    warp(s.surface, s.layer, controlsWith({{4, 0.3}, {5, 0.6}}));
    EXPECT_EQ(readPixel(s.surface, 20, 20), (KColor{10, 20, 30})) << name;
    EXPECT_EQ(readPixel(s.surface, 7, 9), (KColor{255, 0, 0})) << name;
  }
  setPlatform(nullptr);
  EXPECT_EQ(console.lines, std::vector<std::string>{"Precog size : 40"});  // PRECOG1 alone says it
}

}  // namespace
}  // namespace zorvex
