// Pieces shared by the JPEG encoder and decoder: the standard tables, the quality scale and the
// 8x8 transforms. Not for kernels.
//
// The transforms work on eight lanes at once: a block is eight vectors of eight floats. A 1-D pass
// combines the eight vectors, which transforms along one axis for all eight lines of the other axis
// together; a transpose and a second pass finish the block. Coefficients are therefore kept
// transposed: the coefficient of horizontal frequency u and vertical frequency v sits at u * 8 + v.
// The scaled AAN factorisation needs 5 multiplications a pass; its scale factors are folded into the
// quantisation tables.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>

namespace zorvex::jpeg {

typedef float f32x8 __attribute__((vector_size(32)));
typedef int32_t i32x8 __attribute__((vector_size(32)));
typedef uint8_t u8x8 __attribute__((vector_size(8)));

// Natural (row-major) index of each position of the zigzag sequence.
inline constexpr std::array<uint8_t, 64> kZigzag = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The transposed index (see above) of a natural index.
constexpr int transposed(int natural) { return (natural & 7) * 8 + (natural >> 3); }

// The example tables of the JPEG standard (Annex K), in natural order, for quality 50.
inline constexpr std::array<uint8_t, 64> kLuminanceQuant = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
inline constexpr std::array<uint8_t, 64> kChrominanceQuant = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// A Huffman table as a stream carries it: the number of codes of each length 1 to 16, then the
// symbols in order of their codes.
struct HuffmanSpec {
  std::array<uint8_t, 16> counts;
  const uint8_t* symbols;
  int symbolCount;
};

inline constexpr uint8_t kDCLuminanceSymbols[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
inline constexpr uint8_t kDCChrominanceSymbols[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
inline constexpr uint8_t kACLuminanceSymbols[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22, 0x71,
    0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72,
    0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37,
    0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59,
    0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3,
    0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3,
    0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2,
    0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};
inline constexpr uint8_t kACChrominanceSymbols[162] = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13, 0x22,
    0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1,
    0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36,
    0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58,
    0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a,
    0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a,
    0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba,
    0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda,
    0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

inline constexpr HuffmanSpec kDCLuminance{{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}, kDCLuminanceSymbols, 12};
inline constexpr HuffmanSpec kDCChrominance{{0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, kDCChrominanceSymbols, 12};
inline constexpr HuffmanSpec kACLuminance{{0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d}, kACLuminanceSymbols, 162};
inline constexpr HuffmanSpec kACChrominance{{0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77}, kACChrominanceSymbols, 162};

// A table of the standard scaled to a libjpeg quality (1 to 100): below 50 the factor is 5000 / q
// percent, from 50 on 200 - 2q percent; entries are rounded and kept in 1 to 255 for baseline.
inline std::array<uint16_t, 64> scaledQuantTable(const std::array<uint8_t, 64>& base, int quality) {
  const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
  std::array<uint16_t, 64> out{};
  for (int i = 0; i < 64; ++i) {
    const int v = (base[size_t(i)] * scale + 50) / 100;
    out[size_t(i)] = uint16_t(v < 1 ? 1 : v > 255 ? 255 : v);
  }
  return out;
}

// The AAN scale factor of frequency k: 1 for k = 0, else cos(k pi / 16) * sqrt 2.
inline double aanScale(int k) { return k == 0 ? 1.0 : std::cos(k * 3.14159265358979323846 / 16.0) * std::sqrt(2.0); }

// ----- Transforms -----

// Transposes eight vectors of eight lanes in place.
inline void transpose8(f32x8 (&r)[8]) {
  f32x8 t[8], u[8];
  for (int i = 0; i < 8; i += 2) {
    t[i] = __builtin_shufflevector(r[i], r[i + 1], 0, 8, 1, 9, 4, 12, 5, 13);
    t[i + 1] = __builtin_shufflevector(r[i], r[i + 1], 2, 10, 3, 11, 6, 14, 7, 15);
  }
  for (int i = 0; i < 8; i += 4) {
    u[i] = __builtin_shufflevector(t[i], t[i + 2], 0, 1, 8, 9, 4, 5, 12, 13);
    u[i + 1] = __builtin_shufflevector(t[i], t[i + 2], 2, 3, 10, 11, 6, 7, 14, 15);
    u[i + 2] = __builtin_shufflevector(t[i + 1], t[i + 3], 0, 1, 8, 9, 4, 5, 12, 13);
    u[i + 3] = __builtin_shufflevector(t[i + 1], t[i + 3], 2, 3, 10, 11, 6, 7, 14, 15);
  }
  for (int i = 0; i < 4; ++i) {
    r[i] = __builtin_shufflevector(u[i], u[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
    r[i + 4] = __builtin_shufflevector(u[i], u[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
  }
}

// One AAN forward pass over the eight vectors; outputs in frequency order, scaled by the AAN factors.
inline void forwardPass(f32x8 (&d)[8]) {
  const f32x8 t0 = d[0] + d[7], t7 = d[0] - d[7];
  const f32x8 t1 = d[1] + d[6], t6 = d[1] - d[6];
  const f32x8 t2 = d[2] + d[5], t5 = d[2] - d[5];
  const f32x8 t3 = d[3] + d[4], t4 = d[3] - d[4];
  // Even part.
  const f32x8 t10 = t0 + t3, t13 = t0 - t3, t11 = t1 + t2, t12 = t1 - t2;
  d[0] = t10 + t11;
  d[4] = t10 - t11;
  const f32x8 z1 = (t12 + t13) * 0.707106781f;
  d[2] = t13 + z1;
  d[6] = t13 - z1;
  // Odd part.
  const f32x8 o10 = t4 + t5, o11 = t5 + t6, o12 = t6 + t7;
  const f32x8 z5 = (o10 - o12) * 0.382683433f;
  const f32x8 z2 = o10 * 0.541196100f + z5;
  const f32x8 z4 = o12 * 1.306562965f + z5;
  const f32x8 z3 = o11 * 0.707106781f;
  const f32x8 z11 = t7 + z3, z13 = t7 - z3;
  d[5] = z13 + z2;
  d[3] = z13 - z2;
  d[1] = z11 + z4;
  d[7] = z11 - z4;
}

// One AAN inverse pass; the inputs must carry the AAN factors.
inline void inversePass(f32x8 (&d)[8]) {
  // Even part.
  const f32x8 e10 = d[0] + d[4], e11 = d[0] - d[4];
  const f32x8 e13 = d[2] + d[6];
  const f32x8 e12 = (d[2] - d[6]) * 1.414213562f - e13;
  const f32x8 e0 = e10 + e13, e3 = e10 - e13, e1 = e11 + e12, e2 = e11 - e12;
  // Odd part.
  const f32x8 z13 = d[5] + d[3], z10 = d[5] - d[3], z11 = d[1] + d[7], z12 = d[1] - d[7];
  const f32x8 o7 = z11 + z13;
  const f32x8 o11 = (z11 - z13) * 1.414213562f;
  const f32x8 z5 = (z10 + z12) * 1.847759065f;
  const f32x8 o10 = z12 * 1.082392200f - z5;
  const f32x8 o12 = z10 * -2.613125930f + z5;
  const f32x8 o6 = o12 - o7;
  const f32x8 o5 = o11 - o6;
  const f32x8 o4 = o10 + o5;
  d[0] = e0 + o7;
  d[7] = e0 - o7;
  d[1] = e1 + o6;
  d[6] = e1 - o6;
  d[2] = e2 + o5;
  d[5] = e2 - o5;
  d[4] = e3 + o4;
  d[3] = e3 - o4;
}

// Forward transform of eight rows of level-shifted samples (rows[y] lane x). On return, vector u
// lane v holds the AAN-scaled coefficient of horizontal frequency u and vertical frequency v.
inline void forwardDCT(f32x8 (&rows)[8]) {
  forwardPass(rows);  // along y: vector v, lane x
  transpose8(rows);   // vector x, lane v
  forwardPass(rows);  // along x: vector u, lane v
}

// Inverse transform of transposed coefficients (vector u lane v, dequantised with the AAN factors
// and 1/8 folded in). On return rows[y] lane x holds the level-shifted samples.
inline void inverseDCT(f32x8 (&c)[8]) {
  inversePass(c);  // along u: vector x, lane v
  transpose8(c);   // vector v, lane x
  inversePass(c);  // along v: vector y, lane x
}

}  // namespace zorvex::jpeg
