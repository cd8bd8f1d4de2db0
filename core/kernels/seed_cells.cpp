// "VORTRON" breaks the picture into diamond-edged cells around scattered seeds by a city-block
// distance; "GLASSDAGGER" uses an odd metric with an angular term and gives long splinters. Each pixel
// takes the colour of its seed; the result is drawn over the surface and the layer on top of it.
#include "core/kernels/seed_cells.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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

// The angular term: the cosine of the float angle, widened to double, times 6.28; -6 to 6.
inline int64_t angularTerm(float dy, float dx) {
  return truncInt(std::cos(double(std::atan2(dy, dx))) * 6.28);
}

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

void vortronCells(const PixelView& source, std::span<const Seed> seeds, uint8_t* out) {
  vortronCellsPlain(source, seeds, out);
}

void glassdaggerCells(const PixelView& source, std::span<const Seed> seeds, uint8_t* out) {
  glassdaggerCellsPlain(source, seeds, out);
}

}  // namespace SeedCells

namespace KCGContextProcessing {
namespace {

// Wraps the finished cells in a context of the surface's layout and draws them over the surface
// under the blend mode it has; then the layer, which this kernel did not draw to, goes on top.
void drawCells(const CGContextRef& context, const CGLayerRef& layer, std::vector<uint8_t>& cells, int64_t w,
               int64_t h) {
  const CGContextRef cellsContext = CGBitmapContextCreate(cells.data(), size_t(w), size_t(h), 8, size_t(4 * w),
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

  std::vector<uint8_t> cells(size_t(checkedMul(checkedMul(w, h), 4)));
  CGContextSetBlendMode(context, firstMode);
  CGContextSetInterpolationQuality(context, kCGInterpolationHigh);
  SeedCells::vortronCells(context->pixels(), seeds, cells.data());
  CGContextSetBlendMode(context, mode);
  CGContextSetBlendMode(CGLayerGetContext(layer), mode);
  drawCells(context, layer, cells, w, h);
}

void glassdagger(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls) {
  const int64_t w = int64_t(CGBitmapContextGetWidth(context));
  const int64_t h = int64_t(CGBitmapContextGetHeight(context));
  // Indices 0 and 1 place the five seeds.
  const std::vector<SeedCells::Seed> seeds = SeedCells::glassdaggerSeeds(controls, w, h);
  const CGBlendMode mode = getRandomGoodBlendModeWithSeed(truncInt32(double(controls[2]) * 10000.0));
  if (!context) return;

  std::vector<uint8_t> cells(size_t(checkedMul(checkedMul(w, h), 4)));
  CGContextSetBlendMode(context, mode);
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  SeedCells::glassdaggerCells(context->pixels(), seeds, cells.data());
  CGContextSetBlendMode(context, mode);
  CGContextSetBlendMode(CGLayerGetContext(layer), mode);
  drawCells(context, layer, cells, w, h);
}

}  // namespace KCGContextProcessing
}  // namespace zorvex
