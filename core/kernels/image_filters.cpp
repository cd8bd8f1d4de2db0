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
    const int32_t column = clampIndex(std::floor(x), pixels_.width);
    const int32_t row = clampIndex(std::floor(double(pixels_.height) - y), pixels_.height);
    return raster::loadPixel(pixels_.format, pixels_.at(column, row));
  }

 private:
  static int32_t clampIndex(double v, int32_t n) {
    if (!(v > 0)) return 0;
    return v >= double(n - 1) ? n - 1 : int32_t(v);
  }
  PixelView pixels_;
};

// A new premultiplied RGBA picture of the input's size, filled row by row by `shade(x, y, row)` where
// (x, y) is the centre of the pixel in filter coordinates; nil when the size can't be had.
template <class Shade>
CGImageRef render(const CGImageRef& input, Shade&& shade) {
  if (!input) return nullptr;
  const int32_t w = input->width(), h = input->height();
  const int64_t bytes = int64_t(w) * int64_t(h) * 4;
  if (w <= 0 || h <= 0 || bytes > kMaxContextBytes) return nullptr;
  std::shared_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[size_t(bytes)]);
  if (!buffer) return nullptr;
  const PixelView view{buffer.get(), w, h, ptrdiff_t(w) * 4, PixelFormat::RGBA};
  for (int32_t row = 0; row < h; ++row) {
    RGBA8* out = reinterpret_cast<RGBA8*>(view.row(row));
    shade(double(h) - row - 0.5, out, w);
  }
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
  return render(input, [&](double y, RGBA8* out, int32_t w) {
    const int64_t k = floorIndex((y - center.y) / rowStep);
    struct Row {
      double y, shift;
    } rows[2];
    for (int r = 0; r < 2; ++r) {
      const int64_t row = k + r;
      rows[r] = {center.y + double(row) * rowStep, (row % 2 != 0) ? scale * 0.5 : 0.0};
    }
    for (int32_t column = 0; column < w; ++column) {
      const double x = column + 0.5;
      double bestX = 0, bestY = 0, best = INFINITY;
      for (const Row& r : rows) {
        const double cx = center.x + r.shift + std::round((x - center.x - r.shift) / scale) * scale;
        const double d = (x - cx) * (x - cx) + (y - r.y) * (y - r.y);
        if (d < best) best = d, bestX = cx, bestY = r.y;
      }
      out[column] = picture.at(bestX, bestY);
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
  // Seeds and their colours for grid rows j - 2 to j + 2 and every grid column the picture meets,
  // with two to spare on each side; rebuilt when a pixel row enters a new grid row.
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

  return render(input, [&](double y, RGBA8* out, int32_t w) {
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
    for (int32_t column = 0; column < w; ++column) {
      const double x = column + 0.5;
      const size_t c = size_t(floorIndex((x - center.x) / radius) - firstColumn);
      const Seed* nearest = nullptr;
      double best = INFINITY;
      auto search = [&](int reach, int skipInside) {
        for (int dj = -reach; dj <= reach; ++dj)
          for (int dc = -reach; dc <= reach; ++dc) {
            if (std::abs(dj) <= skipInside && std::abs(dc) <= skipInside) continue;
            const Seed& s = band[size_t(dj + 2) * columns + c + size_t(dc)];
            const double d = (x - s.x) * (x - s.x) + (y - s.y) * (y - s.y);
            if (d < best) best = d, nearest = &s;
          }
      };
      // Every seed outside the 3 x 3 block is more than one radius away, and the point's own seed
      // is less than two radii away: search the 5 x 5 block only when the 3 x 3 one leaves it open.
      search(1, -1);
      if (best > radius * radius) search(2, 1);
      out[column] = nearest->colour;
    }
  });
}

CGImageRef triangleKaleidoscope(const CGImageRef& input, CIVector point, double size, double rotation, double decay) {
  requireFinite({point.x, point.y, size, rotation, decay});
  if (!input) return nullptr;
  const Picture picture(input);
  if (!(size > 0.0)) {
    return render(input, [](double, RGBA8* out, int32_t w) { std::memset(out, 0, size_t(w) * sizeof(RGBA8)); });
  }
  decay = std::max(decay, 0.0);
  // Edge directions from the vertex at `point`: e1 along the turned x axis, e2 sixty degrees on. A
  // point is point + size * (a e1 + b e2); the triangle is a, b >= 0 with a + b <= 1, and its mirror
  // images are cut by the lines a = n, b = n and a + b = n.
  const double pi = 3.141592653589793;
  const CIVector e1{std::cos(rotation), std::sin(rotation)};
  const CIVector e2{std::cos(rotation + pi / 3), std::sin(rotation + pi / 3)};
  const double det = (e1.x * e2.y - e1.y * e2.x) * size;
  std::array<double, 64> fade;
  for (size_t g = 0; g < fade.size(); ++g) fade[g] = std::pow(decay, double(g));

  return render(input, [&](double y, RGBA8* out, int32_t w) {
    for (int32_t column = 0; column < w; ++column) {
      const double dx = column + 0.5 - point.x, dy = y - point.y;
      double a = (dx * e2.y - dy * e2.x) / det;
      double b = (e1.x * dy - e1.y * dx) / det;
      // The generation is the number of mirror lines between the point and the triangle.
      const double fa = std::floor(a), fb = std::floor(b), fab = std::floor(a + b);
      const double generation = std::fabs(fa) + std::fabs(fb) + std::fabs(fab);
      // Two reflections in parallel lines are a translation; take out those by (1, 1) and (-1, 2)
      // in (a, b), which leaves the point a few triangles from home.
      const double s = std::floor((2 * a + b) / 3), t = std::floor((b - a) / 3);
      a -= s - t;
      b -= s + 2 * t;
      // Then reflect it across whichever edge it lies beyond, until it is inside. In barycentric
      // terms (l0, l1, l2) = (1 - a - b, a, b) the reflection across edge k negates lk and adds it to
      // the other two.
      double l[3] = {1 - a - b, a, b};
      for (int step = 0; step < 12; ++step) {
        int k = l[0] < 0 ? 0 : l[1] < 0 ? 1 : l[2] < 0 ? 2 : -1;
        if (k < 0) break;
        const double v = l[k];
        for (double& li : l) li += v;
        l[k] = -v;
      }
      const double sx = point.x + size * (l[1] * e1.x + l[2] * e2.x);
      const double sy = point.y + size * (l[1] * e1.y + l[2] * e2.y);
      const RGBA8 c = picture.at(sx, sy);
      const double f = generation < double(fade.size()) ? fade[size_t(generation)] : std::pow(decay, generation);
      auto scaled = [f](uint8_t v) { return uint8_t(std::min(255.0, double(v) * f + 0.5)); };
      out[column] = {scaled(c.r), scaled(c.g), scaled(c.b), scaled(c.a)};
    }
  });
}

}  // namespace CIFilters
}  // namespace zorvex
