// `zorvex render` as a user meets it: exit codes, messages that name the bad input, what is read and
// how the output is written, the sizes of the render modes, determinism by seed, and JPEGs' tags,
// damage and colour spaces.
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <libexif/exif-data.h>
#include <sys/stat.h>

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
  // `args` with `file` piped to standard input.
  RunResult piped(const std::string& file, const std::string& args) const {
    return testsupport::shell(dir, "sh -c " + quote("cat " + quote(file) + " | ZORVEX_DEFAULTS=" +
                                                    quote(path("defaults.plist")) + " " + ZORVEX_CLI + " " + args));
  }

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
  // A sparse file of 2 GiB: refused by its size, never read.
  writeFile(path("huge.png"), readFile(in));
  std::filesystem::resize_file(path("huge.png"), uintmax_t(2) << 30);
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
      {"render " + in + out + " --controls " + path("missing.txt"), 1, "missing.txt: can't open it (No such file"},
      {"render " + in + out + " --controls " + dir.path(), 1, "is a folder"},
      {"render " + in + out + " --controls /dev/zero", 1, "/dev/zero: it is a device"},
      {"render " + in + out + " --seed ' -1'", 2, "--seed must be a whole number"},
      {"render " + picture("wide.png", 400, 16) + out + " --width 20", 1, "--width 20 leaves a render of 20x0"},
      {"render " + path("absent.png") + out, 1, "absent.png: can't open it (No such file or directory)"},
      {"render " + dir.path() + out, 2, "names one file, and there are several inputs"},
      {"render /dev/zero" + out, 1, "/dev/zero: it is a device"},
      {"render " + path("huge.png") + out, 1, "more than the 1 GiB read at most"},
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

// A FIFO would block a reader that opens it; it is refused before anything is read from it.
TEST_F(Cli, InputComesFromARegularFileOrStandardInputOnly) {
  const std::string in = picture("in.png", 32, 24);
  ASSERT_EQ(mkfifo(path("fifo.png").c_str(), 0600), 0);
  RunResult r = run("render " + path("fifo.png") + " -o " + path("out.png") + " --seed 1");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("fifo.png: it is a FIFO"), std::string::npos) << r.err;

  // A picture through a pipe, and a valid picture followed by much more: only the picture is read.
  writeFile(path("padded.png"), readFile(in) + std::string(1 << 20, 'x'));
  r = piped(in, "render - -o " + path("piped.png") + " --seed 4 --effects AGENCY");
  ASSERT_EQ(r.code, 0) << r.err;
  writeFile(path("notes.txt"), "not a picture");
  r = piped(path("notes.txt"), "render - -o " + path("x.png"));
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("standard input: not a PNG or JPEG picture"), std::string::npos) << r.err;
  r = run("render " + path("padded.png") + " -o " + path("padded-out.png") + " --seed 4 --effects AGENCY");
  ASSERT_EQ(r.code, 0) << r.err;
  run("render " + in + " -o " + path("direct.png") + " --seed 4 --effects AGENCY");
  EXPECT_EQ(readFile(path("piped.png")), readFile(path("direct.png")));
  EXPECT_EQ(readFile(path("padded-out.png")), readFile(path("direct.png")));
}

// The output is written under a fresh name beside OUT and renamed: a link planted where a fixed
// temporary name would be is never followed, the new file has the mode a new file gets, and nothing
// is left beside it.
TEST_F(Cli, OutputIsWrittenAtomicallyAndNeverThroughAPlantedLink) {
  const std::string in = picture("in.png", 32, 24);
  writeFile(path("victim"), "precious");
  std::filesystem::create_symlink(path("victim"), path("out.png.partial"));
  const RunResult r = testsupport::shell(dir, "umask 027; ZORVEX_DEFAULTS=" + quote(path("d.plist")) + " " + ZORVEX_CLI +
                                                   " render " + in + " -o " + path("out.png") + " --seed 2");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(readFile(path("victim")), "precious");
  EXPECT_TRUE(load(path("out.png")));
  struct stat st {};
  ASSERT_EQ(stat(path("out.png").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(dir.names(), (std::vector<std::string>{"d.plist", "in.png", "out.png", "out.png.partial", "victim"}));

  // Two renders to one file at once leave one of the two pictures, whole.
  run("render " + in + " -o " + path("a.png") + " --seed 5");
  run("render " + in + " -o " + path("b.png") + " --seed 6");
  for (int round = 0; round < 3; ++round) {
    run("render " + in + " -o " + path("both.png") + " --seed 5 & " + ZORVEX_CLI + " render " + in + " -o " +
        path("both.png") + " --seed 6; wait");
    const std::string both = readFile(path("both.png"));
    EXPECT_TRUE(both == readFile(path("a.png")) || both == readFile(path("b.png"))) << round;
  }
}

// A write that fails says why, in the system's words.
TEST_F(Cli, AFailedWriteGivesItsReason) {
  // A file size limit of 512 bytes: the write fails with EFBIG (the signal it would send is ignored),
  // inside the encoder's writes, as the sample picture is far larger than the C library's buffer.
  const RunResult r = testsupport::shell(dir, "trap '' XFSZ; ulimit -f 1; ZORVEX_DEFAULTS=" + quote(path("d.plist")) +
                                                   " " + ZORVEX_CLI + " render --sample --width 400 -o " +
                                                   path("big.png") + " --seed 3 -q");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("big.png: can't write it (File too large)"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(path("big.png")));
}

// A JPEG cut short renders what decodes, with a warning that names it; a CMYK JPEG (as print
// software writes it, inverted under an Adobe marker) reads in its colours.
TEST_F(Cli, DamagedAndCmykJpegs) {
  const std::string jpeg = readFile(picture("whole.jpg", 64, 64));
  writeFile(path("cut.jpg"), jpeg.substr(0, jpeg.size() * 3 / 10));
  RunResult r = run("render " + path("cut.jpg") + " -o " + path("cut-out.png") + " --seed 1");
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("warning: " + path("cut.jpg") + ": its data ended early"), std::string::npos) << r.err;
  EXPECT_EQ(run("render " + path("whole.jpg") + " -o " + path("whole-out.png") + " --seed 1").err.find("warning"),
            std::string::npos);

  jpeg_compress_struct c;
  jpeg_error_mgr err;
  c.err = jpeg_std_error(&err);
  jpeg_create_compress(&c);
  FILE* f = std::fopen(path("cmyk.jpg").c_str(), "wb");
  ASSERT_TRUE(f);
  jpeg_stdio_dest(&c, f);
  c.image_width = 32;
  c.image_height = 32;
  c.input_components = 4;
  c.in_color_space = JCS_CMYK;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 95, TRUE);
  jpeg_start_compress(&c, TRUE);  // writes the Adobe marker
  std::vector<uint8_t> row(32 * 4);
  while (c.next_scanline < 32) {
    for (size_t x = 0; x < 32; ++x) {  // stored inverted: no cyan, full magenta and yellow, no black
      const uint8_t m = x < 16 ? 0 : 255;
      row[x * 4] = 255, row[x * 4 + 1] = m, row[x * 4 + 2] = m, row[x * 4 + 3] = 255;
    }
    JSAMPROW rows = row.data();
    jpeg_write_scanlines(&c, &rows, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  std::fclose(f);
  const CGImageRef cmyk = render(path("cmyk.jpg"), "--effects '' --effected-only");
  ASSERT_TRUE(cmyk);
  const uint8_t* red = cmyk->pixels().at(4, 4);
  const uint8_t* white = cmyk->pixels().at(28, 4);
  EXPECT_GT(red[0], 240);
  EXPECT_LT(red[1], 20);
  EXPECT_LT(red[2], 20);
  EXPECT_GT(white[1], 240);
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
