// Our own versions of the three Core Image filters the mesh and kaleidoscope effects use, and the
// one routine through which the effects apply a filter to the surface.
//
// Filters work on the pixels of a CGImage and give a new CGImage of the same size (premultiplied
// RGBA). Their coordinates are Core Image's: x to the right, y up from the bottom edge. A colour "at"
// a point is that of the pixel the point falls in, the point first moved onto the picture. Spacings
// below one pixel count as one; a parameter that is not finite is fatal.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/imaging/cg.h"

namespace zorvex {

struct CIVector {
  double x = 0, y = 0;
  bool operator==(const CIVector&) const = default;
};
using CIValue = std::variant<double, CIVector>;

// A filter's parameters: numbers and 2-vectors by key, in the order they were set. Setting a key
// again replaces its value.
class CIParameters {
 public:
  CIParameters() = default;
  CIParameters(std::initializer_list<std::pair<std::string, CIValue>> entries);
  void set(std::string_view key, CIValue value);
  // The value of `key`, or null.
  const CIValue* find(std::string_view key) const;
  const std::vector<std::pair<std::string, CIValue>>& entries() const { return entries_; }

 private:
  std::vector<std::pair<std::string, CIValue>> entries_;
};

namespace CIFilters {

// A filter: its name, the parameters setDefaults gives it (every key it knows), and its routine.
struct Filter {
  std::string_view name;
  CIParameters (*defaults)();
  CGImageRef (*apply)(const CGImageRef& input, const CIParameters& parameters);
};
// "CIHexagonalPixellate", "CICrystallize" or "CITriangleKaleidoscope"; null for any other name.
const Filter* filterWithName(std::string_view name);

// Hexagons on the triangular lattice of spacing `scale` through `center` (each hexagon is the set of
// points nearest to one lattice point), each filled with the picture's colour at its lattice point.
CGImageRef hexagonalPixellate(const CGImageRef& input, double scale, CIVector center);

// Voronoi cells around seeds, one seed in each square of the grid of spacing `radius` laid from
// `center`, jittered within its square by a fixed hash; each cell filled with the colour at its seed.
CGImageRef crystallize(const CGImageRef& input, double radius, CIVector center);
// The seed of grid square (i, j): the square spans center + (i, j) * radius to one radius more.
CIVector crystalSeed(int64_t i, int64_t j, double radius, CIVector center);

// The equilateral triangle of side `size` with one vertex at `point`, its first edge turned by
// `rotation` radians from the x axis, mirrored across its edges to tile the plane. A point n
// reflections away takes the colour of its mirror image inside the triangle, faded by decay^n toward
// transparent. A size that is not positive gives no triangle and a transparent picture.
CGImageRef triangleKaleidoscope(const CGImageRef& input, CIVector point, double size, double rotation, double decay);

}  // namespace CIFilters
}  // namespace zorvex
