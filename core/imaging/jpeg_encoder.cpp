// The baseline JFIF encoder: YCbCr 4:2:0, the standard Huffman tables, quantisation tables scaled
// as libjpeg scales them, no restart markers.
//
// The picture goes one row of 16 x 16 MCUs at a time: its rows are converted to Y at full
// resolution and Cb, Cr from the mean of each 2 x 2 square (the conversion is linear, so converting
// the mean equals averaging the converted values), each block is transformed and quantised in
// float, and the coefficients are Huffman coded by walking a bit mask of the non-zero ones. Pixels
// past the right and bottom edges repeat the last column and row.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "core/imaging/jpeg.h"
#include "core/imaging/jpeg_internal.h"

namespace zorvex {
namespace {

using namespace jpeg;

struct HuffmanCodes {
  uint16_t code[256] = {};
  uint8_t size[256] = {};
};

// The canonical codes of a table: consecutive within a length, doubled from one length to the next.
HuffmanCodes makeCodes(const HuffmanSpec& spec) {
  HuffmanCodes h;
  uint32_t code = 0;
  int k = 0;
  for (int len = 1; len <= 16; ++len) {
    for (int i = 0; i < spec.counts[size_t(len - 1)]; ++i, ++k) {
      h.code[spec.symbols[k]] = uint16_t(code++);
      h.size[spec.symbols[k]] = uint8_t(len);
    }
    code <<= 1;
  }
  return h;
}

// Bits into bytes, most significant first, with a 0x00 stuffed after every 0xFF. The writer is a
// plain value that a block copies into locals, so that its state stays in registers while bytes are
// stored; the buffer is made large enough before each MCU instead of at each byte.
struct BitWriter {
  uint64_t acc = 0;  // the low `count` bits are pending
  int count = 0;
  uint8_t* p = nullptr;

  // Appends the low `n` bits of `bits`; n is at most 32.
  void put(uint32_t bits, int n) {
    acc = (acc << n) | bits;
    count += n;
    if (count >= 32) emit32();
  }
  void emitByte(uint8_t b) {
    *p++ = b;
    if (b == 0xFF) *p++ = 0;
  }
  void emit32() {
    count -= 32;
    const uint32_t w = uint32_t(acc >> count);
    // A byte of w is 0xFF when the same byte of ~w is zero.
    const uint32_t inv = ~w;
    if (((inv - 0x01010101u) & ~inv & 0x80808080u) == 0) {
      p[0] = uint8_t(w >> 24);
      p[1] = uint8_t(w >> 16);
      p[2] = uint8_t(w >> 8);
      p[3] = uint8_t(w);
      p += 4;
    } else {
      for (int s = 24; s >= 0; s -= 8) emitByte(uint8_t(w >> s));
    }
  }
  // Pads the last byte with one bits and writes what is pending (at most 8 bytes with stuffing).
  void flush() {
    const int pad = (8 - (count & 7)) & 7;
    put((1u << pad) - 1, pad);
    while (count >= 8) {
      count -= 8;
      emitByte(uint8_t(acc >> count));
    }
  }
};

// The most one MCU of 6 blocks can take: 64 codes of at most 32 bits a block, every byte stuffed.
constexpr size_t kMaxMCUBytes = 6 * 64 * 4 * 2;

// Makes room for `n` more bytes behind the writer's position in `out`.
void reserve(std::vector<uint8_t>& out, BitWriter& w, size_t n) {
  const size_t used = size_t(w.p - out.data());
  if (out.size() - used >= n) return;
  out.resize(std::max(out.size() * 2, used + n + 65536));
  w.p = out.data() + used;
}

// What a component needs to be coded: the divisors in transposed order (quantiser times the AAN
// factors times 8, inverted) and its tables.
struct ComponentCoder {
  alignas(32) float reciprocal[64];
  const HuffmanCodes* dc;
  const HuffmanCodes* ac;
  int lastDC = 0;
};

void makeReciprocals(const std::array<uint16_t, 64>& quant, float* out) {
  for (int u = 0; u < 8; ++u)
    for (int v = 0; v < 8; ++v)
      out[u * 8 + v] = float(1.0 / (double(quant[size_t(v * 8 + u)]) * aanScale(u) * aanScale(v) * 8.0));
}

// The transposed index of each zigzag position.
constexpr std::array<uint8_t, 64> kZigzagTransposed = [] {
  std::array<uint8_t, 64> t{};
  for (int k = 0; k < 64; ++k) t[size_t(k)] = uint8_t(transposed(kZigzag[size_t(k)]));
  return t;
}();

// The magnitude category of a value and its bits as the stream carries them (one's complement for
// negative values).
inline int category(int v) { return v == 0 ? 0 : 32 - std::countl_zero(uint32_t(v < 0 ? -v : v)); }
inline uint32_t magnitudeBits(int v, int size) { return uint32_t(v < 0 ? v - 1 : v) & ((1u << size) - 1); }

void encodeBlock(f32x8 (&rows)[8], ComponentCoder& cc, BitWriter& writer) {
  BitWriter out = writer;
  forwardDCT(rows);
  // Quantise: round to nearest (halves up), and keep AC values within the 10 bits that the standard
  // tables can code.
  alignas(32) int32_t q[64];
  const f32x8 lo = f32x8{} - 1023.0f, hi = f32x8{} + 1023.0f;
  for (int u = 0; u < 8; ++u) {
    f32x8 r;
    std::memcpy(&r, cc.reciprocal + u * 8, sizeof r);
    f32x8 v = rows[u] * r;
    v = v < lo ? lo : v;
    v = v > hi ? hi : v;
    const i32x8 iv = __builtin_convertvector(v + 16384.5f, i32x8) - 16384;
    std::memcpy(q + u * 8, &iv, sizeof iv);
  }
  int32_t zz[64];
  for (int k = 0; k < 64; ++k) zz[k] = q[kZigzagTransposed[size_t(k)]];
  // A bit per zigzag position, set for the non-zero ones: bytes of 0 or 1 first (a loop the compiler
  // vectorises), then each 8 of them packed into a byte by one multiplication, which gathers byte i
  // of the word into bit 56 + i without carries.
  uint8_t flags[64];
  for (int k = 0; k < 64; ++k) flags[k] = zz[k] != 0;
  uint64_t nonzero = 0;
  for (int w = 0; w < 8; ++w) {
    uint64_t word;
    std::memcpy(&word, flags + 8 * w, 8);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    nonzero |= ((word * 0x0102040810204080ull) >> 56) << (8 * w);
  }

  const int diff = zz[0] - cc.lastDC;
  cc.lastDC = zz[0];
  const int dcSize = category(diff);
  out.put((uint32_t(cc.dc->code[dcSize]) << dcSize) | magnitudeBits(diff, dcSize), cc.dc->size[dcSize] + dcSize);

  const HuffmanCodes& ac = *cc.ac;
  uint64_t m = nonzero & ~uint64_t(1);
  int last = 0;
  while (m) {
    const int k = std::countr_zero(m);
    m &= m - 1;
    int run = k - last - 1;
    for (; run >= 16; run -= 16) out.put(ac.code[0xF0], ac.size[0xF0]);
    const int v = zz[k];
    const int size = category(v);
    const int rs = (run << 4) | size;
    out.put((uint32_t(ac.code[rs]) << size) | magnitudeBits(v, size), ac.size[rs] + size);
    last = k;
  }
  if (last != 63) out.put(ac.code[0], ac.size[0]);
  writer = out;
}

void putMarker(std::vector<uint8_t>& out, uint8_t marker, int length) {
  out.insert(out.end(), {0xFF, marker, uint8_t(length >> 8), uint8_t(length)});
}

void putHuffmanTable(std::vector<uint8_t>& out, int classAndId, const HuffmanSpec& spec) {
  out.push_back(uint8_t(classAndId));
  out.insert(out.end(), spec.counts.begin(), spec.counts.end());
  out.insert(out.end(), spec.symbols, spec.symbols + spec.symbolCount);
}

void writeHeaders(std::vector<uint8_t>& out, int width, int height, const std::array<uint16_t, 64>& lum,
                  const std::array<uint16_t, 64>& chrom) {
  out.insert(out.end(), {0xFF, 0xD8});
  // JFIF 1.01, no density unit, aspect 1:1, no thumbnail.
  putMarker(out, 0xE0, 16);
  out.insert(out.end(), {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
  putMarker(out, 0xDB, 2 + 2 * 65);
  for (int t = 0; t < 2; ++t) {
    out.push_back(uint8_t(t));
    for (int k = 0; k < 64; ++k) out.push_back(uint8_t((t == 0 ? lum : chrom)[kZigzag[size_t(k)]]));
  }
  putMarker(out, 0xC0, 8 + 3 * 3);
  out.insert(out.end(), {8, uint8_t(height >> 8), uint8_t(height), uint8_t(width >> 8), uint8_t(width), 3,
                         1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1});
  putMarker(out, 0xC4, 2 + 4 * 17 + 12 + 162 + 12 + 162);
  putHuffmanTable(out, 0x00, kDCLuminance);
  putHuffmanTable(out, 0x10, kACLuminance);
  putHuffmanTable(out, 0x01, kDCChrominance);
  putHuffmanTable(out, 0x11, kACChrominance);
  putMarker(out, 0xDA, 6 + 2 * 3);
  out.insert(out.end(), {3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0});
}

// Where R, G and B are in a pixel of the layout, and how many bytes a pixel has.
struct Channels {
  int r, g, b, step;
};
Channels channelsOf(PixelFormat f) {
  switch (f) {
    case PixelFormat::ARGB: return {1, 2, 3, 4};
    case PixelFormat::Gray: return {0, 0, 0, 1};
    default: return {0, 1, 2, 4};
  }
}

// Converts one picture row into Y (level-shifted, `paddedWidth` values, the last column repeated).
template <int R, int G, int B, int Step>
void lumaRow(const uint8_t* src, int width, int paddedWidth, float* y) {
  for (int x = 0; x < width; ++x) {
    const uint8_t* p = src + x * Step;
    y[x] = 0.299f * float(p[R]) + 0.587f * float(p[G]) + 0.114f * float(p[B]) - 128.0f;
  }
  for (int x = width; x < paddedWidth; ++x) y[x] = y[width - 1];
}

// Converts the 2 x 2 means of two picture rows into Cb and Cr (`paddedWidth` / 2 values each).
template <int R, int G, int B, int Step>
void chromaRow(const uint8_t* s0, const uint8_t* s1, int width, int paddedWidth, float* cb, float* cr) {
  const int pairs = width / 2;
  auto put = [&](int cx, int x0, int x1) {
    const uint8_t *a = s0 + x0 * Step, *b = s0 + x1 * Step, *c = s1 + x0 * Step, *d = s1 + x1 * Step;
    const float r = float(a[R] + b[R] + c[R] + d[R]) * 0.25f;
    const float g = float(a[G] + b[G] + c[G] + d[G]) * 0.25f;
    const float bl = float(a[B] + b[B] + c[B] + d[B]) * 0.25f;
    cb[cx] = -0.168736f * r - 0.331264f * g + 0.5f * bl;
    cr[cx] = 0.5f * r - 0.418688f * g - 0.081312f * bl;
  };
  for (int cx = 0; cx < pairs; ++cx) put(cx, 2 * cx, 2 * cx + 1);
  for (int cx = pairs; cx < paddedWidth / 2; ++cx) put(cx, std::min(2 * cx, width - 1), std::min(2 * cx + 1, width - 1));
}

template <int R, int G, int B, int Step>
void encodeScan(const PixelView& src, ComponentCoder (&coders)[3], std::vector<uint8_t>& stream, BitWriter& out) {
  const int width = src.width, height = src.height;
  const int mcusX = (width + 15) / 16, mcusY = (height + 15) / 16;
  const int pw = mcusX * 16, cw = pw / 2;
  std::vector<float> y(size_t(16) * size_t(pw)), cb(size_t(8) * size_t(cw)), cr(size_t(8) * size_t(cw));
  auto row = [&](int r) { return src.row(std::min(r, height - 1)); };
  for (int my = 0; my < mcusY; ++my) {
    for (int r = 0; r < 16; ++r) lumaRow<R, G, B, Step>(row(my * 16 + r), width, pw, y.data() + size_t(r) * size_t(pw));
    for (int r = 0; r < 8; ++r)
      chromaRow<R, G, B, Step>(row(my * 16 + 2 * r), row(my * 16 + 2 * r + 1), width, pw,
                               cb.data() + size_t(r) * size_t(cw), cr.data() + size_t(r) * size_t(cw));
    for (int mx = 0; mx < mcusX; ++mx) {
      reserve(stream, out, kMaxMCUBytes);
      f32x8 rows[8];
      for (int b = 0; b < 4; ++b) {
        const float* base = y.data() + size_t((b >> 1) * 8) * size_t(pw) + size_t(mx * 16 + (b & 1) * 8);
        for (int i = 0; i < 8; ++i) std::memcpy(&rows[i], base + size_t(i) * size_t(pw), sizeof(f32x8));
        encodeBlock(rows, coders[0], out);
      }
      for (int c = 1; c <= 2; ++c) {
        const float* base = (c == 1 ? cb : cr).data() + size_t(mx * 8);
        for (int i = 0; i < 8; ++i) std::memcpy(&rows[i], base + size_t(i) * size_t(cw), sizeof(f32x8));
        encodeBlock(rows, coders[c], out);
      }
    }
  }
}

}  // namespace

std::vector<uint8_t> encodeJPEG(const CGImageRef& image, double quality) {
  if (!image || image->width() < 1 || image->height() < 1 || image->width() > 65535 || image->height() > 65535)
    return {};
  const double scaled = std::round(100.0 * quality);
  const int q = std::isnan(scaled) ? 1 : int(std::clamp(scaled, 1.0, 100.0));
  const auto lum = scaledQuantTable(kLuminanceQuant, q);
  const auto chrom = scaledQuantTable(kChrominanceQuant, q);

  static const HuffmanCodes dcLum = makeCodes(kDCLuminance), acLum = makeCodes(kACLuminance),
                            dcChrom = makeCodes(kDCChrominance), acChrom = makeCodes(kACChrominance);
  ComponentCoder coders[3];
  makeReciprocals(lum, coders[0].reciprocal);
  makeReciprocals(chrom, coders[1].reciprocal);
  makeReciprocals(chrom, coders[2].reciprocal);
  coders[0].dc = &dcLum;
  coders[0].ac = &acLum;
  for (int c = 1; c <= 2; ++c) {
    coders[c].dc = &dcChrom;
    coders[c].ac = &acChrom;
  }

  const PixelView& src = image->pixels();
  std::vector<uint8_t> out;
  writeHeaders(out, src.width, src.height, lum, chrom);
  // Room for a first guess at the data; it grows when needed.
  const size_t headers = out.size();
  out.resize(headers + 65536 + size_t(src.width) * size_t(src.height) / 8);
  BitWriter bits;
  bits.p = out.data() + headers;
  const Channels ch = channelsOf(src.format);
  if (ch.step == 1)
    encodeScan<0, 0, 0, 1>(src, coders, out, bits);
  else if (ch.r == 1)
    encodeScan<1, 2, 3, 4>(src, coders, out, bits);
  else
    encodeScan<0, 1, 2, 4>(src, coders, out, bits);
  reserve(out, bits, 16);
  bits.flush();
  out.resize(size_t(bits.p - out.data()));
  out.insert(out.end(), {0xFF, 0xD9});
  return out;
}

std::vector<uint8_t> UIImageJPEGRepresentation(const UIImage& image, double compressionQuality) {
  return encodeJPEG(image.CGImage, compressionQuality);
}

}  // namespace zorvex
