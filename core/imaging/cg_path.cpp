// Filled and stroked shapes: rectangles, ellipses and paths, anti-aliased.
//
// Coverage of a pixel: 16 sub-scanlines at heights (k + 0.5) / 16 within the pixel; on each, the
// spans inside the shape (non-zero or even-odd winding) add their exact horizontal overlap with the
// pixel, in 1/256 of a pixel; the sum over the 16 lines, out of 4096, is the coverage. An axis-aligned
// rectangle takes a fast path that computes the same numbers without scanning edges.
#include <algorithm>
#include <numbers>

#include "core/imaging/raster_internal.h"

namespace zorvex {
namespace raster {
namespace {

constexpr int kSub = 16;

inline uint32_t quarterByte(double fraction) { return uint32_t(fraction * 256.0 + 0.5); }
inline uint8_t coverageOf(uint32_t acc) { return uint8_t(std::min<uint32_t>(255, (acc * 255 + 2048) / 4096)); }

// Adds the span [xa, xb) of one sub-scanline to `acc`, which covers pixels [x0, x1).
void addSpan(std::vector<uint32_t>& acc, int32_t x0, int32_t x1, double xa, double xb) {
  xa = std::max(xa, double(x0));
  xb = std::min(xb, double(x1));
  if (!(xa < xb)) return;
  const int32_t i0 = int32_t(std::floor(xa)), i1 = int32_t(std::floor(xb));
  if (i0 == i1) {
    acc[size_t(i0 - x0)] += quarterByte(xb - xa);
    return;
  }
  acc[size_t(i0 - x0)] += quarterByte(i0 + 1 - xa);
  for (int32_t i = i0 + 1; i < i1; ++i) acc[size_t(i - x0)] += 256;
  if (i1 < x1) acc[size_t(i1 - x0)] += quarterByte(xb - i1);
}

struct Edge {
  double x0, y0, x1, y1;
  int dir;
};

// Calls emit(y, x0, n, coverage) for each row of the shape inside `box`.
template <class Emit>
void rasterize(const std::vector<Polygon>& polys, FillRule rule, PixelBox box, Emit&& emit) {
  std::vector<Edge> edges;
  double minX = 1e300, maxX = -1e300, minY = 1e300, maxY = -1e300;
  for (const Polygon& poly : polys) {
    const size_t n = poly.points.size();
    for (size_t i = 0; i < n; ++i) {
      const CGPoint a = poly.points[i], b = poly.points[(i + 1) % n];
      if (!std::isfinite(a.x) || !std::isfinite(a.y) || !std::isfinite(b.x) || !std::isfinite(b.y)) return;
      minX = std::min({minX, a.x, b.x});
      maxX = std::max({maxX, a.x, b.x});
      if (a.y == b.y) continue;
      edges.push_back(a.y < b.y ? Edge{a.x, a.y, b.x, b.y, 1} : Edge{b.x, b.y, a.x, a.y, -1});
      minY = std::min(minY, std::min(a.y, b.y));
      maxY = std::max(maxY, std::max(a.y, b.y));
    }
  }
  if (edges.empty()) return;
  box.x0 = std::max(box.x0, int32_t(std::clamp(std::floor(minX), -1.0, double(box.x1))));
  box.x1 = std::min(box.x1, int32_t(std::clamp(std::ceil(maxX), -1.0, double(box.x1))));
  box.y0 = std::max(box.y0, int32_t(std::clamp(std::floor(minY), -1.0, double(box.y1))));
  box.y1 = std::min(box.y1, int32_t(std::clamp(std::ceil(maxY), -1.0, double(box.y1))));
  if (box.empty()) return;
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.y0 < b.y0; });

  const int32_t width = box.x1 - box.x0;
  std::vector<uint32_t> acc(static_cast<size_t>(width));
  std::vector<uint8_t> cov(static_cast<size_t>(width));
  std::vector<std::pair<double, int>> crossings;
  std::vector<const Edge*> active;
  size_t next = 0;
  for (int32_t y = box.y0; y < box.y1; ++y) {
    // Edges that reach into this row.
    while (next < edges.size() && edges[next].y0 < y + 1) active.push_back(&edges[next++]);
    std::erase_if(active, [&](const Edge* e) { return e->y1 <= y; });
    if (active.empty()) continue;
    std::fill(acc.begin(), acc.end(), 0);
    bool any = false;
    for (int k = 0; k < kSub; ++k) {
      const double yc = y + (k + 0.5) / kSub;
      crossings.clear();
      for (const Edge* e : active) {
        if (e->y0 <= yc && e->y1 > yc) {
          crossings.emplace_back(e->x0 + (yc - e->y0) * (e->x1 - e->x0) / (e->y1 - e->y0), e->dir);
        }
      }
      if (crossings.empty()) continue;
      std::sort(crossings.begin(), crossings.end());
      int winding = 0;
      double start = 0;
      for (const auto& [x, dir] : crossings) {
        const bool was = rule == FillRule::NonZero ? winding != 0 : (winding & 1) != 0;
        winding += dir;
        const bool is = rule == FillRule::NonZero ? winding != 0 : (winding & 1) != 0;
        if (!was && is) start = x;
        if (was && !is) {
          addSpan(acc, box.x0, box.x1, start, x);
          any = true;
        }
      }
    }
    if (!any) continue;
    int32_t first = width, last = -1;
    for (int32_t i = 0; i < width; ++i) {
      cov[size_t(i)] = coverageOf(acc[size_t(i)]);
      if (cov[size_t(i)]) {
        first = std::min(first, i);
        last = i;
      }
    }
    if (last >= first) emit(y, box.x0 + first, last - first + 1, cov.data() + first);
  }
}

// Combines coverage with the clip and composites (or clears) one run.
struct Painter {
  CGContext& c;
  RGBA8 color;
  bool clear;
  std::vector<uint8_t> buf;

  void operator()(int32_t y, int32_t x, int32_t n, const uint8_t* cov) {
    const GraphicsState& gs = c.state();
    if (gs.clip) {
      buf.assign(cov, cov + n);
      const uint8_t* clipRow = gs.clip->row(y) + x;
      for (int32_t i = 0; i < n; ++i) buf[size_t(i)] = uint8_t(div255(buf[size_t(i)] * uint32_t{clipRow[i]}));
      cov = buf.data();
    }
    if (clear) {
      clearSpan(c.pixels(), x, y, n, cov);
    } else {
      compositeSpan(gs.blendMode, c.pixels(), x, y, n, &color, true, cov,
                    uint8_t(std::clamp(gs.alpha, 0.0, 1.0) * 255.0 + 0.5));
    }
  }
};

// An axis-aligned rectangle [bx0, bx1) x [by0, by1) in buffer coordinates, with the coverage the
// rasterizer would give, row by row.
void fillBufferRect(CGContext& c, double bx0, double by0, double bx1, double by1, RGBA8 color, bool clear) {
  PixelBox box = drawableBox(c, bx0, by0, bx1, by1);
  if (box.empty()) return;
  const int32_t n = box.x1 - box.x0;
  std::vector<uint32_t> qx(static_cast<size_t>(n), 0);
  addSpan(qx, box.x0, box.x1, bx0, bx1);
  // Coverage of a row all of whose sub-scanlines fall inside, worked out once.
  std::vector<uint8_t> fullRow(static_cast<size_t>(n)), cov(static_cast<size_t>(n));
  int32_t first = n, last = -1;
  for (int32_t i = 0; i < n; ++i) {
    fullRow[size_t(i)] = coverageOf(uint32_t(kSub) * qx[size_t(i)]);
    if (fullRow[size_t(i)]) {
      first = std::min(first, i);
      last = i;
    }
  }
  if (last < first) return;
  // The run of columns wholly covered.
  int32_t solidFrom = first, solidTo = last + 1;
  while (solidFrom < solidTo && fullRow[size_t(solidFrom)] != 255) ++solidFrom;
  while (solidTo > solidFrom && fullRow[size_t(solidTo - 1)] != 255) --solidTo;

  Painter paint{c, color, clear, {}};
  const GraphicsState& gs = c.state();
  const bool solidCopy = !clear && !gs.clip && gs.blendMode == kCGBlendModeNormal && gs.alpha >= 1.0 &&
                         color.a == 255 && c.pixels().format == PixelFormat::RGBX;
  const uint32_t word = uint32_t(color.r) | uint32_t(color.g) << 8 | uint32_t(color.b) << 16 | 0xFF000000u;
  for (int32_t y = box.y0; y < box.y1; ++y) {
    int sub = 0;
    for (int k = 0; k < kSub; ++k) {
      const double yc = y + (k + 0.5) / kSub;
      sub += by0 <= yc && by1 > yc;
    }
    if (!sub) continue;
    if (sub == kSub && solidCopy) {
      // Opaque colour under the normal mode: full coverage is a plain store; the edges blend.
      if (first < solidFrom) paint(y, box.x0 + first, solidFrom - first, fullRow.data() + first);
      uint32_t* d = reinterpret_cast<uint32_t*>(c.pixels().at(box.x0, y));
      std::fill(d + solidFrom, d + solidTo, word);
      if (solidTo <= last) paint(y, box.x0 + solidTo, last + 1 - solidTo, fullRow.data() + solidTo);
      continue;
    }
    const uint8_t* rowCov = fullRow.data();
    if (sub != kSub) {
      for (int32_t i = first; i <= last; ++i) cov[size_t(i)] = coverageOf(uint32_t(sub) * qx[size_t(i)]);
      rowCov = cov.data();
    }
    paint(y, box.x0 + first, last - first + 1, rowCov + first);
  }
}

std::vector<Polygon> rectPolygon(const CGAffineTransform& t, CGRect r) {
  Polygon p;
  p.points = {CGPointApplyAffineTransform(r.origin, t),
              CGPointApplyAffineTransform({r.origin.x + r.size.width, r.origin.y}, t),
              CGPointApplyAffineTransform({r.origin.x + r.size.width, r.origin.y + r.size.height}, t),
              CGPointApplyAffineTransform({r.origin.x, r.origin.y + r.size.height}, t)};
  return {p};
}

// Fills or clears a user-space rectangle under the context's transform.
void paintRect(CGContext& c, CGRect r, RGBA8 color, bool clear) {
  if (!std::isfinite(r.origin.x) || !std::isfinite(r.origin.y) || !std::isfinite(r.size.width) ||
      !std::isfinite(r.size.height))
    return;
  r = CGRectStandardize(r);
  const CGAffineTransform t = userToBuffer(c);
  if (fastPathsEnabled() && t.b == 0 && t.c == 0) {
    const CGPoint a = CGPointApplyAffineTransform(r.origin, t);
    const CGPoint b = CGPointApplyAffineTransform({r.origin.x + r.size.width, r.origin.y + r.size.height}, t);
    fillBufferRect(c, std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x), std::max(a.y, b.y), color, clear);
    return;
  }
  fillPolygons(c, rectPolygon(t, r), FillRule::NonZero, color, clear);
}

double signedArea(const std::vector<CGPoint>& p) {
  double a = 0;
  for (size_t i = 0; i < p.size(); ++i) {
    const CGPoint &u = p[i], &v = p[(i + 1) % p.size()];
    a += u.x * v.y - v.x * u.y;
  }
  return a * 0.5;
}

// The outline of a stroke: a quadrilateral per segment and a miter (or, past the limit, bevel)
// wedge at each join, all wound the same way so that their non-zero union is the stroke.
std::vector<Polygon> strokePolygons(const PathData& path, double width) {
  std::vector<Polygon> out;
  const double hw = width * 0.5;
  constexpr double kMiterLimit = 10.0;
  auto add = [&](std::vector<CGPoint> pts) {
    if (signedArea(pts) < 0) std::reverse(pts.begin(), pts.end());
    out.push_back({std::move(pts)});
  };
  for (size_t s = 0; s < path.subpaths.size(); ++s) {
    std::vector<CGPoint> pts;
    for (const CGPoint& p : path.subpaths[s])
      if (pts.empty() || p != pts.back()) pts.push_back(p);
    const bool closed = path.closed[s] && pts.size() > 2;
    if (closed && pts.front() == pts.back()) pts.pop_back();
    if (pts.size() < 2) continue;
    const size_t nseg = closed ? pts.size() : pts.size() - 1;
    std::vector<CGPoint> normals(nseg);
    for (size_t i = 0; i < nseg; ++i) {
      const CGPoint a = pts[i], b = pts[(i + 1) % pts.size()];
      const double dx = b.x - a.x, dy = b.y - a.y, len = std::hypot(dx, dy);
      normals[i] = {-dy / len * hw, dx / len * hw};
      const CGPoint n = normals[i];
      add({{a.x + n.x, a.y + n.y}, {b.x + n.x, b.y + n.y}, {b.x - n.x, b.y - n.y}, {a.x - n.x, a.y - n.y}});
    }
    for (size_t i = closed ? 0 : 1; i < nseg; ++i) {
      const size_t prev = (i + nseg - 1) % nseg;
      const CGPoint b = pts[i], n1 = normals[prev], n2 = normals[i];
      const double cross = n1.x * n2.y - n1.y * n2.x;
      if (cross == 0) continue;
      const double sign = cross > 0 ? -1.0 : 1.0;  // the outer side of the turn
      const CGPoint o1{b.x + sign * n1.x, b.y + sign * n1.y}, o2{b.x + sign * n2.x, b.y + sign * n2.y};
      const CGPoint bis{n1.x + n2.x, n1.y + n2.y};
      const double cosHalf = std::hypot(bis.x, bis.y) / (2 * hw);
      if (cosHalf > 0 && 1.0 / cosHalf <= kMiterLimit) {
        const double len = hw / cosHalf / std::hypot(bis.x, bis.y);
        const CGPoint tip{b.x + sign * bis.x * len, b.y + sign * bis.y * len};
        add({b, o1, tip, o2});
      } else {
        add({b, o1, o2});
      }
    }
  }
  return out;
}

std::vector<Polygon> fillOutlines(const PathData& path) {
  std::vector<Polygon> out;
  for (const auto& sp : path.subpaths)
    if (sp.size() > 2) out.push_back({sp});
  return out;
}

void addPoint(CGContext& c, CGFloat x, CGFloat y, bool start) {
  PathData& path = c.path();
  const CGPoint p = CGPointApplyAffineTransform({x, y}, userToBuffer(c));
  if (start || !path.hasCurrentPoint) {
    path.subpaths.push_back({p});
    path.closed.push_back(false);
    path.hasCurrentPoint = true;
  } else {
    path.subpaths.back().push_back(p);
  }
}

void ellipsePoints(CGContext& c, CGRect r) {
  r = CGRectStandardize(r);
  const double rx = r.size.width / 2, ry = r.size.height / 2;
  const double cx = r.origin.x + rx, cy = r.origin.y + ry;
  const CGAffineTransform t = userToBuffer(c);
  const double scale = std::sqrt(std::abs(t.a * t.d - t.b * t.c));
  const double perimeter = std::numbers::pi * (rx + ry) * scale;
  const int n = int(std::clamp(std::ceil(perimeter / 2.0), 16.0, 4096.0));
  for (int i = 0; i < n; ++i) {
    const double a = 2 * std::numbers::pi * i / n;
    addPoint(c, cx + rx * std::cos(a), cy + ry * std::sin(a), i == 0);
  }
  c.path().closed.back() = true;
  c.path().hasCurrentPoint = false;
}

}  // namespace

void fillPolygons(CGContext& c, const std::vector<Polygon>& polys, FillRule rule, RGBA8 color, bool clear) {
  const PixelBox box = drawableBox(c, -1e300, -1e300, 1e300, 1e300);
  if (box.empty()) return;
  rasterize(polys, rule, box, Painter{c, color, clear, {}});
}

}  // namespace raster

using namespace raster;

void CGContextClearRect(const CGContextRef& c, CGRect rect) {
  if (c) paintRect(*c, rect, {0, 0, 0, 0}, true);
}
void CGContextFillRect(const CGContextRef& c, CGRect rect) {
  if (c) paintRect(*c, rect, premultipliedColor(c->state().fill), false);
}
void CGContextStrokeRect(const CGContextRef& c, CGRect rect) {
  if (!c) return;
  CGContextBeginPath(c);
  CGContextAddRect(c, rect);
  CGContextStrokePath(c);
}
void CGContextFillEllipseInRect(const CGContextRef& c, CGRect rect) {
  if (!c) return;
  CGContextBeginPath(c);
  CGContextAddEllipseInRect(c, rect);
  CGContextFillPath(c);
}

void CGContextBeginPath(const CGContextRef& c) {
  if (c) c->path() = PathData{};
}
void CGContextMoveToPoint(const CGContextRef& c, CGFloat x, CGFloat y) {
  if (c) addPoint(*c, x, y, true);
}
void CGContextAddLineToPoint(const CGContextRef& c, CGFloat x, CGFloat y) {
  if (c && c->path().hasCurrentPoint) addPoint(*c, x, y, false);
}
void CGContextClosePath(const CGContextRef& c) {
  if (!c || c->path().subpaths.empty() || !c->path().hasCurrentPoint) return;
  c->path().closed.back() = true;
  // A new segment starts where the closed one began.
  const CGPoint start = c->path().subpaths.back().front();
  c->path().subpaths.push_back({start});
  c->path().closed.push_back(false);
}
void CGContextAddRect(const CGContextRef& c, CGRect r) {
  if (!c) return;
  CGContextMoveToPoint(c, r.origin.x, r.origin.y);
  CGContextAddLineToPoint(c, r.origin.x + r.size.width, r.origin.y);
  CGContextAddLineToPoint(c, r.origin.x + r.size.width, r.origin.y + r.size.height);
  CGContextAddLineToPoint(c, r.origin.x, r.origin.y + r.size.height);
  CGContextClosePath(c);
}
void CGContextAddEllipseInRect(const CGContextRef& c, CGRect rect) {
  if (c) ellipsePoints(*c, rect);
}

void CGContextDrawPath(const CGContextRef& c, CGPathDrawingMode mode) {
  if (!c) return;
  CGContext& ctx = *c;
  const PathData path = std::move(ctx.path());
  ctx.path() = PathData{};
  if (mode == kCGPathFill || mode == kCGPathEOFill || mode == kCGPathFillStroke || mode == kCGPathEOFillStroke) {
    const FillRule rule = (mode == kCGPathEOFill || mode == kCGPathEOFillStroke) ? FillRule::EvenOdd : FillRule::NonZero;
    fillPolygons(ctx, fillOutlines(path), rule, premultipliedColor(ctx.state().fill), false);
  }
  if (mode == kCGPathStroke || mode == kCGPathFillStroke || mode == kCGPathEOFillStroke) {
    const CGAffineTransform t = userToBuffer(ctx);
    const double width = ctx.state().lineWidth * std::sqrt(std::abs(t.a * t.d - t.b * t.c));
    if (width > 0) {
      fillPolygons(ctx, strokePolygons(path, width), FillRule::NonZero, premultipliedColor(ctx.state().stroke), false);
    }
  }
}
void CGContextFillPath(const CGContextRef& c) { CGContextDrawPath(c, kCGPathFill); }
void CGContextEOFillPath(const CGContextRef& c) { CGContextDrawPath(c, kCGPathEOFill); }
void CGContextStrokePath(const CGContextRef& c) { CGContextDrawPath(c, kCGPathStroke); }

}  // namespace zorvex
