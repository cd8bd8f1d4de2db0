#include "core/imaging/text.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace zorvex {

std::string describe(double v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v < 0 ? "-inf" : "inf";
  char buf[40];
  for (int precision = 1; precision <= 17; ++precision) {
    std::snprintf(buf, sizeof buf, "%.*g", precision, v);
    if (std::strtod(buf, nullptr) == v) break;
  }
  std::string s(buf);
  if (s.find_first_of(".e") == std::string::npos) s += ".0";
  return s;
}

std::string describe(CGSize s) { return "(" + describe(s.width) + ", " + describe(s.height) + ")"; }

std::string describe(CGRect r) {
  return "(" + describe(r.origin.x) + ", " + describe(r.origin.y) + ", " + describe(r.size.width) + ", " +
         describe(r.size.height) + ")";
}

}  // namespace zorvex
