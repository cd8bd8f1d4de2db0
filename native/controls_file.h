// The control values of `zorvex render --controls FILE`: exactly 1000 numbers, each from 0 to 0.9999,
// separated by white space or commas.
#pragma once

#include <string>
#include <string_view>

#include "core/stack/controls.h"

namespace zorvex::native {

// The largest controls file read: 1000 values with room for any spacing.
inline constexpr uint64_t kMaxControlsFileBytes = 1u << 20;

// Reads the values from `text`. False with `error` naming the first bad value by its place.
bool parseControls(std::string_view text, ControlValues& out, std::string& error);

}  // namespace zorvex::native
