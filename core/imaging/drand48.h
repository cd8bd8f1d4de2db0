// srand48 and drand48: the POSIX 48-bit linear congruential generator, our own so that the native and
// the WebAssembly builds give the same numbers. One shared state, as in the C library.
#pragma once

#include <cstdint>

namespace zorvex {

// The high 32 bits of the state become the low 32 bits of `seed`; the low 16 bits become 0x330E.
void srand48(int64_t seed);
// Steps the state, X = (0x5DEECE66D X + 0xB) mod 2^48, and gives X / 2^48, in [0, 1).
double drand48();

}  // namespace zorvex
