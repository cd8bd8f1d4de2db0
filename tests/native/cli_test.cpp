// `zorvex render` as a user meets it: exit codes, messages that name the bad input, the sizes of the
// render modes, determinism by seed, and a JPEG's orientation tag.
#include <gtest/gtest.h>
#include <libexif/exif-data.h>

#include <cstring>

#include "core/imaging/pixels.h"
#include "native/image_io.h"
#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using testsupport::quote;
using testsupport::readFile;
using testsupport::RunResult;
using testsupport::writeFile;

class Cli : public ::testing::Test {
 protected:
  // Each test keeps its own defaults file (render reads the stored list and save quality).
  RunResult run(const std::string& args) const {
    return testsupport::shell(dir, "ZORVEX_DEFAULTS=" + quote(path("defaults.plist")) + " " + ZORVEX_CLI + " " + args);
  }
  std::string path(const std::string& name) const { return dir / name; }

  // A w x h picture of gradients with a red top-left corner, written as `name`.
  std::string picture(const std::string& name, int w, int h) const {
    auto c = CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, 0, CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) writePixel(c, x, y, x < 6 && y < 6 ? KColor{255, 0, 0} : KColor{uint8_t(x * 255 / w), uint8_t(y * 255 / h), 90});
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

  // `render IN -o OUT` with more options, which must succeed; the picture written.
  CGImageRef render(const std::string& in, const std::string& extra) const {
    const RunResult r = run("render " + in + " -o " + path("out.png") + " " + extra);
    EXPECT_EQ(r.code, 0) << extra << "\n" << r.err;
    return load(path("out.png"));
  }

  testsupport::TempDir dir;
};

TEST_F(Cli, BadInputExitsTwoForUsageAndOneForFilesAndNamesTheProblem) {
  const std::string in = picture("in.png", 32, 24), tiny = picture("tiny.png", 12, 40);
  const std::string out = " -o " + path("out.png");
  writeFile(path("notes.png"), "these are not pixels");
  writeFile(path("cut.png"), readFile(in).substr(0, readFile(in).size() / 2));
  std::string good;
  for (int i = 0; i < 1000; ++i) good += (i % 3 ? "0.25, " : "0.5\n");
  writeFile(path("good.txt"), good);
  writeFile(path("bad.txt"), std::string(good).replace(good.find("0.25"), 4, "1.25"));  // the second value
  writeFile(path("short.txt"), "0.1 0.2 0.3");
  writeFile(path("long.txt"), good + " 0.5");
  const struct {
    std::string args;
    int code;
    std::string says;
  } cases[] = {
      {"", 2, "usage"},
      {"frobnicate", 2, "unknown command \"frobnicate\""},
      {"render " + in, 2, "-o OUT"},
      {"render " + in + " -o " + path("out.webp"), 2, "must end in .png, .jpg or .jpeg"},
      {"render " + in + out + " --bogus", 2, "unknown option --bogus"},
      {"render " + in + out + " --effects 'AGENCY,NOPE'", 2, "unknown effect \"NOPE\""},
      {"render " + in + out + " --seed 1 --controls x", 2, "not both"},
      {"render " + in + out + " --seed -4", 2, "--seed"},
      {"render " + in + out + " --alpha 1.5", 2, "--alpha must be a number from 0 to 1"},
      {"render " + in + out + " --blend 'Burn'", 2, "\"Burn\" is not a blend mode"},
      {"render " + in + out + " --width 0", 2, "--width"},
      {"render " + in + out + " --width 10 --half", 2, "--half"},
      {"render " + in + out + " --rotate up", 2, "--rotate"},
      {"render " + in + out + " --mirror x", 2, "--mirror"},
      {"render " + in + out + " --flatten -1", 2, "--flatten"},
      {"render " + in + out + " --flatten 2 --width 10", 2, "--flatten"},
      {"render " + in + out + " --controls " + path("bad.txt"), 2, "value 2 is \"1.25\""},
      {"render " + in + out + " --controls " + path("short.txt"), 2, "holds 3 values"},
      {"render " + in + out + " --controls " + path("long.txt"), 2, "value 1001"},
      {"render " + in + out + " --controls " + path("missing.txt"), 1, "missing.txt"},
      {"render " + path("absent.png") + out, 1, "absent.png: can't open it"},
      {"render " + path("notes.png") + out, 1, "notes.png: not a PNG or JPEG picture"},
      {"render " + path("cut.png") + out, 1, "cut.png: the PNG data is damaged"},
      {"render " + tiny + out, 1, "at least 16 pixels on each side"},
      {"render " + in + " -o " + path("no/such/dir/o.png"), 1, "o.png: can't write it"},
  };
  for (const auto& c : cases) {
    const RunResult r = run(c.args);
    EXPECT_EQ(r.code, c.code) << c.args;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(path("out.png")));
  EXPECT_EQ(run("render " + in + out + " --controls " + path("good.txt")).code, 0);
}

TEST_F(Cli, SizesOfTheRenderModes) {
  const std::string in = picture("in.png", 33, 20);
  auto sizeOf = [&](const std::string& extra) {
    const CGImageRef img = render(in, "--seed 3 " + extra);
    return std::make_pair(CGImageGetWidth(img), CGImageGetHeight(img));
  };
  EXPECT_EQ(sizeOf(""), std::make_pair(size_t{33}, size_t{20}));
  EXPECT_EQ(sizeOf("--half"), std::make_pair(size_t{16}, size_t{10}));
  EXPECT_EQ(sizeOf("--width 17"), std::make_pair(size_t{17}, size_t{10}));   // 17 / (33 / 20) = 10.3
  EXPECT_EQ(sizeOf("--width 500"), std::make_pair(size_t{33}, size_t{20}));  // never scaled up
  EXPECT_EQ(sizeOf("--width 17 --effected-only"), std::make_pair(size_t{17}, size_t{10}));
  // Flattening at half size halves the base each time, then the final halves it once more.
  EXPECT_EQ(sizeOf("--effects AGENCY --flatten 2 --half"), std::make_pair(size_t{4}, size_t{2}));
}

TEST_F(Cli, EditToolsTurnAndMirror) {
  const std::string in = picture("in.png", 40, 24);  // red top-left corner
  auto redAt = [](const CGImageRef& img, int x, int y) { return img->pixels().at(x, y)[0] > 200 && img->pixels().at(x, y)[1] < 60; };
  const CGImageRef right = render(in, "--effects '' --effected-only --rotate right");
  ASSERT_EQ(CGImageGetWidth(right), 24u);
  EXPECT_TRUE(redAt(right, 22, 1));
  EXPECT_TRUE(redAt(render(in, "--effects '' --effected-only --rotate left"), 1, 38));
  EXPECT_TRUE(redAt(render(in, "--effects '' --effected-only --mirror h"), 38, 1));
  EXPECT_TRUE(redAt(render(in, "--effects '' --effected-only --mirror v"), 1, 22));
}

// That a seed repeats a look is checked where the stored list is rendered.
TEST_F(Cli, AFreshRollSaysItsSeed) {
  const RunResult fresh = run("render " + picture("in.png", 40, 30) + " -o " + path("c.png"));
  EXPECT_EQ(fresh.code, 0);
  EXPECT_EQ(fresh.err.rfind("seed ", 0), 0u) << fresh.err;
}

TEST_F(Cli, NoEffectsOrNoOpacityGiveTheBase) {
  const std::string in = picture("in.png", 32, 24);
  const CGImageRef base = load(in);
  for (const std::string extra : {"--effects '' --effected-only", "--effects 'INTERFACE' --alpha 0"}) {
    const CGImageRef out = render(in, "--seed 1 " + extra);
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 32; ++x) ASSERT_EQ(std::memcmp(base->pixels().at(x, y), out->pixels().at(x, y), 2), 0) << extra;
  }
}

// A JPEG with an orientation tag, assembled here: our picture, with an EXIF segment after the start.
TEST_F(Cli, AJpegsOrientationTagIsHonoured) {
  const std::string jpeg = readFile(picture("stored.jpg", 40, 20));  // red corner at the stored top left
  ExifData* exif = exif_data_new();
  exif_data_set_byte_order(exif, EXIF_BYTE_ORDER_INTEL);
  ExifEntry* entry = exif_entry_new();
  exif_content_add_entry(exif->ifd[EXIF_IFD_0], entry);
  exif_entry_initialize(entry, EXIF_TAG_ORIENTATION);
  exif_set_short(entry->data, EXIF_BYTE_ORDER_INTEL, 6);  // turn right to show upright
  unsigned char* data = nullptr;
  unsigned int size = 0;
  exif_data_save_data(exif, &data, &size);
  const std::string segment = std::string("\xFF\xE1") + char((size + 2) >> 8) + char((size + 2) & 0xFF) +
                              std::string(reinterpret_cast<char*>(data), size);
  free(data);
  exif_entry_unref(entry);
  exif_data_unref(exif);
  writeFile(path("tagged.jpg"), jpeg.substr(0, 2) + segment + jpeg.substr(2));

  const CGImageRef up = render(path("tagged.jpg"), "--effects '' --effected-only");
  ASSERT_EQ(CGImageGetWidth(up), 20u);
  ASSERT_EQ(CGImageGetHeight(up), 40u);
  // The stored top-left corner is now the top-right one.
  EXPECT_GT(up->pixels().at(18, 1)[0], 200);
  EXPECT_LT(up->pixels().at(18, 1)[1], 60);
}

TEST_F(Cli, SamplePicture) {
  const RunResult r = run("render --sample -o " + path("sample.jpg") + " --seed 9 --quiet");
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(CGImageGetWidth(load(path("sample.jpg"))), 1080u);
}

}  // namespace
}  // namespace zorvex
