// The damage-tolerant baseline JPEG decoder.
//
// Headers are read marker by marker; a segment whose length runs past the end stops the reading,
// and whatever frame was read by then is still decoded. Tables the stream lacks or damaged beyond
// use are replaced by the standard ones. A scan's entropy-coded data is first copied out without
// its stuffing, cut at its restart markers into segments; the Huffman decoder then reads a segment
// with no further checks but its end, past which it reads zero bits; once it has used one of those,
// the rest of the segment is left in middle grey, as libjpeg leaves it. So whatever the bytes, every
// MCU of the frame is visited exactly once per scan: a bad code or a premature end costs the blocks
// after it their content, never the decoder its footing, and the restart interval that follows
// starts clean.
#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "core/imaging/jpeg.h"
#include "core/imaging/jpeg_internal.h"

#if defined(__wasm_simd128__)
#include <wasm_simd128.h>
#endif

namespace zorvex {
namespace {

using namespace jpeg;

constexpr int kLookBits = 9;
// Scans beyond this many in one stream are not decoded: a baseline frame needs one per component.
constexpr int kMaxScans = 8;

// The transposed index of each zigzag position, and 16 more that catch the overshoot of a damaged
// run, all pointing at a spare slot 64.
constexpr std::array<uint8_t, 80> kZigzagTransposed = [] {
  std::array<uint8_t, 80> t{};
  for (int k = 0; k < 80; ++k) t[size_t(k)] = k < 64 ? uint8_t(transposed(kZigzag[size_t(k)])) : 64;
  return t;
}();

// Bits of a segment, most significant first; past the segment's end, zero bits.
class BitReader {
 public:
  void reset(const uint8_t* begin, const uint8_t* end) {
    p_ = begin;
    end_ = end;
    bits_ = 0;
    count_ = 0;
    zeros_ = 0;
  }
  // Leaves at least 56 bits in the buffer.
  void refill() {
    if (end_ - p_ >= 8) {
      uint64_t w;
      std::memcpy(&w, p_, 8);
      if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
      // Loads 8 bytes but counts only the whole bytes that fit; the rest is loaded again next time.
      bits_ |= w >> count_;
      p_ += (63 - count_) >> 3;
      count_ |= 56;
    } else {
      while (count_ <= 56) {
        if (p_ < end_)
          bits_ |= uint64_t(*p_++) << (56 - count_);
        else
          zeros_ += 8;
        count_ += 8;
      }
    }
  }
  int count() const { return count_; }
  // True once a bit from past the segment's end has been used.
  bool exhausted() const { return count_ < zeros_; }
  // The next n bits, 1 <= n <= 32.
  uint32_t peek(int n) const { return uint32_t(bits_ >> (64 - n)); }
  void skip(int n) {
    bits_ <<= n;
    count_ -= n;
  }
  uint32_t take(int n) {
    const uint32_t v = peek(n);
    skip(n);
    return v;
  }

 private:
  const uint8_t* p_ = nullptr;
  const uint8_t* end_ = nullptr;
  uint64_t bits_ = 0;
  int count_ = 0;
  int zeros_ = 0;  // of the buffered bits, how many at its end come from past the segment's end
};

// The value of `n` magnitude bits `r` (one's complement for negative values).
inline int extend(uint32_t r, int n) { return r < (1u << (n - 1)) ? int(r) - (1 << n) + 1 : int(r); }

class HuffmanTable {
 public:
  // False when the counts don't make a prefix code; the table is then left as it was.
  bool build(const uint8_t* counts, const uint8_t* symbols) {
    int total = 0;
    for (int l = 0; l < 16; ++l) total += counts[l];
    if (total > 256) return false;
    int32_t maxcode[18], valoffset[18];
    uint32_t code = 0;
    int k = 0;
    for (int l = 1; l <= 16; ++l) {
      valoffset[l] = k - int32_t(code);
      code += counts[l - 1];
      k += counts[l - 1];
      if (code > (1u << l)) return false;
      maxcode[l] = counts[l - 1] ? int32_t(code) - 1 : -1;
      code <<= 1;
    }
    maxcode[17] = INT32_MAX;
    std::memcpy(maxcode_, maxcode, sizeof maxcode);
    std::memcpy(valoffset_, valoffset, sizeof valoffset);
    total_ = total;
    std::memcpy(symbols_, symbols, size_t(total));

    std::memset(lookup_, 0, sizeof lookup_);
    std::memset(fastAC_, 0, sizeof fastAC_);
    code = 0;
    k = 0;
    for (int l = 1; l <= kLookBits; ++l) {
      for (int i = 0; i < counts[l - 1]; ++i, ++k, ++code) {
        const uint32_t first = code << (kLookBits - l), last = (code + 1) << (kLookBits - l);
        for (uint32_t j = first; j < last; ++j) {
          lookup_[j] = uint16_t(l << 8 | symbols[k]);
          // Codes whose magnitude bits fit too decode in one look as AC values.
          const int run = symbols[k] >> 4, size = symbols[k] & 15;
          if (size && l + size <= kLookBits) {
            const uint32_t bits = (j >> (kLookBits - l - size)) & ((1u << size) - 1);
            fastAC_[j] = extend(bits, size) * 65536 + run * 256 + l + size;
          }
        }
      }
      code <<= 1;
    }
    defined_ = true;
    return true;
  }
  bool defined() const { return defined_; }

  // The next symbol; a code the table doesn't hold consumes 16 bits and reads as symbol 0.
  int decode(BitReader& br) const {
    const uint16_t e = lookup_[br.peek(kLookBits)];
    if (e) {
      br.skip(e >> 8);
      return e & 255;
    }
    const uint32_t bits = br.peek(16);
    for (int l = kLookBits + 1; l <= 16; ++l) {
      const int32_t c = int32_t(bits >> (16 - l));
      if (c <= maxcode_[l]) {
        const int32_t i = valoffset_[l] + c;
        if (i < 0 || i >= total_) break;
        br.skip(l);
        return symbols_[i];
      }
    }
    br.skip(16);
    return 0;
  }
  // An AC value with its run, (value << 16) + (run << 8) + bits used, or 0 if it needs `decode`.
  int32_t fastAC(const BitReader& br) const { return fastAC_[br.peek(kLookBits)]; }

 private:
  uint16_t lookup_[1 << kLookBits] = {};
  int32_t fastAC_[1 << kLookBits] = {};
  int32_t maxcode_[18] = {};
  int32_t valoffset_[18] = {};
  uint8_t symbols_[256] = {};
  int32_t total_ = 0;
  bool defined_ = false;
};

struct Component {
  int id = 0, h = 1, v = 1, tq = 0;
  int blocksW = 0, blocksH = 0;  // blocks that cover the component's own area
  int planeW = 0, planeH = 0;    // samples of the plane, padded to whole MCUs
  std::vector<uint8_t> plane;
};

struct Frame {
  int width = 0, height = 0;
  int hmax = 1, vmax = 1, mcusX = 0, mcusY = 0;
  std::vector<Component> components;
};

struct ScanComponent {
  Component* comp;
  const HuffmanTable* dc;
  const HuffmanTable* ac;
  alignas(32) float dequant[72];  // transposed order, AAN factors and 1/8 folded in; 64 is the spare
  int32_t pred = 0;
};

// Writes an 8 x 8 block of level-shifted samples as bytes.
inline void storeBlock(const f32x8 (&rows)[8], uint8_t* out, ptrdiff_t stride) {
#if defined(__wasm_simd128__)
  // WebAssembly narrows with saturation in two steps, which also clamps to 0..255.
  typedef float f32x4 __attribute__((vector_size(16)));
  for (int y = 0; y < 8; ++y) {
    const f32x8 v = rows[y] + 128.5f;
    const v128_t lo = wasm_i32x4_trunc_sat_f32x4(v128_t(f32x4(__builtin_shufflevector(v, v, 0, 1, 2, 3))));
    const v128_t hi = wasm_i32x4_trunc_sat_f32x4(v128_t(f32x4(__builtin_shufflevector(v, v, 4, 5, 6, 7))));
    const v128_t words = wasm_i16x8_narrow_i32x4(lo, hi);
    wasm_v128_store64_lane(out + y * stride, wasm_u8x16_narrow_i16x8(words, words), 0);
  }
  return;
#endif
  const f32x8 zero{}, top = zero + 255.0f;
  for (int y = 0; y < 8; ++y) {
    f32x8 v = rows[y] + 128.5f;
    v = v < zero ? zero : v;
    v = v > top ? top : v;
    const u8x8 b = __builtin_convertvector(__builtin_convertvector(v, i32x8), u8x8);
    std::memcpy(out + y * stride, &b, 8);
  }
}

// Decodes one block and writes its samples at `out`.
inline void decodeBlock(BitReader& br, ScanComponent& sc, uint8_t* out, ptrdiff_t stride) {
  alignas(32) float coef[72] = {};
  if (br.count() < 32) br.refill();
  int s = sc.dc->decode(br) & 15;
  if (s) sc.pred = int32_t(uint32_t(sc.pred) + uint32_t(extend(br.take(s), s)));
  // Coefficients are 16 bits wide, as in libjpeg: a predictor run wild wraps.
  coef[0] = float(int16_t(sc.pred)) * sc.dequant[0];

  const HuffmanTable& ac = *sc.ac;
  int k = 1;
  while (k < 64) {
    if (br.count() < 32) br.refill();
    const int32_t f = ac.fastAC(br);
    if (f) {
      k += (f >> 8) & 15;
      br.skip(f & 255);
      const int t = kZigzagTransposed[size_t(k)];
      coef[t] = float(f >> 16) * sc.dequant[t];
      ++k;
      continue;
    }
    const int rs = ac.decode(br);
    const int run = rs >> 4;
    s = rs & 15;
    if (s == 0) {
      if (run != 15) break;  // end of block
      k += 16;
      continue;
    }
    k += run;
    const int t = kZigzagTransposed[size_t(k)];
    coef[t] = float(extend(br.take(s), s)) * sc.dequant[t];
    ++k;
  }

  if (k == 1) {  // DC only: a flat block
    float v = coef[0] + 128.5f;
    v = v < 0.0f ? 0.0f : v > 255.0f ? 255.0f : v;
    const uint8_t b = uint8_t(v);
    for (int y = 0; y < 8; ++y) std::memset(out + y * stride, b, 8);
    return;
  }
  f32x8 rows[8];
  std::memcpy(rows, coef, sizeof rows);
  inverseDCT(rows);
  storeBlock(rows, out, stride);
}

class Decoder {
 public:
  Decoder(std::span<const uint8_t> s, const JPEGLimits& limits) : s_(s), limits_(limits) {}

  CGImageRef run() {
    size_t pos = 0;
    int scans = 0;
    while (pos < s_.size()) {
      // The next marker: skip to a 0xFF, then past fill bytes.
      while (pos < s_.size() && s_[pos] != 0xFF) ++pos;
      while (pos < s_.size() && s_[pos] == 0xFF) ++pos;
      if (pos >= s_.size()) break;
      const uint8_t marker = s_[pos++];
      if (marker == 0xD8 || (marker >= 0xD0 && marker <= 0xD7) || marker == 0x01 || marker == 0x00) continue;
      if (marker == 0xD9) break;
      if (pos + 2 > s_.size()) break;
      const size_t length = size_t(s_[pos]) << 8 | s_[pos + 1];
      if (length < 2 || pos + length > s_.size()) break;
      const uint8_t* seg = s_.data() + pos + 2;
      const size_t segLength = length - 2;
      pos += length;
      switch (marker) {
        case 0xC0:
        case 0xC1:
          if (!frame_ && !readFrame(seg, segLength)) return nullptr;
          break;
        case 0xC2: case 0xC3: case 0xC5: case 0xC6: case 0xC7:
        case 0xC9: case 0xCA: case 0xCB: case 0xCD: case 0xCE: case 0xCF:
          // Progressive, lossless, hierarchical or arithmetic-coded: not ours to decode.
          if (!frame_) return nullptr;
          break;
        case 0xC4: readHuffmanTables(seg, segLength); break;
        case 0xDB: readQuantTables(seg, segLength); break;
        case 0xDD:
          if (segLength >= 2) restartInterval_ = int(seg[0]) << 8 | seg[1];
          break;
        case 0xDA:
          if (!frame_ || !allocated_) return finish();
          if (++scans > kMaxScans) return finish();
          pos = decodeScan(seg, segLength, pos);
          break;
        default: break;  // APPn, COM and the rest carry nothing we need
      }
    }
    return finish();
  }

 private:
  bool readFrame(const uint8_t* p, size_t n) {
    if (n < 6 || p[0] != 8) return false;
    Frame f;
    f.height = int(p[1]) << 8 | p[2];
    f.width = int(p[3]) << 8 | p[4];
    const int count = p[5];
    if (f.width < 1 || f.height < 1 || count < 1 || count > 4 || n < size_t(6 + 3 * count)) return false;
    if (f.width > limits_.maxSide || f.height > limits_.maxSide ||
        int64_t(f.width) * int64_t(f.height) > limits_.maxPixels)
      return false;
    for (int i = 0; i < count; ++i) {
      Component c;
      c.id = p[6 + 3 * i];
      c.h = p[7 + 3 * i] >> 4;
      c.v = p[7 + 3 * i] & 15;
      c.tq = p[8 + 3 * i] & 3;
      if (c.h < 1 || c.h > 4 || c.v < 1 || c.v > 4) return false;
      f.hmax = std::max(f.hmax, c.h);
      f.vmax = std::max(f.vmax, c.v);
      f.components.push_back(c);
    }
    f.mcusX = (f.width + 8 * f.hmax - 1) / (8 * f.hmax);
    f.mcusY = (f.height + 8 * f.vmax - 1) / (8 * f.vmax);
    for (Component& c : f.components) {
      const int w = (f.width * c.h + f.hmax - 1) / f.hmax, h = (f.height * c.v + f.vmax - 1) / f.vmax;
      c.blocksW = (w + 7) / 8;
      c.blocksH = (h + 7) / 8;
      c.planeW = f.mcusX * c.h * 8;
      c.planeH = f.mcusY * c.v * 8;
    }
    frame_ = std::move(f);
    // Samples nothing reaches stay at the middle grey.
    try {
      for (Component& c : frame_->components) c.plane.assign(size_t(c.planeW) * size_t(c.planeH), 128);
      allocated_ = true;
    } catch (const std::bad_alloc&) {
      return false;
    }
    return true;
  }

  void readHuffmanTables(const uint8_t* p, size_t n) {
    size_t i = 0;
    while (i + 17 <= n) {
      const int tc = p[i] >> 4, th = p[i] & 15;
      int total = 0;
      for (int l = 0; l < 16; ++l) total += p[i + 1 + size_t(l)];
      if (i + 17 + size_t(total) > n) return;
      if (tc <= 1 && th <= 3) (tc == 0 ? dc_ : ac_)[th].build(p + i + 1, p + i + 17);
      i += 17 + size_t(total);
    }
  }

  void readQuantTables(const uint8_t* p, size_t n) {
    size_t i = 0;
    while (i + 1 <= n) {
      const int pq = p[i] >> 4, tq = p[i] & 15;
      const size_t size = pq ? 128 : 64;
      if (i + 1 + size > n) return;
      if (tq <= 3) {
        for (int k = 0; k < 64; ++k)
          quant_[tq][kZigzag[size_t(k)]] =
              pq ? uint16_t(p[i + 1 + 2 * size_t(k)] << 8 | p[i + 2 + 2 * size_t(k)]) : p[i + 1 + size_t(k)];
        quantDefined_[tq] = true;
      }
      i += 1 + size;
    }
  }

  const HuffmanTable* tableOr(const HuffmanTable* tables, int id, const HuffmanTable& lum,
                              const HuffmanTable& chrom) const {
    if (tables[id].defined()) return &tables[id];
    return id & 1 ? &chrom : &lum;
  }

  // Reads the scan header and its data; gives the position of the marker after the data.
  size_t decodeScan(const uint8_t* p, size_t n, size_t dataStart) {
    Frame& f = *frame_;
    const int ns = n >= 1 ? p[0] : 0;
    std::vector<ScanComponent> scs;
    std::vector<bool> used(f.components.size(), false);
    for (int i = 0; i < ns && i < 4 && size_t(3 + 2 * i) <= n; ++i) {
      const int id = p[1 + 2 * i], tables = p[2 + 2 * i];
      // The component of that id; failing that, the first one this scan doesn't have yet.
      int index = -1;
      for (size_t c = 0; c < f.components.size(); ++c)
        if (f.components[c].id == id && !used[c]) index = int(c);
      if (index < 0)
        for (size_t c = 0; c < f.components.size() && index < 0; ++c)
          if (!used[c]) index = int(c);
      if (index < 0) break;
      used[size_t(index)] = true;
      ScanComponent sc{};
      sc.comp = &f.components[size_t(index)];
      sc.dc = tableOr(dc_, (tables >> 4) & 3, standardDCLum(), standardDCChrom());
      sc.ac = tableOr(ac_, tables & 3, standardACLum(), standardACChrom());
      makeDequant(sc.comp->tq, sc.dequant);
      scs.push_back(sc);
    }

    const size_t end = copyEntropyData(dataStart);
    if (scs.empty()) return end;
    if (scs.size() == 1)
      decodeNonInterleaved(scs[0]);
    else
      decodeInterleaved(scs);
    return end;
  }

  // Copies the entropy-coded data from `pos` into `clean_` without stuffing, noting where each restart
  // marker fell; gives the position of the marker that ends the data.
  size_t copyEntropyData(size_t pos) {
    const size_t n = s_.size();
    clean_.resize(n - std::min(pos, n) + 8);
    segmentEnds_.clear();
    size_t out = 0;
    while (pos < n) {
      const uint8_t* hit = static_cast<const uint8_t*>(std::memchr(s_.data() + pos, 0xFF, n - pos));
      const size_t next = hit ? size_t(hit - s_.data()) : n;
      std::memcpy(clean_.data() + out, s_.data() + pos, next - pos);
      out += next - pos;
      pos = next;
      if (pos >= n) break;
      if (pos + 1 >= n) {  // a last lone 0xFF
        pos = n;
        break;
      }
      const uint8_t m = s_[pos + 1];
      if (m == 0xFF) {
        ++pos;  // fill byte
      } else if (m >= 0xD0 && m <= 0xD7) {
        segmentEnds_.push_back(out);
        pos += 2;
      } else if (m >= 0xC0) {
        break;  // a marker that ends the scan
      } else {
        // 0xFF00 is a stuffed 0xFF; so is an 0xFF before a byte that is no marker, most likely
        // a stuffing zero that was overwritten.
        clean_[out++] = 0xFF;
        pos += 2;
      }
    }
    segmentEnds_.push_back(out);
    return pos;
  }

  // Points the reader at restart segment `i` (none left: an empty one).
  void startSegment(BitReader& br, size_t i) {
    const uint8_t* base = clean_.data();
    if (i >= segmentEnds_.size()) {
      br.reset(base, base);
      return;
    }
    br.reset(base + (i == 0 ? 0 : segmentEnds_[i - 1]), base + segmentEnds_[i]);
  }

  void decodeInterleaved(std::vector<ScanComponent>& scs) {
    const Frame& f = *frame_;
    BitReader br;
    size_t segment = 0;
    startSegment(br, segment);
    int64_t mcu = 0;
    for (int my = 0; my < f.mcusY; ++my) {
      for (int mx = 0; mx < f.mcusX; ++mx, ++mcu) {
        if (restartInterval_ && mcu > 0 && mcu % restartInterval_ == 0) {
          startSegment(br, ++segment);
          for (ScanComponent& sc : scs) sc.pred = 0;
        }
        // Once the data has run out, the rest of the segment stays grey, as in libjpeg.
        if (br.exhausted()) continue;
        for (ScanComponent& sc : scs) {
          Component& c = *sc.comp;
          const ptrdiff_t stride = c.planeW;
          for (int by = 0; by < c.v; ++by)
            for (int bx = 0; bx < c.h; ++bx) {
              const size_t x = size_t(mx * c.h + bx) * 8, y = size_t(my * c.v + by) * 8;
              decodeBlock(br, sc, c.plane.data() + y * size_t(stride) + x, stride);
            }
        }
      }
    }
  }

  void decodeNonInterleaved(ScanComponent& sc) {
    Component& c = *sc.comp;
    BitReader br;
    size_t segment = 0;
    startSegment(br, segment);
    int64_t unit = 0;
    for (int by = 0; by < c.blocksH; ++by) {
      for (int bx = 0; bx < c.blocksW; ++bx, ++unit) {
        if (restartInterval_ && unit > 0 && unit % restartInterval_ == 0) {
          startSegment(br, ++segment);
          sc.pred = 0;
        }
        if (br.exhausted()) continue;
        decodeBlock(br, sc, c.plane.data() + size_t(by) * 8 * size_t(c.planeW) + size_t(bx) * 8, c.planeW);
      }
    }
  }

  // Dequantisation factors of table `tq` in transposed order; a table the stream never gave is the
  // standard luminance one at quality 50.
  void makeDequant(int tq, float* out) const {
    for (int u = 0; u < 8; ++u)
      for (int v = 0; v < 8; ++v) {
        const int natural = v * 8 + u;
        const double q = quantDefined_[tq] ? quant_[tq][natural] : kLuminanceQuant[size_t(natural)];
        out[u * 8 + v] = float(q * aanScale(u) * aanScale(v) / 8.0);
      }
    for (int i = 64; i < 72; ++i) out[i] = 0.0f;
  }

  static HuffmanTable standard(const HuffmanSpec& spec) {
    HuffmanTable t;
    t.build(spec.counts.data(), spec.symbols);
    return t;
  }
  static const HuffmanTable& standardDCLum() { static const HuffmanTable t = standard(kDCLuminance); return t; }
  static const HuffmanTable& standardDCChrom() { static const HuffmanTable t = standard(kDCChrominance); return t; }
  static const HuffmanTable& standardACLum() { static const HuffmanTable t = standard(kACLuminance); return t; }
  static const HuffmanTable& standardACChrom() { static const HuffmanTable t = standard(kACChrominance); return t; }

  // Upsamples and converts the planes into the picture.
  CGImageRef finish() {
    if (!frame_ || !allocated_) return nullptr;
    const Frame& f = *frame_;
    const size_t rowBytes = size_t(f.width) * 4;
    std::shared_ptr<uint8_t[]> pixels(new (std::nothrow) uint8_t[rowBytes * size_t(f.height)]);
    if (!pixels) return nullptr;
    const bool color = f.components.size() == 3;
    const int planes = color ? 3 : 1;
    // Per plane, the source column of each output column, and a row to upsample into.
    std::vector<int32_t> columns[3];
    std::vector<uint8_t> rows[3];
    for (int c = 0; c < planes; ++c) {
      const Component& comp = f.components[size_t(c)];
      columns[c].resize(size_t(f.width));
      for (int x = 0; x < f.width; ++x) columns[c][size_t(x)] = x * comp.h / f.hmax;
      rows[c].resize(size_t(f.width) + 8);
    }
    for (int y = 0; y < f.height; ++y) {
      const uint8_t* line[3];
      for (int c = 0; c < planes; ++c) {
        const Component& comp = f.components[size_t(c)];
        const uint8_t* src = comp.plane.data() + size_t(y * comp.v / f.vmax) * size_t(comp.planeW);
        if (comp.h == f.hmax) {
          line[c] = src;
        } else {
          uint8_t* dst = rows[c].data();
          if (comp.h * 2 == f.hmax) {
            upsampleTwice(src, dst, f.width);
          } else {
            const int32_t* map = columns[c].data();
            for (int x = 0; x < f.width; ++x) dst[x] = src[map[x]];
          }
          line[c] = dst;
        }
      }
      uint8_t* out = pixels.get() + rowBytes * size_t(y);
      if (color)
        convertRow(line[0], line[1], line[2], out, f.width);
      else
        grayRow(line[0], out, f.width);
    }
    const PixelView view{pixels.get(), f.width, f.height, ptrdiff_t(rowBytes), PixelFormat::RGBX};
    return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(pixels)), view);
  }

  // Each sample twice; the source has at least (width + 1) / 2 samples.
  static void upsampleTwice(const uint8_t* __restrict src, uint8_t* __restrict dst, int width) {
    const int pairs = width / 2;
    for (int i = 0; i < pairs; ++i) {
      dst[2 * i] = src[i];
      dst[2 * i + 1] = src[i];
    }
    if (width & 1) dst[width - 1] = src[pairs];
  }

  // YCbCr to RGB in 16-bit fixed point with the coefficients of JFIF. Written plainly, so that the
  // compiler vectorises it.
  static void convertRow(const uint8_t* __restrict Y, const uint8_t* __restrict Cb, const uint8_t* __restrict Cr,
                         uint8_t* __restrict out, int width) {
    int x = 0;
#if defined(__wasm_simd128__)
    // Eight pixels at a time, narrowed with saturation (which clamps) and interleaved by shuffles.
    for (; x + 8 <= width; x += 8) {
      const v128_t y16 = wasm_u16x8_extend_low_u8x16(wasm_v128_load64_zero(Y + x));
      const v128_t cb16 = wasm_i16x8_sub(wasm_u16x8_extend_low_u8x16(wasm_v128_load64_zero(Cb + x)), wasm_i16x8_splat(128));
      const v128_t cr16 = wasm_i16x8_sub(wasm_u16x8_extend_low_u8x16(wasm_v128_load64_zero(Cr + x)), wasm_i16x8_splat(128));
      v128_t r[2], g[2], b[2];
      for (int h = 0; h < 2; ++h) {
        const v128_t y32 = h ? wasm_i32x4_extend_high_i16x8(y16) : wasm_i32x4_extend_low_i16x8(y16);
        const v128_t cb = h ? wasm_i32x4_extend_high_i16x8(cb16) : wasm_i32x4_extend_low_i16x8(cb16);
        const v128_t cr = h ? wasm_i32x4_extend_high_i16x8(cr16) : wasm_i32x4_extend_low_i16x8(cr16);
        const v128_t half = wasm_i32x4_splat(32768);
        r[h] = wasm_i32x4_add(y32, wasm_i32x4_shr(wasm_i32x4_add(wasm_i32x4_mul(cr, wasm_i32x4_splat(91881)), half), 16));
        g[h] = wasm_i32x4_add(y32, wasm_i32x4_shr(wasm_i32x4_sub(wasm_i32x4_sub(half, wasm_i32x4_mul(cb, wasm_i32x4_splat(22554))),
                                                                 wasm_i32x4_mul(cr, wasm_i32x4_splat(46802))),
                                                  16));
        b[h] = wasm_i32x4_add(y32, wasm_i32x4_shr(wasm_i32x4_add(wasm_i32x4_mul(cb, wasm_i32x4_splat(116130)), half), 16));
      }
      const v128_t r16 = wasm_i16x8_narrow_i32x4(r[0], r[1]), g16 = wasm_i16x8_narrow_i32x4(g[0], g[1]);
      const v128_t b16 = wasm_i16x8_narrow_i32x4(b[0], b[1]);
      const v128_t r8 = wasm_u8x16_narrow_i16x8(r16, r16), g8 = wasm_u8x16_narrow_i16x8(g16, g16);
      const v128_t b8 = wasm_u8x16_narrow_i16x8(b16, b16);
      const v128_t rg = wasm_i8x16_shuffle(r8, g8, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
      const v128_t bx = wasm_i8x16_shuffle(b8, wasm_i8x16_splat(-1), 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
      wasm_v128_store(out + 4 * x, wasm_i16x8_shuffle(rg, bx, 0, 8, 1, 9, 2, 10, 3, 11));
      wasm_v128_store(out + 4 * x + 16, wasm_i16x8_shuffle(rg, bx, 4, 12, 5, 13, 6, 14, 7, 15));
    }
#endif
    for (; x < width; ++x) {
      const int y = Y[x], cb = Cb[x] - 128, cr = Cr[x] - 128;
      const int r = std::min(std::max(y + ((91881 * cr + 32768) >> 16), 0), 255);
      const int g = std::min(std::max(y + ((-22554 * cb - 46802 * cr + 32768) >> 16), 0), 255);
      const int b = std::min(std::max(y + ((116130 * cb + 32768) >> 16), 0), 255);
      const uint32_t px = uint32_t(r) | uint32_t(g) << 8 | uint32_t(b) << 16 | 0xFF000000u;
      std::memcpy(out + 4 * x, &px, 4);
    }
  }

  static void grayRow(const uint8_t* Y, uint8_t* out, int width) {
    for (int x = 0; x < width; ++x) {
      out[4 * x] = out[4 * x + 1] = out[4 * x + 2] = Y[x];
      out[4 * x + 3] = 255;
    }
  }

  std::span<const uint8_t> s_;
  JPEGLimits limits_;
  std::optional<Frame> frame_;
  bool allocated_ = false;
  HuffmanTable dc_[4], ac_[4];
  uint16_t quant_[4][64] = {};
  bool quantDefined_[4] = {};
  int restartInterval_ = 0;
  std::vector<uint8_t> clean_;
  std::vector<size_t> segmentEnds_;
};

}  // namespace

CGImageRef decodeJPEG(std::span<const uint8_t> stream, const JPEGLimits& limits) {
  try {
    auto decoder = std::make_unique<Decoder>(stream, limits);
    return decoder->run();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

UIImage UIImageWithData(std::span<const uint8_t> data) { return UIImage{decodeJPEG(data), UIImageOrientationUp}; }

}  // namespace zorvex
