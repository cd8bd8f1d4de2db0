#include "core/stack/settings.h"

#include "core/imaging/fatal.h"
#include "core/stack/defaults.h"

namespace zorvex {

std::string_view rawValue(SettingKey key) {
  return key == SettingKey::frameSettingKey ? "__FrameSettingKey__" : "__SaveSettingKey__";
}

void SettingsController::resetTutorials() {
  DefaultsStore& d = standardDefaults();
  d.setBool(false, kHasShownIntroKey);
  d.setBool(false, kHasShownEditControlsKey);
  d.setBool(false, kHasShownArrangeTutorialKey);
}

bool SettingsController::hasShownIntro() { return standardDefaults().boolForKey(kHasShownIntroKey); }
void SettingsController::setHasShownIntro() { standardDefaults().setBool(true, kHasShownIntroKey); }
bool SettingsController::hasShownArrangeTutorial() {
  return standardDefaults().boolForKey(kHasShownArrangeTutorialKey);
}
void SettingsController::setHasShownArrangeTutorial() {
  standardDefaults().setBool(true, kHasShownArrangeTutorialKey);
}
bool SettingsController::hasShownEditControls() { return standardDefaults().boolForKey(kHasShownEditControlsKey); }
void SettingsController::setHasShownEditControls() { standardDefaults().setBool(true, kHasShownEditControlsKey); }

int64_t SettingsController::integerSetting(SettingKey key) { return standardDefaults().integerForKey(rawValue(key)); }

FrameQuality SettingsController::frameQuality() {
  return integerSetting(SettingKey::frameSettingKey) == 1 ? FrameQuality::low : FrameQuality::normal;
}

std::optional<SaveQuality> SettingsController::saveQualityIfValid() {
  const int64_t raw = integerSetting(SettingKey::saveSettingKey);
  if (raw != 0 && raw != 1) return std::nullopt;
  return SaveQuality(raw);
}

SaveQuality SettingsController::saveQuality() {
  const std::optional<SaveQuality> q = saveQualityIfValid();
  if (!q) fatal();
  return *q;
}

}  // namespace zorvex
