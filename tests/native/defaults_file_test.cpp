#include "native/defaults_file.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "core/stack/effects_data.h"
#include "tests/core/test_pictures.h"
#include "tests/native/store_test_support.h"

namespace zorvex::native {
namespace {

using testsupport::TempDir;
using testsupport::readFile;
using testsupport::writeFile;

// Sets an environment variable for the life of the object and puts the old value back after.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

TEST(DefaultsFile, PathComesFromTheFlagThenTheEnvironmentThenTheConfigFolder) {
  ScopedEnv home("HOME", "/home/someone");
  ScopedEnv xdg("XDG_CONFIG_HOME", nullptr);
  ScopedEnv env("ZORVEX_DEFAULTS", nullptr);
  EXPECT_EQ(defaultsPath(std::nullopt), "/home/someone/.config/zorvex/defaults.plist");
  {
    ScopedEnv relative("XDG_CONFIG_HOME", "relative/config");  // only an absolute one counts
    EXPECT_EQ(defaultsPath(std::nullopt), "/home/someone/.config/zorvex/defaults.plist");
  }
  ScopedEnv config("XDG_CONFIG_HOME", "/cfg");
  EXPECT_EQ(defaultsPath(std::nullopt), "/cfg/zorvex/defaults.plist");
  ScopedEnv chosen("ZORVEX_DEFAULTS", "/from/env.plist");
  EXPECT_EQ(defaultsPath(std::nullopt), "/from/env.plist");
  EXPECT_EQ(defaultsPath("/from/flag.plist"), "/from/flag.plist");
}

TEST(DefaultsFile, EveryChangeIsWrittenAndReadBack) {
  TempDir dir;
  const std::string path = dir / "made/on/demand/defaults.plist";
  std::string notice, error;
  {
    DefaultsFile file(path);
    ASSERT_TRUE(file.load(notice, error)) << error;
    EXPECT_TRUE(notice.empty());
    file.setInteger(3, "count");
    file.setString("§P∆Iƒ", "name");
    file.setObject("list", plist::Value::array({plist::Value::boolean(true)}));
    file.removeObjectForKey("count");
    EXPECT_TRUE(file.writeError().empty()) << file.writeError();
  }
  DefaultsFile again(path);
  ASSERT_TRUE(again.load(notice, error)) << error;
  EXPECT_EQ(again.integerForKey("count"), 0);
  EXPECT_EQ(again.stringForKey("name"), "§P∆Iƒ");
  EXPECT_EQ(again.dictionary().keys(), (std::vector<std::string>{"name", "list"}));
}

std::string fileOf(const plist::Value& v) {
  const std::vector<uint8_t> bytes = testing::plistBytes(v);
  return std::string(bytes.begin(), bytes.end());
}

TEST(DefaultsFile, AnUnreadableFileIsMovedAsideAndKept) {
  plist::Value settings;
  settings.set("__SaveSettingKey__", plist::Value::integer(1));
  const std::string good = fileOf(settings);
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"garbage", "this is not a property list at all, not even close"},
      {"truncated", good.substr(0, good.size() - 5)},
      {"no dictionary", fileOf(plist::Value::array())},
  };
  for (const auto& [what, content] : cases) {
    TempDir dir;
    const std::string path = dir / "defaults.plist";
    writeFile(path, content);
    DefaultsFile file(path);
    std::string notice, error;
    ASSERT_TRUE(file.load(notice, error)) << what << ": " << error;
    EXPECT_EQ(file.dictionary().count(), 0u) << what;
    const std::vector<std::string> names = dir.names();
    ASSERT_EQ(names.size(), 1u) << what;
    EXPECT_EQ(names[0].rfind("defaults.plist.unreadable-", 0), 0u) << names[0];
    EXPECT_EQ(readFile(dir / names[0]), content) << what;
    EXPECT_NE(notice.find(dir / names[0]), std::string::npos) << notice;

    file.setInteger(1, "__FrameSettingKey__");  // a fresh file beside the old one
    EXPECT_EQ(dir.names().size(), 2u);
    DefaultsFile again(path);
    ASSERT_TRUE(again.load(notice, error));
    EXPECT_TRUE(notice.empty());
    EXPECT_EQ(again.integerForKey("__FrameSettingKey__"), 1);
  }
}

// An empty file (what a full disk or an interrupted copy can leave) holds nothing to keep: it reads
// as empty defaults, in place.
TEST(DefaultsFile, AnEmptyFileIsEmptyDefaults) {
  TempDir dir;
  writeFile(dir / "d.plist", "");
  DefaultsFile file(dir / "d.plist");
  std::string notice, error;
  ASSERT_TRUE(file.load(notice, error)) << error;
  EXPECT_TRUE(notice.empty());
  EXPECT_EQ(file.dictionary().count(), 0u);
  EXPECT_EQ(dir.names(), std::vector<std::string>{"d.plist"});
}

TEST(DefaultsFile, TwoUnreadableFilesInOneSecondKeepBoth) {
  TempDir dir;
  const std::string path = dir / "d.plist";
  std::string notice, error;
  for (const char* content : {"first", "second"}) {
    writeFile(path, content);
    DefaultsFile file(path);
    ASSERT_TRUE(file.load(notice, error)) << error;
  }
  std::vector<std::string> contents;
  for (const std::string& name : dir.names()) contents.push_back(readFile(dir / name));
  std::sort(contents.begin(), contents.end());
  EXPECT_EQ(contents, (std::vector<std::string>{"first", "second"}));
}

TEST(DefaultsFile, WhatCantBeReadIsNeverWrittenOver) {
  TempDir dir;
  const std::string folderInTheWay = dir / "defaults.plist";
  std::filesystem::create_directory(folderInTheWay);
  DefaultsFile file(folderInTheWay);
  std::string notice, error;
  EXPECT_FALSE(file.load(notice, error));
  EXPECT_NE(error.find(folderInTheWay), std::string::npos) << error;
  file.setInteger(1, "x");  // not loaded: nothing is written
  EXPECT_TRUE(std::filesystem::is_directory(folderInTheWay));
  EXPECT_TRUE(file.writeError().empty());
}

TEST(DefaultsFile, AWriteThatFailsIsReported) {
  TempDir dir;
  DefaultsFile file(dir / "plain-file/defaults.plist");
  std::string notice, error;
  ASSERT_TRUE(file.load(notice, error)) << error;
  writeFile(dir / "plain-file", "x");  // the folder can't be made now
  file.setInteger(1, "x");
  EXPECT_NE(file.writeError().find("plain-file"), std::string::npos) << file.writeError();
}

// The program dies after the new file is written and before it replaces the old one: the stored list
// is the one from before.
TEST(DefaultsFile, ACrashBeforeTheRenameLeavesTheOldListIntact) {
  testing::TestPlatform silent;
  TempDir dir;
  const std::string path = dir / "defaults.plist";
  std::string notice, error;
  {
    DefaultsFile file(path);
    ASSERT_TRUE(file.load(notice, error));
    EffectsData data;
    data.setDefaults(&file);
    data.loadEffects();
    const std::string before = readFile(path);

    std::string temporary;
    file.beforeRename = [&](const std::string& t) {
      temporary = t;
      return false;
    };
    data.moveEffect(0, 33);
    data.saveEffects();
    EXPECT_FALSE(file.writeError().empty());
    EXPECT_EQ(readFile(path), before);
    EXPECT_TRUE(std::filesystem::exists(temporary));  // what a crash leaves: the new file, unused
    EXPECT_EQ(temporary.rfind(path + ".tmp-", 0), 0u) << temporary;
  }
  DefaultsFile again(path);
  ASSERT_TRUE(again.load(notice, error)) << error;
  EXPECT_TRUE(notice.empty());
  EffectsData restarted;
  restarted.setDefaults(&again);
  restarted.loadEffects();
  EXPECT_EQ(restarted.effects[0]->name, "GRABOID");
}

}  // namespace
}  // namespace zorvex::native
