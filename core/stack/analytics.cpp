#include "core/stack/analytics.h"

#include "core/stack/defaults.h"

namespace zorvex {
namespace {
AnalyticsSink* gSink = nullptr;
}

void setAnalyticsSink(AnalyticsSink* sink) { gSink = sink; }
AnalyticsSink* analyticsSink() { return gSink; }

void AnalyticsHelper::logButton(std::string_view name) {
  if (gSink) gSink->logEvent("button_" + std::string(name), nullptr);
}

void AnalyticsHelper::logEvent(std::string_view name, const std::optional<AnalyticsParameters>& parameters) {
  if (gSink) gSink->logEvent("event_" + std::string(name), parameters ? &*parameters : nullptr);
}

void LaunchCounter::incrementLaunchCount() {
  DefaultsStore& d = standardDefaults();
  d.setInteger(d.integerForKey(kLaunchCountKey) + 1, kLaunchCountKey);
}

int64_t LaunchCounter::launchCount() { return standardDefaults().integerForKey(kLaunchCountKey); }

}  // namespace zorvex
