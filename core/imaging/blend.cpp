#include "core/imaging/blend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

namespace zorvex::raster {
namespace {

// Pixels travel through the compositor as 32-bit words, R in the low byte, then G, B and A, so that
// each loop below works on whole pixels in 32-bit lanes and vectorises. Chunks of kChunk pixels are
// unpacked into arrays of floats for the modes defined on real numbers.
constexpr int kChunk = 64;

inline uint32_t pack(uint32_t r, uint32_t g, uint32_t b, uint32_t a) { return r | g << 8 | b << 16 | a << 24; }
inline uint32_t ch(uint32_t v, int k) { return (v >> (8 * k)) & 255u; }
inline uint32_t word(RGBA8 p) { return pack(p.r, p.g, p.b, p.a); }
inline RGBA8 rgba(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }

// Sixteen 16-bit lanes: four pixels of four channels, widened from bytes. Both g++ and clang take
// these vector types, for AVX2 natively and for simd128 in WebAssembly.
typedef uint8_t u8x16 __attribute__((vector_size(16)));
typedef uint16_t u16x16 __attribute__((vector_size(32)));
inline u16x16 widen(const uint32_t* p) {
  u8x16 v;
  std::memcpy(&v, p, 16);
  return __builtin_convertvector(v, u16x16);
}
inline void narrow(u16x16 v, uint32_t* p) {
  const u8x16 b = __builtin_convertvector(v, u8x16);
  std::memcpy(p, &b, 16);
}
// div255 in every lane: exact for 0 to 255 * 255, and no lane overflows 16 bits on the way.
inline u16x16 div255x(u16x16 x) {
  x += 128;
  return (x + (x >> 8)) >> 8;
}
// Each pixel's alpha in all four of its lanes.
inline u16x16 alphas(u16x16 v) { return __builtin_shufflevector(v, v, 3, 3, 3, 3, 7, 7, 7, 7, 11, 11, 11, 11, 15, 15, 15, 15); }

// ----- The blend modes -----
//
// Separable modes follow the PDF definition on premultiplied values: with source sc, sa and backdrop
// dc, da, the result is  sc (1 - da) + dc (1 - sa) + sa da B(dc / da, sc / sa),  and its alpha is
// sa + da - sa da. Each `premul` below is the last term written out, sa da B(...), in whatever form is
// simplest. Every formula is branch-free (both sides computed, one selected) so that it vectorises.

inline float unpremul(float c, float a) {
  const float q = c / a;
  return a > 0 ? std::min(q, 1.0f) : 0.0f;  // clamped: malformed premultiplied input stays in 0..1
}
inline float softLightD(float x) {
  const float root = std::sqrt(x);
  return x <= 0.25f ? ((16 * x - 12) * x + 4) * x : root;
}

template <int M>
inline float premulTerm(float sc, float dc, float sa, float da) {
  if constexpr (M == kCGBlendModeMultiply) {
    return sc * dc;
  } else if constexpr (M == kCGBlendModeScreen) {
    return sc * da + dc * sa - sc * dc;
  } else if constexpr (M == kCGBlendModeOverlay) {
    return 2 * dc <= da ? 2 * sc * dc : sa * da - 2 * (da - dc) * (sa - sc);
  } else if constexpr (M == kCGBlendModeDarken) {
    return std::min(sc * da, dc * sa);
  } else if constexpr (M == kCGBlendModeLighten) {
    return std::max(sc * da, dc * sa);
  } else if constexpr (M == kCGBlendModeHardLight) {
    return 2 * sc <= sa ? 2 * sc * dc : sa * da - 2 * (da - dc) * (sa - sc);
  } else if constexpr (M == kCGBlendModeDifference) {
    return sc * da + dc * sa - 2 * std::min(sc * da, dc * sa);
  } else if constexpr (M == kCGBlendModeExclusion) {
    return sc * da + dc * sa - 2 * sc * dc;
  } else {
    // Modes defined on unpremultiplied values: B(backdrop b, source c).
    const float b = unpremul(dc, da), c = unpremul(sc, sa);
    float B;
    if constexpr (M == kCGBlendModeColorDodge) {
      const float q = std::min(1.0f, b / (1 - c));
      B = b <= 0 ? 0.0f : c >= 1 ? 1.0f : q;
    } else if constexpr (M == kCGBlendModeColorBurn) {
      const float q = 1 - std::min(1.0f, (1 - b) / c);
      B = b >= 1 ? 1.0f : c <= 0 ? 0.0f : q;
    } else {
      static_assert(M == kCGBlendModeSoftLight);
      B = c <= 0.5f ? b - (1 - 2 * c) * b * (1 - b) : b + (2 * c - 1) * (softLightD(b) - b);
    }
    return sa * da * B;
  }
}

// Non-separable modes, on unpremultiplied colours (PDF: Lum, ClipColor, SetLum, Sat, SetSat), written
// channel by channel on plain floats so that the loop over pixels vectorises.
inline float lum(float r, float g, float b) { return 0.3f * r + 0.59f * g + 0.11f * b; }
inline float min3(float r, float g, float b) { return std::min(std::min(r, g), b); }
inline float max3(float r, float g, float b) { return std::max(std::max(r, g), b); }
inline void clipColor(float& r, float& g, float& b) {
  const float l = lum(r, g, b), n = min3(r, g, b), x = max3(r, g, b);
  const float ql = l / (l - n), qh = (1 - l) / (x - l);
  // Below 0 the channels are pulled in toward l by kl, above 1 by kh; 1 leaves them be.
  const float kl = n < 0 && l - n > 0 ? ql : 1.0f;
  const float kh = x > 1 && x - l > 0 ? qh : 1.0f;
  auto one = [&](float c) {
    const float d = kl != 1.0f ? l + (c - l) * kl : c;
    return kh != 1.0f ? l + (d - l) * kh : d;
  };
  r = one(r);
  g = one(g);
  b = one(b);
}
inline void setLum(float& r, float& g, float& b, float l) {
  const float d = l - lum(r, g, b);
  r += d;
  g += d;
  b += d;
  clipColor(r, g, b);
}
inline float sat(float r, float g, float b) { return max3(r, g, b) - min3(r, g, b); }
// The largest channel becomes s, the smallest 0, the middle one in proportion; all 0 for a grey.
inline void setSat(float& r, float& g, float& b, float s) {
  const float mn = min3(r, g, b), mx = max3(r, g, b);
  const float k = s / (mx - mn);
  auto one = [&](float v) {
    const float mid = (v - mn) * k;
    return mx > mn ? (v == mx ? s : v == mn ? 0.0f : mid) : 0.0f;
  };
  r = one(r);
  g = one(g);
  b = one(b);
}

// B(source, backdrop) for the four modes, written into (r, g, b).
template <int M>
inline void nonSeparableBlend(float sr, float sg, float sb, float dr, float dg, float db, float& r, float& g,
                              float& b) {
  if constexpr (M == kCGBlendModeHue) {
    r = sr, g = sg, b = sb;
    setSat(r, g, b, sat(dr, dg, db));
    setLum(r, g, b, lum(dr, dg, db));
  } else if constexpr (M == kCGBlendModeSaturation) {
    r = dr, g = dg, b = db;
    setSat(r, g, b, sat(sr, sg, sb));
    setLum(r, g, b, lum(dr, dg, db));
  } else if constexpr (M == kCGBlendModeColor) {
    r = sr, g = sg, b = sb;
    setLum(r, g, b, lum(dr, dg, db));
  } else {
    r = dr, g = dg, b = db;
    setLum(r, g, b, lum(sr, sg, sb));
  }
}

inline uint32_t toByte(float v) { return uint32_t(std::clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f); }

struct FloatChunk {
  float sr[kChunk], sg[kChunk], sb[kChunk], sa[kChunk];
  float dr[kChunk], dg[kChunk], db[kChunk], da[kChunk];
};
inline void unpack(const uint32_t* v, int n, float* r, float* g, float* b, float* a) {
  constexpr float k = 1.0f / 255.0f;
  for (int i = 0; i < n; ++i) {
    r[i] = float(ch(v[i], 0)) * k;
    g[i] = float(ch(v[i], 1)) * k;
    b[i] = float(ch(v[i], 2)) * k;
    a[i] = float(ch(v[i], 3)) * k;
  }
}

// The blend of n source words over n destination words, into `out`.
template <int M>
void blendChunk(const uint32_t* s, const uint32_t* d, uint32_t* out, int n) {
  if constexpr (M == kCGBlendModeNormal) {
    // s + d (1 - sa), exact in integers; saturated so malformed input can't spill into a neighbour.
    int i = 0;
    for (; i + 4 <= n; i += 4) {
      const u16x16 sv = widen(s + i), dv = widen(d + i);
      const u16x16 r = sv + div255x(dv * (255 - alphas(sv)));
      narrow(r > 255 ? u16x16{} + 255 : r, out + i);
    }
    for (; i < n; ++i) {
      const uint32_t inv = 255 - ch(s[i], 3);
      uint32_t r[4];
      for (int k = 0; k < 4; ++k) r[k] = std::min(255u, ch(s[i], k) + div255(ch(d[i], k) * inv));
      out[i] = pack(r[0], r[1], r[2], r[3]);
    }
  } else if constexpr (M == kCGBlendModeCopy) {
    std::memcpy(out, s, sizeof(uint32_t) * size_t(n));
  } else if constexpr (M == kCGBlendModeClear) {
    std::fill(out, out + n, 0u);
  } else {
    FloatChunk f;
    unpack(s, n, f.sr, f.sg, f.sb, f.sa);
    unpack(d, n, f.dr, f.dg, f.db, f.da);
    for (int i = 0; i < n; ++i) {
      const float sa = f.sa[i], da = f.da[i];
      float r, g, b, a;
      if constexpr (M >= kCGBlendModeMultiply && M <= kCGBlendModeExclusion) {
        auto sep = [&](float sc, float dc) { return sc * (1 - da) + dc * (1 - sa) + premulTerm<M>(sc, dc, sa, da); };
        r = sep(f.sr[i], f.dr[i]);
        g = sep(f.sg[i], f.dg[i]);
        b = sep(f.sb[i], f.db[i]);
        a = sa + da - sa * da;
      } else if constexpr (M >= kCGBlendModeHue && M <= kCGBlendModeLuminosity) {
        float br, bg, bb;
        nonSeparableBlend<M>(unpremul(f.sr[i], sa), unpremul(f.sg[i], sa), unpremul(f.sb[i], sa),
                             unpremul(f.dr[i], da), unpremul(f.dg[i], da), unpremul(f.db[i], da), br, bg, bb);
        const float k = sa * da;
        r = f.sr[i] * (1 - da) + f.dr[i] * (1 - sa) + k * br;
        g = f.sg[i] * (1 - da) + f.dg[i] * (1 - sa) + k * bg;
        b = f.sb[i] * (1 - da) + f.db[i] * (1 - sa) + k * bb;
        a = sa + da - sa * da;
      } else if constexpr (M >= kCGBlendModeSourceIn && M <= kCGBlendModeXOR) {
        // Porter-Duff: s Fa + d Fb on all four channels.
        float fa = 0, fb = 0;
        if constexpr (M == kCGBlendModeSourceIn) fa = da;
        if constexpr (M == kCGBlendModeSourceOut) fa = 1 - da;
        if constexpr (M == kCGBlendModeSourceAtop) fa = da, fb = 1 - sa;
        if constexpr (M == kCGBlendModeDestinationOver) fa = 1 - da, fb = 1;
        if constexpr (M == kCGBlendModeDestinationIn) fb = sa;
        if constexpr (M == kCGBlendModeDestinationOut) fb = 1 - sa;
        if constexpr (M == kCGBlendModeDestinationAtop) fa = 1 - da, fb = sa;
        if constexpr (M == kCGBlendModeXOR) fa = 1 - da, fb = 1 - sa;
        r = f.sr[i] * fa + f.dr[i] * fb;
        g = f.sg[i] * fa + f.dg[i] * fb;
        b = f.sb[i] * fa + f.db[i] * fb;
        a = sa * fa + da * fb;
      } else if constexpr (M == kCGBlendModePlusDarker) {
        // R = max(0, 1 - ((1 - D) + (1 - S))), on each premultiplied channel.
        auto pd = [](float sc, float dc) { return std::max(0.0f, 1 - ((1 - dc) + (1 - sc))); };
        r = pd(f.sr[i], f.dr[i]);
        g = pd(f.sg[i], f.dg[i]);
        b = pd(f.sb[i], f.db[i]);
        a = pd(sa, da);
      } else {
        static_assert(M == kCGBlendModePlusLighter);
        // R = min(1, S + D), on each premultiplied channel.
        auto pl = [](float sc, float dc) { return std::min(1.0f, sc + dc); };
        r = pl(f.sr[i], f.dr[i]);
        g = pl(f.sg[i], f.dg[i]);
        b = pl(f.sb[i], f.db[i]);
        a = pl(sa, da);
      }
      out[i] = pack(toByte(r), toByte(g), toByte(b), toByte(a));
    }
  }
}

// ----- Layouts -----

template <PixelFormat F>
inline void loadWords(const uint8_t* p, int n, uint32_t* out) {
  if constexpr (F == PixelFormat::Gray) {
    for (int i = 0; i < n; ++i) out[i] = uint32_t(p[i]) * 0x010101u | 0xFF000000u;
  } else {
    std::memcpy(out, p, sizeof(uint32_t) * size_t(n));
    if constexpr (F == PixelFormat::RGBX) {
      for (int i = 0; i < n; ++i) out[i] |= 0xFF000000u;
    } else if constexpr (F == PixelFormat::ARGB) {
      for (int i = 0; i < n; ++i) out[i] = out[i] >> 8 | out[i] << 24;
    }
  }
}
template <PixelFormat F>
inline void storeWords(uint8_t* p, int n, uint32_t* v) {
  if constexpr (F == PixelFormat::Gray) {
    for (int i = 0; i < n; ++i) p[i] = uint8_t((ch(v[i], 0) * 77 + ch(v[i], 1) * 150 + ch(v[i], 2) * 29 + 128) >> 8);
  } else {
    if constexpr (F == PixelFormat::RGBX) {
      for (int i = 0; i < n; ++i) v[i] |= 0xFF000000u;
    } else if constexpr (F == PixelFormat::ARGB) {
      for (int i = 0; i < n; ++i) v[i] = v[i] << 8 | v[i] >> 24;
    }
    std::memcpy(p, v, sizeof(uint32_t) * size_t(n));
  }
}

// ----- Span loops -----

using SpanFn = void (*)(uint8_t* dst, int32_t n, const RGBA8* src, bool solid, const uint8_t* cov, uint8_t alpha);

// Each chunk: the destination words, the blend, then each pixel moved from the destination toward the
// blend by its strength, coverage * alpha / 255.
template <int M, PixelFormat F>
void spanT(uint8_t* dst, int32_t n, const RGBA8* src, bool solid, const uint8_t* cov, uint8_t alpha) {
  constexpr int bpp = bytesPerPixel(F);
  uint32_t s[kChunk], d[kChunk], r[kChunk];
  if (solid) std::fill(s, s + kChunk, word(src[0]));
  for (int32_t at = 0; at < n; at += kChunk) {
    const int m = int(std::min<int32_t>(kChunk, n - at));
    if (!solid) std::memcpy(s, src + at, sizeof(uint32_t) * size_t(m));
    if constexpr (M == kCGBlendModeNormal) {
      // Transparent source pixels leave the destination as it is: s + d (1 - 0) = d. Layers are
      // mostly empty, so whole chunks of nothing are passed over.
      uint32_t any = 0;
      for (int i = 0; i < m; ++i) any |= s[i];
      if (!any) continue;
    }
    loadWords<F>(dst + at * bpp, m, d);
    blendChunk<M>(s, d, r, m);
    if (cov || alpha != 255) {
      uint32_t strength[kChunk];
      if (cov) {
        for (int i = 0; i < m; ++i) strength[i] = div255(cov[at + i] * uint32_t{alpha});
      } else {
        std::fill(strength, strength + m, uint32_t{alpha});
      }
      int i = 0;
      for (; i + 4 <= m; i += 4) {
        const uint16_t a = uint16_t(strength[i]), b = uint16_t(strength[i + 1]), c = uint16_t(strength[i + 2]),
                       e = uint16_t(strength[i + 3]);
        const u16x16 st = {a, a, a, a, b, b, b, b, c, c, c, c, e, e, e, e};
        narrow(div255x(widen(r + i) * st + widen(d + i) * (255 - st)), r + i);
      }
      for (; i < m; ++i) {
        const uint32_t inv = 255 - strength[i];
        r[i] = pack(div255(ch(r[i], 0) * strength[i] + ch(d[i], 0) * inv),
                    div255(ch(r[i], 1) * strength[i] + ch(d[i], 1) * inv),
                    div255(ch(r[i], 2) * strength[i] + ch(d[i], 2) * inv),
                    div255(ch(r[i], 3) * strength[i] + ch(d[i], 3) * inv));
      }
    }
    storeWords<F>(dst + at * bpp, m, r);
  }
}

// The normal mode onto RGBX or RGBA, in place, four pixels at a time: the common case of a layer or a
// picture composited onto the surface. The colour of s + d (1 - sa) does not depend on the
// destination's alpha, so RGBX's skipped byte can be read as it is and set to 255 afterwards; the
// result is that of spanT to the byte.
template <PixelFormat F>
void normalSpanT(uint8_t* dst, int32_t n, const RGBA8* src, bool solid, const uint8_t* cov, uint8_t alpha) {
  static_assert(F == PixelFormat::RGBX || F == PixelFormat::RGBA);
  const uint32_t* sw = reinterpret_cast<const uint32_t*>(src);
  uint32_t solidWords[4];
  if (solid) std::fill(solidWords, solidWords + 4, sw[0]);
  const u16x16 skipped = F == PixelFormat::RGBX ? u16x16{0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255} : u16x16{};
  uint32_t* d = reinterpret_cast<uint32_t*>(dst);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const uint32_t* s4 = solid ? solidWords : sw + i;
    if ((s4[0] | s4[1] | s4[2] | s4[3]) == 0) continue;  // transparent: the destination stays
    uint32_t dw[4];
    std::memcpy(dw, d + i, 16);
    const u16x16 sv = widen(s4), dv = widen(dw);
    u16x16 r = sv + div255x(dv * (255 - alphas(sv)));
    r = r > 255 ? u16x16{} + 255 : r;
    if (cov || alpha != 255) {
      uint16_t st[4];
      for (int k = 0; k < 4; ++k) st[k] = uint16_t(cov ? div255(cov[i + k] * uint32_t{alpha}) : alpha);
      const u16x16 sv16 = {st[0], st[0], st[0], st[0], st[1], st[1], st[1], st[1],
                           st[2], st[2], st[2], st[2], st[3], st[3], st[3], st[3]};
      r = div255x(r * sv16 + dv * (255 - sv16));
    }
    narrow(r | skipped, dw);
    std::memcpy(d + i, dw, 16);
  }
  if (i < n) spanT<kCGBlendModeNormal, F>(dst + i * 4, n - i, solid ? src : src + i, solid, cov ? cov + i : nullptr, alpha);
}

template <int M>
constexpr std::array<SpanFn, 4> spanRow() {
  if constexpr (M == kCGBlendModeNormal) {
    return {&normalSpanT<PixelFormat::RGBX>, &normalSpanT<PixelFormat::RGBA>, &spanT<M, PixelFormat::ARGB>,
            &spanT<M, PixelFormat::Gray>};
  }
  return {&spanT<M, PixelFormat::RGBX>, &spanT<M, PixelFormat::RGBA>, &spanT<M, PixelFormat::ARGB>,
          &spanT<M, PixelFormat::Gray>};
}
template <size_t... M>
constexpr std::array<std::array<SpanFn, 4>, sizeof...(M)> spanTable(std::index_sequence<M...>) {
  return {spanRow<M>()...};
}
constexpr auto kSpanTable = spanTable(std::make_index_sequence<kCGBlendModeCount>{});

using BlendFn = void (*)(const uint32_t*, const uint32_t*, uint32_t*, int);
template <size_t... M>
constexpr std::array<BlendFn, sizeof...(M)> blendTable(std::index_sequence<M...>) {
  return {&blendChunk<M>...};
}
constexpr auto kBlendTable = blendTable(std::make_index_sequence<kCGBlendModeCount>{});

template <PixelFormat F>
void clearT(uint8_t* dst, int32_t n, const uint8_t* cov) {
  constexpr int bpp = bytesPerPixel(F);
  uint32_t d[kChunk];
  for (int32_t at = 0; at < n; at += kChunk) {
    const int m = int(std::min<int32_t>(kChunk, n - at));
    loadWords<F>(dst + at * bpp, m, d);
    for (int i = 0; i < m; ++i) {
      const uint32_t inv = 255 - (cov ? cov[at + i] : 255u);
      d[i] = pack(div255(ch(d[i], 0) * inv), div255(ch(d[i], 1) * inv), div255(ch(d[i], 2) * inv),
                  div255(ch(d[i], 3) * inv));
    }
    storeWords<F>(dst + at * bpp, m, d);
  }
}

}  // namespace

RGBA8 blendPixel(CGBlendMode mode, RGBA8 s, RGBA8 d) {
  const uint32_t sw = word(s), dw = word(d);
  uint32_t r;
  kBlendTable[size_t(mode) < kBlendTable.size() ? size_t(mode) : 0](&sw, &dw, &r, 1);
  return rgba(r);
}

RGBA8 loadPixel(PixelFormat f, const uint8_t* p) {
  RGBA8 out{};
  loadRow(f, p, 1, &out);
  return out;
}

void storePixel(PixelFormat f, uint8_t* p, RGBA8 v) {
  uint32_t w = word(v);
  switch (f) {
    case PixelFormat::RGBX: return storeWords<PixelFormat::RGBX>(p, 1, &w);
    case PixelFormat::RGBA: return storeWords<PixelFormat::RGBA>(p, 1, &w);
    case PixelFormat::ARGB: return storeWords<PixelFormat::ARGB>(p, 1, &w);
    case PixelFormat::Gray: return storeWords<PixelFormat::Gray>(p, 1, &w);
  }
}

void loadRow(PixelFormat f, const uint8_t* p, int32_t n, RGBA8* out) {
  static_assert(sizeof(RGBA8) == 4);
  uint32_t* w = reinterpret_cast<uint32_t*>(out);
  switch (f) {
    case PixelFormat::RGBX: return loadWords<PixelFormat::RGBX>(p, n, w);
    case PixelFormat::RGBA: return loadWords<PixelFormat::RGBA>(p, n, w);
    case PixelFormat::ARGB: return loadWords<PixelFormat::ARGB>(p, n, w);
    case PixelFormat::Gray: return loadWords<PixelFormat::Gray>(p, n, w);
  }
}

void compositeSpan(CGBlendMode mode, const PixelView& dst, int32_t x, int32_t y, int32_t n, const RGBA8* src,
                   bool solid, const uint8_t* coverage, uint8_t alpha) {
  if (n <= 0 || alpha == 0) return;
  const size_t m = static_cast<size_t>(mode) < kSpanTable.size() ? static_cast<size_t>(mode) : 0;
  kSpanTable[m][static_cast<size_t>(dst.format)](dst.at(x, y), n, src, solid, coverage, alpha);
}

void clearSpan(const PixelView& dst, int32_t x, int32_t y, int32_t n, const uint8_t* coverage) {
  if (n <= 0) return;
  uint8_t* p = dst.at(x, y);
  switch (dst.format) {
    case PixelFormat::RGBX: return clearT<PixelFormat::RGBX>(p, n, coverage);
    case PixelFormat::RGBA: return clearT<PixelFormat::RGBA>(p, n, coverage);
    case PixelFormat::ARGB: return clearT<PixelFormat::ARGB>(p, n, coverage);
    case PixelFormat::Gray: return clearT<PixelFormat::Gray>(p, n, coverage);
  }
}

}  // namespace zorvex::raster
