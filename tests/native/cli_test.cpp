// `zorvex render` as a user meets it: exit codes, messages that name the bad input, the sizes of the
// render modes, determinism by seed, and a JPEG's orientation tag.
#include <gtest/gtest.h>
#include <libexif/exif-data.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/imaging/pixels.h"
#include "native/image_io.h"

namespace zorvex {
namespace {

namespace fs = std::filesystem;

struct Result {
  int code;
  std::string out, err;
};

class Cli : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("zorvex-cli-" + std::to_string(::getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  Result run(const std::string& args) const {
    const std::string errFile = path("stderr.txt");
    // Each test keeps its own defaults file (render reads the stored list and save quality).
    const std::string cmd =
        "ZORVEX_DEFAULTS=" + path("defaults.plist") + " " + std::string(ZORVEX_CLI) + " " + args + " 2>" + errFile;
    Result r{};
    FILE* p = popen(cmd.c_str(), "r");
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int status = pclose(p);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream e(errFile);
    std::stringstream ss;
    ss << e.rdbuf();
    r.err = ss.str();
    return r;
  }

  // A w x h picture of gradients with a red top-left corner, written as `name`.
  std::string picture(const std::string& name, int w, int h) const {
    auto c = CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, 0, CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) writePixel(c, x, y, {uint8_t(x * 255 / w), uint8_t(y * 255 / h), 90});
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 6; ++x) writePixel(c, x, y, {255, 0, 0});  // a red top-left corner
    std::string error;
    EXPECT_TRUE(native::writeImage(CGBitmapContextCreateImage(c), path(name), error, 100)) << error;
    return path(name);
  }

  static CGImageRef load(const std::string& p) {
    std::string error;
    UIImage img = native::readImage(p, error);
    EXPECT_TRUE(img) << p << ": " << error;
    return img.CGImage;
  }

  void writeText(const std::string& name, const std::string& text) const { std::ofstream(path(name)) << text; }

  fs::path dir_;
};

TEST_F(Cli, UsageErrorsExitTwoAndNameTheProblem) {
  const std::string in = picture("in.png", 32, 24);
  const std::string out = path("out.png");
  struct Case {
    std::string args, says;
  };
  const Case cases[] = {
      {"", "usage"},
      {"frobnicate", "unknown command \"frobnicate\""},
      {"render " + in, "-o OUT"},
      {"render " + in + " -o " + path("out.gif"), "must end in .png, .jpg or .jpeg"},
      {"render " + in + " -o " + out + " --bogus", "unknown option --bogus"},
      {"render " + in + " -o " + out + " --effects 'AGENCY,NOPE'", "unknown effect \"NOPE\""},
      {"render " + in + " -o " + out + " --seed 1 --controls x", "not both"},
      {"render " + in + " -o " + out + " --seed -4", "--seed"},
      {"render " + in + " -o " + out + " --alpha 1.5", "--alpha must be a number from 0 to 1"},
      {"render " + in + " -o " + out + " --blend 'Burn'", "\"Burn\" is not a blend mode"},
      {"render " + in + " -o " + out + " --width 0", "--width"},
      {"render " + in + " -o " + out + " --width 10 --half", "--half"},
  };
  for (const Case& c : cases) {
    const Result r = run(c.args);
    EXPECT_EQ(r.code, 2) << c.args;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(Cli, ControlFilesAreCheckedValueByValue) {
  const std::string in = picture("in.png", 32, 24);
  std::string good;
  for (int i = 0; i < 1000; ++i) good += (i % 3 ? "0.25, " : "0.5\n");
  writeText("good.txt", good);
  EXPECT_EQ(run("render " + in + " -o " + path("a.png") + " --controls " + path("good.txt")).code, 0);

  std::string bad = good;
  bad.replace(bad.find("0.25"), 4, "1.25");  // the second value
  writeText("bad.txt", bad);
  Result r = run("render " + in + " -o " + path("b.png") + " --controls " + path("bad.txt"));
  EXPECT_EQ(r.code, 2);
  EXPECT_NE(r.err.find("value 2 is \"1.25\""), std::string::npos) << r.err;

  writeText("short.txt", "0.1 0.2 0.3");
  r = run("render " + in + " -o " + path("c.png") + " --controls " + path("short.txt"));
  EXPECT_EQ(r.code, 2);
  EXPECT_NE(r.err.find("holds 3 values"), std::string::npos) << r.err;

  writeText("long.txt", good + " 0.5");
  r = run("render " + in + " -o " + path("d.png") + " --controls " + path("long.txt"));
  EXPECT_EQ(r.code, 2);
  EXPECT_NE(r.err.find("value 1001"), std::string::npos) << r.err;

  r = run("render " + in + " -o " + path("e.png") + " --controls " + path("missing.txt"));
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("missing.txt"), std::string::npos) << r.err;
}

TEST_F(Cli, FilesThatCantBeUsedExitOneAndNameTheFile) {
  writeText("notes.png", "these are not pixels");
  const std::string tiny = picture("tiny.png", 12, 40);
  const std::string in = picture("in.png", 32, 24);
  std::ifstream whole(in, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(whole)), {});
  writeText("cut.png", bytes.substr(0, bytes.size() / 2));
  struct Case {
    std::string args, says;
  };
  const Case cases[] = {
      {"render " + path("absent.png") + " -o " + path("o.png"), "absent.png: can't open it"},
      {"render " + path("notes.png") + " -o " + path("o.png"), "notes.png: not a PNG or JPEG picture"},
      {"render " + path("cut.png") + " -o " + path("o.png"), "cut.png: the PNG data is damaged"},
      {"render " + tiny + " -o " + path("o.png"), "at least 16 pixels on each side"},
      {"render " + in + " -o " + path("no/such/dir/o.png"), "o.png: can't write it"},
  };
  for (const Case& c : cases) {
    const Result r = run(c.args);
    EXPECT_EQ(r.code, 1) << c.args;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << "\n" << r.err;
  }
}

TEST_F(Cli, SizesOfTheRenderModes) {
  const std::string in = picture("in.png", 33, 20);
  auto sizeOf = [&](const std::string& extra) {
    const Result r = run("render " + in + " -o " + path("s.png") + " --seed 3 " + extra);
    EXPECT_EQ(r.code, 0) << extra << r.err;
    CGImageRef img = load(path("s.png"));
    return std::make_pair(CGImageGetWidth(img), CGImageGetHeight(img));
  };
  EXPECT_EQ(sizeOf(""), std::make_pair(size_t{33}, size_t{20}));
  EXPECT_EQ(sizeOf("--half"), std::make_pair(size_t{16}, size_t{10}));
  EXPECT_EQ(sizeOf("--width 17"), std::make_pair(size_t{17}, size_t{10}));   // 17 / (33 / 20) = 10.3
  EXPECT_EQ(sizeOf("--width 500"), std::make_pair(size_t{33}, size_t{20}));  // never scaled up
  EXPECT_EQ(sizeOf("--width 17 --effected-only"), std::make_pair(size_t{17}, size_t{10}));
}

TEST_F(Cli, EditToolsTurnMirrorAndFlatten) {
  const std::string in = picture("in.png", 40, 24);  // red top-left corner
  auto render = [&](const std::string& extra) {
    const Result r = run("render " + in + " -o " + path("t.png") + " --seed 4 " + extra);
    EXPECT_EQ(r.code, 0) << extra << r.err;
    return load(path("t.png"));
  };
  auto redAt = [](const CGImageRef& img, int x, int y) { return img->pixels().at(x, y)[0] > 200 && img->pixels().at(x, y)[1] < 60; };
  CGImageRef right = render("--effects '' --effected-only --rotate right");
  ASSERT_EQ(CGImageGetWidth(right), 24u);
  EXPECT_TRUE(redAt(right, 22, 1));
  CGImageRef left = render("--effects '' --effected-only --rotate left");
  EXPECT_TRUE(redAt(left, 1, 38));
  EXPECT_TRUE(redAt(render("--effects '' --effected-only --mirror h"), 38, 1));
  EXPECT_TRUE(redAt(render("--effects '' --effected-only --mirror v"), 1, 22));
  // Flattening at half size halves the base each time, then the final halves it once more.
  CGImageRef flat = render("--effects AGENCY --flatten 2 --half");
  EXPECT_EQ(CGImageGetWidth(flat), 5u);
  EXPECT_EQ(CGImageGetHeight(flat), 3u);
  for (const std::string bad : {"--rotate up", "--mirror x", "--flatten -1", "--flatten 2 --width 10"}) {
    EXPECT_EQ(run("render " + in + " -o " + path("u.png") + " " + bad).code, 2) << bad;
  }
}

TEST_F(Cli, SeedsRepeatALookAndAFreshRollSaysItsSeed) {
  const std::string in = picture("in.png", 40, 30);
  ASSERT_EQ(run("render " + in + " -o " + path("a.png") + " --seed 77 --effects 'AGENCY,INTERFACE'").code, 0);
  ASSERT_EQ(run("render " + in + " -o " + path("b.png") + " --seed 77 --effects 'AGENCY,INTERFACE'").code, 0);
  std::ifstream a(path("a.png"), std::ios::binary), b(path("b.png"), std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(a), {}), std::string(std::istreambuf_iterator<char>(b), {}));
  const Result fresh = run("render " + in + " -o " + path("c.png"));
  EXPECT_EQ(fresh.code, 0);
  EXPECT_EQ(fresh.err.rfind("seed ", 0), 0u) << fresh.err;
}

TEST_F(Cli, NoEffectsOrNoOpacityGiveTheBase) {
  const std::string in = picture("in.png", 32, 24);
  CGImageRef base = load(in);
  for (const std::string extra : {"--effects '' --effected-only", "--effects 'INTERFACE' --alpha 0"}) {
    ASSERT_EQ(run("render " + in + " -o " + path("o.png") + " --seed 1 " + extra).code, 0) << extra;
    CGImageRef out = load(path("o.png"));
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 32; ++x) {
        ASSERT_EQ(base->pixels().at(x, y)[0], out->pixels().at(x, y)[0]) << extra;
        ASSERT_EQ(base->pixels().at(x, y)[1], out->pixels().at(x, y)[1]) << extra;
      }
  }
}

// A JPEG with an orientation tag, assembled here: our picture, with an EXIF segment after the start.
TEST_F(Cli, AJpegsOrientationTagIsHonoured) {
  const std::string plain = picture("stored.jpg", 40, 20);  // red corner at the stored top left
  std::ifstream in(plain, std::ios::binary);
  std::string jpeg((std::istreambuf_iterator<char>(in)), {});
  ExifData* exif = exif_data_new();
  exif_data_set_byte_order(exif, EXIF_BYTE_ORDER_INTEL);
  ExifEntry* entry = exif_entry_new();
  exif_content_add_entry(exif->ifd[EXIF_IFD_0], entry);
  exif_entry_initialize(entry, EXIF_TAG_ORIENTATION);
  exif_set_short(entry->data, EXIF_BYTE_ORDER_INTEL, 6);  // turn right to show upright
  unsigned char* data = nullptr;
  unsigned int size = 0;
  exif_data_save_data(exif, &data, &size);
  std::string segment = "\xFF\xE1";
  segment += char((size + 2) >> 8);
  segment += char((size + 2) & 0xFF);
  segment.append(reinterpret_cast<char*>(data), size);
  free(data);
  exif_entry_unref(entry);
  exif_data_unref(exif);
  writeText("tagged.jpg", jpeg.substr(0, 2) + segment + jpeg.substr(2));

  ASSERT_EQ(run("render " + path("tagged.jpg") + " -o " + path("up.png") + " --effects '' --effected-only").code, 0);
  CGImageRef up = load(path("up.png"));
  ASSERT_EQ(CGImageGetWidth(up), 20u);
  ASSERT_EQ(CGImageGetHeight(up), 40u);
  // The stored top-left corner is now the top-right one.
  const uint8_t* p = up->pixels().at(18, 1);
  EXPECT_GT(p[0], 200);
  EXPECT_LT(p[1], 60);
}

TEST_F(Cli, SamplePictureAndHelp) {
  const Result r = run("render --sample -o " + path("sample.jpg") + " --seed 9 --quiet");
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "");
  CGImageRef img = load(path("sample.jpg"));
  EXPECT_EQ(CGImageGetWidth(img), 1080u);
  const Result help = run("help");
  EXPECT_EQ(help.code, 0);
  EXPECT_NE(help.out.find("zorvex render IN -o OUT"), std::string::npos);
  EXPECT_NE(help.out.find("B∑AMRID∑R"), std::string::npos);
}

}  // namespace
}  // namespace zorvex
