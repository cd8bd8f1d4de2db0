#include "core/imaging/text.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <algorithm>

namespace zorvex {

std::string describe(double v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v < 0 ? "-inf" : "inf";
  if (v == 0) return std::signbit(v) ? "-0.0" : "0.0";
  // The fewest significant digits that read back as v.
  char buf[64];
  int digits = 1;
  for (; digits < 17; ++digits) {
    std::snprintf(buf, sizeof buf, "%.*e", digits - 1, v);
    if (std::strtod(buf, nullptr) == v) break;
  }
  std::snprintf(buf, sizeof buf, "%.*e", digits - 1, v);
  const int exponent = std::atoi(std::strchr(buf, 'e') + 1);
  if (exponent < -4 || exponent >= 16) return buf;  // "1e+16", "1.5e-05"
  std::snprintf(buf, sizeof buf, "%.*f", std::max(0, digits - 1 - exponent), v);
  std::string s(buf);
  if (s.find('.') == std::string::npos) s += ".0";
  return s;
}

namespace {
std::string tuple(std::initializer_list<double> values) {
  std::string s = "(";
  for (double v : values) {
    if (s.size() > 1) s.append(", ");
    s.append(describe(v));
  }
  s.push_back(')');
  return s;
}
}  // namespace

std::string describe(CGSize s) { return tuple({s.width, s.height}); }

std::string describe(CGRect r) { return tuple({r.origin.x, r.origin.y, r.size.width, r.size.height}); }

}  // namespace zorvex
