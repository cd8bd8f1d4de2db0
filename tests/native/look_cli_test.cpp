// Looks on the command line: every picture render writes carries its look, which exiv2 and exiftool
// read and which survives a re-save by exiftool; `zorvex look` prints it; `--look` renders another
// picture with it, and the options replace the parts they name; nothing personal of the original
// picture comes along.
#include <gtest/gtest.h>

#include "core/imaging/pixels.h"
#include "core/look/look.h"
#include "native/image_io.h"
#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using testsupport::quote;
using testsupport::readFile;
using testsupport::RunResult;
using testsupport::writeFile;

class LookCli : public ::testing::Test {
 protected:
  RunResult run(const std::string& args) const {
    return testsupport::shell(dir, "ZORVEX_DEFAULTS=" + quote(path("defaults.plist")) + " " + ZORVEX_CLI + " " + args);
  }
  RunResult tool(const std::string& command) const { return testsupport::shell(dir, command); }
  std::string path(const std::string& name) const { return dir / name; }

  // A w x h picture of gradients tinted by `tint`, written as `name`.
  std::string picture(const std::string& name, int w, int h, int tint) const {
    auto c = CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, 0, CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) writePixel(c, x, y, KColor{uint8_t(x * 255 / w), uint8_t(y * 255 / h), uint8_t(tint)});
    std::string error;
    EXPECT_TRUE(native::writeImage(CGBitmapContextCreateImage(c), path(name), error, 95)) << error;
    return path(name);
  }

  // `render` that must succeed; its standard output.
  std::string render(const std::string& args) const {
    const RunResult r = run("render -q " + args);
    EXPECT_EQ(r.code, 0) << args << "\n" << r.err;
    return r.out;
  }

  static look::Look parse(const std::string& text) {
    look::Look out;
    std::string error;
    EXPECT_TRUE(look::fromText(text, out, error)) << error << "\n" << text;
    return out;
  }

  testsupport::TempDir dir;
};

TEST_F(LookCli, EveryPictureCarriesItsLookAndOtherToolsReadIt) {
  const std::string in = picture("in.png", 160, 120, 90);
  const std::string json = render(in + " -o " + path("out.png") +
                                  " --effects 'VETH,TRIBOMB' --seed 77 --blend 'Soft Light' --alpha 0.4 --rotate left "
                                  "--flatten 1 --half --look-json");
  const look::Look rendered = parse(json);
  EXPECT_EQ(rendered.stack.effects, (std::vector<std::string>{"VETH", "POLYBOMB"}));
  EXPECT_EQ(rendered.stack.seed, 77u);
  EXPECT_EQ(rendered.stack.blend, BlendMode::softLight);
  EXPECT_EQ(rendered.stack.opacity, 0.4);
  EXPECT_EQ(rendered.size.quality, SaveQuality::half);
  ASSERT_EQ(rendered.edits.size(), 2u);

  render(path("out.png") + " -o " + path("out.jpg") + " --look " + path("out.png"));
  for (const char* name : {"out.png", "out.jpg"}) {
    const RunResult look = run(std::string("look ") + path(name));
    EXPECT_EQ(look.code, 0) << look.err;
    EXPECT_EQ(parse(look.out), rendered) << name;
    const RunResult exiv2 = tool("exiv2 -px " + path(name));
    EXPECT_NE(exiv2.out.find("Xmp.zorvex.look"), std::string::npos) << name << ": " << exiv2.out << exiv2.err;
    const RunResult exiftool = tool("exiftool -s3 -XMP-zorvex:Look " + path(name));
    EXPECT_EQ(parse(exiftool.out), rendered) << name << ": " << exiftool.err;

    // A re-save by exiftool, adding its own XMP and EXIF: the look is still found.
    const RunResult resave = tool("exiftool -q -overwrite_original -XMP-dc:Title=hello -Artist=someone " + path(name));
    EXPECT_EQ(resave.code, 0) << resave.err;
    EXPECT_EQ(parse(run(std::string("look ") + path(name)).out), rendered) << name;
  }
  EXPECT_EQ(parse(run("look --compact " + path("out.jpg")).out), rendered);
}

TEST_F(LookCli, ALookRendersTheSamePixelsOnAnotherPictureBothWays) {
  const std::string first = picture("first.png", 64, 48, 40), second = picture("second.png", 56, 56, 200);
  // The look of a render of the first picture, used on the second.
  const std::string options = "--effects 'GRABOID,AGENCY,XEXOX' --seed 9 --blend Difference --alpha 0.75 --mirror v";
  render(first + " -o " + path("first-out.png") + " " + options);
  render(second + " -o " + path("direct.png") + " " + options);
  render(second + " -o " + path("by-look.png") + " --look " + path("first-out.png"));
  EXPECT_EQ(readFile(path("by-look.png")), readFile(path("direct.png")));
  // The other way round: a look file, written by hand, renders as the options that say the same.
  writeFile(path("look.json"), R"({"zorvexLook": 1, "effects": ["VETH"], "seed": "3", "edits": ["rotate right"]})");
  render(first + " -o " + path("by-json.png") + " --look " + path("look.json"));
  render(first + " -o " + path("by-options.png") + " --effects VETH --seed 3 --rotate right --full");
  EXPECT_EQ(readFile(path("by-json.png")), readFile(path("by-options.png")));
}

TEST_F(LookCli, OptionsReplaceThePartsOfALookThatTheyName) {
  const std::string in = picture("in.png", 40, 40, 10);
  writeFile(path("look.json"),
            R"({"zorvexLook": 1, "effects": ["VETH"], "seed": "3", "blend": "Hue", "opacity": 0.5, "size": "half",
                "edits": ["mirror h", "flatten"]})");
  const look::Look base = parse(readFile(path("look.json")));
  auto with = [&](const std::string& extra) {
    return parse(render(in + " -o " + path("out.png") + " --look " + path("look.json") + " --look-json " + extra));
  };
  EXPECT_EQ(with(""), base);
  look::Look want = base;
  want.stack.effects = {"AGENCY"};
  want.stack.blend = BlendMode::normal;
  EXPECT_EQ(with("--effects AGENCY --blend Normal"), want);
  want = base;
  want.stack = look::seededStack({"VETH"}, 4, BlendMode::hue, 1.0);
  want.size.quality = SaveQuality::full;
  want.edits = {};
  want.edits.resize(1);
  want.edits[0].edit = look::Edit::rotateLeft;
  EXPECT_EQ(with("--seed 4 --alpha 1 --full --rotate left"), want);
  // A preview can't flatten, whichever part asks for it.
  const RunResult preview = run("render -q " + in + " -o " + path("out.png") + " --look " + path("look.json") + " --width 20");
  EXPECT_EQ(preview.code, 2);
  EXPECT_NE(preview.err.find("can't go with --width"), std::string::npos) << preview.err;
}

TEST_F(LookCli, MissingAndDamagedLooksAreClearFailures) {
  const std::string in = picture("in.png", 32, 32, 0);
  RunResult r = run("look " + in);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("carries no look"), std::string::npos) << r.err;
  writeFile(path("bad.json"), R"({"zorvexLook": 2, "effects": []})");
  writeFile(path("notes.txt"), "hello");
  const struct {
    std::string args;
    int code;
    std::string says;
  } cases[] = {
      {"look", 2, "one picture"},
      {"look " + path("none.png"), 1, "can't open it"},
      {"look " + path("bad.json"), 1, "version 2"},
      {"look " + path("notes.txt"), 1, "neither a picture nor a look"},
      {"render " + in + " -o " + path("o.png") + " --look " + in, 1, "it carries no look"},
      {"render " + in + " -o " + path("o.png") + " --look " + path("bad.json"), 1, "version 2"},
  };
  for (const auto& c : cases) {
    r = run(c.args);
    EXPECT_EQ(r.code, c.code) << c.args << "\n" << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(path("o.png")));
}

TEST_F(LookCli, NothingPersonalOfTheOriginalComesAlong) {
  const std::string in = picture("camera.jpg", 48, 32, 120);
  const RunResult tag = tool("exiftool -q -overwrite_original -GPSLatitude=51.5 -GPSLatitudeRef=N -Make=Phone -Artist=Someone "
                             "-XMP-dc:Creator=Someone " + in);
  ASSERT_EQ(tag.code, 0) << tag.err;
  ASSERT_NE(tool("exiftool -s -GPSLatitude " + in).out.find("GPSLatitude"), std::string::npos);
  for (const char* out : {"out.jpg", "out.png"}) {
    render(in + " -o " + path(out) + " --seed 1");
    const RunResult all = tool("exiftool -s -a -G1 " + path(out));
    for (const char* personal : {"GPS", "Make", "Artist", "Creator", "Someone"})
      EXPECT_EQ(all.out.find(personal), std::string::npos) << out << " has " << personal << ":\n" << all.out;
    EXPECT_NE(all.out.find("Look"), std::string::npos) << all.out;
  }
}

}  // namespace
}  // namespace zorvex
