// Fatal errors and the checked numeric conversions the kernels rely on.
//
// A fatal error ends the process at once, with no message: an index past the end of an array, a zero
// stride step, a double that is not finite or out of range where it becomes an integer, an integer
// overflow. In the web app the engine Worker dies of it and is started again.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <span>

namespace zorvex {

[[noreturn]] inline void fatal() { std::abort(); }

// Truncation toward zero, fatal when the value is not finite or leaves the signed 64-bit range.
inline int64_t truncInt(double v) {
  if (!(v > -9223372036854775808.0 && v < 9223372036854775808.0)) fatal();
  return static_cast<int64_t>(v);
}

// The same into 32 bits (a conversion to a 32-bit integer type).
inline int32_t truncInt32(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) fatal();
  return static_cast<int32_t>(v);
}

// A single-precision value truncated to an integer with the same checks.
inline int64_t truncInt(float v) { return truncInt(static_cast<double>(v)); }

// Checked arithmetic for sizes: overflow is fatal rather than wrapping.
inline int64_t checkedMul(int64_t a, int64_t b) {
  int64_t r;
  if (__builtin_mul_overflow(a, b, &r)) fatal();
  return r;
}
inline int64_t checkedAdd(int64_t a, int64_t b) {
  int64_t r;
  if (__builtin_add_overflow(a, b, &r)) fatal();
  return r;
}

// The stride from `start` up to but not including `limit` by `step` (down to, for a negative step).
// The i-th value is computed fresh as start + i * step, never by repeated addition. A step of zero is
// fatal. `body` is called with each value and its index.
template <class Body>
void stride(double start, double limit, double step, Body body) {
  if (step == 0.0) fatal();
  for (int64_t i = 0;; ++i) {
    const double v = start + static_cast<double>(i) * step;
    if (step > 0.0 ? !(v < limit) : !(v > limit)) break;
    body(v, i);
  }
}

// Checked element access: an index past the end is fatal.
template <class T>
inline const T& at(std::span<const T> s, size_t i) {
  if (i >= s.size()) fatal();
  return s[i];
}

}  // namespace zorvex
