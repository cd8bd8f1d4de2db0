// Drawing pictures: CGContextDrawImage and the layer draws, and clipping to a mask.
//
// Every buffer pixel whose centre falls inside the drawn picture takes a sample of it: the centre is
// mapped back into the picture's pixel space by the inverse of the draw's transform, and
//   - nearest neighbour (interpolation quality 1) takes the pixel under that point;
//   - every other quality is smooth: per axis, a tent (bilinear) filter, except that an axis-aligned
//     draw that shrinks an axis averages the source pixels under the pixel's footprint on that axis.
// Edges are hard: a pixel is in or out by its centre. The general path does this per pixel. The fast
// paths do the same arithmetic but hoist what is constant along a row or a column; tests check that
// both give identical pixels.
#include <algorithm>
#include <cstring>

#include "core/imaging/raster_internal.h"

namespace zorvex {
namespace raster {
namespace {

constexpr uint32_t kOne = 65536;  // weights are in 1/65536

struct ImageMapping {
  CGAffineTransform inverse;  // buffer -> picture pixel space
  PixelBox box;               // buffer pixels that may be inside
  bool axisAligned = false;   // inverse maps x to u and y to v alone
};

// Maps the picture's pixel space (u right, v down from its top row) into `rect` of user space and on
// into buffer coordinates. False when nothing can be drawn.
bool mapImage(const CGContext& c, CGRect rect, int32_t iw, int32_t ih, ImageMapping& m) {
  if (!std::isfinite(rect.origin.x) || !std::isfinite(rect.origin.y) || !std::isfinite(rect.size.width) ||
      !std::isfinite(rect.size.height) || iw <= 0 || ih <= 0)
    return false;
  const CGAffineTransform pictureToUser{rect.size.width / iw, 0, 0, -rect.size.height / ih, rect.origin.x,
                                        rect.origin.y + rect.size.height};
  const CGAffineTransform t = CGAffineTransformConcat(pictureToUser, userToBuffer(c));
  const double det = t.a * t.d - t.b * t.c;
  if (det == 0 || !std::isfinite(det)) return false;
  m.inverse = CGAffineTransformInvert(t);
  const CGRect bounds = CGRectApplyAffineTransform(CGRectMake(0, 0, iw, ih), t);
  m.box = drawableBox(c, bounds.origin.x, bounds.origin.y, bounds.origin.x + bounds.size.width,
                      bounds.origin.y + bounds.size.height);
  m.axisAligned = m.inverse.b == 0 && m.inverse.c == 0;
  return !m.box.empty();
}

// The picture-space point under the centre of buffer pixel (x, y).
inline CGPoint sourcePoint(const CGAffineTransform& inv, int32_t x, int32_t y) {
  const double X = x + 0.5, Y = y + 0.5;
  return {inv.a * X + inv.c * Y + inv.tx, inv.b * X + inv.d * Y + inv.ty};
}
inline bool inside(double u, int32_t n) { return u >= 0 && u < n; }

// Filter taps along one axis: consecutive source indices from `first`, weights summing to kOne.
struct Taps {
  int32_t first = 0;
  std::vector<uint32_t> w;
};

// The bilinear (tent) filter at position `c` on an axis of `n` pixels: weight w0 on `first` and the
// rest on the next pixel, with the edges clamped. A weight of the whole unit takes one pixel. The
// weights are whole multiples of 1/256, so that a product of two of them, and its sums, fit 32 bits.
struct Tent {
  int32_t first;
  uint32_t w0;
};
inline Tent tentAt(double c, int32_t n) {
  const double p = c - 0.5;
  const double i0 = std::floor(p);
  const uint32_t w1 = uint32_t((p - i0) * 256 + 0.5) * 256;
  const int32_t a = int32_t(std::clamp(i0, 0.0, double(n - 1)));
  const int32_t b = int32_t(std::clamp(i0 + 1, 0.0, double(n - 1)));
  if (a == b || w1 == 0) return {a, kOne};
  if (w1 == kOne) return {b, kOne};
  return {a, kOne - w1};
}

// `c` is the sample's position on the axis, `scale` the source pixels per buffer pixel, `n` the
// picture's extent. `average` asks for the footprint average (axis-aligned shrinking).
void axisTaps(double c, double scale, int32_t n, bool average, Taps& t) {
  t.w.clear();
  if (average && scale > 1) {
    const double lo = std::max(c - scale * 0.5, 0.0), hi = std::min(c + scale * 0.5, double(n));
    if (hi > lo) {
      const int32_t k0 = int32_t(lo), k1 = std::min(int32_t(std::ceil(hi)), n);
      const double total = hi - lo;
      uint32_t sum = 0;
      size_t largest = 0;
      for (int32_t k = k0; k < k1; ++k) {
        const double overlap = std::min(hi, k + 1.0) - std::max(lo, double(k));
        const uint32_t w = uint32_t(overlap / total * kOne + 0.5);
        t.w.push_back(w);
        sum += w;
        if (w > t.w[largest]) largest = t.w.size() - 1;
      }
      t.w[largest] += kOne - sum;  // exact unit sum
      t.first = k0;
      return;
    }
  }
  const Tent tent = tentAt(c, n);
  t.first = tent.first;
  t.w.push_back(tent.w0);
  if (tent.w0 != kOne) t.w.push_back(kOne - tent.w0);
}

inline uint8_t roundedByte(uint64_t v) { return uint8_t(std::min<uint64_t>(255, (v + (uint64_t{1} << 31)) >> 32)); }

// The weighted sum of the source pixels under the taps, rounded back to bytes.
RGBA8 filtered(const PixelView& src, const Taps& tx, const Taps& ty) {
  uint64_t acc[4] = {0, 0, 0, 0};
  for (size_t j = 0; j < ty.w.size(); ++j) {
    const uint8_t* row = src.row(ty.first + int32_t(j));
    uint32_t racc[4] = {0, 0, 0, 0};
    for (size_t i = 0; i < tx.w.size(); ++i) {
      const RGBA8 p = loadPixel(src.format, row + (tx.first + int32_t(i)) * bytesPerPixel(src.format));
      racc[0] += tx.w[i] * p.r;
      racc[1] += tx.w[i] * p.g;
      racc[2] += tx.w[i] * p.b;
      racc[3] += tx.w[i] * p.a;
    }
    for (int k = 0; k < 4; ++k) acc[k] += uint64_t(ty.w[j]) * racc[k];
  }
  return {roundedByte(acc[0]), roundedByte(acc[1]), roundedByte(acc[2]), roundedByte(acc[3])};
}

uint8_t alphaByte(double a) { return uint8_t(std::clamp(a, 0.0, 1.0) * 255.0 + 0.5); }

// Bilinear on both axes: what `filtered` computes for two tent taps a side. With weights 256 a and
// 256 b the 64-bit sum is 65536 S for S = sum of a b p, so (65536 S + 2^31) >> 32 = (S + 2^15) >> 16.
template <PixelFormat F>
inline RGBA8 bilinear(const PixelView& src, const Tent& tx, const Tent& ty) {
  constexpr int bpp = bytesPerPixel(F);
  const uint32_t ax = tx.w0 >> 8, ay = ty.w0 >> 8;  // 0 to 256
  const int32_t x1 = ax == 256 ? tx.first : tx.first + 1, y1 = ay == 256 ? ty.first : ty.first + 1;
  const uint8_t *r0 = src.row(ty.first), *r1 = src.row(y1);
  const RGBA8 p00 = loadAs<F>(r0 + tx.first * bpp), p01 = loadAs<F>(r0 + x1 * bpp);
  const RGBA8 p10 = loadAs<F>(r1 + tx.first * bpp), p11 = loadAs<F>(r1 + x1 * bpp);
  auto mix = [&](uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    const uint32_t s = ay * (ax * a + (256 - ax) * b) + (256 - ay) * (ax * c + (256 - ax) * d);
    return uint8_t(std::min(255u, (s + 32768u) >> 16));
  };
  return {mix(p00.r, p01.r, p10.r, p11.r), mix(p00.g, p01.g, p10.g, p11.g), mix(p00.b, p01.b, p10.b, p11.b),
          mix(p00.a, p01.a, p10.a, p11.a)};
}

// Each pixel, per the definition above, straight from the inverse mapping.
template <PixelFormat F>
void drawGeneralAs(CGContext& c, const ImageMapping& m, const PixelView& src) {
  const GraphicsState& gs = c.state();
  const bool nearest = gs.interpolation == kCGInterpolationNone;
  const double scaleX = std::abs(m.inverse.a), scaleY = std::abs(m.inverse.d);
  // Columns in tiles: under a rotation a whole row would read a long diagonal of the source, and
  // a tile's rows read a small band of it again and again. Each pixel is computed alone, so the
  // order changes nothing.
  constexpr int32_t kTile = 64;
  std::vector<RGBA8> span(kTile);
  std::vector<uint8_t> cov(kTile);
  double us[kTile], vs[kTile];
  Taps tx, ty;
  const CGAffineTransform& inv = m.inverse;
  for (int32_t x0 = m.box.x0; x0 < m.box.x1; x0 += kTile) {
    const int32_t x1 = std::min(m.box.x1, x0 + kTile), count = x1 - x0;
    for (int32_t y = m.box.y0; y < m.box.y1; ++y) {
      const uint8_t* clipRow = gs.clip ? gs.clip->row(y) : nullptr;
      // The source points of the row, as sourcePoint computes them, in a loop of their own so that
      // it vectorises.
      const double Y = y + 0.5;
      for (int32_t i = 0; i < count; ++i) {
        const double X = (x0 + i) + 0.5;
        us[i] = inv.a * X + inv.c * Y + inv.tx;
        vs[i] = inv.b * X + inv.d * Y + inv.ty;
      }
      int32_t first = kTile, last = -1;
      for (int32_t i = 0; i < count; ++i) {
        const double u = us[i], v = vs[i];
        if (!inside(u, src.width) || !inside(v, src.height)) {
          cov[size_t(i)] = 0;
          continue;
        }
        cov[size_t(i)] = clipRow ? clipRow[x0 + i] : 255;
        first = std::min(first, i);
        last = i;
        if (nearest) {
          span[size_t(i)] = loadAs<F>(src.at(int32_t(u), int32_t(v)));
        } else if (!m.axisAligned) {
          span[size_t(i)] = bilinear<F>(src, tentAt(u, src.width), tentAt(v, src.height));
        } else {
          axisTaps(u, scaleX, src.width, true, tx);
          axisTaps(v, scaleY, src.height, true, ty);
          span[size_t(i)] = filtered(src, tx, ty);
        }
      }
      if (last >= first) {
        compositeSpan(gs.blendMode, c.pixels(), x0 + first, y, last - first + 1, span.data() + first, false,
                      cov.data() + first, alphaByte(gs.alpha));
      }
    }
  }
}

void drawGeneral(CGContext& c, const ImageMapping& m, const PixelView& src) {
  switch (src.format) {
    case PixelFormat::RGBX: return drawGeneralAs<PixelFormat::RGBX>(c, m, src);
    case PixelFormat::RGBA: return drawGeneralAs<PixelFormat::RGBA>(c, m, src);
    case PixelFormat::ARGB: return drawGeneralAs<PixelFormat::ARGB>(c, m, src);
    case PixelFormat::Gray: return drawGeneralAs<PixelFormat::Gray>(c, m, src);
  }
}

// Axis-aligned draws: the column of each buffer x and the row of each buffer y are worked out once.
void drawAxisAligned(CGContext& c, const ImageMapping& m, const PixelView& src) {
  const GraphicsState& gs = c.state();
  const bool nearest = gs.interpolation == kCGInterpolationNone;
  const PixelBox& box = m.box;

  // Columns: the run of buffer x whose centres fall inside the picture, and their source columns.
  int32_t xa = box.x1, xb = box.x0;
  std::vector<CGPoint> colPoint(static_cast<size_t>(box.x1 - box.x0));
  for (int32_t x = box.x0; x < box.x1; ++x) {
    const CGPoint p = sourcePoint(m.inverse, x, box.y0);
    colPoint[size_t(x - box.x0)] = p;
    if (inside(p.x, src.width)) {
      xa = std::min(xa, x);
      xb = std::max(xb, x + 1);
    }
  }
  if (xa >= xb) return;
  const int32_t n = xb - xa;
  const int32_t bpp = bytesPerPixel(src.format);

  std::vector<int32_t> srcX(static_cast<size_t>(n));
  std::vector<Taps> colTaps;
  int32_t minSrcX = src.width, maxSrcX = 0;
  bool colsSingle = true;  // every column takes one source column whole
  if (nearest) {
    for (int32_t i = 0; i < n; ++i) srcX[size_t(i)] = int32_t(colPoint[size_t(xa - box.x0 + i)].x);
  } else {
    colTaps.resize(size_t(n));
    for (int32_t i = 0; i < n; ++i) {
      Taps& t = colTaps[size_t(i)];
      axisTaps(colPoint[size_t(xa - box.x0 + i)].x, std::abs(m.inverse.a), src.width, true, t);
      minSrcX = std::min(minSrcX, t.first);
      maxSrcX = std::max(maxSrcX, t.first + int32_t(t.w.size()));
      colsSingle = colsSingle && t.w.size() == 1;
      srcX[size_t(i)] = t.first;
    }
  }
  // Columns of at most two taps, as (first, second, weight of the first): magnification and shifts.
  bool colsBilinear = !nearest, colsTent = colsBilinear;
  std::vector<int32_t> col0, col1;
  std::vector<uint32_t> cw0;
  if (!nearest) {
    for (const Taps& t : colTaps) colsBilinear = colsBilinear && t.w.size() <= 2;
    colsTent = colsBilinear;
    if (colsBilinear) {
      for (const Taps& t : colTaps) {
        colsTent = colsTent && (t.w[0] & 255) == 0;
        col0.push_back(t.first);
        col1.push_back(t.w.size() == 2 ? t.first + 1 : t.first);
        cw0.push_back(t.w[0]);
      }
    }
  }
  // A unit step with no scale: the source run is contiguous.
  bool contiguous = nearest || colsSingle;
  for (int32_t i = 1; contiguous && i < n; ++i) contiguous = srcX[size_t(i)] == srcX[size_t(i - 1)] + 1;

  const uint8_t alpha = alphaByte(gs.alpha);
  const bool plainCopy = gs.blendMode == kCGBlendModeNormal && alpha == 255 && !gs.clip &&
                         src.format == PixelFormat::RGBX && c.pixels().format == PixelFormat::RGBX;

  std::vector<RGBA8> span(static_cast<size_t>(n));
  std::vector<uint32_t> vsum;  // vertical pass of the smooth filter, 4 channels per source column
  std::vector<RGBA8> rowBuffer;
  Taps rowTaps;
  for (int32_t y = box.y0; y < box.y1; ++y) {
    const CGPoint p = sourcePoint(m.inverse, box.x0, y);
    if (!inside(p.y, src.height)) continue;
    const uint8_t* clipRow = gs.clip ? gs.clip->row(y) + xa : nullptr;
    // Nearest neighbour, or a smooth draw whose every tap falls whole on one source pixel (a weight
    // of 1 gives that pixel exactly): one source pixel per buffer pixel.
    int32_t sourceRow = int32_t(p.y);
    bool whole = nearest;
    if (!nearest) {
      axisTaps(p.y, std::abs(m.inverse.d), src.height, true, rowTaps);
      whole = colsSingle && rowTaps.w.size() == 1;
      sourceRow = rowTaps.first;
    }
    if (whole) {
      const uint8_t* srow = src.row(sourceRow);
      if (plainCopy) {
        // Opaque RGBX onto RGBX under the normal mode: the pixel itself, skipped byte set.
        uint32_t* d = reinterpret_cast<uint32_t*>(c.pixels().at(xa, y));
        const uint32_t* s = reinterpret_cast<const uint32_t*>(srow);
        if (contiguous) {
          s += srcX[0];
          for (int32_t i = 0; i < n; ++i) d[i] = s[i] | 0xFF000000u;
        } else {
          for (int32_t i = 0; i < n; ++i) d[i] = s[srcX[size_t(i)]] | 0xFF000000u;
        }
        continue;
      }
      if (contiguous && src.format == PixelFormat::RGBA) {
        compositeSpan(gs.blendMode, c.pixels(), xa, y, n, reinterpret_cast<const RGBA8*>(srow) + srcX[0], false,
                      clipRow, alpha);
        continue;
      }
      if (contiguous) {
        loadRow(src.format, srow + srcX[0] * bpp, n, span.data());
      } else {
        for (int32_t i = 0; i < n; ++i) span[size_t(i)] = loadPixel(src.format, srow + srcX[size_t(i)] * bpp);
      }
    } else if (rowTaps.w.size() == 1 && colsBilinear) {
      // One source row whole: the 64-bit sum is 65536 times a 32-bit one, so
      // (65536 S + 2^31) >> 32 = (S + 2^15) >> 16 exactly.
      const int32_t w = maxSrcX - minSrcX;
      rowBuffer.resize(size_t(w));
      loadRow(src.format, src.row(rowTaps.first) + minSrcX * bpp, w, rowBuffer.data());
      const RGBA8* line = rowBuffer.data() - minSrcX;
      for (int32_t i = 0; i < n; ++i) {
        const RGBA8 a = line[col0[size_t(i)]], b = line[col1[size_t(i)]];
        const uint32_t w0 = cw0[size_t(i)], w1 = kOne - w0;
        auto mix = [&](uint32_t p, uint32_t q) { return uint8_t(std::min(255u, (w0 * p + w1 * q + 32768u) >> 16)); };
        span[size_t(i)] = {mix(a.r, b.r), mix(a.g, b.g), mix(a.b, b.b), mix(a.a, b.a)};
      }
    } else {
      const int32_t w = maxSrcX - minSrcX;
      vsum.assign(size_t(w) * 4, 0);
      std::vector<RGBA8>& line = rowBuffer;
      line.resize(size_t(w));
      for (size_t j = 0; j < rowTaps.w.size(); ++j) {
        loadRow(src.format, src.row(rowTaps.first + int32_t(j)) + minSrcX * bpp, w, line.data());
        const uint32_t wy = rowTaps.w[j];
        for (int32_t k = 0; k < w; ++k) {
          const RGBA8 q = line[size_t(k)];
          uint32_t* v = &vsum[size_t(k) * 4];
          v[0] += wy * q.r;
          v[1] += wy * q.g;
          v[2] += wy * q.b;
          v[3] += wy * q.a;
        }
      }
      const uint32_t* v0 = vsum.data() - size_t(minSrcX) * 4;
      bool rowTent = true;
      for (uint32_t wy : rowTaps.w) rowTent = rowTent && (wy & 255) == 0;
      if (colsTent && rowTent) {
        // Weights of whole 1/256ths on both axes: exact in 32 bits, as in `bilinear`.
        for (int32_t i = 0; i < n; ++i) {
          const uint32_t *a = v0 + size_t(col0[size_t(i)]) * 4, *b = v0 + size_t(col1[size_t(i)]) * 4;
          const uint32_t ax = cw0[size_t(i)] >> 8;
          uint8_t o[4];
          for (int ch = 0; ch < 4; ++ch) o[ch] = uint8_t(std::min(255u, (ax * (a[ch] >> 8) + (256 - ax) * (b[ch] >> 8) + 32768u) >> 16));
          span[size_t(i)] = {o[0], o[1], o[2], o[3]};
        }
        compositeSpan(gs.blendMode, c.pixels(), xa, y, n, span.data(), false, clipRow, alpha);
        continue;
      }
      for (int32_t i = 0; i < n; ++i) {
        uint64_t acc[4] = {0, 0, 0, 0};
        if (colsBilinear) {
          const uint32_t *a = v0 + size_t(col0[size_t(i)]) * 4, *b = v0 + size_t(col1[size_t(i)]) * 4;
          const uint64_t w0 = cw0[size_t(i)], w1 = kOne - w0;
          for (int ch = 0; ch < 4; ++ch) acc[ch] = w0 * a[ch] + w1 * b[ch];
        } else {
          const Taps& t = colTaps[size_t(i)];
          for (size_t k = 0; k < t.w.size(); ++k) {
            const uint32_t* v = v0 + size_t(t.first + int32_t(k)) * 4;
            for (int ch = 0; ch < 4; ++ch) acc[ch] += uint64_t(t.w[k]) * v[ch];
          }
        }
        span[size_t(i)] = {roundedByte(acc[0]), roundedByte(acc[1]), roundedByte(acc[2]), roundedByte(acc[3])};
      }
    }
    compositeSpan(gs.blendMode, c.pixels(), xa, y, n, span.data(), false, clipRow, alpha);
  }
}

bool overlaps(const PixelView& a, const PixelView& b) {
  const uint8_t* aEnd = a.data + a.stride * a.height;
  const uint8_t* bEnd = b.data + b.stride * b.height;
  return a.data < bEnd && b.data < aEnd;
}

}  // namespace

void drawPixels(CGContext& c, CGRect rect, const PixelView& srcIn) {
  ImageMapping m;
  if (!mapImage(c, rect, srcIn.width, srcIn.height, m)) return;
  PixelView src = srcIn;
  std::vector<uint8_t> copy;
  if (overlaps(src, c.pixels())) {  // drawing a context's pixels into itself: read from a copy
    const size_t rowBytes = size_t(src.width) * size_t(bytesPerPixel(src.format));
    copy.resize(rowBytes * size_t(src.height));
    for (int32_t y = 0; y < src.height; ++y) std::memcpy(copy.data() + rowBytes * size_t(y), src.row(y), rowBytes);
    src.data = copy.data();
    src.stride = ptrdiff_t(rowBytes);
  }
  if (fastPathsEnabled() && m.axisAligned) {
    drawAxisAligned(c, m, src);
  } else {
    drawGeneral(c, m, src);
  }
}

}  // namespace raster

void CGContextDrawImage(const CGContextRef& c, CGRect rect, const CGImageRef& image) {
  if (c && image) raster::drawPixels(*c, rect, image->pixels());
}

void CGContextDrawLayerInRect(const CGContextRef& c, CGRect rect, const CGLayerRef& layer) {
  if (c && layer) raster::drawPixels(*c, rect, layer->context()->pixels());
}

void CGContextDrawLayerAtPoint(const CGContextRef& c, CGPoint point, const CGLayerRef& layer) {
  if (!layer) return;
  const PixelView& px = layer->context()->pixels();
  CGContextDrawLayerInRect(c, CGRectMake(point.x, point.y, px.width, px.height), layer);
}

void CGContextClipToMask(const CGContextRef& c, CGRect rect, const CGImageRef& mask) {
  if (!c || !mask) return;
  CGContext& ctx = *c;
  const PixelView& dst = ctx.pixels();
  auto clip = std::make_shared<ClipMask>(dst.width, dst.height);
  clip->x0 = dst.width;
  clip->y0 = dst.height;
  raster::ImageMapping m;
  if (raster::mapImage(ctx, rect, mask->width(), mask->height(), m)) {
    const PixelView& src = mask->pixels();
    const ClipMask* old = ctx.state().clip.get();
    const int32_t n = m.box.x1 - m.box.x0;
    // Nearest sampling of the mask's grey level. An axis-aligned mask has one source column per x
    // and one source row per y: those are found once (the same arithmetic as per pixel).
    const bool axisAligned = fastPathsEnabled() && m.axisAligned;
    std::vector<int32_t> columns(static_cast<size_t>(n), -1);
    if (axisAligned) {
      for (int32_t x = m.box.x0; x < m.box.x1; ++x) {
        const CGPoint p = raster::sourcePoint(m.inverse, x, m.box.y0);
        if (raster::inside(p.x, src.width)) columns[size_t(x - m.box.x0)] = int32_t(p.x);
      }
    }
    std::vector<raster::RGBA8> row(static_cast<size_t>(src.width));
    for (int32_t y = m.box.y0; y < m.box.y1; ++y) {
      uint8_t* out = clip->row(y);
      if (axisAligned) {
        const CGPoint p = raster::sourcePoint(m.inverse, m.box.x0, y);
        if (!raster::inside(p.y, src.height)) continue;
        raster::loadRow(src.format, src.row(int32_t(p.y)), src.width, row.data());
      }
      for (int32_t x = m.box.x0; x < m.box.x1; ++x) {
        raster::RGBA8 q;
        if (axisAligned) {
          const int32_t sx = columns[size_t(x - m.box.x0)];
          if (sx < 0) continue;
          q = row[size_t(sx)];
        } else {
          const CGPoint p = raster::sourcePoint(m.inverse, x, y);
          if (!raster::inside(p.x, src.width) || !raster::inside(p.y, src.height)) continue;
          q = raster::loadPixel(src.format, src.at(int32_t(p.x), int32_t(p.y)));
        }
        uint32_t level = (q.r * 77u + q.g * 150u + q.b * 29u + 128u) >> 8;
        if (old) level = raster::div255(level * old->row(y)[x]);
        out[x] = uint8_t(level);
        if (level) {
          clip->x0 = std::min(clip->x0, x);
          clip->x1 = std::max(clip->x1, x + 1);
          clip->y0 = std::min(clip->y0, y);
          clip->y1 = std::max(clip->y1, y + 1);
        }
      }
    }
  }
  ctx.state().clip = std::move(clip);
}

}  // namespace zorvex
