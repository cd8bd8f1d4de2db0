// The program's few settings: two qualities and three tutorial flags, read and written straight in
// the standard defaults under constant keys.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zorvex {

enum class FrameQuality : int64_t { normal = 0, low = 1 };
enum class SaveQuality : int64_t { full = 0, half = 1 };

// The keys of the two quality settings.
enum class SettingKey { frameSettingKey, saveSettingKey };
std::string_view rawValue(SettingKey key);

inline constexpr std::string_view kHasShownIntroKey = "zz.kvt.zorvex.kHasShownIntroMessageBaby";
inline constexpr std::string_view kHasShownEditControlsKey = "zz.kvt.zorvex.hasShownEditControlsKey";
inline constexpr std::string_view kHasShownArrangeTutorialKey = "zz.kvt.zorvex.hasShownArrangeTutorialKey";

struct SettingsController {
  // Sets the three tutorial flags to false.
  static void resetTutorials();
  static bool hasShownIntro();
  static void setHasShownIntro();
  static bool hasShownArrangeTutorial();
  static void setHasShownArrangeTutorial();
  static bool hasShownEditControls();
  static void setHasShownEditControls();
  // The integer under the key; 0 when absent.
  static int64_t integerSetting(SettingKey key);
  // Any stored value other than 1 reads as normal.
  static FrameQuality frameQuality();
  // A stored value other than 0 or 1 is fatal; saveQualityIfValid lets a caller that reads a store
  // from outside check it first.
  static SaveQuality saveQuality();
  static std::optional<SaveQuality> saveQualityIfValid();
};

}  // namespace zorvex
