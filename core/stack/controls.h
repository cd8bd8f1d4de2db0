// The shared vector of control values, the checked views through which kernels read it, and the
// seeded roll that makes a vector from a 64-bit seed.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/imaging/fatal.h"

namespace zorvex {

inline constexpr size_t kControlCount = 1000;

// 1000 doubles, each a multiple of 0.0001 from 0.0 to 0.9999.
using ControlValues = std::vector<double>;

// What a kernel sees of the vector: reading past its end is fatal.
template <class T>
class CheckedValues {
 public:
  CheckedValues(std::span<const T> values) : values_(values) {}
  CheckedValues(const std::vector<T>& values) : values_(values) {}
  T operator[](size_t i) const { return at(values_, i); }
  size_t count() const { return values_.size(); }
  std::span<const T> span() const { return values_; }

 private:
  std::span<const T> values_;
};
using Controls = CheckedValues<double>;       // ControlValues, for most kernels
using ControlFloats = CheckedValues<float>;   // controlFloats, the float copy, for the older kernels

// The float copy: each entry the nearest float to the double.
std::vector<float> makeControlFloats(std::span<const double> controls);

// The vector for `seed`: SplitMix64 draws, each turned into an integer from 0 to 9999 without bias
// (draws at or above the largest multiple of 10000 below 2^64 are drawn again), divided by 10000.0.
// The same seed gives the same vector in every build.
ControlValues rollControls(uint64_t seed);

}  // namespace zorvex
