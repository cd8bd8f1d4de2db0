// Hexagonal pixellate, crystallize and triangle kaleidoscope on the pixels of a CGImage.
#include "core/kernels/image_filters.h"

#include <array>
#include <cmath>
#include <cstring>
#include <new>

#include "core/imaging/blend.h"
#include "core/imaging/fatal.h"

namespace zorvex {

CIParameters::CIParameters(std::initializer_list<std::pair<std::string, CIValue>> entries) {
  for (const auto& [key, value] : entries) set(key, value);
}

void CIParameters::set(std::string_view key, CIValue value) {
  for (auto& entry : entries_)
    if (entry.first == key) {
      entry.second = value;
      return;
    }
  entries_.emplace_back(std::string(key), value);
}

const CIValue* CIParameters::find(std::string_view key) const {
  for (const auto& entry : entries_)
    if (entry.first == key) return &entry.second;
  return nullptr;
}

namespace CIFilters {
namespace {

using raster::RGBA8;

// The input's pixels, read in filter coordinates.
class Picture {
 public:
  explicit Picture(const CGImageRef& image) : pixels_(image->pixels()) {}
  int32_t width() const { return pixels_.width; }
  int32_t height() const { return pixels_.height; }
  // The pixel the point falls in, the point first moved onto the picture; y counts up from the bottom.
  RGBA8 at(double x, double y) const {
    const uint8_t* p = pixels_.at(clampIndex(std::floor(x), pixels_.width),
                                  clampIndex(std::floor(double(pixels_.height) - y), pixels_.height));
    if (pixels_.format == PixelFormat::RGBX) return {p[0], p[1], p[2], 255};  // a surface snapshot
    return raster::loadPixel(pixels_.format, p);
  }

 private:
  static int32_t clampIndex(double v, int32_t n) {
    if (!(v > 0)) return 0;
    return v >= double(n - 1) ? n - 1 : int32_t(v);
  }
  PixelView pixels_;
};

// A new premultiplied RGBA picture of the input's size, or nil when the size can't be had. It is
// filled in tiles of `tile` by `tile` pixels (whole rows when `tile` is 0), top row first within a
// tile: `shade(y, first, end, out)` fills columns first to end - 1 of the row `out` whose pixel
// centres lie at height y in filter coordinates.
template <class Shade>
CGImageRef render(const CGImageRef& input, int32_t tile, Shade&& shade) {
  if (!input) return nullptr;
  const int32_t w = input->width(), h = input->height();
  const int64_t bytes = int64_t(w) * int64_t(h) * 4;
  if (w <= 0 || h <= 0 || bytes > kMaxContextBytes) return nullptr;
  std::shared_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[size_t(bytes)]);
  if (!buffer) return nullptr;
  const PixelView view{buffer.get(), w, h, ptrdiff_t(w) * 4, PixelFormat::RGBA};
  const int32_t across = tile > 0 ? tile : w, down = tile > 0 ? tile : h;
  for (int32_t top = 0; top < h; top += down)
    for (int32_t left = 0; left < w; left += across)
      for (int32_t row = top; row < std::min(h, top + down); ++row)
        shade(double(h) - row - 0.5, left, std::min(w, left + across), reinterpret_cast<RGBA8*>(view.row(row)));
  return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(buffer)), view);
}

void requireFinite(std::initializer_list<double> values) {
  for (double v : values)
    if (!std::isfinite(v)) fatal();
}

double atLeastOnePixel(double spacing) { return spacing >= 1.0 ? spacing : 1.0; }

int64_t floorIndex(double v) { return truncInt(std::floor(v)); }

// SplitMix64's finaliser, for the seed jitter.
uint64_t mix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

double number(const CIParameters& p, std::string_view key) {
  const CIValue* v = p.find(key);
  if (!v || !std::holds_alternative<double>(*v)) fatal();
  return std::get<double>(*v);
}

CIVector vector(const CIParameters& p, std::string_view key) {
  const CIValue* v = p.find(key);
  if (!v || !std::holds_alternative<CIVector>(*v)) fatal();
  return std::get<CIVector>(*v);
}

const std::array<Filter, 3> kFilters = {{
    {"CIHexagonalPixellate",
     [] { return CIParameters{{"inputScale", 8.0}, {"inputCenter", CIVector{150, 150}}}; },
     [](const CGImageRef& in, const CIParameters& p) {
       return hexagonalPixellate(in, number(p, "inputScale"), vector(p, "inputCenter"));
     }},
    {"CICrystallize",
     [] { return CIParameters{{"inputRadius", 20.0}, {"inputCenter", CIVector{150, 150}}}; },
     [](const CGImageRef& in, const CIParameters& p) {
       return crystallize(in, number(p, "inputRadius"), vector(p, "inputCenter"));
     }},
    {"CITriangleKaleidoscope",
     [] {
       return CIParameters{{"inputPoint", CIVector{150, 150}},
                           {"inputSize", 700.0},
                           {"inputRotation", 5.924},
                           {"inputDecay", 0.85}};
     },
     [](const CGImageRef& in, const CIParameters& p) {
       return triangleKaleidoscope(in, vector(p, "inputPoint"), number(p, "inputSize"), number(p, "inputRotation"),
                                   number(p, "inputDecay"));
     }},
}};

}  // namespace

const Filter* filterWithName(std::string_view name) {
  for (const Filter& f : kFilters)
    if (f.name == name) return &f;
  return nullptr;
}

CGImageRef hexagonalPixellate(const CGImageRef& input, double scale, CIVector center) {
  requireFinite({scale, center.x, center.y});
  if (!input) return nullptr;
  const Picture picture(input);
  scale = atLeastOnePixel(scale);
  // Lattice rows lie rowStep apart, every odd row shifted by half a cell. The hexagon of a lattice
  // point reaches less than one row step up and down, so a point between rows k and k + 1 is nearest
  // to a lattice point of one of those two rows.
  const double rowStep = scale * std::sqrt(3.0) / 2.0;
  return render(input, 0, [&](double y, int32_t first, int32_t end, RGBA8* out) {
    const int64_t k = floorIndex((y - center.y) / rowStep);
    double rowY[2], shift[2];
    for (int r = 0; r < 2; ++r) {
      rowY[r] = center.y + double(k + r) * rowStep;
      shift[r] = (k + r) % 2 != 0 ? scale * 0.5 : 0.0;
    }
    double lastX = NAN, lastY = NAN;
    RGBA8 colour{};
    for (int32_t column = first; column < end; ++column) {
      const double x = column + 0.5;
      double bestX = 0, bestY = 0, best = INFINITY;
      for (int r = 0; r < 2; ++r) {
        const double cx = center.x + shift[r] + std::round((x - center.x - shift[r]) / scale) * scale;
        const double d = (x - cx) * (x - cx) + (y - rowY[r]) * (y - rowY[r]);
        if (d < best) best = d, bestX = cx, bestY = rowY[r];
      }
      if (bestX != lastX || bestY != lastY) colour = picture.at(bestX, bestY), lastX = bestX, lastY = bestY;
      out[column] = colour;
    }
  });
}

CIVector crystalSeed(int64_t i, int64_t j, double radius, CIVector center) {
  const uint64_t h = mix(uint64_t(i) * 0x9e3779b97f4a7c15ULL ^ mix(uint64_t(j) + 0x632be59bd9b4e019ULL));
  const double u = double(h >> 40) / double(1 << 24), v = double(h & 0xffffff) / double(1 << 24);
  return {center.x + (double(i) + u) * radius, center.y + (double(j) + v) * radius};
}

CGImageRef crystallize(const CGImageRef& input, double radius, CIVector center) {
  requireFinite({radius, center.x, center.y});
  if (!input) return nullptr;
  const Picture picture(input);
  radius = atLeastOnePixel(radius);
  // A point's own seed is less than two radii away, and every seed outside the 5 x 5 block of grid
  // squares around the point's square is farther: the nearest seed is in that block. Seeds and their
  // colours are kept for grid rows j - 2 to j + 2 and every grid column the picture meets, with two
  // to spare on each side, and rebuilt when a pixel row enters a new grid row.
  const int64_t firstColumn = floorIndex((0.5 - center.x) / radius) - 2;
  const int64_t lastColumn = floorIndex((picture.width() - 0.5 - center.x) / radius) + 2;
  const size_t columns = size_t(lastColumn - firstColumn + 1);
  struct Seed {
    double x, y;
    RGBA8 colour;
  };
  std::vector<Seed> band(columns * 5);
  int64_t bandRow = 0;
  bool haveBand = false;
  std::vector<const Seed*> candidates;

  return render(input, 0, [&](double y, int32_t first, int32_t end, RGBA8* out) {
    const int64_t j = floorIndex((y - center.y) / radius);
    if (!haveBand || j != bandRow) {
      for (int64_t dj = -2; dj <= 2; ++dj)
        for (size_t c = 0; c < columns; ++c) {
          const CIVector s = crystalSeed(firstColumn + int64_t(c), j + dj, radius, center);
          band[size_t(dj + 2) * columns + c] = {s.x, s.y, picture.at(s.x, s.y)};
        }
      bandRow = j;
      haveBand = true;
    }
    // Along the row, one grid square at a time: of the 25 seeds of the block keep those that can be
    // nearest somewhere on the square's stretch of pixel centres [xa, xb], that is, whose least
    // distance to it is no more than the smallest greatest distance of any of them.
    for (int32_t column = first; column < end;) {
      const int64_t square = floorIndex((column + 0.5 - center.x) / radius);
      int32_t stop = column + 1;
      while (stop < end && floorIndex((stop + 0.5 - center.x) / radius) == square) ++stop;
      const double xa = column + 0.5, xb = stop - 0.5;
      const size_t c = size_t(square - firstColumn);
      double bound = INFINITY;
      for (int dj = 0; dj < 5; ++dj)
        for (size_t dc = c - 2; dc <= c + 2; ++dc) {
          const Seed& s = band[size_t(dj) * columns + dc];
          const double far = std::max(std::fabs(xa - s.x), std::fabs(xb - s.x));
          bound = std::min(bound, far * far + (y - s.y) * (y - s.y));
        }
      candidates.clear();
      for (int dj = 0; dj < 5; ++dj)
        for (size_t dc = c - 2; dc <= c + 2; ++dc) {
          const Seed& s = band[size_t(dj) * columns + dc];
          const double near = s.x < xa ? xa - s.x : s.x > xb ? s.x - xb : 0.0;
          if (near * near + (y - s.y) * (y - s.y) <= bound) candidates.push_back(&s);
        }
      for (; column < stop; ++column) {
        const double x = column + 0.5;
        const Seed* nearest = candidates[0];
        double best = INFINITY;
        for (const Seed* s : candidates) {
          const double d = (x - s->x) * (x - s->x) + (y - s->y) * (y - s->y);
          if (d < best) best = d, nearest = s;
        }
        out[column] = nearest->colour;
      }
    }
  });
}

CGImageRef triangleKaleidoscope(const CGImageRef& input, CIVector point, double size, double rotation, double decay) {
  requireFinite({point.x, point.y, size, rotation, decay});
  if (!input) return nullptr;
  const Picture picture(input);
  if (!(size > 0.0)) {
    return render(input, 0, [](double, int32_t first, int32_t end, RGBA8* out) {
      std::memset(out + first, 0, size_t(end - first) * sizeof(RGBA8));
    });
  }
  decay = std::max(decay, 0.0);
  // Edge directions from the vertex at `point`: e1 along the turned x axis, e2 sixty degrees on. A
  // point is point + size * (a e1 + b e2); the triangle is a, b >= 0 with a + b <= 1, and its mirror
  // images are cut by the lines a = n, b = n and a + b = n.
  const double pi = 3.141592653589793;
  const CIVector e1{std::cos(rotation), std::sin(rotation)};
  const CIVector e2{std::cos(rotation + pi / 3), std::sin(rotation + pi / 3)};
  const double inverse = 1.0 / ((e1.x * e2.y - e1.y * e2.x) * size);
  std::array<double, 64> fade;
  for (size_t g = 0; g < fade.size(); ++g) fade[g] = std::pow(decay, double(g));

  // In tiles, so that the mirrored reads of neighbouring pixels stay near each other in memory.
  return render(input, 64, [&](double y, int32_t first, int32_t end, RGBA8* out) {
    const double dy = y - point.y;
    for (int32_t column = first; column < end; ++column) {
      const double dx = column + 0.5 - point.x;
      double a = (dx * e2.y - dy * e2.x) * inverse;
      double b = (e1.x * dy - e1.y * dx) * inverse;
      // The generation is the number of mirror lines between the point and the triangle.
      const double fa = std::floor(a), fb = std::floor(b), fab = std::floor(a + b);
      const double generation = std::fabs(fa) + std::fabs(fb) + std::fabs(fab);
      // Two reflections in parallel lines are a translation; take out those by (1, 1) and (-1, 2)
      // in (a, b), which leaves the point a few triangles from home.
      const double s = std::floor((2 * a + b) * (1.0 / 3)), t = std::floor((b - a) * (1.0 / 3));
      a -= s - t;
      b -= s + 2 * t;
      // Then reflect it across whichever edge it lies beyond, until it is inside. In barycentric
      // terms (l0, l1, l2) = (1 - a - b, a, b) the reflection across edge k negates lk and adds it to
      // the other two.
      double l0 = 1 - a - b, l1 = a, l2 = b;
      for (int step = 0; step < 12; ++step) {
        if (l0 < 0) {
          l1 += l0, l2 += l0, l0 = -l0;
        } else if (l1 < 0) {
          l0 += l1, l2 += l1, l1 = -l1;
        } else if (l2 < 0) {
          l0 += l2, l1 += l2, l2 = -l2;
        } else {
          break;
        }
      }
      const RGBA8 c = picture.at(point.x + size * (l1 * e1.x + l2 * e2.x), point.y + size * (l1 * e1.y + l2 * e2.y));
      if (generation == 0) {
        out[column] = c;
        continue;
      }
      const double f = generation < double(fade.size()) ? fade[size_t(generation)] : std::pow(decay, generation);
      auto scaled = [f](uint8_t v) { return uint8_t(std::min(255.0, double(v) * f + 0.5)); };
      out[column] = {scaled(c.r), scaled(c.g), scaled(c.b), scaled(c.a)};
    }
  });
}

}  // namespace CIFilters
}  // namespace zorvex
