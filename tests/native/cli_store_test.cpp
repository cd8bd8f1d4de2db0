// zorvex effects, zorvex settings and the stored state that zorvex render reads.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <regex>

#include "core/stack/effects_data.h"
#include "core/stack/plist.h"

#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using testsupport::quote;
using testsupport::readFile;
using testsupport::RunResult;
using testsupport::shell;
using testsupport::TempDir;
using testsupport::writeFile;

class CliStore : public ::testing::Test {
 protected:
  // zorvex with `args`, in a clean environment whose home and config folder are in the scratch folder.
  RunResult zorvex(const std::string& args, const std::string& env = "") {
    return shell(dir, "env -u ZORVEX_DEFAULTS -u ZORVEX_ANALYTICS_LOG HOME=" + quote(dir / "home") +
                          " XDG_CONFIG_HOME=" + quote(dir / "config") + " " + env + " " + ZORVEX_CLI + " " + args);
  }
  // With the defaults file of the test, quiet.
  RunResult quiet(const std::string& args) { return zorvex(args + " -q --defaults " + quote(defaults)); }

  static std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
      out.push_back(text.substr(start, nl - start));
    return out;
  }

  TempDir dir;
  std::string defaults = dir / "defaults.plist";
};

TEST_F(CliStore, ListsTheRowsAndWithVerboseTheLinesOfLoading) {
  RunResult r = zorvex("effects -v --defaults " + quote(defaults));
  ASSERT_EQ(r.code, 0) << r.err;
  std::vector<std::string> out = lines(r.out);
  ASSERT_EQ(out.size(), 34u);
  EXPECT_EQ(std::vector<std::string>(out.begin(), out.begin() + 3),
            (std::vector<std::string>{"0 off GRABOID", "1 on VETH", "2 on AGENCY"}));
  EXPECT_EQ(out[24], "24 off §P∆Iƒ");
  EXPECT_EQ(r.err, "No old effects found.\n");

  // From the second start on, the stored list is merged with the built-in names.
  r = zorvex("effects --verbose --defaults " + quote(defaults));
  EXPECT_EQ(lines(r.out), out);
  ASSERT_EQ(lines(r.err).size(), 1u + 34u);
  EXPECT_EQ(lines(r.err)[34], "Builtin Effectname is KAL1D0");
}

TEST_F(CliStore, ChangesAreStoredAndListed) {
  RunResult r = zorvex("effects toggle --defaults " + quote(defaults) + " 0 -q");  // options anywhere
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines(r.out)[0], "0 on GRABOID");

  ASSERT_EQ(quiet("effects move 0 5").code, 0);
  r = quiet("effects");  // the move was stored
  EXPECT_EQ(lines(r.out)[0], "0 on VETH");
  EXPECT_EQ(lines(r.out)[5], "5 on GRABOID");

  r = quiet("effects preset 'My Look'");
  ASSERT_EQ(r.code, 0) << r.err;
  std::vector<std::string> out = lines(r.out);
  ASSERT_EQ(out.size(), 38u);
  EXPECT_EQ(std::vector<std::string>(out.begin() + 34, out.end()),
            (std::vector<std::string>{"34 off My Look", "  on VETH", "  on AGENCY", "  on GRABOID"}));

  r = quiet("effects remove 0");  // VETH
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines(r.out)[0], "0 on AGENCY");
  r = zorvex("effects -v --defaults " + quote(defaults));
  EXPECT_NE(r.err.find("Builtin Effectname is VETH\nNOT PRESENT IN CURRENT EFFECTS, APPEND\n"), std::string::npos);
  EXPECT_NE(r.out.find("\n34 off VETH\n"), std::string::npos) << r.out;

  r = quiet("effects reset");
  ASSERT_EQ(r.code, 0) << r.err;
  out = lines(r.out);
  ASSERT_EQ(out.size(), 34u);
  EXPECT_EQ(out[5], "5 off CHIP13h");

  // Randomize, with a preset among the rows: two rows on at the top, and the order stored.
  quiet("effects preset Both");
  r = quiet("effects randomize");
  ASSERT_EQ(r.code, 0) << r.err;
  std::vector<std::string> rows;
  for (const std::string& l : lines(r.out))
    if (l[0] != ' ') rows.push_back(l);
  ASSERT_EQ(rows.size(), 35u);
  for (size_t i = 0; i < rows.size(); ++i)
    EXPECT_EQ(rows[i].rfind(std::to_string(i) + (i < 2 ? " on " : " off "), 0), 0u) << rows[i];
  EXPECT_EQ(quiet("effects").out, r.out);
}

TEST_F(CliStore, BadRowsAndNamesAreUsageErrors) {
  for (const char* args : {"effects toggle 34", "effects toggle -1", "effects remove x", "effects move 0 34",
                           "effects move 0", "effects preset ''", "effects preset", "effects frobnicate",
                           "effects toggle 1 2", "settings set frame-quality high", "settings set speed low",
                           "effects --defaults"}) {
    const RunResult r = quiet(args);
    EXPECT_EQ(r.code, 2) << args << "\n" << r.err;
    EXPECT_NE(r.err.find("zorvex: "), std::string::npos) << args;
  }
  EXPECT_NE(quiet("effects toggle 34").err.find("34"), std::string::npos);
  EXPECT_NE(quiet("effects preset ''").err.find("empty"), std::string::npos);
  EXPECT_EQ(lines(quiet("effects").out).size(), 34u);  // nothing was changed
}

TEST_F(CliStore, SettingsAreShownAndChanged) {
  RunResult r = quiet("settings");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out,
            "frame-quality: normal\nsave-quality: full\nshown-intro: no\nshown-edit-controls: no\n"
            "shown-arrange-tutorial: no\nlaunch-count: 0\n");
  r = quiet("settings set frame-quality low");
  EXPECT_NE(r.out.find("frame-quality: low\n"), std::string::npos);
  r = quiet("settings set save-quality half");
  EXPECT_NE(r.out.find("frame-quality: low\nsave-quality: half\n"), std::string::npos) << r.out;
  r = quiet("settings reset-tutorials");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("shown-intro: no\n"), std::string::npos);
  r = zorvex("settings -v --defaults " + quote(defaults));
  EXPECT_EQ(r.err.rfind("No old effects found.\nBuiltin Effectname is GRABOID\n", 0), 0u) << r.err;
}

TEST_F(CliStore, TheFlagWinsOverTheEnvironmentWhichWinsOverTheConfigFolder) {
  const std::string fromEnv = dir / "env.plist";
  zorvex("effects toggle 0 -q --defaults " + quote(defaults), "ZORVEX_DEFAULTS=" + quote(fromEnv));
  EXPECT_FALSE(std::filesystem::exists(fromEnv));
  EXPECT_EQ(lines(quiet("effects").out)[0], "0 on GRABOID");
  zorvex("effects -q", "ZORVEX_DEFAULTS=" + quote(fromEnv));
  EXPECT_TRUE(std::filesystem::exists(fromEnv));
  EXPECT_FALSE(std::filesystem::exists(dir / "config/zorvex/defaults.plist"));
  zorvex("effects -q");
  EXPECT_TRUE(std::filesystem::exists(dir / "config/zorvex/defaults.plist"));
}

TEST_F(CliStore, ACorruptDefaultsFileIsKeptAsideAndTheCommandGoesOn) {
  writeFile(defaults, "bplist00 but then nothing that makes sense");
  RunResult r = quiet("effects");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines(r.out).size(), 34u);
  EXPECT_NE(r.err.find("moved to " + defaults + ".unreadable-"), std::string::npos) << r.err;

  std::filesystem::remove(defaults);
  std::filesystem::create_directory(defaults);
  r = quiet("settings");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find(defaults), std::string::npos) << r.err;
}

// A defaults file whose stored list has one malformed row (a flag stored as an integer), beside a
// preset and a setting.
std::string defaultsWithAMalformedRow() {
  using plist::Value;
  Value rows = encodeEffects({Effect::make("VETH", true), Effect::make("Mine", false, EffectList{Effect::make("AGENCY", true)})});
  Value bad = Value::dictionary();
  bad.add("name", Value::string("GRABOID"));
  bad.add("isActive", Value::integer(1));
  rows.append(std::move(bad));
  std::vector<uint8_t> blob, file;
  std::string error;
  plist::writeBinary(rows, blob, error);
  Value d;
  d.set(EffectsData::storedArrayKey, Value::data(blob));
  d.set("__SaveSettingKey__", Value::integer(1));
  plist::writeBinary(d, file, error);
  return std::string(file.begin(), file.end());
}

TEST_F(CliStore, AStoredListThatCantBeDecodedIsKeptBeforeTheBuiltInListReplacesIt) {
  const std::string before = defaultsWithAMalformedRow();
  writeFile(defaults, before);
  RunResult r = zorvex("settings --defaults " + quote(defaults));
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("save-quality: half"), std::string::npos);  // the rest of the file stays
  ASSERT_EQ(lines(r.err).size(), 1u) << r.err;
  const size_t at = r.err.find("kept in ");
  ASSERT_NE(at, std::string::npos) << r.err;
  const std::string copy = r.err.substr(at + 8, r.err.find('\n', at) - at - 8);
  EXPECT_EQ(copy.rfind(defaults + ".unreadable-", 0), 0u) << copy;
  EXPECT_EQ(readFile(copy), before);
  std::vector<std::string> rows = lines(quiet("effects").out);
  EXPECT_EQ(rows.size(), 34u);
  EXPECT_EQ(rows[1], "1 on VETH");
  EXPECT_EQ(dir.names(), (std::vector<std::string>{"defaults.plist", copy.substr(dir.path().size() + 1)}));
}

TEST_F(CliStore, LoadingWritesNothingAndAReadOnlyFileIsReadButNotChanged) {
  ASSERT_EQ(quiet("effects toggle 0").code, 0);
  struct stat first {}, second {};
  ASSERT_EQ(stat(defaults.c_str(), &first), 0);
  for (const char* command : {"effects", "settings", "render --sample --width 32 -o " })
    ASSERT_EQ(quiet(command + (command[0] == 'r' ? quote(dir / "x.png") : std::string())).code, 0) << command;
  ASSERT_EQ(stat(defaults.c_str(), &second), 0);
  EXPECT_EQ(first.st_ino, second.st_ino);  // not replaced
  EXPECT_EQ(first.st_mtim.tv_nsec, second.st_mtim.tv_nsec);

  const std::string bytes = readFile(defaults);
  std::filesystem::permissions(defaults, std::filesystem::perms::owner_read | std::filesystem::perms::group_read);
  EXPECT_EQ(quiet("settings").code, 0);
  EXPECT_EQ(quiet("effects").code, 0);
  RunResult r = quiet("effects toggle 1");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("read-only"), std::string::npos) << r.err;
  EXPECT_EQ(readFile(defaults), bytes);
}

TEST_F(CliStore, ASymlinkedDefaultsFileIsWrittenThroughToItsTarget) {
  std::filesystem::create_directories(dir / "dotfiles");
  std::filesystem::create_symlink(dir / "dotfiles/zorvex.plist", defaults);
  ASSERT_EQ(quiet("effects toggle 0").code, 0);
  ASSERT_EQ(quiet("effects toggle 1").code, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(defaults));
  EXPECT_EQ(lines(quiet("effects").out)[1], "1 off VETH");
  EXPECT_TRUE(std::filesystem::exists(dir / "dotfiles/zorvex.plist"));
}

// Commands at once take turns: no preset is lost. A temporary file left by a killed write is
// cleaned up by the next write; files of other names are left alone.
TEST_F(CliStore, ConcurrentCommandsKeepEveryChangeAndStaleTemporariesGo) {
  ASSERT_EQ(quiet("effects").code, 0);
  writeFile(defaults + ".tmp-Ab12Cd", "left by a kill");
  writeFile(defaults + ".tmp-notours", "someone else's");
  const std::string one = std::string(ZORVEX_CLI) + " effects preset P -q --defaults " + quote(defaults) + " >/dev/null";
  RunResult r = shell(dir, "for i in 1 2 3 4 5 6 7 8 9 10 11 12; do " + one + "; done & for i in 1 2 3 4 5 6 7 8 9 10 11 12; do " +
                               one + "; done; wait");
  ASSERT_EQ(r.code, 0) << r.err;
  size_t rows = 0;
  for (const std::string& line : lines(quiet("effects").out)) rows += line[0] != ' ';
  EXPECT_EQ(rows, 34u + 24u);
  EXPECT_FALSE(std::filesystem::exists(defaults + ".tmp-Ab12Cd"));
  EXPECT_TRUE(std::filesystem::exists(defaults + ".tmp-notours"));
}

TEST_F(CliStore, PresetNamesListingAndStandardOutput) {
  RunResult r = quiet("effects preset \"$(printf 'two\\nlines')\"");
  EXPECT_EQ(r.code, 2);
  EXPECT_NE(r.err.find("control character"), std::string::npos) << r.err;
  r = quiet("effects preset \"$(printf 'a\\tb')\"");
  EXPECT_EQ(r.code, 2);
  r = shell(dir, "sh -c " + quote(std::string(ZORVEX_CLI) + " effects -q --defaults " + quote(defaults) + " >/dev/full"));
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("standard output"), std::string::npos) << r.err;
  r = quiet("effects remove 1");
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.err.find("VETH is a built-in effect: it comes back, off and last"), std::string::npos) << r.err;
  quiet("effects toggle 0");
  quiet("effects preset Mine");
  r = quiet("effects remove 34");  // a preset goes for good, without a word
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.err, "");
}

// The width of a PNG, from its header.
uint32_t pngWidth(const std::string& png) {
  if (png.size() < 24) return 0;
  return uint32_t(uint8_t(png[16])) << 24 | uint32_t(uint8_t(png[17])) << 16 | uint32_t(uint8_t(png[18])) << 8 |
         uint8_t(png[19]);
}

TEST_F(CliStore, RenderRunsTheStoredListAtTheStoredSaveQuality) {
  // A small picture to start from: the sample as a 96-pixel-wide preview, without effects.
  RunResult r = zorvex("render --sample --width 96 --effects '' --effected-only -v -o " + quote(dir / "in.png") +
                       " --defaults " + quote(defaults));
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("\nNo old effects found.\n"), std::string::npos) << r.err;  // after the seed
  const std::string sample = "render " + quote(dir / "in.png") + " --seed 7 -o ";
  quiet("effects toggle 11");  // INTERFACE on
  quiet(sample + quote(dir / "stored.png"));
  quiet(sample + quote(dir / "named.png") + " --effects VETH,AGENCY,INTERFACE");
  quiet(sample + quote(dir / "default.png") + " --effects VETH,AGENCY");
  EXPECT_EQ(readFile(dir / "stored.png"), readFile(dir / "named.png"));
  EXPECT_NE(readFile(dir / "stored.png"), readFile(dir / "default.png"));
  EXPECT_EQ(pngWidth(readFile(dir / "stored.png")), 96u);

  quiet("settings set save-quality half");
  ASSERT_EQ(quiet(sample + quote(dir / "half.png")).code, 0);
  EXPECT_EQ(pngWidth(readFile(dir / "half.png")), 48u);
  ASSERT_EQ(quiet(sample + quote(dir / "full.png") + " --full").code, 0);
  EXPECT_EQ(pngWidth(readFile(dir / "full.png")), 96u);
  EXPECT_EQ(quiet(sample + quote(dir / "x.png") + " --full --half").code, 2);
}

TEST_F(CliStore, AnalyticsGoToTheLogOnlyWhenItIsSet) {
  const std::string log = dir / "events.jsonl";
  ASSERT_EQ(quiet("render --sample --width 64 -o " + quote(dir / "a.png")).code, 0);
  EXPECT_FALSE(std::filesystem::exists(log));
  const RunResult r = zorvex("render --sample --width 64 -q -o " + quote(dir / "a.png") + " --defaults " +
                                 quote(defaults),
                             "ZORVEX_ANALYTICS_LOG=" + quote(log));
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(std::regex_match(readFile(log), std::regex(R"(\{"time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z",)"
                                                         R"("event":"button_randomParams","parameters":null\}\n)")))
      << readFile(log);
}

}  // namespace
}  // namespace zorvex
