// Two effects that imitate old home computers: "BITBOY" reduces the picture to a 320-pixel-wide
// one-bit image by a 4 x 4 ordered dither; "TI994X" rebuilds it from coloured 4 x 4 character cells at
// several cell sizes. Both read the bytes of their small copies in memory order, which in that layout
// (alpha, R, G, B) puts alpha where red is expected; that misreading is part of the look.
#include <array>
#include <cmath>
#include <vector>

#include "core/imaging/blend_modes.h"
#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/math_utils.h"
#include "core/kernels/kernels.h"

namespace zorvex::KCGContextProcessing {
namespace {

using Glyph = std::array<uint8_t, 16>;  // four rows of four, row j column i at j * 4 + i; row 0 at the bottom

// Glyphs by growing ink, picked by a cell's brightness.
constexpr std::array<Glyph, 8> kFontA = {{
    {0, 0, 0, 0, /**/ 0, 0, 0, 0, /**/ 0, 0, 0, 0, /**/ 0, 0, 0, 0},
    {0, 0, 0, 0, /**/ 0, 0, 0, 0, /**/ 1, 0, 0, 0, /**/ 1, 0, 0, 0},
    {0, 0, 1, 0, /**/ 0, 0, 1, 0, /**/ 0, 0, 1, 0, /**/ 0, 0, 1, 0},
    {0, 0, 1, 0, /**/ 0, 0, 1, 0, /**/ 1, 0, 1, 0, /**/ 1, 0, 1, 0},
    {1, 0, 1, 0, /**/ 1, 0, 1, 0, /**/ 1, 0, 1, 0, /**/ 1, 0, 1, 0},
    {1, 0, 1, 1, /**/ 1, 0, 0, 1, /**/ 1, 0, 0, 1, /**/ 1, 1, 0, 1},
    {1, 1, 1, 1, /**/ 1, 0, 0, 1, /**/ 1, 0, 0, 1, /**/ 1, 1, 1, 1},
    {1, 1, 1, 0, /**/ 1, 1, 1, 0, /**/ 1, 1, 1, 1, /**/ 1, 1, 1, 1},
}};
constexpr std::array<Glyph, 8> kFontB = {{
    {0, 0, 0, 0, /**/ 0, 0, 0, 0, /**/ 0, 0, 0, 0, /**/ 0, 0, 0, 0},
    {0, 0, 0, 0, /**/ 0, 0, 1, 0, /**/ 0, 1, 0, 0, /**/ 0, 0, 0, 0},
    {0, 0, 0, 0, /**/ 0, 0, 1, 1, /**/ 0, 1, 0, 0, /**/ 1, 0, 0, 0},
    {1, 1, 0, 0, /**/ 1, 1, 0, 0, /**/ 0, 0, 0, 0, /**/ 1, 1, 0, 0},
    {1, 1, 1, 1, /**/ 1, 1, 0, 1, /**/ 0, 0, 0, 0, /**/ 0, 0, 1, 0},
    {1, 1, 0, 0, /**/ 1, 1, 0, 0, /**/ 0, 0, 1, 1, /**/ 1, 1, 1, 1},
    {1, 0, 1, 0, /**/ 1, 1, 1, 1, /**/ 1, 1, 1, 1, /**/ 0, 1, 0, 1},
    {1, 1, 1, 1, /**/ 1, 1, 1, 1, /**/ 1, 1, 1, 1, /**/ 0, 1, 1, 0},
}};

// The 4 x 4 ordered dither thresholds, row by row.
constexpr std::array<float, 16> kDitherMatrix = {1, 9, 3, 11, 13, 5, 15, 7, 4, 12, 2, 10, 16, 8, 14, 6};

// The layer's blend modes, of which the always-zero seed picks the fourth.
constexpr std::array<CGBlendMode, 4> kLayerBlendModes = {kCGBlendModeNormal, kCGBlendModeDarken,
                                                         kCGBlendModeLighten, kCGBlendModeHardLight};

}  // namespace

void draw4x4Char(const uint8_t* glyph, CGPoint point, float W, float H, const CGContextRef& context) {
  const float width = std::ceil(W * 0.25f), height = std::ceil(H * 0.25f);  // neighbours touch
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      if (glyph[j * 4 + i] == 0) continue;
      const float x = std::floor(float(point.x + double(W) * 0.25 * i));
      const float y = std::floor(float(point.y + double(H) * 0.25 * j));
      CGContextFillRect(context, CGRectMake(x, y, width, height));
    }
}

void grayDitherContext(const CGContextRef& context, ControlFloats controls) {
  const CGBlendMode mode = getBlendmodeForNormalizedControl(controls[0]);  // of the enlarged dither

  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  const int32_t W = int32_t(CGBitmapContextGetWidth(context));
  const int32_t H = int32_t(CGBitmapContextGetHeight(context));
  const float s = 320.0f / float(W);
  const int32_t smallHeight = truncInt32(s * float(H));
  const int32_t smallWidth = truncInt32(s * float(W));  // 320 but for rounding
  const CGContextRef small = resizeContext(context, CGSizeMake(smallWidth, smallHeight));

  // The first three bytes of each pixel in memory are alpha, R and G: blue has no say, and an opaque
  // pixel starts from 255, which keeps the grey between 85 and 170.
  std::vector<uint8_t> gray(small ? size_t(smallWidth) * size_t(smallHeight) : 0);
  if (small) {
    const PixelView& p = small->pixels();
    for (int32_t y = 0; y < smallHeight; ++y)
      for (int32_t x = 0; x < smallWidth; ++x) {
        const uint8_t* q = p.at(x, y);
        gray[size_t(y) * size_t(smallWidth) + size_t(x)] = uint8_t(truncInt((q[0] + q[1] + q[2]) / 3.0));
      }
    for (int32_t y = 0; y < smallHeight; ++y)
      for (int32_t x = 0; x < smallWidth; ++x) {
        const float limit = float(double(kDitherMatrix[size_t((y % 4) * 4 + x % 4)]) / 17.0 * 256.0);
        uint8_t& g = gray[size_t(y) * size_t(smallWidth) + size_t(x)];
        g = float(g) > limit ? 255 : 0;
      }
  }
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  const CGContextRef grayContext =
      small ? CGBitmapContextCreate(gray.data(), size_t(smallWidth), size_t(smallHeight), 8, size_t(smallWidth),
                                    CGColorSpaceCreateDeviceGray(), kCGImageAlphaNone)
            : nullptr;
  const CGImageRef image = CGBitmapContextCreateImage(grayContext);
  // Enlarged with no interpolation; the old picture shows through under the blend mode, which stays set.
  CGContextSetBlendMode(context, mode);
  CGContextDrawImage(context, CGRectMake(0, 0, W, H), image);
}

void TI994B(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls) {
  const float levelsControl = controls[1];  // levels = 2 to 9
  const float firstFont = controls[2];      // seeds the first font choice of each level
  const float secondFont = controls[3];     // seeds the second
  const float layerMode = controls[4];      // seeds the layer's blend mode, at level 0 only: always 0
  const CGBlendMode surfaceMode = getBlendmodeForNormalizedControl(controls[6]);

  CGContextSetBlendMode(context, kCGBlendModeNormal);
  const float w = float(CGBitmapContextGetWidth(context));
  const float h = float(CGBitmapContextGetHeight(context));
  const CGContextRef layerContext = CGLayerGetContext(layer);
  CGContextSetRGBFillColor(layerContext, 0.0, 0.0, 0.0, 1.0);
  CGContextSetBlendMode(context, surfaceMode);
  const int64_t levels = truncInt((10.0 - 2.0) * double(levelsControl) + 2.0);
  float cell = w * 0.03125f;  // a 32nd of the width, doubled at each level

  for (int64_t level = 0; level < levels; ++level) {
    const float l = float(level);
    const std::array<Glyph, 8>* font = &kFontA;
    if (MathUtils::noiseInRange(float(double(firstFont * l) * 10000.0), 0.0f, 100.0f) >= 33.0f)
      font = MathUtils::noiseInRange(float(double(secondFont * l) * 200000.0), 0.0f, 100.0f) < 66.0f ? &kFontB
                                                                                                     : &kFontA;
    if (level >= 1) cell = cell + cell;
    const float columns = w / cell, rows = h / cell;
    CGContextSetInterpolationQuality(context, kCGInterpolationNone);
    // Every level reads the same picture: the surface is not written until the end.
    const CGContextRef small = resizeContext(context, CGSizeMake(columns, rows));
    if (level == 0) {
      const float seed = layerMode * 0.0f;
      const size_t index = size_t(truncInt(MathUtils::noiseInRange(seed, 0.0f, 5.0f)));
      CGContextSetBlendMode(layerContext, at(std::span<const CGBlendMode>(kLayerBlendModes), index));
    }
    if (!small) continue;  // less than one cell across: nothing below would be drawn either
    const PixelView& data = small->pixels();
    const int64_t smallW = int64_t(columns), smallH = int64_t(rows);
    // The last cell of each row and column is left out.
    for (int64_t y = 0; float(y) < rows - 1.0f; ++y)
      for (int64_t x = 0; float(x) < columns - 1.0f; ++x) {
        const uint8_t* q = data.at(int32_t(std::clamp<int64_t>(x, 0, smallW - 1)),
                                   int32_t(std::clamp<int64_t>(y, 0, smallH - 1)));
        // Alpha counts as red, R as green and G as blue.
        const int64_t level8 = truncInt(q[0] * 0.2126 + q[1] * 0.7152 + q[2] * 0.0722);
        const int64_t glyph = truncInt(double(level8) * 0.00390625 * 8);
        CGContextSetRGBFillColor(layerContext, q[1] / 255.0, q[2] / 255.0, q[3] / 255.0, 1.0);
        draw4x4Char(at(std::span<const Glyph>(*font), size_t(glyph)).data(),
                    CGPointMake(cell * float(x), h - cell * float(y) - cell), cell, cell, layerContext);
      }
  }
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);
  CGContextDrawLayerAtPoint(context, CGPointZero, layer);
}

}  // namespace zorvex::KCGContextProcessing
