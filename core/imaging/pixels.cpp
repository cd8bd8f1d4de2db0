#include "core/imaging/pixels.h"

#include <cmath>

#include "core/imaging/fatal.h"

namespace zorvex {

double hue(KColor c) {
  const double r = c.r / 256.0, g = c.g / 256.0, b = c.b / 256.0;
  const double delta = std::max({r, g, b}) - std::min({r, g, b});
  double h;
  if (b < r && g < r) {
    h = (g - b) / delta;
  } else if (r < g && b < g) {
    h = (b - r) / delta + 2;
  } else {
    h = (r - g) / delta + 4;
  }
  return h / 60;
}

CGColorRef colorToCGColor(KColor c) {
  const CGFloat comps[4] = {c.r / 256.0, c.g / 256.0, c.b / 256.0, 1.0};
  return CGColorCreate(CGColorSpaceCreateDeviceRGB(), comps);
}

KColor cosinePalette(double t, double phaseR, double ampR, double phaseG, double ampG, double phaseB, double ampB,
                     double freqR, double freqG, double freqB) {
  auto channel = [t](double phase, double amp, double freq) {
    const float c = std::cos(float(2 * 3.141592653589793 * phase + t * freq)) * float(amp);
    const float v = (c * 0.5f + 0.5f) * 255.0f;
    if (!(v > -1.0f && v < 256.0f)) fatal();
    return uint8_t(v);
  };
  return {channel(phaseR, ampR, freqR), channel(phaseG, ampG, freqG), channel(phaseB, ampB, freqB)};
}

}  // namespace zorvex
