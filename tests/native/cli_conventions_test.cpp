// What a person expects of a Unix command: help on every command, the version, quiet by default with
// the core's diagnostics behind -v, a manual page that tells every option, and an install that works
// from its own folders.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <regex>
#include <set>

#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using testsupport::quote;
using testsupport::readFile;
using testsupport::RunResult;
using testsupport::shell;
using testsupport::TempDir;

class Conventions : public ::testing::Test {
 protected:
  RunResult zorvex(const std::string& args, const std::string& binary = ZORVEX_CLI) {
    return shell(dir, "env -u ZORVEX_ANALYTICS_LOG ZORVEX_DEFAULTS=" + quote(dir / "d.plist") + " " + binary + " " + args);
  }
  TempDir dir;
};

TEST_F(Conventions, EveryCommandGivesItsHelpAndExitsZero) {
  // The short form, `help COMMAND`, and help after a mistake on the line give the same text as
  // --help; each command is asked in one of those ways too.
  const std::string commands[] = {"render", "effects", "settings", "bench", "serve"};
  const std::string others[] = {"COMMAND -h", "help COMMAND", "COMMAND --bogus -h", "COMMAND 1 2 3 -h", "help COMMAND"};
  for (size_t i = 0; i < std::size(commands); ++i) {
    const std::string& command = commands[i];
    const RunResult help = zorvex(command + " --help");
    EXPECT_EQ(help.code, 0) << command << "\n" << help.err;
    EXPECT_EQ(help.err, "") << command;
    EXPECT_EQ(help.out.rfind("usage: zorvex " + command, 0), 0u) << help.out;
    EXPECT_NE(help.out.find("Exit status"), std::string::npos) << command;
    const std::string other = std::regex_replace(others[i], std::regex("COMMAND"), command);
    const RunResult r = zorvex(other);
    EXPECT_EQ(r.code, 0) << other;
    EXPECT_EQ(r.out, help.out) << other;
  }
  // Help doesn't touch the stored state, and a mistake without help is still a usage error.
  EXPECT_FALSE(std::filesystem::exists(dir / "d.plist"));
  EXPECT_EQ(zorvex("render --bogus").code, 2);
  EXPECT_EQ(zorvex("help nothing").code, 2);
  const RunResult all = zorvex("help");
  EXPECT_EQ(all.code, 0);
  for (const std::string section : {"usage: zorvex render", "usage: zorvex serve", "B∑AMRID∑R"})
    EXPECT_NE(all.out.find(section), std::string::npos) << section;
}

TEST_F(Conventions, TheVersionIsTheBuildsAndTheManualPagesOwn) {
  const RunResult r = zorvex("--version");
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out, std::string("zorvex ") + ZORVEX_VERSION + "\n");
  const std::string page = readFile(std::string(ZORVEX_SOURCE_DIR) + "/doc/zorvex.1");
  EXPECT_NE(page.find(std::string("\"zorvex ") + ZORVEX_VERSION + "\""), std::string::npos)
      << "the manual page's title line names another version";
}

TEST_F(Conventions, TheCoresDiagnosticsGoToStandardErrorOnlyWithVerbose) {
  const std::string defaults = " --defaults " + quote(dir / "e.plist");
  RunResult plain = zorvex("effects" + defaults);
  ASSERT_EQ(plain.code, 0) << plain.err;
  EXPECT_EQ(plain.err, "");
  EXPECT_EQ(plain.out.rfind("0 off GRABOID\n", 0), 0u) << plain.out;  // the rows alone

  const RunResult verbose = zorvex("effects -v" + defaults);
  EXPECT_EQ(verbose.out, plain.out);
  EXPECT_NE(verbose.err.find("Builtin Effectname is GRABOID\n"), std::string::npos) << verbose.err;
  EXPECT_EQ(zorvex("effects --verbose -q" + defaults).err, "");

  // A render says its fresh seed, and with -q nothing at all.
  const std::string render = "render --sample --width 48 --effects VETH -o " + quote(dir / "o.png");
  const RunResult seeded = zorvex(render + defaults);
  EXPECT_EQ(seeded.out, "");
  EXPECT_TRUE(std::regex_match(seeded.err, std::regex("seed \\d+\n"))) << seeded.err;
  const RunResult quiet = zorvex(render + " -q" + defaults);
  EXPECT_EQ(quiet.code, 0);
  EXPECT_EQ(quiet.out + quiet.err, "");
}

// Every long option the usage text names is told in the manual page, and groff reads the page without
// a warning.
TEST_F(Conventions, TheManualPageTellsEveryOption) {
  const std::string page = std::string(ZORVEX_SOURCE_DIR) + "/doc/zorvex.1";
  const RunResult lint = shell(dir, "groff -man -ww -z " + quote(page));
  EXPECT_EQ(lint.code, 0);
  EXPECT_EQ(lint.err, "");
  const std::string text = readFile(page), usage = zorvex("help").out;
  std::set<std::string> options;
  const std::regex option("--[a-z][a-z-]*");
  for (auto it = std::sregex_iterator(usage.begin(), usage.end(), option); it != std::sregex_iterator(); ++it)
    options.insert(it->str());
  EXPECT_GT(options.size(), 20u);
  for (const std::string& o : options) {
    const std::string escaped = std::regex_replace(o, std::regex("-"), "\\-");
    EXPECT_NE(text.find(escaped), std::string::npos) << o << " is not in the manual page";
  }
}

// The installed command finds its web app in share/zorvex/web and its manual page is in place.
TEST_F(Conventions, AnInstalledCopyRunsFromItsOwnFolders) {
  const std::string prefix = dir / "prefix";
  const RunResult install = shell(dir, std::string(CMAKE_COMMAND) + " --install " + quote(ZORVEX_BUILD_DIR) +
                                           " --prefix " + quote(prefix));
  ASSERT_EQ(install.code, 0) << install.out << install.err;
  EXPECT_EQ(readFile(prefix + "/share/man/man1/zorvex.1"), readFile(std::string(ZORVEX_SOURCE_DIR) + "/doc/zorvex.1"));
  const std::string binary = prefix + "/bin/zorvex";
  EXPECT_EQ(zorvex("--version", binary).out, std::string("zorvex ") + ZORVEX_VERSION + "\n");

  // The web app may not be built yet when this runs; a page of our own stands in for it.
  std::filesystem::create_directories(prefix + "/share/zorvex/web");
  testsupport::writeFile(prefix + "/share/zorvex/web/index.html", "<!doctype html>");
  int out[2];
  ASSERT_EQ(pipe(out), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 1);
    close(out[0]);
    execl(binary.c_str(), binary.c_str(), "serve", "--port", "0", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(out[1]);
  std::string line;
  char c;
  while (read(out[0], &c, 1) == 1 && c != '\n') line += c;
  close(out[0]);
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
  EXPECT_NE(line.find(std::filesystem::canonical(prefix + "/share/zorvex/web").string()), std::string::npos) << line;
}

}  // namespace
}  // namespace zorvex
