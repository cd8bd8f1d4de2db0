// A surface with its layer for the kernel tests, and control vectors with a few chosen entries.
#pragma once

#include <initializer_list>
#include <utility>

#include "core/kernels/kernels.h"
#include "tests/core/test_pictures.h"

namespace zorvex::testing {

struct KernelScene {
  CGContextRef surface;
  CGLayerRef layer;
  explicit KernelScene(CGContextRef picture) : surface(std::move(picture)) {
    layer = CGLayerCreateWithContext(surface, CGSizeMake(double(CGBitmapContextGetWidth(surface)),
                                                         double(CGBitmapContextGetHeight(surface))),
                                     nullptr);
  }
  CGContextRef layerContext() const { return CGLayerGetContext(layer); }
  // An opaque pixel in the layer, at (x, y) counted from the top like the buffer.
  void markLayer(int x, int y, KColor c) {
    CGContextSetRGBFillColor(layerContext(), c.r / 255.0, c.g / 255.0, c.b / 255.0, 1);
    CGContextFillRect(layerContext(),
                      CGRectMake(x, double(CGBitmapContextGetHeight(surface)) - 1 - y, 1, 1));
  }
};

// The all-zero vector with the given entries set.
inline ControlValues controlsWith(std::initializer_list<std::pair<size_t, double>> values) {
  ControlValues c(kControlCount, 0.0);
  for (auto [i, v] : values) c[i] = v;
  return c;
}

}  // namespace zorvex::testing
