#include "core/imaging/math_utils.h"

#include <cmath>

#include "core/imaging/drand48.h"
#include "core/imaging/fatal.h"

namespace zorvex::MathUtils {

double seededUnitRandom(int64_t seed) {
  srand48(seed);
  return drand48();
}

double seededRandom(int64_t seed, double lo, double hi) {
  srand48(seed);
  return (hi - lo) * drand48() + lo;
}

float noiseInRange(float seed, float lo, float hi) {
  uint32_t n = static_cast<uint32_t>(truncInt32(seed));
  n = n ^ (n << 13);
  const uint32_t v = ((n * n * 15731u + 789221u) * n + 1376312589u) & 0x7fffffffu;
  const float u = static_cast<float>(v * 9.313225746154785e-10 * 0.5);
  return lo + (hi - lo) * u;
}

double triangleWave(double x) {
  const double p = std::fmod(static_cast<float>(x), 4.0f);
  if (p < 1) return p;
  if (p < 2) return 1 - (p - 1);
  if (p < 3) return -(p - 2);
  return p - 3 - 1;
}

double pulseSum(std::span<const double> controls, int64_t n, double t) {
  const int64_t count = static_cast<int64_t>(controls.size());
  if (n > count) fatal();
  double sum = 0.0;
  for (int64_t i = 0; i < n; ++i) {
    const double x = controls[size_t((i + 4) % count)] * t + controls[size_t(i)];
    const double duty = controls[size_t((i + 1) % count)];
    const double level = controls[size_t((i + 2) % count)];
    if (std::fmod(static_cast<float>(x), 1.0f) >= static_cast<float>(duty)) {
      sum -= level;
    } else {
      sum += level;
    }
  }
  return sum;
}

}  // namespace zorvex::MathUtils
