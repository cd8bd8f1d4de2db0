// The launch count and the analytics events. Events go to a sink that the platform installs; with
// none installed they go nowhere.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zorvex {

using AnalyticsParameters = std::map<std::string, std::string>;

// Where analytics events end up: the stand-in for the analytics library's logEventWithName:parameters:.
class AnalyticsSink {
 public:
  virtual ~AnalyticsSink() = default;
  virtual void logEvent(std::string_view name, const AnalyticsParameters* parameters) = 0;
};

// Installs `sink` (not owned); nullptr turns analytics off.
void setAnalyticsSink(AnalyticsSink* sink);
AnalyticsSink* analyticsSink();

struct AnalyticsHelper {
  // "button_" + name, without parameters.
  static void logButton(std::string_view name);
  // "event_" + name, with the parameters if any.
  static void logEvent(std::string_view name, const std::optional<AnalyticsParameters>& parameters = std::nullopt);
};

// The number of launches, kept in the standard defaults.
struct LaunchCounter {
  static constexpr std::string_view kLaunchCountKey = "____KLaunchCountKey";
  static void incrementLaunchCount();
  static int64_t launchCount();
};

}  // namespace zorvex
