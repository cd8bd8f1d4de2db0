// Rolling the control values afresh.
#pragma once

#include <cstdint>

#include "core/stack/controls.h"

namespace zorvex {

// A rolled vector and the seed it came from, so that a look can be shown and repeated.
struct RolledControls {
  uint64_t seed = 0;
  ControlValues values;
};

// Logs the analytics event "randomParams", draws a 64-bit seed from the unrepeatable source (the
// high word first) and rolls the vector from it with rollControls. The caller renders afterwards.
RolledControls randomizeControls();

}  // namespace zorvex
