// "VORTRON" and "GLASSDAGGER": the kernels, the metrics on hand-made seed tables, and the fast paths
// against the plain loops.
#include <gtest/gtest.h>

#include <cstring>

#include "core/imaging/blend_modes.h"
#include "core/imaging/drand48.h"
#include "core/kernels/kernels.h"
#include "core/kernels/seed_cells.h"
#include "core/render/sample_picture.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using SeedCells::Seed;

using testing::floatsWith;

using CellsFunction = void (*)(const PixelView&, std::span<const Seed>, uint8_t*);

// The colours `cells` gives the pixels of a w x h gradient picture, row by row.
std::vector<KColor> cellColours(CellsFunction cells, int w, int h, std::vector<Seed> seeds) {
  std::vector<uint8_t> out(size_t(4 * w * h));
  cells(testing::gradientSurface(w, h)->pixels(), seeds, out.data());
  std::vector<KColor> colours;
  for (size_t i = 0; i < out.size(); i += 4) colours.push_back({out[i], out[i + 1], out[i + 2]});
  return colours;
}

TEST(SeedCells, DistancesTruncateAndTiesGoToTheEarlierSeed) {
  // City block: seeds at x = 4.5 and x = 0 on row 0. At x = 2 both truncated distances are 2 (2.5 and
  // 2), and the earlier seed, the farther one, takes the pixel; at x = 1 the second is nearer.
  for (CellsFunction f : {SeedCells::vortronCellsPlain, SeedCells::vortronCells}) {
    const auto c = cellColours(f, 8, 3, {{4.5f, 0.0f}, {0.0f, 0.0f}});
    EXPECT_EQ(c[2], testing::gradientPixel(4, 0));
    EXPECT_EQ(c[1], testing::gradientPixel(0, 0));
    EXPECT_EQ(c[7], testing::gradientPixel(4, 0));
  }
  // Splinters: seeds at (2.5, 5) and (7.5, 5) seen from (5, 5): a = 2 and b = 5 for both, so the
  // angular term decides: 6 toward the first (angle 0), -6 toward the second (angle pi), and the second
  // wins. At (0, 5), b = 0 < a for both: a tie at 0, which the first keeps.
  for (CellsFunction f : {SeedCells::glassdaggerCellsPlain, SeedCells::glassdaggerCells}) {
    const auto c = cellColours(f, 10, 10, {{2.5f, 5.0f}, {7.5f, 5.0f}});
    EXPECT_EQ(c[55], testing::gradientPixel(7, 5));
    EXPECT_EQ(c[50], testing::gradientPixel(2, 5));
  }
}

// Seed tables that stress the fast paths: the kernels' own, whole and half coordinates (exact ties,
// the angular term at dx = dy = 0), coincident seeds, seeds just outside, a single seed, none, an
// angular term on the edge of a step, and a seed far outside.
std::vector<std::vector<Seed>> tablesFor(int w, int h, uint64_t salt) {
  std::vector<std::vector<Seed>> tables;
  for (uint64_t roll = 0; roll < 3; ++roll) {
    const std::vector<float> f = makeControlFloats(rollControls(salt * 10 + roll));
    tables.push_back(SeedCells::vortronSeeds(ControlFloats(f), w, h));
    tables.push_back(SeedCells::glassdaggerSeeds(ControlFloats(f), w, h));
  }
  srand48(int64_t(salt));
  std::vector<Seed> whole, half, mixed;
  for (int k = 0; k < 12; ++k) {
    whole.push_back({float(int(drand48() * w)), float(int(drand48() * h))});
    half.push_back({float(int(drand48() * w)) + 0.5f, float(int(drand48() * h)) + 0.5f});
  }
  mixed = {whole[0], whole[0], {float(w), float(h)}, half[1], {0.0f, 0.0f}, whole[3], half[1], {-2.5f, 3.0f}};
  tables.push_back(whole);
  tables.push_back(half);
  tables.push_back(mixed);
  tables.push_back({half[2]});
  // At (6, 11) the first seed's angular term is 2, with 6.28^2 cos^2 just below 4 in single precision;
  // the second seed's value there is 1 (b = 1), so the first seed's term decides the pixel.
  tables.push_back({{3.03732967f, 19.8184128f}, {30.5f, 15.5f}});
  tables.push_back({{-3.0e6f, 1.0f}, half[3]});  // far outside: the plain loop serves
  tables.push_back({});
  return tables;
}

TEST(SeedCells, FastPathsGiveThePlainLoopsBytes) {
  const std::pair<int, int> sizes[] = {{1, 1}, {1, 37}, {45, 1}, {33, 32}, {97, 61}, {130, 71}, {64, 200}};
  uint64_t salt = 1;
  for (const auto& size : sizes) {
    const int w = size.first, h = size.second;
    auto sample = testing::blankSurface(w, h);
    CGContextDrawImage(sample, CGRectMake(0, 0, w, h), drawSamplePicture(w, h));
    const CGContextRef pictures[] = {testing::gradientSurface(w, h), sample};
    for (const CGContextRef& picture : pictures) {
      for (const std::vector<Seed>& seeds : tablesFor(w, h, salt++)) {
        const size_t bytes = size_t(4 * w * h);
        std::vector<uint8_t> plain(bytes, 1), fast(bytes, 2);
        SeedCells::vortronCellsPlain(picture->pixels(), seeds, plain.data());
        SeedCells::vortronCells(picture->pixels(), seeds, fast.data());
        ASSERT_EQ(0, std::memcmp(plain.data(), fast.data(), bytes)) << "city block " << w << "x" << h << " " << seeds.size();
        SeedCells::glassdaggerCellsPlain(picture->pixels(), seeds, plain.data());
        SeedCells::glassdaggerCells(picture->pixels(), seeds, fast.data());
        ASSERT_EQ(0, std::memcmp(plain.data(), fast.data(), bytes)) << "splinters " << w << "x" << h << " " << seeds.size();
      }
    }
  }
}

TEST(Vortron, CoincidentSeedsAndNoSeedsGiveOneColour) {
  // With controls 0 and 1 at 0 all 49 seeds lie on seed 0's fixed place, 0.6409 of the way across and
  // up: (64, 32) of 100 x 50. Without seeds every pixel takes (0, 0). Lighten lays the colour over black.
  for (auto [count, mark] : {std::pair<float, std::pair<int, int>>{0.9999f, {64, 32}}, {0.01f, {0, 0}}}) {
    auto s = testing::solidSurface(100, 50, {0, 0, 0});
    writePixel(s, mark.first, mark.second, {255, 0, 0});
    auto layer = CGLayerCreateWithContext(s, CGSizeMake(100, 50), nullptr);
    KCGContextProcessing::vortron(s, layer, ControlFloats(floatsWith({{3, 0.35f}, {19, count}})));
    for (int y = 0; y < 50; ++y)
      for (int x = 0; x < 100; ++x) ASSERT_EQ(readPixel(s, x, y), (KColor{255, 0, 0})) << x << "," << y;
    EXPECT_EQ(CGLayerGetContext(layer)->state().blendMode, kCGBlendModeLighten);
    EXPECT_EQ(s->state().blendMode, kCGBlendModeNormal);
    EXPECT_EQ(s->state().interpolation, kCGInterpolationHigh);
  }
}

TEST(Glassdagger, CoincidentSeedsGiveOneColour) {
  float modeControl = 0;  // a mode that lays red over black as red
  while (KCGContextProcessing::getRandomGoodBlendModeWithSeed(int32_t(double(modeControl) * 10000.0)) != kCGBlendModeLighten)
    modeControl += 0.0001f;
  auto s = testing::solidSurface(100, 50, {0, 0, 0});
  writePixel(s, 64, 32, {255, 0, 0});
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(100, 50), nullptr);
  KCGContextProcessing::glassdagger(s, layer, ControlFloats(floatsWith({{2, modeControl}})));
  for (int y = 0; y < 50; ++y)
    for (int x = 0; x < 100; ++x) ASSERT_EQ(readPixel(s, x, y), (KColor{255, 0, 0})) << x << "," << y;
  EXPECT_EQ(s->state().interpolation, kCGInterpolationNone);
}

TEST(SeedCells, SeedZeroNeverMoves) {
  for (uint64_t roll = 1; roll <= 5; ++roll) {
    const std::vector<float> f = makeControlFloats(rollControls(roll));
    for (const auto& seeds : {SeedCells::vortronSeeds(ControlFloats(f), 100, 50), SeedCells::glassdaggerSeeds(ControlFloats(f), 100, 50)}) {
      if (seeds.empty()) continue;
      EXPECT_EQ(int(seeds[0].x), 64);
      EXPECT_EQ(int(seeds[0].y), 32);
    }
  }
}

}  // namespace
}  // namespace zorvex
