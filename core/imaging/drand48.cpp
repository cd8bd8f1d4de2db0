#include "core/imaging/drand48.h"

namespace zorvex {
namespace {
constexpr uint64_t kMask = (uint64_t{1} << 48) - 1;
uint64_t gState = 0x1234ABCD330Eull;  // the C library's state before any srand48
}  // namespace

void srand48(int64_t seed) { gState = ((static_cast<uint64_t>(seed) & 0xFFFFFFFFull) << 16) | 0x330Eull; }

double drand48() {
  gState = (0x5DEECE66Dull * gState + 0xBull) & kMask;
  return static_cast<double>(gState) / static_cast<double>(uint64_t{1} << 48);
}

}  // namespace zorvex
