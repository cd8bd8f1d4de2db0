// Small pictures for the core tests, made by the tests themselves.
#pragma once

#include <initializer_list>
#include <utility>

#include "core/imaging/blend.h"
#include "core/imaging/pixels.h"
#include "core/stack/controls.h"

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

// True when two contexts hold the same bytes in every pixel (for RGBX, the skipped byte aside).
inline bool samePixels(const CGContextRef& a, const CGContextRef& b) {
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

// A fresh layer of the surface's size.
inline CGLayerRef layerFor(const CGContextRef& s) {
  return CGLayerCreateWithContext(s, CGSizeMake(double(CGBitmapContextGetWidth(s)), double(CGBitmapContextGetHeight(s))),
                                  nullptr);
}

}  // namespace zorvex::testing
