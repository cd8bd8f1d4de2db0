// Feeds arbitrary bytes to the binary property-list reader. Whatever it reads must write and read back
// the same; anything else must be refused with a reason. The sanitizers catch reads out of bounds,
// undefined arithmetic and leaks; libFuzzer's limits catch runaway time and memory.
#include <cstdint>
#include <cstdlib>

#include "core/stack/plist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zorvex::plist;
  Value v;
  std::string error;
  if (!readBinary({data, size}, v, error)) {
    if (error.empty()) std::abort();
    return 0;
  }
  (void)describe(v);
  std::vector<uint8_t> again;
  if (!writeBinary(v, again, error)) return 0;  // a string that is not UTF-8 can't be written
  Value back;
  if (!readBinary(again, back, error) || !(back == v)) std::abort();
  return 0;
}
