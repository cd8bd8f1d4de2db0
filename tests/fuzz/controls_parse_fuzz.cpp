// Feeds arbitrary text to the parser of control files: it gives exactly 1000 values in range, or a
// message, and never crashes.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "native/controls_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zorvex::ControlValues values;
  std::string error;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (!zorvex::native::parseControls(text, values, error)) {
    if (error.empty()) std::abort();
    return 0;
  }
  if (values.size() != zorvex::kControlCount) std::abort();
  for (double v : values)
    if (!(v >= 0.0 && v <= 0.9999)) std::abort();
  return 0;
}
