#include "core/stack/controls.h"

namespace zorvex {

std::vector<float> makeControlFloats(std::span<const double> controls) {
  return std::vector<float>(controls.begin(), controls.end());
}

ControlValues rollControls(uint64_t seed) {
  uint64_t state = seed;
  auto next = [&state] {  // SplitMix64
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  };
  constexpr uint64_t kRange = 10000;
  constexpr uint64_t kLimit = UINT64_MAX - (UINT64_MAX % kRange + 1) % kRange;  // last accepted draw
  ControlValues values(kControlCount);
  for (double& v : values) {
    uint64_t x;
    do x = next();
    while (x > kLimit);
    v = double(x % kRange) / 10000.0;
  }
  return values;
}

}  // namespace zorvex
