#include "core/render/sample_picture.h"

#include <cmath>

namespace zorvex {

CGImageRef drawSamplePicture(int32_t width, int32_t height) {
  CGContextRef c = CGBitmapContextCreate(nullptr, size_t(width), size_t(height), 8, 0, CGColorSpaceCreateDeviceRGB(),
                                         kCGImageAlphaNoneSkipLast);
  if (!c) return nullptr;
  const double w = width, h = height, horizon = h * 0.45;

  // Sky: deep violet at the top to orange at the horizon, one band a row.
  for (int32_t y = 0; y < int32_t(h - horizon) + 1; ++y) {
    const double t = y / (h - horizon);
    CGContextSetRGBFillColor(c, 0.18 + 0.8 * t, 0.05 + 0.45 * t * t, 0.35 - 0.2 * t, 1.0);
    CGContextFillRect(c, CGRectMake(0, h - y - 1, w, 1));
  }
  // Sun with a few cut stripes.
  const double r = w * 0.22, cx = w * 0.5, cy = horizon + h * 0.16;
  CGContextSetRGBFillColor(c, 1.0, 0.85, 0.35, 1.0);
  CGContextFillEllipseInRect(c, CGRectMake(cx - r, cy - r, 2 * r, 2 * r));
  for (int i = 0; i < 5; ++i) {
    CGContextSetRGBFillColor(c, 0.95, 0.45, 0.2, 1.0);
    CGContextFillRect(c, CGRectMake(cx - r, cy - r * 0.9 + i * r * 0.22, 2 * r, r * 0.04 * (i + 1)));
  }
  // Two ranges of hills.
  const double colors[2][3] = {{0.35, 0.12, 0.45}, {0.12, 0.05, 0.25}};
  for (int layer = 0; layer < 2; ++layer) {
    CGContextSetRGBFillColor(c, colors[layer][0], colors[layer][1], colors[layer][2], 1.0);
    CGContextBeginPath(c);
    CGContextMoveToPoint(c, 0, horizon);
    for (int i = 0; i <= 24; ++i) {
      const double x = w * i / 24.0;
      const double peak = std::fabs(std::sin(i * (1.3 + layer) + layer)) * h * (0.14 - 0.05 * layer);
      CGContextAddLineToPoint(c, x, horizon + peak);
    }
    CGContextAddLineToPoint(c, w, horizon);
    CGContextClosePath(c);
    CGContextFillPath(c);
  }
  // Ground with a grid in perspective.
  CGContextSetRGBFillColor(c, 0.05, 0.02, 0.12, 1.0);
  CGContextFillRect(c, CGRectMake(0, 0, w, horizon));
  CGContextSetRGBStrokeColor(c, 0.2, 0.9, 1.0, 1.0);
  CGContextSetLineWidth(c, std::max(1.0, w / 400.0));
  for (int i = -12; i <= 12; ++i) {
    CGContextBeginPath(c);
    CGContextMoveToPoint(c, cx + i * w * 0.04, horizon);
    CGContextAddLineToPoint(c, cx + i * w * 0.25, 0);
    CGContextStrokePath(c);
  }
  for (int i = 1; i <= 10; ++i) {
    const double y = horizon * std::pow(0.72, i);
    CGContextBeginPath(c);
    CGContextMoveToPoint(c, 0, y);
    CGContextAddLineToPoint(c, w, y);
    CGContextStrokePath(c);
  }
  // Colour bars along the bottom edge.
  const double bars[7][3] = {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0}, {1, 0, 1}, {1, 0, 0}, {0, 0, 1}};
  for (int i = 0; i < 7; ++i) {
    CGContextSetRGBFillColor(c, bars[i][0], bars[i][1], bars[i][2], 1.0);
    CGContextFillRect(c, CGRectMake(w * i / 7.0, 0, w / 7.0 + 1, h * 0.04));
  }
  return CGBitmapContextCreateImage(c);
}

}  // namespace zorvex
