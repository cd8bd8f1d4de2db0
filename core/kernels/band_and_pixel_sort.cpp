// "VAN STROKE" lays the picture's horizontal bands out again in order of their mean key; "YUBARI"
// sorts the pixels of every fourth row and paints them back as a weave of 4-pixel strips.
// Both sort with the standard library's stable merge sort and the comparator as it stands.
#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/platform.h"
#include "core/imaging/text.h"
#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

struct BandRecord {
  int64_t row;
  double average;
};

using PixelOrder = bool (*)(const KColor& a, const KColor& b);

PixelOrder yubariOrder(double key) {
  if (key < 0.166) return [](const KColor& a, const KColor& b) { return luminance(a) < luminance(b); };
  if (key < 0.332) return [](const KColor& a, const KColor& b) { return luminance(a) > luminance(b); };
  if (key < 0.498) return [](const KColor& a, const KColor& b) { return a.r < b.r; };
  if (key < 0.664) return [](const KColor& a, const KColor& b) { return a.g < b.g; };
  if (key < 0.83) return [](const KColor& a, const KColor& b) { return a.b < b.b; };
  // Luminance of one against the blue of the other: no strict ordering, and the look depends on that.
  return [](const KColor& a, const KColor& b) { return luminance(a) < int(b.b); };
}

}  // namespace

void vonstroke(const CGContextRef& context, Controls controls) {
  const double bands = 20.0 + 80.0 * controls[0];  // number of bands, used unrounded
  const double keyChoice = controls[1];            // middle byte, high byte or hue of the reduced pixel
  const size_t width = CGBitmapContextGetWidth(context), height = CGBitmapContextGetHeight(context);
  const double w = double(width);
  CGImageRef source = CGBitmapContextCreateImage(context);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetInterpolationQuality(context, kCGInterpolationNone);

  // One row per band, averaged by the high-quality downscale. Its pixels are A, R, G, B in memory, so
  // readPixel's low, middle and high bytes are alpha, red and green: hue sees alpha as its red and
  // blue is never looked at.
  CGContextRef reduced = ImageUtils::resizeContextTo(context, CGSizeMake(w, bands));
  if (!reduced) {
    consoleLine("Bad context");
    return;
  }
  const int64_t reducedWidth = int64_t(CGBitmapContextGetWidth(reduced));
  const int64_t reducedHeight = int64_t(CGBitmapContextGetHeight(reduced));
  // The dictionary from band row to average; its iteration order is std::unordered_map's.
  std::unordered_map<int64_t, double> averages;
  for (int64_t y = 0; y < reducedHeight; ++y) {
    double sum = 0.0;
    for (int64_t x = 0; x < reducedWidth; ++x) {
      const KColor p = readPixel(reduced, x, y);
      sum += keyChoice < 0.33 ? double(p.g) : keyChoice < 0.66 ? double(p.b) : hue(p);
    }
    averages[y] = sum / double(reducedWidth);
  }
  std::vector<BandRecord> records;
  for (const auto& [row, average] : averages) records.push_back({row, average});
  // Ascending by less-than; a NaN average is not less than anything.
  std::stable_sort(records.begin(), records.end(),
                   [](const BandRecord& a, const BandRecord& b) { return a.average < b.average; });

  const double bandHeight = std::max(double(height) / bands, 1.0);
  for (size_t i = 0; i < records.size(); ++i) {
    // Cut from the top-down source, laid out bottom-up: the lowest average lands at the bottom.
    const CGRect rect = CGRectMake(0.0, bandHeight * double(records[i].row), w, bandHeight);
    CGImageRef band = CGImageCreateWithImageInRect(source, rect);
    if (!source || !band) {
      consoleLine("Bad subregion " + describe(rect) + "\nImage size is " + std::to_string(CGImageGetWidth(source)) +
                  " x " + std::to_string(CGImageGetHeight(source)));
      continue;
    }
    CGContextSetBlendMode(context, kCGBlendModeNormal);
    // Half a pixel more than the band closes the seams between bands.
    CGContextDrawImage(context, CGRectMake(0.0, bandHeight * double(i), w, bandHeight + 0.5), band);
  }
  CGContextSetBlendMode(context, kCGBlendModeNormal);
}

void yubari(const CGContextRef& context, const CGLayerRef& layer, Controls controls) {
  const PixelOrder order = yubariOrder(controls[0]);  // the sort key
  const bool mirrored = controls[1] < 0.5;             // mirrored halves, or interleaved columns
  const int64_t width = int64_t(CGBitmapContextGetWidth(context));
  const int64_t height = int64_t(CGBitmapContextGetHeight(context));
  const CGContextRef layerContext = CGLayerGetContext(layer);
  consoleLine("h/599 : " + describe(double(height) / 500.0) + " rowheight : 4");

  std::vector<KColor> even, odd;
  for (int64_t y = 0; y < height; y += 4) {
    even.clear();
    odd.clear();
    for (int64_t x = 0; x < width; ++x) (x % 2 ? odd : even).push_back(readPixel(context, x, y));
    std::stable_sort(even.begin(), even.end(), order);
    std::stable_sort(odd.begin(), odd.end(), order);
    const std::span<const KColor> evenSorted(even), oddSorted(odd);
    for (int64_t x = 0; x < width; ++x) {
      KColor c;
      if (mirrored) {
        c = x < width / 2 ? at(oddSorted, size_t(x)) : at(evenSorted, size_t(width - 1 - x));
      } else {
        // An empty list has no divisor: fatal.
        const std::span<const KColor>& from = x % 2 ? evenSorted : oddSorted;
        if (from.empty()) fatal();
        c = from[size_t(x / 2) % from.size()];
      }
      // The colour colorToCGColor would make (byte / 256, alpha 1), set without a colour object per
      // pixel. y is used as it stands on the layer's y-up axis, so the rows come out upside down; the
      // fills run under whatever blend mode the layer holds.
      CGContextSetRGBFillColor(layerContext, c.r / 256.0, c.g / 256.0, c.b / 256.0, 1.0);
      CGContextFillRect(layerContext, CGRectMake(double(x), double(y), 1.0, 4.0));
    }
  }
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextSetBlendMode(layerContext, kCGBlendModeNormal);
  CGContextSetBlendMode(context, kCGBlendModeNormal);
  CGContextDrawLayerAtPoint(context, CGPointMake(0.0, 0.0), layer);
}

}  // namespace zorvex::Filters
