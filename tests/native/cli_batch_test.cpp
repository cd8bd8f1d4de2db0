// Batches: many pictures with one look, in parallel, past bad files, with outputs named by folder or
// pattern, and no half-written file after an interrupt.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <regex>

#include "native/image_io.h"
#include "native/interruptible_output.h"
#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using testsupport::quote;
using testsupport::readFile;
using testsupport::RunResult;
using testsupport::writeFile;

// The names in a folder, sorted.
std::vector<std::string> names(const std::string& folder) {
  std::vector<std::string> out;
  for (const auto& e : std::filesystem::directory_iterator(folder)) out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

class Batch : public ::testing::Test {
 protected:
  void SetUp() override {
    // Two small pictures that differ, from the sample without effects.
    for (const char* name : {"one.png", "two.png"}) {
      const RunResult r = run(std::string("render --sample --effects '' --effected-only -q -o ") + quote(dir / name) +
                              (name[0] == 'o' ? " --width 48" : " --width 40 --mirror h"));
      ASSERT_EQ(r.code, 0) << r.err;
    }
  }
  RunResult run(const std::string& args) const {
    return testsupport::shell(dir, "cd " + quote(dir.path()) + " && ZORVEX_DEFAULTS=" + quote(dir / "d.plist") + " " +
                                       ZORVEX_CLI + " " + args);
  }
  // Deterministic effects (no free-running random source), so that a seed repeats the bytes.
  static constexpr const char* kLook = " --effects VETH,AGENCY,INTERFACE ";
  testsupport::TempDir dir;
};

TEST_F(Batch, CarriesOnPastBadFilesAndTellsEachAtTheEnd) {
  writeFile(dir / "corrupt.png", readFile(dir / "one.png").substr(0, 60));
  const RunResult r = run(std::string("render one.png corrupt.png missing.png two.png -o out --seed 5") + kLook);
  EXPECT_EQ(r.code, 1);
  EXPECT_TRUE(std::filesystem::exists(dir / "out/one.png"));
  EXPECT_TRUE(std::filesystem::exists(dir / "out/two.png"));
  EXPECT_EQ(names(dir / "out"), (std::vector<std::string>{"one.png", "two.png"}));
  // One line for each bad file, after the work, and a count.
  EXPECT_TRUE(std::regex_match(r.err, std::regex("zorvex: corrupt.png: [^\n]*\n"
                                                 "zorvex: missing.png: can't open it[^\n]*\n"
                                                 "zorvex: 2 of 4 failed\n")))
      << r.err;
}

TEST_F(Batch, OneWorkerOrFourGiveTheSameBytesAsSingleRenders) {
  for (int i = 0; i < 3; ++i) std::filesystem::copy(dir / "two.png", dir / ("copy" + std::to_string(i) + ".png"));
  ASSERT_EQ(run(std::string("render one.png two.png copy0.png copy1.png copy2.png -j 1 -o serial --seed 9") + kLook).code, 0);
  ASSERT_EQ(run(std::string("render one.png two.png copy0.png copy1.png copy2.png -j 4 -o parallel --seed 9") + kLook).code, 0);
  ASSERT_EQ(run(std::string("render one.png -o single.png --seed 9") + kLook).code, 0);
  for (const std::string name : {"one.png", "two.png", "copy0.png", "copy2.png"})
    EXPECT_EQ(readFile(dir / ("serial/" + name)), readFile(dir / ("parallel/" + name))) << name;
  EXPECT_EQ(readFile(dir / "serial/one.png"), readFile(dir / "single.png"));
  EXPECT_NE(readFile(dir / "serial/one.png"), readFile(dir / "one.png"));
}

TEST_F(Batch, SeedEachRollsOneSeedAfterAnotherAndSaysThem) {
  const RunResult r = run(std::string("render one.png two.png -o 'each/{name}.png' --seed-each --seed 40") + kLook);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("one.png: seed 40\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("two.png: seed 41\n"), std::string::npos) << r.err;
  ASSERT_EQ(run(std::string("render two.png -o alone.png --seed 41") + kLook).code, 0);
  EXPECT_EQ(readFile(dir / "each/two.png"), readFile(dir / "alone.png"));
  // Without --seed each file says a fresh one.
  const RunResult fresh = run(std::string("render one.png two.png -o fresh --seed-each") + kLook);
  EXPECT_TRUE(std::regex_search(fresh.err, std::regex("one.png: seed \\d+\n"))) << fresh.err;
  EXPECT_EQ(run("render one.png two.png -o x --seed-each --controls c.txt").code, 2);
}

TEST_F(Batch, NamesOutputsByFolderOrPatternAndRefusesClashes) {
  std::filesystem::create_directory(dir / "in");
  for (const std::string name : {"b.png", "a.jpg", ".hidden.png", "notes.txt"})
    std::filesystem::copy(dir / "one.png", dir / ("in/" + name));
  // A folder as input: its pictures by name, hidden files and others left out; {n} padded to the
  // count's width.
  std::filesystem::copy(dir / "two.png", dir / "in/c10.png");
  RunResult r = run("render in extra.png -o 'made/{n}_{name}.{ext}' --seed 1 -q");
  EXPECT_EQ(r.code, 1);  // extra.png is missing
  EXPECT_EQ(names(dir / "made"),
            (std::vector<std::string>{"1_a.jpg", "2_b.png", "3_c10.png"}));
  EXPECT_NE(r.err.find("extra.png"), std::string::npos);

  const struct {
    std::string args, says;
  } refused[] = {
      {"render one.png two.png -o many.png", "names one file"},
      {"render one.png two.png -o 'x/{name}.{nope}'", "{nope}"},
      {"render one.png two.png -o 'same.png'", "names one file"},
      {"render one.png two.png -o 'x/same{ext}.png'", "{name} or {n}"},
      {"render one.png other/one.png -o 'x/{name}.png' --seed 1", "would both be written to x/one.png"},
      {"render one.png two.png -o .", "one.png is an input"},
      {"render one.png two.png -o x -j 0", "--jobs"},
  };
  std::filesystem::create_directory(dir / "other");
  std::filesystem::copy(dir / "two.png", dir / "other/one.png");
  for (const auto& c : refused) {
    const RunResult bad = run(c.args);
    EXPECT_EQ(bad.code, 2) << c.args;
    EXPECT_NE(bad.err.find(c.says), std::string::npos) << c.args << "\n" << bad.err;
  }
  std::filesystem::create_directory(dir / "nothing");
  r = run("render nothing -o x");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("holds no pictures"), std::string::npos);
}

// A file being written when an interrupt comes is removed, and the process ends by the signal.
TEST(InterruptibleOutput, AnInterruptRemovesTheFileBeingWritten) {
  testsupport::TempDir dir;
  const std::string target = dir / "out.png";
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    native::installInterruptCleanup();
    std::string error;
    native::writeThroughTemporary(target, [&](const std::string& temporary, std::string&) {
      writeFile(temporary, "half a picture");
      if (write(ready[1], "x", 1) != 1) _exit(3);
      pause();  // the interrupt comes here
      return true;
    }, error);
    _exit(0);
  }
  char c;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  EXPECT_EQ(dir.names().size(), 1u);  // the temporary file, hidden beside the target
  kill(child, SIGINT);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
  EXPECT_TRUE(dir.names().empty());
}

}  // namespace
}  // namespace zorvex
