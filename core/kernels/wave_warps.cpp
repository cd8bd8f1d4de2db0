// Every pixel takes the colour of a pixel displaced by a wave in x and a wave in y. "PRECOG1" uses
// cosine waves; "L225" a triangle wave, which folds the picture along straight creases, with far
// shorter wave lengths allowed. The warp runs in place, column by column, so a pixel once written is
// read again by pixels that come later: that is part of the look.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/imaging/fatal.h"
#include "core/imaging/math_utils.h"
#include "core/imaging/pixels.h"
#include "core/imaging/platform.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

ScratchAllocator scratchAllocator = nullptr;

void* allocateScratch(size_t bytes) { return scratchAllocator ? scratchAllocator(bytes) : std::malloc(bytes); }

enum class Wave { Cosine, Triangle };

template <Wave kWave>
double wave(double x) {
  if constexpr (kWave == Wave::Cosine) {
    return std::cos(x);
  } else {
    return MathUtils::triangleWave(x);
  }
}

// A source index mirrored back into 0..n-1 from either side. Both kernels turn a negative index
// positive; the cosine warp then also mirrors the result if it lies past the far edge, the triangle
// warp does not. The two differ only for a negative index of magnitude n or more.
template <Wave kWave>
int64_t reflect(int64_t i, int64_t n) {
  if (i < 0) {
    i = -i;
    if constexpr (kWave == Wave::Triangle) return i;
  }
  if (i >= n) i = n - (i - n);
  return i;
}

template <Wave kWave>
void warp(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const int64_t W = int64_t(CGBitmapContextGetWidth(context));
  const int64_t H = int64_t(CGBitmapContextGetHeight(context));
  // Neither cleared nor ever written: it is laid over the warp as it comes from the allocator, read as
  // premultiplied pixels with alpha first. Fresh zeros leave the surface alone; a reused block shows
  // the remains of earlier memory.
  void* scratch = allocateScratch(size_t(checkedMul(checkedMul(W, 4), H)));
  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
  CGContextSetInterpolationQuality(layerContext, kCGInterpolationNone);

  if (controls.count() < 6) fatal();
  const double w = double(W), h = double(H);
  constexpr bool kCosine = kWave == Wave::Cosine;
  const double halfPhaseX = controls[0] * 3.141592653589793;
  const double phaseX = halfPhaseX + halfPhaseX;                   // phase of the wave that moves x
  const double halfPhaseY = controls[1] * 3.141592653589793;
  const double phaseY = halfPhaseY + halfPhaseY;                   // phase of the wave that moves y
  const double lengthY = kCosine ? (h - h / 10.0) * controls[2] + h / 10.0    // wave length down
                                 : (h - 0.001) * controls[2] + 0.001;
  const double lengthX = kCosine ? (w - w / 10.0) * controls[3] + w / 10.0    // wave length across
                                 : (w - 0.001) * controls[3] + 0.001;
  const double amountX = (w * 0.5) * controls[4];                  // displacement of x
  const double amountY = (h * 0.5) * controls[5];                  // displacement of y
  if constexpr (kCosine) consoleLine("Precog size : " + std::to_string(W));

  // The x displacement depends on the row alone and the y displacement on the column alone, so each is
  // worked out once per row or column, by the same arithmetic as per pixel. `px` and `py` are not `x`
  // and `y`: the division and the product are inexact, and a value just below a whole number
  // truncates one lower.
  std::vector<double> rowY(static_cast<size_t>(H)), rowShiftX(static_cast<size_t>(H));
  for (int64_t y = 0; y < H; ++y) {
    const double py = (double(y) / double(H)) * h;
    rowY[size_t(y)] = py;
    rowShiftX[size_t(y)] = amountX * wave<kWave>(phaseX + py / lengthY);
  }
  for (int64_t x = 0; x < W; ++x) {
    const double px = (double(x) / double(W)) * w;
    const double shiftY = amountY * wave<kWave>(phaseY + px / lengthX);
    for (int64_t y = 0; y < H; ++y) {
      const double sourceX = px + rowShiftX[size_t(y)];
      const double sourceY = rowY[size_t(y)] + shiftY;
      // The lower bound is 1: column 0 and row 0 are never a source.
      const int64_t ix = std::max<int64_t>(1, std::min(reflect<kWave>(truncInt(sourceX), W), W - 1));
      const int64_t iy = std::max<int64_t>(1, std::min(reflect<kWave>(truncInt(sourceY), H), H - 1));
      writePixel(context, x, y, readPixel(context, ix, iy));
    }
  }

  CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
  CGContextRef scratchContext;
  if (scratch) {
    scratchContext = CGBitmapContextCreate(scratch, size_t(W), size_t(H), 8, size_t(W) * 4, space,
                                           kCGImageAlphaPremultipliedFirst);
  }
  CGImageRef image = CGBitmapContextCreateImage(scratchContext);
  if (scratchContext && image) {
    CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
    CGContextSetBlendMode(context, kCGBlendModeNormal);
    CGContextDrawImage(context, CGRectMake(0.0, 0.0, w, h), image);
    CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
  }
  image.reset();
  scratchContext.reset();  // it wraps the block
  std::free(scratch);
}

}  // namespace

void setWarpScratchAllocator(ScratchAllocator allocator) { scratchAllocator = allocator; }

void precog1(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  warp<Wave::Cosine>(context, layer, controls);
}

void l225(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  warp<Wave::Triangle>(context, layer, controls);
}

}  // namespace zorvex::Filters
