// Numbers in console lines, written the way the program's diagnostics always wrote them: the
// shortest text that reads back as the same double, with ".0" on whole numbers ("1080.0", "0.1").
#pragma once

#include <string>

#include "core/imaging/geometry.h"

namespace zorvex {

std::string describe(double v);
// "(w, h)"
std::string describe(CGSize s);
// "(x, y, w, h)"
std::string describe(CGRect r);

}  // namespace zorvex
