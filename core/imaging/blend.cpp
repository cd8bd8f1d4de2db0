#include "core/imaging/blend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace zorvex::raster {
namespace {

// ----- The blend modes -----
//
// Separable modes follow the PDF definition on premultiplied values: with source sc, sa and backdrop
// dc, da, the result is  sc (1 - da) + dc (1 - sa) + sa da B(dc / da, sc / sa),  and its alpha is
// sa + da - sa da. Each B below is written in its premultiplied form, sa da B(...), where that is
// simpler. Channels are floats in 0..1.

struct F4 {
  float r, g, b, a;
};

inline F4 toF4(RGBA8 p) {
  constexpr float k = 1.0f / 255.0f;
  return {p.r * k, p.g * k, p.b * k, p.a * k};
}
inline uint8_t toByte(float v) {
  v = std::clamp(v, 0.0f, 1.0f);
  return static_cast<uint8_t>(v * 255.0f + 0.5f);
}
inline RGBA8 toRGBA8(F4 v) { return {toByte(v.r), toByte(v.g), toByte(v.b), toByte(v.a)}; }

// Unpremultiplied channel, clamped so that malformed premultiplied input can't leave 0..1.
inline float unpremul(float c, float a) { return a > 0 ? std::min(c / a, 1.0f) : 0.0f; }

template <class B>
inline F4 separable(F4 s, F4 d, B blendPremul) {
  auto ch = [&](float sc, float dc) { return sc * (1 - d.a) + dc * (1 - s.a) + blendPremul(sc, dc, s.a, d.a); };
  return {ch(s.r, d.r), ch(s.g, d.g), ch(s.b, d.b), s.a + d.a - s.a * d.a};
}
// The same for modes defined on unpremultiplied values: B(backdrop, source).
template <class B>
inline F4 separableUnpremul(F4 s, F4 d, B blend) {
  return separable(s, d, [&](float sc, float dc, float sa, float da) {
    return sa * da * blend(unpremul(dc, da), unpremul(sc, sa));
  });
}

inline float softLightD(float x) { return x <= 0.25f ? ((16 * x - 12) * x + 4) * x : std::sqrt(x); }

// Non-separable modes, on unpremultiplied colours (PDF: Lum, ClipColor, SetLum, Sat, SetSat).
struct C3 {
  float r, g, b;
};
inline float lum(C3 c) { return 0.3f * c.r + 0.59f * c.g + 0.11f * c.b; }
inline C3 clipColor(C3 c) {
  const float l = lum(c);
  const float n = std::min({c.r, c.g, c.b});
  const float x = std::max({c.r, c.g, c.b});
  if (n < 0 && l - n > 0) {
    c = {l + (c.r - l) * l / (l - n), l + (c.g - l) * l / (l - n), l + (c.b - l) * l / (l - n)};
  }
  if (x > 1 && x - l > 0) {
    c = {l + (c.r - l) * (1 - l) / (x - l), l + (c.g - l) * (1 - l) / (x - l), l + (c.b - l) * (1 - l) / (x - l)};
  }
  return c;
}
inline C3 setLum(C3 c, float l) {
  const float d = l - lum(c);
  return clipColor({c.r + d, c.g + d, c.b + d});
}
inline float sat(C3 c) { return std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b}); }
inline C3 setSat(C3 c, float s) {
  float* ch[3] = {&c.r, &c.g, &c.b};
  std::sort(ch, ch + 3, [](const float* a, const float* b) { return *a < *b; });
  float &mn = *ch[0], &mid = *ch[1], &mx = *ch[2];
  if (mx > mn) {
    mid = (mid - mn) * s / (mx - mn);
    mx = s;
  } else {
    mid = mx = 0;
  }
  mn = 0;
  return c;
}

template <class B>
inline F4 nonSeparable(F4 s, F4 d, B blend) {
  const C3 sc{unpremul(s.r, s.a), unpremul(s.g, s.a), unpremul(s.b, s.a)};
  const C3 dc{unpremul(d.r, d.a), unpremul(d.g, d.a), unpremul(d.b, d.a)};
  const C3 b = blend(sc, dc);
  const float k = s.a * d.a;
  return {s.r * (1 - d.a) + d.r * (1 - s.a) + k * b.r, s.g * (1 - d.a) + d.g * (1 - s.a) + k * b.g,
          s.b * (1 - d.a) + d.b * (1 - s.a) + k * b.b, s.a + d.a - s.a * d.a};
}

// Porter-Duff: result = s * Fa + d * Fb, on all four channels.
inline F4 porterDuff(F4 s, F4 d, float fa, float fb) {
  return {s.r * fa + d.r * fb, s.g * fa + d.g * fb, s.b * fa + d.b * fb, s.a * fa + d.a * fb};
}

template <int M>
inline RGBA8 blendT(RGBA8 s8, RGBA8 d8) {
  if constexpr (M == kCGBlendModeNormal) {
    // s + d (1 - sa), in exact integer arithmetic.
    const uint32_t inv = 255 - s8.a;
    auto ch = [&](uint8_t s, uint8_t d) { return static_cast<uint8_t>(std::min<uint32_t>(255, s + div255(d * inv))); };
    return {ch(s8.r, d8.r), ch(s8.g, d8.g), ch(s8.b, d8.b), ch(s8.a, d8.a)};
  } else if constexpr (M == kCGBlendModeCopy) {
    return s8;
  } else if constexpr (M == kCGBlendModeClear) {
    return {0, 0, 0, 0};
  } else {
    const F4 s = toF4(s8), d = toF4(d8);
    F4 r{};
    if constexpr (M == kCGBlendModeMultiply) {
      r = separable(s, d, [](float sc, float dc, float, float) { return sc * dc; });
    } else if constexpr (M == kCGBlendModeScreen) {
      r = separable(s, d, [](float sc, float dc, float sa, float da) { return sc * da + dc * sa - sc * dc; });
    } else if constexpr (M == kCGBlendModeOverlay) {
      r = separable(s, d, [](float sc, float dc, float sa, float da) {
        return 2 * dc <= da ? 2 * sc * dc : sa * da - 2 * (da - dc) * (sa - sc);
      });
    } else if constexpr (M == kCGBlendModeDarken) {
      r = separable(s, d, [](float sc, float dc, float sa, float da) { return std::min(sc * da, dc * sa); });
    } else if constexpr (M == kCGBlendModeLighten) {
      r = separable(s, d, [](float sc, float dc, float sa, float da) { return std::max(sc * da, dc * sa); });
    } else if constexpr (M == kCGBlendModeColorDodge) {
      r = separableUnpremul(s, d, [](float b, float c) {
        return b <= 0 ? 0.0f : c >= 1 ? 1.0f : std::min(1.0f, b / (1 - c));
      });
    } else if constexpr (M == kCGBlendModeColorBurn) {
      r = separableUnpremul(s, d, [](float b, float c) {
        return b >= 1 ? 1.0f : c <= 0 ? 0.0f : 1 - std::min(1.0f, (1 - b) / c);
      });
    } else if constexpr (M == kCGBlendModeSoftLight) {
      r = separableUnpremul(s, d, [](float b, float c) {
        return c <= 0.5f ? b - (1 - 2 * c) * b * (1 - b) : b + (2 * c - 1) * (softLightD(b) - b);
      });
    } else if constexpr (M == kCGBlendModeHardLight) {
      r = separable(s, d, [](float sc, float dc, float sa, float da) {
        return 2 * sc <= sa ? 2 * sc * dc : sa * da - 2 * (da - dc) * (sa - sc);
      });
    } else if constexpr (M == kCGBlendModeDifference) {
      r = separable(s, d, [](float sc, float dc, float sa, float da) {
        return sc * da + dc * sa - 2 * std::min(sc * da, dc * sa);
      });
    } else if constexpr (M == kCGBlendModeExclusion) {
      r = separable(s, d, [](float sc, float dc, float sa, float da) { return sc * da + dc * sa - 2 * sc * dc; });
    } else if constexpr (M == kCGBlendModeHue) {
      r = nonSeparable(s, d, [](C3 sc, C3 dc) { return setLum(setSat(sc, sat(dc)), lum(dc)); });
    } else if constexpr (M == kCGBlendModeSaturation) {
      r = nonSeparable(s, d, [](C3 sc, C3 dc) { return setLum(setSat(dc, sat(sc)), lum(dc)); });
    } else if constexpr (M == kCGBlendModeColor) {
      r = nonSeparable(s, d, [](C3 sc, C3 dc) { return setLum(sc, lum(dc)); });
    } else if constexpr (M == kCGBlendModeLuminosity) {
      r = nonSeparable(s, d, [](C3 sc, C3 dc) { return setLum(dc, lum(sc)); });
    } else if constexpr (M == kCGBlendModeSourceIn) {
      r = porterDuff(s, d, d.a, 0);
    } else if constexpr (M == kCGBlendModeSourceOut) {
      r = porterDuff(s, d, 1 - d.a, 0);
    } else if constexpr (M == kCGBlendModeSourceAtop) {
      r = porterDuff(s, d, d.a, 1 - s.a);
    } else if constexpr (M == kCGBlendModeDestinationOver) {
      r = porterDuff(s, d, 1 - d.a, 1);
    } else if constexpr (M == kCGBlendModeDestinationIn) {
      r = porterDuff(s, d, 0, s.a);
    } else if constexpr (M == kCGBlendModeDestinationOut) {
      r = porterDuff(s, d, 0, 1 - s.a);
    } else if constexpr (M == kCGBlendModeDestinationAtop) {
      r = porterDuff(s, d, 1 - d.a, s.a);
    } else if constexpr (M == kCGBlendModeXOR) {
      r = porterDuff(s, d, 1 - d.a, 1 - s.a);
    } else if constexpr (M == kCGBlendModePlusDarker) {
      // R = max(0, 1 - ((1 - D) + (1 - S))), on each premultiplied channel.
      auto ch = [](float sc, float dc) { return std::max(0.0f, 1 - ((1 - dc) + (1 - sc))); };
      r = {ch(s.r, d.r), ch(s.g, d.g), ch(s.b, d.b), ch(s.a, d.a)};
    } else if constexpr (M == kCGBlendModePlusLighter) {
      // R = min(1, S + D), on each premultiplied channel.
      auto ch = [](float sc, float dc) { return std::min(1.0f, sc + dc); };
      r = {ch(s.r, d.r), ch(s.g, d.g), ch(s.b, d.b), ch(s.a, d.a)};
    }
    return toRGBA8(r);
  }
}

// ----- Layouts -----

template <PixelFormat F>
inline RGBA8 loadT(const uint8_t* p) {
  if constexpr (F == PixelFormat::RGBX) return {p[0], p[1], p[2], 255};
  else if constexpr (F == PixelFormat::RGBA) return {p[0], p[1], p[2], p[3]};
  else if constexpr (F == PixelFormat::ARGB) return {p[1], p[2], p[3], p[0]};
  else return {p[0], p[0], p[0], 255};
}
template <PixelFormat F>
inline void storeT(uint8_t* p, RGBA8 v) {
  if constexpr (F == PixelFormat::RGBX) {
    p[0] = v.r; p[1] = v.g; p[2] = v.b; p[3] = 255;
  } else if constexpr (F == PixelFormat::RGBA) {
    p[0] = v.r; p[1] = v.g; p[2] = v.b; p[3] = v.a;
  } else if constexpr (F == PixelFormat::ARGB) {
    p[0] = v.a; p[1] = v.r; p[2] = v.g; p[3] = v.b;
  } else {
    p[0] = static_cast<uint8_t>((v.r * 77 + v.g * 150 + v.b * 29 + 128) >> 8);
  }
}

// ----- Span loops -----

using SpanFn = void (*)(uint8_t* dst, int32_t n, const RGBA8* src, bool solid, const uint8_t* cov, uint8_t alpha);

template <int M, PixelFormat F>
void spanT(uint8_t* dst, int32_t n, const RGBA8* src, bool solid, const uint8_t* cov, uint8_t alpha) {
  constexpr int bpp = bytesPerPixel(F);
  for (int32_t i = 0; i < n; ++i, dst += bpp) {
    const uint32_t strength = cov ? div255(cov[i] * uint32_t{alpha}) : alpha;
    if (strength == 0) continue;
    const RGBA8 d = loadT<F>(dst);
    const RGBA8 r = blendT<M>(solid ? src[0] : src[i], d);
    storeT<F>(dst, strength == 255 ? r : lerpPixel(d, r, strength));
  }
}

// The common case of a layer over the surface, or an opaque picture over anything, under the normal
// mode at full strength: no coverage, so no test per pixel.
template <PixelFormat F>
void normalOpaqueSpanT(uint8_t* dst, int32_t n, const RGBA8* src) {
  constexpr int bpp = bytesPerPixel(F);
  for (int32_t i = 0; i < n; ++i, dst += bpp) storeT<F>(dst, blendT<kCGBlendModeNormal>(src[i], loadT<F>(dst)));
}

template <int M>
constexpr std::array<SpanFn, 4> spanRow() {
  return {&spanT<M, PixelFormat::RGBX>, &spanT<M, PixelFormat::RGBA>, &spanT<M, PixelFormat::ARGB>,
          &spanT<M, PixelFormat::Gray>};
}
template <size_t... M>
constexpr std::array<std::array<SpanFn, 4>, sizeof...(M)> spanTable(std::index_sequence<M...>) {
  return {spanRow<M>()...};
}
constexpr auto kSpanTable = spanTable(std::make_index_sequence<kCGBlendModeCount>{});

using BlendFn = RGBA8 (*)(RGBA8, RGBA8);
template <size_t... M>
constexpr std::array<BlendFn, sizeof...(M)> blendTable(std::index_sequence<M...>) {
  return {&blendT<M>...};
}
constexpr auto kBlendTable = blendTable(std::make_index_sequence<kCGBlendModeCount>{});

template <PixelFormat F>
void clearT(uint8_t* dst, int32_t n, const uint8_t* cov) {
  constexpr int bpp = bytesPerPixel(F);
  for (int32_t i = 0; i < n; ++i, dst += bpp) {
    const uint32_t strength = cov ? cov[i] : 255;
    if (strength == 0) continue;
    storeT<F>(dst, lerpPixel(loadT<F>(dst), {0, 0, 0, 0}, strength));
  }
}

}  // namespace

RGBA8 blendPixel(CGBlendMode mode, RGBA8 s, RGBA8 d) {
  return kBlendTable[static_cast<size_t>(mode) < kBlendTable.size() ? mode : kCGBlendModeNormal](s, d);
}

RGBA8 loadPixel(PixelFormat f, const uint8_t* p) {
  switch (f) {
    case PixelFormat::RGBX: return loadT<PixelFormat::RGBX>(p);
    case PixelFormat::RGBA: return loadT<PixelFormat::RGBA>(p);
    case PixelFormat::ARGB: return loadT<PixelFormat::ARGB>(p);
    case PixelFormat::Gray: return loadT<PixelFormat::Gray>(p);
  }
  return {};
}

void storePixel(PixelFormat f, uint8_t* p, RGBA8 v) {
  switch (f) {
    case PixelFormat::RGBX: return storeT<PixelFormat::RGBX>(p, v);
    case PixelFormat::RGBA: return storeT<PixelFormat::RGBA>(p, v);
    case PixelFormat::ARGB: return storeT<PixelFormat::ARGB>(p, v);
    case PixelFormat::Gray: return storeT<PixelFormat::Gray>(p, v);
  }
}

void loadRow(PixelFormat f, const uint8_t* p, int32_t n, RGBA8* out) {
  switch (f) {
    case PixelFormat::RGBX:
      for (int32_t i = 0; i < n; ++i) out[i] = loadT<PixelFormat::RGBX>(p + 4 * i);
      return;
    case PixelFormat::RGBA:
      for (int32_t i = 0; i < n; ++i) out[i] = loadT<PixelFormat::RGBA>(p + 4 * i);
      return;
    case PixelFormat::ARGB:
      for (int32_t i = 0; i < n; ++i) out[i] = loadT<PixelFormat::ARGB>(p + 4 * i);
      return;
    case PixelFormat::Gray:
      for (int32_t i = 0; i < n; ++i) out[i] = loadT<PixelFormat::Gray>(p + i);
      return;
  }
}

void compositeSpan(CGBlendMode mode, const PixelView& dst, int32_t x, int32_t y, int32_t n, const RGBA8* src,
                   bool solid, const uint8_t* coverage, uint8_t alpha) {
  if (n <= 0 || alpha == 0) return;
  uint8_t* p = dst.at(x, y);
  const size_t m = static_cast<size_t>(mode) < kSpanTable.size() ? static_cast<size_t>(mode) : 0;
  if (m == kCGBlendModeNormal && !coverage && alpha == 255 && !solid) {
    switch (dst.format) {
      case PixelFormat::RGBX: return normalOpaqueSpanT<PixelFormat::RGBX>(p, n, src);
      case PixelFormat::RGBA: return normalOpaqueSpanT<PixelFormat::RGBA>(p, n, src);
      case PixelFormat::ARGB: return normalOpaqueSpanT<PixelFormat::ARGB>(p, n, src);
      case PixelFormat::Gray: return normalOpaqueSpanT<PixelFormat::Gray>(p, n, src);
    }
  }
  kSpanTable[m][static_cast<size_t>(dst.format)](p, n, src, solid, coverage, alpha);
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
