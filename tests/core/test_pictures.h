// Small pictures, scenes, a fixed platform and comparisons for the tests, made by the tests themselves.
#pragma once

#include <algorithm>
#include <cmath>
#include <deque>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "core/imaging/blend.h"
#include "core/imaging/pixels.h"
#include "core/imaging/platform.h"
#include "core/stack/controls.h"
#include "core/stack/plist.h"

namespace zorvex::testing {

// A distinct colour for each (x, y) of a small picture.
inline KColor gradientPixel(int x, int y) { return {uint8_t(x * 37 + 5), uint8_t(y * 23 + 9), uint8_t((x * 11 + y * 7) * 3)}; }

inline CGContextRef blankSurface(int w, int h) {
  return CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, 0, CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
}

inline CGContextRef gradientSurface(int w, int h) {
  auto c = blankSurface(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) writePixel(c, x, y, gradientPixel(x, y));
  return c;
}

inline CGContextRef solidSurface(int w, int h, KColor color) {
  auto c = blankSurface(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) writePixel(c, x, y, color);
  return c;
}

// The colour of an image's pixel over black, whatever its layout.
inline KColor pixelOf(const CGImageRef& image, int x, int y) {
  const raster::RGBA8 p = raster::loadPixel(image->format(), image->pixels().at(x, y));
  return {p.r, p.g, p.b};
}

// True when rows [y0, y1) of two pictures have the same colours over black, whatever their layouts.
inline bool sameRows(const CGImageRef& a, const CGImageRef& b, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < a->width(); ++x)
      if (pixelOf(a, x, y) != pixelOf(b, x, y)) return false;
  return true;
}

inline bool sameRGB(const CGImageRef& a, const CGImageRef& b) {
  return a && b && a->width() == b->width() && a->height() == b->height() && sameRows(a, b, 0, a->height());
}

// True when two pictures (contexts or images) hold the same bytes in every pixel (for RGBX, the
// skipped byte aside).
template <class Picture>
inline bool samePixels(const Picture& a, const Picture& b) {
  const PixelView &p = a->pixels(), &q = b->pixels();
  if (p.width != q.width || p.height != q.height || p.format != q.format) return false;
  const int bpp = bytesPerPixel(p.format);
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width * bpp; ++x) {
      if (p.format == PixelFormat::RGBX && x % 4 == 3) continue;
      if (p.row(y)[x] != q.row(y)[x]) return false;
    }
  return true;
}

// A full control vector of zeros but for the given (index, value) pairs.
inline ControlValues controlsWith(std::initializer_list<std::pair<size_t, double>> values) {
  ControlValues c(kControlCount, 0.0);
  for (auto [i, v] : values) c[i] = v;
  return c;
}

// The same for the kernels that read floats.
inline std::vector<float> floatsWith(std::initializer_list<std::pair<size_t, float>> values) {
  std::vector<float> c(kControlCount, 0.0f);
  for (auto [i, v] : values) c[i] = v;
  return c;
}

// A fresh layer of the surface's size.
inline CGLayerRef layerFor(const CGContextRef& s) {
  return CGLayerCreateWithContext(s, CGSizeMake(double(CGBitmapContextGetWidth(s)), double(CGBitmapContextGetHeight(s))),
                                  nullptr);
}

// A surface, its layer, and a mark painted into the layer.
struct Scene {
  CGContextRef surface;
  CGLayerRef layer;
  explicit Scene(CGContextRef picture) : surface(std::move(picture)), layer(layerFor(surface)) {}
  CGContextRef layerContext() const { return CGLayerGetContext(layer); }
  KColor at(int x, int y) const { return readPixel(surface, x, y); }
  CGImageRef now() const { return CGBitmapContextCreateImage(surface); }
  void markLayer(int x, int y, KColor c) const {  // an opaque pixel, y counted from the top
    CGContextSetRGBFillColor(layerContext(), c.r / 255.0, c.g / 255.0, c.b / 255.0, 1);
    CGContextFillRect(layerContext(), CGRectMake(x, surface->pixels().height - 1 - y, 1, 1));
  }
};


// PSNR of the RGB of two pictures of the same size, in dB (99 for identical pictures).
inline double psnr(const CGImageRef& a, const CGImageRef& b) {
  double sum = 0;
  for (int y = 0; y < a->height(); ++y)
    for (int x = 0; x < a->width(); ++x)
      for (int c = 0; c < 3; ++c) sum += std::pow(double(a->pixels().at(x, y)[c]) - double(b->pixels().at(x, y)[c]), 2);
  return sum == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / (sum / (3.0 * a->width() * a->height())));
}

// The binary property list of a value.
inline std::vector<uint8_t> plistBytes(const plist::Value& v) {
  std::vector<uint8_t> out;
  std::string error;
  plist::writeBinary(v, out, error);
  return out;
}

// Installed for its lifetime: keeps the console lines, hands out the given random numbers (then a
// fixed stream) and counts the draws.
class TestPlatform final : public Platform {
 public:
  explicit TestPlatform(std::deque<uint32_t> given = {}) : randoms(std::move(given)) { setPlatform(this); }
  ~TestPlatform() override { setPlatform(nullptr); }
  void consoleLine(std::string_view line) override { lines.emplace_back(line); }
  uint32_t random32() override {
    ++draws;
    if (randoms.empty()) return next = next * 1664525u + 1013904223u;
    const uint32_t r = randoms.front();
    randoms.pop_front();
    return r;
  }
  double now() override { return 0; }
  size_t count(const std::string& line) const { return size_t(std::count(lines.begin(), lines.end(), line)); }

  std::vector<std::string> lines;
  std::deque<uint32_t> randoms;
  int draws = 0;
  uint32_t next = 12345;
};

}  // namespace zorvex::testing
