#include <gtest/gtest.h>

#include "core/stack/analytics.h"
#include "core/stack/defaults.h"
#include "core/stack/randomize_controls.h"
#include "core/stack/settings.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using plist::Value;

class Settings : public ::testing::Test {
 protected:
  void SetUp() override { setStandardDefaults(&store); }
  void TearDown() override { setStandardDefaults(nullptr); }
  MemoryDefaults store;
};

TEST_F(Settings, QualitiesReadTheStoredRawValues) {
  // A new installation reads normal and full.
  EXPECT_EQ(SettingsController::frameQuality(), FrameQuality::normal);
  EXPECT_EQ(SettingsController::saveQuality(), SaveQuality::full);
  store.setInteger(1, "__FrameSettingKey__");
  store.setInteger(1, "__SaveSettingKey__");
  EXPECT_EQ(SettingsController::frameQuality(), FrameQuality::low);
  EXPECT_EQ(SettingsController::saveQuality(), SaveQuality::half);
  for (int64_t odd : {int64_t(2), int64_t(7), int64_t(-1), INT64_MAX}) {
    store.setInteger(odd, "__FrameSettingKey__");
    EXPECT_EQ(SettingsController::frameQuality(), FrameQuality::normal) << odd;
  }
  store.setInteger(5, "__SaveSettingKey__");
  EXPECT_EQ(SettingsController::saveQualityIfValid(), std::nullopt);
  EXPECT_EQ(SettingsController::integerSetting(SettingKey::saveSettingKey), 5);
#ifndef __EMSCRIPTEN__
  EXPECT_DEATH(SettingsController::saveQuality(), "");
#endif
}

TEST_F(Settings, TutorialFlagsAreSetOneByOneAndClearedTogether) {
  EXPECT_FALSE(SettingsController::hasShownIntro() || SettingsController::hasShownEditControls() ||
               SettingsController::hasShownArrangeTutorial());
  SettingsController::setHasShownIntro();
  EXPECT_TRUE(SettingsController::hasShownIntro());
  EXPECT_FALSE(SettingsController::hasShownEditControls());
  SettingsController::setHasShownEditControls();
  SettingsController::setHasShownArrangeTutorial();
  EXPECT_TRUE(store.boolForKey("zz.kvt.zorvex.hasShownEditControlsKey"));
  EXPECT_TRUE(store.boolForKey("zz.kvt.zorvex.hasShownArrangeTutorialKey"));
  SettingsController::resetTutorials();
  const Value once = store.dictionary();
  SettingsController::resetTutorials();
  EXPECT_EQ(store.dictionary(), once);
  EXPECT_FALSE(SettingsController::hasShownIntro() || SettingsController::hasShownEditControls() ||
               SettingsController::hasShownArrangeTutorial());
}

TEST_F(Settings, TheStoreReadsLikeThePlatformsDefaults) {
  store.setString("12abc", "s");
  store.setString("  -7", "neg");
  store.setString("none", "word");
  store.setObject("real", Value::real(2.9));
  store.setBool(true, "flag");
  store.setData({1, 2}, "blob");
  store.setString("YES", "yes");
  store.setString("007", "digits");
  store.setString("no", "no");
  for (auto [key, integer, flag] : {std::tuple{"s", 12, true}, {"neg", -7, true}, {"word", 0, false}, {"real", 2, true},
                                    {"flag", 1, true}, {"blob", 0, false}, {"absent", 0, false}, {"yes", 0, true},
                                    {"digits", 7, true}, {"no", 0, false}}) {
    EXPECT_EQ(store.integerForKey(key), integer) << key;
    EXPECT_EQ(store.boolForKey(key), flag) << key;
  }
  EXPECT_EQ(store.stringForKey("real"), std::nullopt);
  EXPECT_EQ(*store.dataForKey("blob"), (std::vector<uint8_t>{1, 2}));
  store.removeObjectForKey("blob");
  EXPECT_EQ(store.dataForKey("blob"), nullptr);
}

TEST_F(Settings, TheFirstLaunchCountsOne) {
  EXPECT_EQ(LaunchCounter::launchCount(), 0);
  LaunchCounter::incrementLaunchCount();
  EXPECT_EQ(LaunchCounter::launchCount(), 1);
  LaunchCounter::incrementLaunchCount();
  EXPECT_EQ(store.integerForKey("____KLaunchCountKey"), 2);
}

struct Event {
  std::string name;
  std::optional<AnalyticsParameters> parameters;
};

class RecordingSink final : public AnalyticsSink {
 public:
  std::vector<Event> events;
  void logEvent(std::string_view name, const AnalyticsParameters* p) override {
    events.push_back({std::string(name), p ? std::optional(*p) : std::nullopt});
  }
};

TEST(Analytics, EventsArePrefixedAndCarryTheirParameters) {
  AnalyticsHelper::logButton("shutter");  // no sink: nothing happens
  RecordingSink sink;
  setAnalyticsSink(&sink);
  AnalyticsHelper::logButton("shutter");
  AnalyticsHelper::logEvent("CANNOT CREATE INPUTS", AnalyticsParameters{{"ERROR", "busy"}});
  AnalyticsHelper::logEvent("CANNOT ADD INPUTS");
  setAnalyticsSink(nullptr);
  ASSERT_EQ(sink.events.size(), 3u);
  EXPECT_EQ(sink.events[0].name, "button_shutter");
  EXPECT_FALSE(sink.events[0].parameters);
  EXPECT_EQ(sink.events[1].name, "event_CANNOT CREATE INPUTS");
  EXPECT_EQ(sink.events[1].parameters, (AnalyticsParameters{{"ERROR", "busy"}}));
  EXPECT_FALSE(sink.events[2].parameters);
}

TEST(Analytics, RandomizeControlsLogsAndRollsFromAFreshSeed) {
  RecordingSink sink;
  testing::TestPlatform random({0x01234567, 0x89ABCDEF});
  setAnalyticsSink(&sink);
  const RolledControls rolled = randomizeControls();
  setAnalyticsSink(nullptr);
  EXPECT_EQ(rolled.seed, 0x0123456789ABCDEFull);
  EXPECT_EQ(rolled.values, rollControls(0x0123456789ABCDEFull));
  ASSERT_EQ(sink.events.size(), 1u);
  EXPECT_EQ(sink.events[0].name, "button_randomParams");
}

}  // namespace
}  // namespace zorvex
