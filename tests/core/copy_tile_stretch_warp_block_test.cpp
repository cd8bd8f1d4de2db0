// The kernels that copy, tile, stretch, warp and block: marked rows, columns and corners land where the
// kernels' arithmetic puts them; each leaves the drawing state the next kernel relies on.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <optional>

#include "core/kernels/kernels.h"
#include "core/stack/filters.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::controlsWith;
using testing::gradientPixel;
using testing::gradientSurface;

using testing::Scene;

// Kernels that draw under the layer's interpolation quality without setting it get nearest, so that
// scaled pieces come out exact.
Scene nearest(CGContextRef picture) {
  Scene s(std::move(picture));
  CGContextSetInterpolationQuality(s.layerContext(), kCGInterpolationNone);
  return s;
}

constexpr KColor kRed{255, 0, 0};

TEST(Graboid, SameNumbersMoveThePieceUprightToTheOppositePlace) {
  // Pass 0: the top-left quarter (source rows from the top) lands on the bottom-left quarter (drawing y
  // up). Later passes read zero widths and draw nothing.
  Scene s(gradientSurface(20, 10));
  Filters::graboid(s.surface, controlsWith({{1, 0.5}, {3, 0.5}}));
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) ASSERT_EQ(s.at(x, y), gradientPixel(x, x < 10 && y >= 5 ? y - 5 : y)) << x << "," << y;
}

TEST(Veth, StripsLandMirroredBesideTheirSource) {
  // 100 x 100, slice 10, seeds 0 and 2 (drand48 0.1708, 0.9124). Bands (travel 90): strips cut at rows
  // 15.37 and 82.12 land mirrored in rows 5-14 and 72-81. Columns (travel 89): cut at 15.20 and 81.21,
  // they land in columns 5-14 and 71-80. Pairs are (place, source).
  for (const bool columns : {false, true}) {
    Scene s(gradientSurface(100, 100));
    s.markLayer(50, 50, kRed);
    CGContextSetInterpolationQuality(s.surface, kCGInterpolationNone);  // veth keeps the surface's
    Filters::veth(s.surface, s.layer, controlsWith({{0, columns ? 0.5 : 0.0}, {1, 0.2}}));
    const int second = columns ? 71 : 72;
    const std::pair<int, int> places[] = {{4, 4},   {5, 25},           {14, 15},         {15, 15},
                                          {70, 70}, {second, second + 20}, {second + 9, second + 10}, {99, 99}};
    for (int across = 0; across < 100; across += 7)
      for (auto [to, from] : places)
        ASSERT_EQ(columns ? s.at(to, across) : s.at(across, to),
                  columns ? gradientPixel(from, across) : gradientPixel(across, from))
            << columns << " " << to;
    EXPECT_EQ(s.at(50, 50), kRed);  // the layer goes back on top
  }
}

TEST(Fold4rap5, FoldsShrinkAndTheLeftHalfMirrorsOverTheRight) {
  // Ratio 0.5 on 64 columns: folds of 16, 8, 4, 2 and 1, then columns 0-31 mirrored onto 32-63.
  Scene s(gradientSurface(64, 16));
  s.markLayer(20, 0, kRed);  // composited first, so the first fold mirrors it to column 11
  Filters::fold4rap5(s.surface, s.layer, controlsWith({}));
  const int left[16] = {21, 21, 21, 20, 20, 21, 22, 23, 23, 22, 21, 20, 19, 18, 17, 16};
  for (int y = 1; y < 16; ++y)
    for (int x = 0; x < 32; ++x) {
      ASSERT_EQ(s.at(x, y), gradientPixel(x < 16 ? left[x] : x, y)) << x << "," << y;
      ASSERT_EQ(s.at(63 - x, y), s.at(x, y)) << x << "," << y;
    }
  for (int x : {11, 20, 43, 52}) EXPECT_EQ(s.at(x, 0), kRed) << x;

  // Ratio 0.7: the closing mirror of 50 columns is stretched to 70, past the right edge.
  Scene wide = nearest(gradientSurface(100, 8));
  Filters::fold4rap5(wide.surface, wide.layer, controlsWith({{0, 1.0}}));
  for (auto [k, from] : {std::pair{0, 49}, {20, 35}, {49, 14}}) EXPECT_EQ(wide.at(50 + k, 3), wide.at(from, 3)) << k;
}

TEST(Bunker, SourcesCrowdTowardsTheCentreOnBothAxes) {
  // 2 x 2 tiles of 32 x 24, zoom 2, drawn 33 x 25: the bottom-left tile comes from (8, 18) counted from
  // the top, the top-left from (8, 6), the right-hand ones from x = 24.
  Scene s = nearest(gradientSurface(64, 48));
  Filters::bunker(s.surface, s.layer, controlsWith({{0, 0.15}, {1, 0.15}, {2, 1.0 / 3.0}}));
  for (auto [x, y, fromX, fromY] : {std::tuple{0, 47, 8, 41}, {0, 0, 8, 7}, {63, 0, 54, 7}, {63, 47, 54, 41}})
    EXPECT_EQ(s.at(x, y), gradientPixel(fromX, fromY)) << x << "," << y;
}

TEST(Fingerblib, TilesGrowUpAndRightByTheirCornerAndLaterOnesLieOnTop) {
  // Cell 20 on 60 x 40: two tiles on the top row, lower-left corners at row 20. White corner: side 31.89
  // (columns 0-31, rows 0-19); black corner: side 12.05 (columns 20-31, rows 8-19), painted later.
  auto picture = gradientSurface(60, 40);
  writePixel(picture, 0, 0, {255, 255, 255});
  writePixel(picture, 20, 0, {0, 0, 0});
  Scene s = nearest(picture);
  Filters::fingerblib(s.surface, s.layer, controlsWith({}));
  // The black-cornered tile on top, the white-cornered one, and the picture in the gaps and margins.
  for (auto [x, y, fromX, fromY] : {std::tuple{25, 15, 29, 12}, {10, 5, 6, 10}, {24, 3, 15, 9}, {40, 5, 40, 5},
                                    {35, 10, 35, 10}, {5, 30, 5, 30}})
    EXPECT_EQ(s.at(x, y), gradientPixel(fromX, fromY)) << x << "," << y;
}

TEST(Kompliance, TilesAreUpsideDownAndOnlyTheTurnsModuloFourCount) {
  // Cell 10 on rows that differ and columns that don't. A tile drawn 11 high from row y - 1 shows its
  // rows 2 and 7 in rows y + 1 and y + 7.
  auto run = [](double turns) {
    auto picture = testing::blankSurface(30, 100);
    for (int y = 0; y < 100; ++y)
      for (int x = 0; x < 30; ++x) writePixel(picture, x, y, {uint8_t(2 * y), 0, 0});
    Scene s = nearest(picture);
    Filters::kompliance(s.surface, s.layer, controlsWith({{0, 1.0}, {1, turns}}));
    return s;
  };
  for (auto [turns, top, bottom] : {std::tuple{0.0, 7, 2}, {0.045, 7, 2}, {0.025, 2, 7}}) {  // 0, 4, 2 turns
    Scene s = run(turns);
    for (int y = 0; y < 100; y += 10) {
      EXPECT_EQ(s.at(13, y + 1).r, 2 * (y + top)) << turns << " " << y;
      EXPECT_EQ(s.at(13, y + 7).r, 2 * (y + bottom)) << turns << " " << y;
    }
  }
}

TEST(Motor, BandsWidenInAStraightLineFromTheLeftEdgeRightward) {
  // One-row bands, each drawn two rows high from the row above. Seed 2 gives a step of 0.03641: band i
  // has scale 1 + (i + 1) 0.03641 and starts at x = (scale - 1) 50, not centred.
  Scene s(gradientSurface(100, 100));
  s.markLayer(7, 90, kRed);
  Filters::motor(s.surface, s.layer, controlsWith({{1, 1.0}, {2, 1.0}, {3, 0.0002}}));
  EXPECT_EQ(s.at(0, 0), gradientPixel(0, 0));      // band 0 starts at 1.82
  EXPECT_EQ(s.at(14, 0), gradientPixel(10, 1));    // band 1: scale 1.0728 from 3.64
  EXPECT_EQ(s.at(50, 49), gradientPixel(50, 49));  // bands 49 and 50 start at 91.0 and 92.8
  EXPECT_EQ(s.at(95, 49), gradientPixel(0, 50));
  EXPECT_EQ(s.at(5, 99), gradientPixel(5, 99));    // from band 54 on they start past the edge
  EXPECT_EQ(s.at(7, 90), kRed);                    // the layer still goes on top
}

TEST(Xex0x, ColumnsAreOneSampleSmearedOverOneOfTwoWidths) {
  // Narrow columns (seed 0) are truncate(4.51) = 4 wide, wide ones truncate(19.51) = 19. Pattern 0.0
  // makes all narrow; 0.5 makes columns 3 to 7 wide. Column 0 is always narrow.
  std::vector<int> even;
  for (int x = 0; x < 100; x += 4) even.push_back(x);
  for (const auto& [pattern, starts] : {std::pair{0.0, even}, {0.5, std::vector<int>{0, 4, 8, 12, 31, 50, 69, 88}}}) {
    Scene s(gradientSurface(100, 10));
    Filters::xex0x(s.surface, s.layer, controlsWith({{0, pattern}, {1, 0.9}}));
    for (int x = 0, k = 0; x < 100; ++x) {
      if (k + 1 < int(starts.size()) && x == starts[size_t(k) + 1]) ++k;
      ASSERT_EQ(s.at(x, 6), gradientPixel(starts[size_t(k)], 6)) << pattern << " " << x;
    }
  }
}

// The warps lay an uncleared block over their result; the tests hand them one of known bytes.
std::array<uint8_t, 4> scratchBytes;
struct KnownScratch {
  explicit KnownScratch(std::array<uint8_t, 4> argb = {}) {
    scratchBytes = argb;
    Filters::setWarpScratchAllocator([](size_t n) {
      auto* p = static_cast<uint8_t*>(std::malloc(n));
      for (size_t i = 0; i < n; ++i) p[i] = scratchBytes[i % 4];
      return static_cast<void*>(p);
    });
  }
  ~KnownScratch() { Filters::setWarpScratchAllocator(nullptr); }
};
const FullKernel kWarps[] = {Filters::precog1, Filters::l225};

TEST(WaveWarps, WithoutDisplacementRowAndColumnZeroCopyTheirNeighbours) {
  // On 49 rows (y / 49) * 49 falls just short of y for y = 2, 4, 8, 16, 27, 32: those copy the row above.
  KnownScratch zeros;
  auto rowFrom = [](int y) {
    return y == 2 || y == 4 || y == 8 || y == 16 || y == 27 || y == 32 ? y - 1 : std::max(y, 1);
  };
  for (FullKernel warp : kWarps) {
    Scene s(gradientSurface(64, 49));
    warp(s.surface, s.layer, controlsWith({}));
    for (int y = 0; y < 49; ++y)
      for (int x = 0; x < 64; ++x) ASSERT_EQ(s.at(x, y), gradientPixel(std::max(x, 1), rowFrom(y))) << x << "," << y;
  }
}

TEST(WaveWarps, TheSidewaysShiftFollowsTheRowAndMirrorsAtTheEdges) {
  // 64 x 48, wave length down the full height, amountX 8: row y moves by 8 cos(y / 48) in PRECOG1 and by
  // 8 (y / 48) in L225. Row 0 reads row 1; past the right edge 67 mirrors to 61.
  KnownScratch zeros;
  Scene cosine(gradientSurface(64, 48)), triangle(gradientSurface(64, 48));
  Filters::precog1(cosine.surface, cosine.layer, controlsWith({{2, 1.0}, {4, 0.25}}));
  Filters::l225(triangle.surface, triangle.layer, controlsWith({{2, 1.0}, {4, 0.25}}));
  EXPECT_EQ(cosine.at(0, 0), gradientPixel(8, 1));
  EXPECT_EQ(cosine.at(33, 1), gradientPixel(40, 1));    // + 7.998
  EXPECT_EQ(cosine.at(36, 47), gradientPixel(40, 47));  // + 4.470
  EXPECT_EQ(cosine.at(60, 1), gradientPixel(61, 1));
  EXPECT_EQ(triangle.at(5, 0), gradientPixel(5, 1));
  EXPECT_EQ(triangle.at(36, 24), gradientPixel(40, 24));  // + 4
  EXPECT_EQ(triangle.at(60, 47), gradientPixel(61, 47));  // + 7.833
}

TEST(WaveWarps, TheScratchBlockIsLaidOverAsAlphaFirstPixelsUnderTheLayer) {
  KnownScratch opaque({255, 10, 20, 30});
  for (FullKernel warp : kWarps) {
    Scene s(gradientSurface(40, 30));
    s.markLayer(7, 9, kRed);
    warp(s.surface, s.layer, controlsWith({{4, 0.3}, {5, 0.6}}));
    EXPECT_EQ(s.at(20, 20), (KColor{10, 20, 30}));
    EXPECT_EQ(s.at(7, 9), kRed);
  }
}

TEST(Chip13h, ThreeSmallerPicturesBlendOverTheFirstByTheChosenMode) {
  // Flat grey 128: Multiply (index 0) three times gives 64, 32, 16; Screen (index 5) 192, 224, 240.
  for (auto [control, mode, level] : {std::tuple{0.0, kCGBlendModeMultiply, 16}, {0.75, kCGBlendModeScreen, 240}}) {
    Scene s(testing::solidSurface(64, 48, {128, 128, 128}));
    Filters::chip13h(s.surface, s.layer, controlsWith({{0, control}}));
    EXPECT_NEAR(s.at(30, 20).g, level, 1) << control;
    EXPECT_EQ(s.layerContext()->state().blendMode, mode);
  }
}

TEST(Blitbomb, SquaresSitOneSquareAboveWhereTheyWereSampled) {
  // Black 60 x 60 under Lighten, cells and squares of 4. The white corner (8, 8) gives a square over
  // rows 4-7 of 255 / 256 of white, 254; the white (20, 0) is on the top row, whose squares fall off.
  auto picture = testing::solidSurface(60, 60, {0, 0, 0});
  writePixel(picture, 8, 8, {255, 255, 255});
  writePixel(picture, 20, 0, {255, 255, 255});
  Scene s(picture);
  Filters::blitbomb(s.surface, s.layer, controlsWith({{0, 0.45}}));
  for (int y = 4; y < 8; ++y)
    for (int x = 8; x < 12; ++x) EXPECT_EQ(s.at(x, y), (KColor{254, 254, 254})) << x << "," << y;
  for (auto [x, y, r] : {std::tuple{8, 8, 255}, {9, 9, 0}, {9, 3, 0}, {20, 0, 255}, {21, 0, 0}})
    EXPECT_EQ(s.at(x, y).r, r) << x << "," << y;
}

// What each leaves for the next kernel, from a surface and a layer in Difference at high quality, and
// the smallest control vector it takes.
constexpr CGBlendMode kOld = kCGBlendModeDifference, kNormal = kCGBlendModeNormal;
constexpr CGBlendMode kPicked = kCGBlendModeHardLight;  // blendTable[truncate(0.3 * 7)]
constexpr CGInterpolationQuality kHigh = kCGInterpolationHigh, kNone = kCGInterpolationNone;
struct Left {
  const char* name;
  CGBlendMode surfaceMode;
  CGInterpolationQuality surfaceQuality;
  CGBlendMode layerMode;
  CGInterpolationQuality layerQuality;
  std::optional<bool> layerOnTop;  // whether the layer's old pixel ends on the surface
  size_t controlsNeeded;
};
const Left kLeft[] = {
    {"GRABOID", kNormal, kNone, kOld, kHigh, false, 36},    {"VETH", kNormal, kHigh, kNormal, kHigh, true, 4},
    {"FOLD4RAP5", kNormal, kNone, kNormal, kHigh, {}, 1},   {"BUNKER", kOld, kHigh, kOld, kHigh, {}, 3},
    {"FINGERBLIB", kNormal, kNone, kOld, kHigh, {}, 1},     {"KOMPLIANCE", kNormal, kNone, kOld, kHigh, {}, 2},
    {"M0T0R", kOld, kNone, kNormal, kHigh, {}, 4},          {"XEXOX", kNormal, kHigh, kNormal, kHigh, {}, 4},
    {"PRECOG1", kNormal, kHigh, kNormal, kNone, true, 6},   {"L225", kNormal, kHigh, kNormal, kNone, true, 6},
    {"CHIP13h", kNormal, kNone, kPicked, kNone, {}, 1},     {"BLITBOMB", kPicked, kNone, kPicked, kHigh, {}, 3},
};
Scene oldState() {
  Scene s(gradientSurface(64, 48));
  s.markLayer(5, 5, {255, 0, 255});
  for (const CGContextRef& c : {s.surface, s.layerContext()}) {
    CGContextSetBlendMode(c, kOld);
    CGContextSetInterpolationQuality(c, kHigh);
  }
  return s;
}

TEST(KernelState, EachLeavesItsStateAndNeedsItsControls) {
  for (const Left& e : kLeft) {
    Scene s = oldState();
    Filters::applyEffect(*Effect::make(e.name, true), s.surface, s.layer, ControlValues(kControlCount, 0.3));
    EXPECT_EQ(s.surface->state().blendMode, e.surfaceMode) << e.name;
    EXPECT_EQ(s.surface->state().interpolation, e.surfaceQuality) << e.name;
    EXPECT_EQ(s.layerContext()->state().blendMode, e.layerMode) << e.name;
    EXPECT_EQ(s.layerContext()->state().interpolation, e.layerQuality) << e.name;
    if (e.layerOnTop) {
      EXPECT_EQ(s.at(5, 5) == (KColor{255, 0, 255}), *e.layerOnTop) << e.name;
    }
    Scene least = oldState();
    Filters::applyEffect(*Effect::make(e.name, true), least.surface, least.layer, ControlValues(e.controlsNeeded, 0.3));
  }
}

#ifndef __EMSCRIPTEN__
TEST(KernelStateDeathTest, OneControlTooFewOrABlendControlOfOneIsFatal) {
  for (const Left& e : kLeft) {
    Scene s = oldState();
    const ControlValues tooFew(e.controlsNeeded - 1, 0.3);
    EXPECT_DEATH(Filters::applyEffect(*Effect::make(e.name, true), s.surface, s.layer, tooFew), "") << e.name;
  }
  for (const char* name : {"CHIP13h", "BLITBOMB"}) {  // index 7 of a table of seven modes
    Scene s = oldState();
    const ControlValues ones(kControlCount, 1.0);
    EXPECT_DEATH(Filters::applyEffect(*Effect::make(name, true), s.surface, s.layer, ones), "") << name;
  }
}
#endif

}  // namespace
}  // namespace zorvex
