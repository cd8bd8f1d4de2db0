// "VORTRON" breaks the picture into diamond-edged cells around scattered seeds by a city-block
// distance; "GLASSDAGGER" uses an odd metric with an angular term and gives long splinters. Each pixel
// takes the colour of its seed; the result is drawn over the surface and the layer on top of it.
#include "core/kernels/seed_cells.h"

#include <algorithm>
#include <cmath>
#include <climits>
#include <cstring>
#include <memory>

#include "core/imaging/blend_modes.h"
#include "core/imaging/fatal.h"
#include "core/imaging/math_utils.h"
#include "core/kernels/kernels.h"

namespace zorvex {
namespace SeedCells {
namespace {

// The four bytes of the source pixel under a seed's truncated coordinates, clamped into the source.
uint32_t seedColor(const PixelView& source, const Seed& s) {
  const int64_t x = std::clamp<int64_t>(truncInt(s.x), 0, source.width - 1);
  const int64_t y = std::clamp<int64_t>(truncInt(s.y), 0, source.height - 1);
  uint32_t v;
  std::memcpy(&v, source.at(int32_t(x), int32_t(y)), 4);
  return v;
}

// The table's entry for `best`; without seeds the point (0, 0).
uint32_t bestColor(const PixelView& source, std::span<const Seed> seeds, size_t best) {
  return seeds.empty() ? seedColor(source, Seed{0, 0}) : seedColor(source, seeds[best]);
}

void put(uint8_t* out, int64_t width, int64_t x, int64_t y, uint32_t color) {
  std::memcpy(out + 4 * (y * width + x), &color, 4);
}

}  // namespace

std::vector<Seed> vortronSeeds(ControlFloats controls, int64_t w, int64_t h) {
  const float xs = controls[0];  // seed i lies at noiseInRange(xs * i * 50000.0, 0, w)
  const float ys = controls[1];  // and noiseInRange(ys * i * 50000.0, 0, h)
  const int64_t seeds = truncInt(double(controls[19]) * 50.0);  // 0 to 49
  std::vector<Seed> table(static_cast<size_t>(seeds));
  for (int64_t i = 0; i < seeds; ++i) {
    const float fi = float(i);
    table[size_t(i)] = {MathUtils::noiseInRange(float(double(xs * fi) * 50000.0), 0.0f, float(w)),
                        MathUtils::noiseInRange(float(double(ys * fi) * 50000.0), 0.0f, float(h))};
  }
  return table;
}

std::vector<Seed> glassdaggerSeeds(ControlFloats controls, int64_t w, int64_t h) {
  const float xs = controls[0];  // seed k lies at noiseInRange(xs * k * 100000.0, 0, w)
  const float ys = controls[1];  // and noiseInRange(ys * k * 9000000.0, 0, h)
  std::vector<Seed> table(5);
  for (int k = 0; k < 5; ++k) {
    const float fk = float(k);
    table[size_t(k)] = {MathUtils::noiseInRange(float(double(xs * fk) * 100000.0), 0.0f, float(w)),
                        MathUtils::noiseInRange(float(double(ys * fk) * 9000000.0), 0.0f, float(h))};
  }
  return table;
}

void vortronCellsPlain(const PixelView& source, std::span<const Seed> seeds, uint8_t* out) {
  const int64_t w = source.width, h = source.height;
  for (int64_t x = 0; x < w; ++x)
    for (int64_t y = 0; y < h; ++y) {
      size_t best = 0;
      int64_t least = 9999999;
      for (size_t k = 0; k < seeds.size(); ++k) {
        const int64_t d = truncInt(std::fabs(float(x) - seeds[k].x) + std::fabs(float(y) - seeds[k].y));
        if (least > d) {
          best = k;
          least = d;
        }
      }
      put(out, w, x, y, bestColor(source, seeds, best));
    }
}

namespace {
// The angular term: the cosine of the float angle, widened to double, times 6.28; -6 to 6.
int64_t angularTerm(float dy, float dx) { return truncInt(std::cos(double(std::atan2(dy, dx))) * 6.28); }
}  // namespace

void glassdaggerCellsPlain(const PixelView& source, std::span<const Seed> seeds, uint8_t* out) {
  const int64_t w = source.width, h = source.height;
  for (int64_t x = 0; x < w; ++x)
    for (int64_t y = 0; y < h; ++y) {
      size_t best = 0;
      int64_t least = 9999999;
      for (size_t k = 0; k < seeds.size(); ++k) {
        const float sx = seeds[k].x, sy = seeds[k].y;
        const int64_t a = truncInt(std::fabs(float(x) - sx));
        // The column of the pixel against the vertical distance to the seed.
        const int64_t b = truncInt(std::fabs(float(x) - std::fabs(float(y) - sy)));
        const int64_t c = angularTerm(float(y) - sy, float(x) - sx);
        const int64_t v = b < a ? b : c;
        if (v < least) {
          best = k;
          least = v;
        }
      }
      put(out, w, x, y, bestColor(source, seeds, best));
    }
}

// ----- Fast paths -----
//
// Both do the plain loop's arithmetic on the same single-precision values, so every truncation comes
// out the same; they change the order (row by row, so that writes are sequential), hoist what depends
// on one axis only, and keep loops that the compiler vectorises. They rely on every distance staying
// below the plain loop's starting 9999999 and on whole coordinates being exact floats: pictures of 2^21
// pixels or more on a side, or seeds more than 2^21 outside them, take the plain loop.

namespace {

constexpr int64_t kFastLimit = int64_t{1} << 21;
constexpr int64_t kTile = 32;  // the side of the square tiles of the city-block search

bool fastPathServes(const PixelView& source, std::span<const Seed> seeds) {
  const float lo = -float(kFastLimit), hi = 2.0f * float(kFastLimit);  // distances stay below 2^22
  if (source.width >= kFastLimit || source.height >= kFastLimit) return false;
  for (const Seed& s : seeds)
    if (!(s.x >= lo && s.x <= hi && s.y >= lo && s.y <= hi)) return false;
  return true;
}

std::vector<uint32_t> seedColors(const PixelView& source, std::span<const Seed> seeds) {
  std::vector<uint32_t> colors(seeds.size());
  for (size_t k = 0; k < seeds.size(); ++k) colors[k] = seedColor(source, seeds[k]);
  return colors;
}

void fill(uint8_t* out, int64_t width, int64_t x0, int64_t x1, int64_t y0, int64_t y1, uint32_t color) {
  for (int64_t y = y0; y < y1; ++y)
    for (int64_t x = x0; x < x1; ++x) put(out, width, x, y, color);
}

// |i - s| in single precision for i from 0 to n - 1, as the plain loop computes it.
void distances(float s, int64_t n, float* d) {
  for (int64_t i = 0; i < n; ++i) d[i] = std::fabs(float(i) - s);
}

// The least and the largest of d[i] for i in [i0, i1), where d is |i - s|: falling up to s and
// rising after it, since rounding keeps order, so the least lies at one of the two whole numbers
// around s and the largest at an end.
void rangeOf(const float* d, float s, int64_t i0, int64_t i1, float& least, float& largest) {
  const int64_t f = int64_t(std::floor(s));
  least = std::min(d[std::clamp(f, i0, i1 - 1)], d[std::clamp(f + 1, i0, i1 - 1)]);
  largest = std::max(d[i0], d[i1 - 1]);
}

}  // namespace

// City-block cells by tiles. Truncated sums keep the order of their terms, so over a tile a seed's
// distance lies between the truncated sum of its least terms and that of its largest. A seed whose
// least distance is above some seed's largest loses at every pixel of the tile and is dropped; the
// others are searched in their order with the plain comparison, which keeps the earlier-seed rule.
// A tile that keeps one seed is filled with its colour.
void vortronCells(const PixelView& source, std::span<const Seed> seeds, uint8_t* out) {
  const int64_t w = source.width, h = source.height;
  if (seeds.empty()) return fill(out, w, 0, w, 0, h, bestColor(source, seeds, 0));
  if (!fastPathServes(source, seeds)) return vortronCellsPlain(source, seeds, out);
  const size_t n = seeds.size();
  const std::vector<uint32_t> colors = seedColors(source, seeds);
  std::vector<float> ax(n * size_t(w)), ay(n * size_t(h));
  for (size_t k = 0; k < n; ++k) {
    distances(seeds[k].x, w, &ax[k * size_t(w)]);
    distances(seeds[k].y, h, &ay[k * size_t(h)]);
  }
  std::vector<int32_t> lower(n);
  std::vector<size_t> kept;
  kept.reserve(n);
  int32_t least[kTile], best[kTile];
  for (int64_t y0 = 0; y0 < h; y0 += kTile) {
    const int64_t y1 = std::min(h, y0 + kTile);
    for (int64_t x0 = 0; x0 < w; x0 += kTile) {
      const int64_t x1 = std::min(w, x0 + kTile), cols = x1 - x0;
      int32_t bestUpper = INT32_MAX;
      for (size_t k = 0; k < n; ++k) {
        float leastX, largestX, leastY, largestY;
        rangeOf(&ax[k * size_t(w)], seeds[k].x, x0, x1, leastX, largestX);
        rangeOf(&ay[k * size_t(h)], seeds[k].y, y0, y1, leastY, largestY);
        lower[k] = int32_t(leastX + leastY);
        bestUpper = std::min(bestUpper, int32_t(largestX + largestY));
      }
      kept.clear();
      for (size_t k = 0; k < n; ++k)
        if (lower[k] <= bestUpper) kept.push_back(k);
      if (kept.size() == 1) {
        fill(out, w, x0, x1, y0, y1, colors[kept[0]]);
        continue;
      }
      for (int64_t y = y0; y < y1; ++y) {
        for (size_t j = 0; j < kept.size(); ++j) {
          const size_t k = kept[j];
          const float* axk = &ax[k * size_t(w) + size_t(x0)];
          const float ayk = ay[k * size_t(h) + size_t(y)];
          const int32_t kk = int32_t(k);
          if (j == 0) {
            for (int64_t i = 0; i < cols; ++i) {
              least[i] = int32_t(axk[i] + ayk);
              best[i] = kk;
            }
            continue;
          }
          for (int64_t i = 0; i < cols; ++i) {
            const int32_t d = int32_t(axk[i] + ayk);
            const bool closer = least[i] > d;
            least[i] = closer ? d : least[i];
            best[i] = closer ? kk : best[i];
          }
        }
        for (int64_t i = 0; i < cols; ++i) put(out, w, x0 + i, y, colors[size_t(best[i])]);
      }
    }
  }
}

// Splinters row by row. The angular term is the costly part: trunc(cos(atan2f(dy, dx)) * 6.28) is
// sign(dx) times the count of n in 1..6 with 6.28^2 dx^2 / (dx^2 + dy^2) >= n^2. That ratio is computed
// in a vectorised pass; where it lies within 1e-3 of a square (or dx and dy are both 0), which no
// rounding of the ratio or of atan2f can cross otherwise, the exact term is computed instead.
void glassdaggerCells(const PixelView& source, std::span<const Seed> seeds, uint8_t* out) {
  const int64_t w = source.width, h = source.height;
  if (seeds.empty()) return fill(out, w, 0, w, 0, h, bestColor(source, seeds, 0));
  if (!fastPathServes(source, seeds)) return glassdaggerCellsPlain(source, seeds, out);
  const size_t n = seeds.size(), W = size_t(w);
  const std::vector<uint32_t> colors = seedColors(source, seeds);
  std::vector<float> column(W), dx(n * W);
  std::vector<int32_t> a(n * W), value(n * W), unsure(W);
  for (size_t x = 0; x < W; ++x) column[x] = float(x);
  for (size_t k = 0; k < n; ++k)
    for (size_t x = 0; x < W; ++x) {
      dx[k * W + x] = column[x] - seeds[k].x;
      a[k * W + x] = int32_t(std::fabs(dx[k * W + x]));
    }
  constexpr float kScale = float(6.28 * 6.28), kMargin = 1e-3f;
  constexpr size_t kChunk = 64;  // the unsure columns are looked for chunk by chunk
  std::vector<int32_t> least(W), best(W);
  for (int64_t y = 0; y < h; ++y) {
    for (size_t k = 0; k < n; ++k) {
      const float dy = float(y) - seeds[k].y, ady = std::fabs(dy), dy2 = dy * dy;
      const float* dxk = &dx[k * W];
      const int32_t* ak = &a[k * W];
      int32_t* vk = &value[k * W];
      for (size_t x0 = 0; x0 < W; x0 += kChunk) {
        const size_t x1 = std::min(W, x0 + kChunk);
        int32_t anyUnsure = 0;
        for (size_t x = x0; x < x1; ++x) {
          const int32_t b = int32_t(std::fabs(column[x] - ady));
          const float dx2 = dxk[x] * dxk[x], r2 = dx2 + dy2;
          const float q = kScale * dx2 / r2;
          const int32_t m = int32_t(q >= 1.0f) + int32_t(q >= 4.0f) + int32_t(q >= 9.0f) + int32_t(q >= 16.0f) +
                            int32_t(q >= 25.0f) + int32_t(q >= 36.0f);
          const int32_t near = int32_t(std::fabs(q - 1.0f) < kMargin) | int32_t(std::fabs(q - 4.0f) < kMargin) |
                               int32_t(std::fabs(q - 9.0f) < kMargin) | int32_t(std::fabs(q - 16.0f) < kMargin) |
                               int32_t(std::fabs(q - 25.0f) < kMargin) | int32_t(std::fabs(q - 36.0f) < kMargin) |
                               int32_t(!(r2 > 0.0f));
          const int32_t c = dxk[x] < 0.0f ? -m : m;
          const int32_t useB = int32_t(b < ak[x]);
          vk[x] = useB ? b : c;
          unsure[x] = (useB ^ 1) & near;
          anyUnsure |= unsure[x];
        }
        if (anyUnsure)
          for (size_t x = x0; x < x1; ++x)
            if (unsure[x]) vk[x] = int32_t(angularTerm(dy, dxk[x]));
      }
    }
    // The plain comparison in seed order; the first seed always takes the pixel from 9999999.
    for (size_t x = 0; x < W; ++x) {
      least[x] = value[x];
      best[x] = 0;
    }
    for (size_t k = 1; k < n; ++k) {
      const int32_t* vk = &value[k * W];
      const int32_t kk = int32_t(k);
      for (size_t x = 0; x < W; ++x) {
        const bool lower = vk[x] < least[x];
        least[x] = lower ? vk[x] : least[x];
        best[x] = lower ? kk : best[x];
      }
    }
    uint8_t* row = out + 4 * W * size_t(y);
    for (size_t x = 0; x < W; ++x) std::memcpy(row + 4 * x, &colors[size_t(best[x])], 4);
  }
}

}  // namespace SeedCells

namespace KCGContextProcessing {
namespace {

// Wraps the finished cells in a context of the surface's layout and draws them over the surface
// under the blend mode it has; then the layer, which this kernel did not draw to, goes on top.
void drawCells(const CGContextRef& context, const CGLayerRef& layer, uint8_t* cells, int64_t w, int64_t h) {
  const CGContextRef cellsContext = CGBitmapContextCreate(cells, size_t(w), size_t(h), 8, size_t(4 * w),
                                                          CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
  const CGImageRef image = CGBitmapContextCreateImage(cellsContext);
  CGContextDrawImage(context, CGRectMake(0, 0, double(w), double(h)), image);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointZero, layer);
}

}  // namespace

void vortron(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls) {
  const int64_t w = int64_t(CGBitmapContextGetWidth(context));
  const int64_t h = int64_t(CGBitmapContextGetHeight(context));
  // Indices 0, 1 and 19 place and count the seeds.
  const std::vector<SeedCells::Seed> seeds = SeedCells::vortronSeeds(controls, w, h);
  const CGBlendMode firstMode = getBlendmodeForNormalizedControl(controls[2]);  // replaced before any draw
  const CGBlendMode mode = getBlendmodeForNormalizedControl(controls[3]);       // of the surface and the layer
  if (!context) return;

  // Not cleared: every pixel of it is written.
  const std::unique_ptr<uint8_t[]> cells(new uint8_t[size_t(checkedMul(checkedMul(w, h), 4))]);
  CGContextSetBlendMode(context, firstMode);
  CGContextSetInterpolationQuality(context, kCGInterpolationHigh);
  SeedCells::vortronCells(context->pixels(), seeds, cells.get());
  CGContextSetBlendMode(context, mode);
  CGContextSetBlendMode(CGLayerGetContext(layer), mode);
  drawCells(context, layer, cells.get(), w, h);
}

void glassdagger(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls) {
  const int64_t w = int64_t(CGBitmapContextGetWidth(context));
  const int64_t h = int64_t(CGBitmapContextGetHeight(context));
  // Indices 0 and 1 place the five seeds.
  const std::vector<SeedCells::Seed> seeds = SeedCells::glassdaggerSeeds(controls, w, h);
  const CGBlendMode mode = getRandomGoodBlendModeWithSeed(truncInt32(double(controls[2]) * 10000.0));
  if (!context) return;

  // Not cleared: every pixel of it is written.
  const std::unique_ptr<uint8_t[]> cells(new uint8_t[size_t(checkedMul(checkedMul(w, h), 4))]);
  CGContextSetBlendMode(context, mode);
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  SeedCells::glassdaggerCells(context->pixels(), seeds, cells.get());
  CGContextSetBlendMode(context, mode);
  CGContextSetBlendMode(CGLayerGetContext(layer), mode);
  drawCells(context, layer, cells.get(), w, h);
}

}  // namespace KCGContextProcessing
}  // namespace zorvex
