// Feeds arbitrary bytes to the readers of looks: as a look's text (JSON or the compact form of a
// link) and as a picture that may carry one in its XMP. Each gives a valid look or a message, never
// a crash; a look read is valid, and writing it in either form and reading that back writes the
// same text again.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "core/look/look.h"
#include "core/look/xmp.h"

namespace {

using namespace zorvex::look;

void checkRoundTrips(const Look& look) {
  std::string error;
  if (!validate(look, error)) std::abort();
  const std::string json = toJson(look), compact = toCompact(look);
  Look again;
  if (!fromJson(json, again, error) || toJson(again) != json) std::abort();
  if (!fromCompact(compact, again, error) || toCompact(again) != compact) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Look look;
  std::string error;
  if (fromText(text, look, error)) {
    checkRoundTrips(look);
  } else if (error.empty()) {
    std::abort();
  }

  Look carried;
  std::string why;
  switch (lookInPicture(std::span<const uint8_t>(data, size), carried, why)) {
    case Found::look: checkRoundTrips(carried); break;
    case Found::error:
      if (why.empty()) std::abort();
      break;
    case Found::none: break;
  }
  return 0;
}
