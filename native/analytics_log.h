// The analytics sink of the command line: off unless ZORVEX_ANALYTICS_LOG names a file; then each
// event is appended to it as one JSON line with a UTC time, the event name and its parameters.
#pragma once

#include <string>

#include "core/stack/analytics.h"

namespace zorvex::native {

class JsonLinesAnalytics final : public AnalyticsSink {
 public:
  explicit JsonLinesAnalytics(std::string path) : path_(std::move(path)) {}
  void logEvent(std::string_view name, const AnalyticsParameters* parameters) override;

  // One event as its line, without the newline: {"time":"...Z","event":"...","parameters":{...}}
  // ("parameters":null when there are none).
  static std::string line(const std::string& utcTime, std::string_view name, const AnalyticsParameters* parameters);

 private:
  std::string path_;
  bool complained_ = false;
};

// Installs the sink when ZORVEX_ANALYTICS_LOG is set and not empty.
void installAnalyticsFromEnvironment();

}  // namespace zorvex::native
