// Numeric mapping and the seeded and stateless random values the kernels draw from.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

namespace zorvex::MathUtils {

template <class T>
T clamp(T x, T lo, T hi) {
  return std::max(lo, std::min(x, hi));
}
// (v - inLo) * (outHi - outLo) / (inHi - inLo) + outLo, not clamped.
inline double remap(double v, double inLo, double inHi, double outLo, double outHi) {
  return (v - inLo) * (outHi - outLo) / (inHi - inLo) + outLo;
}
// (hi - lo) * v + lo
inline double unitMap(double v, double lo, double hi) { return (hi - lo) * v + lo; }

// srand48(seed), then drand48(): the same seed always gives the same number.
double seededUnitRandom(int64_t seed);
// srand48(seed), then (hi - lo) * drand48() + lo.
double seededRandom(int64_t seed, double lo, double hi);
// A pure integer hash of truncate(seed), mapped to lo..hi, in single precision.
float noiseInRange(float seed, float lo, float hi);
// Period 4 between -1 and 1, starting at 0 and rising; a negative x gives fmodf's negative remainder.
double triangleWave(double x);
// A sum of n square waves whose parameters are read from `controls`.
double pulseSum(std::span<const double> controls, int64_t n, double t);

}  // namespace zorvex::MathUtils
