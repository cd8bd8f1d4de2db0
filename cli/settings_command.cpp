// zorvex settings: shows the settings, the tutorial flags and the launch count, and changes the
// settings.
#include <cstdio>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/store_session.h"
#include "core/stack/analytics.h"
#include "core/stack/defaults.h"
#include "core/stack/settings.h"
#include "native/analytics_log.h"
#include "native/platform_linux.h"

namespace zorvex::cli {
namespace {

constexpr const char* kSettingsUsage =
    "usage: zorvex settings [set frame-quality normal|low | set save-quality full|half | reset-tutorials] "
    "[--defaults PATH]; see zorvex settings --help";

int usageError(const std::string& message) {
  complain(message);
  std::fprintf(stderr, "%s\n", kSettingsUsage);
  return kExitUsage;
}

void printSettings() {
  const char* frame = SettingsController::frameQuality() == FrameQuality::low ? "low" : "normal";
  std::printf("frame-quality: %s\n", frame);
  if (auto save = SettingsController::saveQualityIfValid()) {
    std::printf("save-quality: %s\n", *save == SaveQuality::half ? "half" : "full");
  } else {
    std::printf("save-quality: invalid (stored %lld)\n",
                static_cast<long long>(SettingsController::integerSetting(SettingKey::saveSettingKey)));
  }
  std::printf("shown-intro: %s\n", SettingsController::hasShownIntro() ? "yes" : "no");
  std::printf("shown-edit-controls: %s\n", SettingsController::hasShownEditControls() ? "yes" : "no");
  std::printf("shown-arrange-tutorial: %s\n", SettingsController::hasShownArrangeTutorial() ? "yes" : "no");
  std::printf("launch-count: %lld\n", static_cast<long long>(LaunchCounter::launchCount()));
  std::fflush(stdout);
}

}  // namespace

int settingsCommand(int argc, char** argv) {
  native::installLinuxPlatform();
  native::installAnalyticsFromEnvironment();
  Args args(argc, argv, 2, {"--defaults"}, {"--quiet"}, {{"-q", "--quiet"}});
  if (args.wantsHelp()) return commandHelp("settings");
  if (!args.error().empty()) return usageError(args.error());
  const std::vector<std::string>& p = args.positional();
  std::optional<std::pair<SettingKey, int64_t>> change;
  bool resetTutorials = false;
  if (p.empty()) {
  } else if (p[0] == "set") {
    if (p.size() != 3) return usageError("settings set takes a setting and a value");
    if (p[1] == "frame-quality") {
      if (p[2] != "normal" && p[2] != "low")
        return usageError("frame-quality is normal or low, not \"" + p[2] + "\"");
      change.emplace(SettingKey::frameSettingKey, p[2] == "low" ? 1 : 0);
    } else if (p[1] == "save-quality") {
      if (p[2] != "full" && p[2] != "half") return usageError("save-quality is full or half, not \"" + p[2] + "\"");
      change.emplace(SettingKey::saveSettingKey, p[2] == "half" ? 1 : 0);
    } else {
      return usageError("unknown setting \"" + p[1] + "\": use frame-quality or save-quality");
    }
  } else if (p[0] == "reset-tutorials") {
    if (p.size() != 1) return usageError("settings reset-tutorials takes no arguments");
    resetTutorials = true;
  } else {
    return usageError("unknown settings action \"" + p[0] + "\"");
  }
  applyVerbosity(args);

  StoreSession session;
  if (int failed = session.open(args.value("--defaults")); failed >= 0) return failed;
  if (change) {
    // As the settings page writes them: the raw value, then synchronize.
    standardDefaults().setInteger(change->second, rawValue(change->first));
    standardDefaults().synchronize();
  }
  if (resetTutorials) SettingsController::resetTutorials();
  printSettings();
  return session.finish(kExitOk);
}

}  // namespace zorvex::cli
