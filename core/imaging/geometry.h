// Points, sizes, rectangles and affine transforms, with the platform's names and conventions.
#pragma once

#include <algorithm>
#include <cmath>

namespace zorvex {

using CGFloat = double;

struct CGPoint {
  CGFloat x = 0, y = 0;
  bool operator==(const CGPoint&) const = default;
};
struct CGSize {
  CGFloat width = 0, height = 0;
  bool operator==(const CGSize&) const = default;
};
struct CGRect {
  CGPoint origin;
  CGSize size;
  bool operator==(const CGRect&) const = default;
};

inline constexpr CGPoint CGPointZero{0, 0};

inline CGPoint CGPointMake(CGFloat x, CGFloat y) { return {x, y}; }
inline CGSize CGSizeMake(CGFloat w, CGFloat h) { return {w, h}; }
inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat w, CGFloat h) { return {{x, y}, {w, h}}; }

// The rectangle with non-negative width and height covering the same area.
inline CGRect CGRectStandardize(CGRect r) {
  if (r.size.width < 0) { r.origin.x += r.size.width; r.size.width = -r.size.width; }
  if (r.size.height < 0) { r.origin.y += r.size.height; r.size.height = -r.size.height; }
  return r;
}
inline bool CGRectIsEmpty(CGRect r) {
  return !(r.size.width != 0 && r.size.height != 0) || std::isnan(r.size.width) || std::isnan(r.size.height);
}

// x' = a x + c y + tx, y' = b x + d y + ty, as the platform defines it. Transforms are passed by
// value: `ctm = CGAffineTransformConcat(t, ctm)` must not read an argument through a reference to
// the result it is writing (clang 14 for WebAssembly writes the result in place).
struct CGAffineTransform {
  CGFloat a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  bool operator==(const CGAffineTransform&) const = default;
};

inline constexpr CGAffineTransform CGAffineTransformIdentity{};

inline CGAffineTransform CGAffineTransformMake(CGFloat a, CGFloat b, CGFloat c, CGFloat d, CGFloat tx, CGFloat ty) {
  return {a, b, c, d, tx, ty};
}
inline CGAffineTransform CGAffineTransformMakeTranslation(CGFloat tx, CGFloat ty) { return {1, 0, 0, 1, tx, ty}; }
inline CGAffineTransform CGAffineTransformMakeScale(CGFloat sx, CGFloat sy) { return {sx, 0, 0, sy, 0, 0}; }
inline CGAffineTransform CGAffineTransformMakeRotation(CGFloat angle) {
  const CGFloat s = std::sin(angle), c = std::cos(angle);
  return {c, s, -s, c, 0, 0};
}
// t1 applied first, then t2.
inline CGAffineTransform CGAffineTransformConcat(CGAffineTransform t1, CGAffineTransform t2) {
  return {t1.a * t2.a + t1.b * t2.c,   t1.a * t2.b + t1.b * t2.d,
          t1.c * t2.a + t1.d * t2.c,   t1.c * t2.b + t1.d * t2.d,
          t1.tx * t2.a + t1.ty * t2.c + t2.tx, t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}
inline CGAffineTransform CGAffineTransformTranslate(CGAffineTransform t, CGFloat tx, CGFloat ty) {
  return CGAffineTransformConcat(CGAffineTransformMakeTranslation(tx, ty), t);
}
inline CGAffineTransform CGAffineTransformScale(CGAffineTransform t, CGFloat sx, CGFloat sy) {
  return CGAffineTransformConcat(CGAffineTransformMakeScale(sx, sy), t);
}
inline CGAffineTransform CGAffineTransformRotate(CGAffineTransform t, CGFloat angle) {
  return CGAffineTransformConcat(CGAffineTransformMakeRotation(angle), t);
}
// The inverse, or the transform itself when it has none (as the platform does).
inline CGAffineTransform CGAffineTransformInvert(CGAffineTransform t) {
  const CGFloat det = t.a * t.d - t.b * t.c;
  if (det == 0 || !std::isfinite(det)) return t;
  const CGFloat ia = t.d / det, ib = -t.b / det, ic = -t.c / det, id = t.a / det;
  return {ia, ib, ic, id, -(t.tx * ia + t.ty * ic), -(t.tx * ib + t.ty * id)};
}
inline CGPoint CGPointApplyAffineTransform(CGPoint p, CGAffineTransform t) {
  return {t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}
// The bounding box of the transformed rectangle.
inline CGRect CGRectApplyAffineTransform(CGRect r, CGAffineTransform t) {
  r = CGRectStandardize(r);
  const CGPoint p[4] = {
      CGPointApplyAffineTransform(r.origin, t),
      CGPointApplyAffineTransform({r.origin.x + r.size.width, r.origin.y}, t),
      CGPointApplyAffineTransform({r.origin.x, r.origin.y + r.size.height}, t),
      CGPointApplyAffineTransform({r.origin.x + r.size.width, r.origin.y + r.size.height}, t)};
  CGFloat x0 = p[0].x, x1 = p[0].x, y0 = p[0].y, y1 = p[0].y;
  for (const auto& q : p) {
    x0 = std::min(x0, q.x); x1 = std::max(x1, q.x);
    y0 = std::min(y0, q.y); y1 = std::max(y1, q.y);
  }
  return {{x0, y0}, {x1 - x0, y1 - y0}};
}

}  // namespace zorvex
