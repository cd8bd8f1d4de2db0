// The platform pieces of the engine module: the user defaults kept by the page in the browser's
// storage, and the analytics sink that hands events to the page. Both tell the page through callbacks
// that the page gives the module when it creates it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/stack/analytics.h"
#include "core/stack/defaults.h"

namespace zorvex::web {

// The defaults dictionary in memory. After each change the page is told (onDefaultsChanged), and it
// reads the encoded dictionary and stores it.
class BrowserDefaults final : public MemoryDefaults {
 public:
  // Takes the stored bytes, a binary property list of a dictionary. False when they can't be read:
  // the defaults start empty then, and the page is not told until something is written.
  bool load(const uint8_t* bytes, size_t length);
  // The dictionary as a binary property list.
  std::string encoded() const;
  // Its integers, reals, flags and strings as a JSON object (data, dates and collections left out).
  std::string scalarsJson() const;

 protected:
  void changed() override;
};

// Hands each event to the page (onAnalyticsEvent), which keeps the latest ones.
class BrowserAnalytics final : public AnalyticsSink {
 public:
  void logEvent(std::string_view name, const AnalyticsParameters* parameters) override;
};

}  // namespace zorvex::web
