// GIFs and videos through the stack: frame counts, delays, rates, durations and sound kept (read back
// with giflib and ffprobe), loops made from a still, controls rolled every K frames, a size limit that
// is never exceeded, and no half-written video after an interrupt.
#include <gif_lib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <map>
#include <sstream>
#include <thread>

#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using testsupport::quote;
using testsupport::RunResult;

struct GifFrame {
  std::vector<uint8_t> rgb;
  int delay = 0;
};
struct Gif {
  int width = 0, height = 0;
  bool loops = false;
  std::vector<GifFrame> frames;
};

// A GIF of `delays.size()` frames of w x h: a gradient that moves a step each frame, or stands
// still when `still`.
void writeGif(const std::string& path, int w, int h, const std::vector<int>& delays, bool still = false) {
  int error = 0;
  GifFileType* gif = EGifOpenFileName(path.c_str(), false, &error);
  ASSERT_NE(gif, nullptr);
  EGifSetGifVersion(gif, true);
  std::vector<GifColorType> colours(256);
  for (int i = 0; i < 256; ++i) colours[size_t(i)] = {uint8_t(i), uint8_t(255 - i), uint8_t((i * 7) & 255)};
  ColorMapObject* map = GifMakeMapObject(256, colours.data());
  EGifPutScreenDesc(gif, w, h, 8, 0, map);
  for (size_t f = 0; f < delays.size(); ++f) {
    GraphicsControlBlock control{DISPOSE_DO_NOT, false, delays[f], NO_TRANSPARENT_COLOR};
    GifByteType extension[4];
    EGifGCBToExtension(&control, extension);
    EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, extension);
    EGifPutImageDesc(gif, 0, 0, w, h, false, nullptr);
    std::vector<GifByteType> row(static_cast<size_t>(w));
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) row[size_t(x)] = GifByteType((x * 4 + y * 2 + (still ? 0 : int(f) * 9)) & 255);
      EGifPutLine(gif, row.data(), w);
    }
  }
  GifFreeMapObject(map);
  EGifCloseFile(gif, &error);
}

// Every frame of a GIF whose frames each cover the whole picture (as ours do), with its delay.
Gif readGif(const std::string& path) {
  Gif out;
  int error = 0;
  GifFileType* gif = DGifOpenFileName(path.c_str(), &error);
  if (!gif) return out;
  if (DGifSlurp(gif) == GIF_OK) {
    out.width = gif->SWidth;
    out.height = gif->SHeight;
    for (int i = 0; i < gif->ImageCount; ++i) {
      const SavedImage& image = gif->SavedImages[i];
      for (int e = 0; e < image.ExtensionBlockCount; ++e)
        if (image.ExtensionBlocks[e].Function == APPLICATION_EXT_FUNC_CODE &&
            std::memcmp(image.ExtensionBlocks[e].Bytes, "NETSCAPE2.0", 11) == 0)
          out.loops = true;
      const ColorMapObject* map = image.ImageDesc.ColorMap ? image.ImageDesc.ColorMap : gif->SColorMap;
      GifFrame frame;
      GraphicsControlBlock control{};
      if (DGifSavedExtensionToGCB(gif, i, &control) == GIF_OK) frame.delay = control.DelayTime;
      const size_t n = size_t(image.ImageDesc.Width) * size_t(image.ImageDesc.Height);
      for (size_t p = 0; p < n && map; ++p) {
        const GifColorType c = map->Colors[image.RasterBits[p]];
        frame.rgb.insert(frame.rgb.end(), {c.Red, c.Green, c.Blue});
      }
      out.frames.push_back(std::move(frame));
    }
  }
  DGifCloseFile(gif, &error);
  return out;
}

class Moving : public ::testing::Test {
 protected:
  RunResult run(const std::string& args) const {
    return testsupport::shell(dir, "cd " + quote(dir.path()) + " && ZORVEX_DEFAULTS=" + quote(dir / "d.plist") + " " +
                                       ZORVEX_CLI + " " + args);
  }
  // What ffprobe says of the first stream of a kind ("v" or "a"): frames counted, rate, duration,
  // width, codec.
  std::map<std::string, std::string> probe(const std::string& file, const std::string& stream) const {
    const RunResult r = testsupport::shell(
        dir, "ffprobe -v error -count_frames -select_streams " + stream +
                 ":0 -show_entries stream=nb_read_frames,avg_frame_rate,duration,width,codec_name"
                 " -of default=noprint_wrappers=1 " + quote(dir / file));
    std::map<std::string, std::string> entries;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);)
      if (const size_t eq = line.find('='); eq != std::string::npos) entries[line.substr(0, eq)] = line.substr(eq + 1);
    return entries;
  }
  static constexpr const char* kLook = " --seed 3 --effects VETH,AGENCY,INTERFACE ";
  testsupport::TempDir dir;
};

TEST_F(Moving, AGifKeepsItsFrameCountAndDelays) {
  writeGif(dir / "in.gif", 40, 30, {5, 10, 20, 7, 3});
  const RunResult r = run(std::string("render in.gif -o out.gif") + kLook);
  ASSERT_EQ(r.code, 0) << r.err;
  const Gif in = readGif(dir / "in.gif"), out = readGif(dir / "out.gif");
  ASSERT_EQ(out.frames.size(), 5u);
  EXPECT_EQ(out.width, 40);
  EXPECT_EQ(out.height, 30);
  EXPECT_TRUE(out.loops);
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(out.frames[i].delay, in.frames[i].delay) << i;
  EXPECT_NE(out.frames[0].rgb, in.frames[0].rgb);  // the stack ran

  // Into a video and back: the same frames and the same length.
  ASSERT_EQ(run(std::string("render in.gif -o via.mp4") + kLook).code, 0);
  EXPECT_EQ(probe("via.mp4", "v")["nb_read_frames"], "5");
  EXPECT_EQ(probe("via.mp4", "v")["duration"], "0.450000");
  ASSERT_EQ(run(std::string("render via.mp4 -o back.gif") + kLook).code, 0);
  const Gif back = readGif(dir / "back.gif");
  ASSERT_EQ(back.frames.size(), 5u);
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(back.frames[i].delay, in.frames[i].delay) << i;
}

TEST_F(Moving, AVideoKeepsItsFramesRateLengthAndSound) {
  // Made by FFmpeg's libraries: H.264 with AAC sound, which is carried as it is, and MPEG-4 with PCM
  // sound, which an MP4 can't hold and is made AAC.
  const RunResult made = testsupport::shell(
      dir, "cd " + quote(dir.path()) +
               " && ffmpeg -v error -f lavfi -i testsrc=size=64x48:rate=15 -f lavfi -i sine=sample_rate=44100 -t 1 "
               "-c:v libx264 -pix_fmt yuv420p -c:a aac -shortest in.mp4"
               " && ffmpeg -v error -f lavfi -i testsrc=size=66x50:rate=25 -f lavfi -i sine=sample_rate=48000 -t 0.8 "
               "-c:v mpeg4 -c:a pcm_s16le -shortest in.mov");
  ASSERT_EQ(made.code, 0) << made.err;
  for (const std::string in : {"in.mp4", "in.mov"}) {
    const std::string out = "out-" + in.substr(3) + ".mp4";
    const RunResult r = run("render " + in + " -o " + out + kLook);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, "");  // FFmpeg's own chatter stays off
    auto video = probe(out, "v"), original = probe(in, "v"), sound = probe(out, "a");
    for (const std::string entry : {"nb_read_frames", "avg_frame_rate", "duration", "width"})
      EXPECT_EQ(video[entry], original[entry]) << in << " " << entry;
    EXPECT_EQ(video["codec_name"], "h264");
    EXPECT_EQ(sound["codec_name"], "aac") << in;
    EXPECT_NEAR(std::stod(sound["duration"]), std::stod(probe(in, "a")["duration"]), 0.05) << in;
  }
}

TEST_F(Moving, AStillBecomesALoopAndControlsRollEveryKFrames) {
  ASSERT_EQ(run("render --sample --width 48 --effects '' --effected-only -q -o still.png").code, 0);
  RunResult r = run(std::string("render still.png --loop 6 --fps 10 -o loop.gif") + kLook);
  ASSERT_EQ(r.code, 0) << r.err;
  const Gif loop = readGif(dir / "loop.gif");
  ASSERT_EQ(loop.frames.size(), 6u);
  for (const GifFrame& f : loop.frames) EXPECT_EQ(f.delay, 10);
  EXPECT_NE(loop.frames[1].rgb, loop.frames[3].rgb);  // the controls moved

  // A GIF whose frames are all alike shows where the controls change: every 2 frames.
  writeGif(dir / "same.gif", 32, 24, {4, 4, 4, 4, 4}, true);
  ASSERT_EQ(run(std::string("render same.gif -o rolled.gif --roll-every 2") + kLook).code, 0);
  ASSERT_EQ(run(std::string("render same.gif -o kept.gif") + kLook).code, 0);
  const Gif rolled = readGif(dir / "rolled.gif"), kept = readGif(dir / "kept.gif");
  ASSERT_EQ(rolled.frames.size(), 5u);
  EXPECT_EQ(rolled.frames[0].rgb, rolled.frames[1].rgb);
  EXPECT_NE(rolled.frames[1].rgb, rolled.frames[2].rgb);
  EXPECT_EQ(rolled.frames[2].rgb, rolled.frames[3].rgb);
  EXPECT_NE(rolled.frames[3].rgb, rolled.frames[4].rgb);
  EXPECT_EQ(rolled.frames[0].rgb, kept.frames[4].rgb);  // the first K frames have the look's own controls
}

TEST_F(Moving, ASizeLimitIsNeverExceeded) {
  ASSERT_EQ(run("render --sample --width 120 --effects '' --effected-only -q -o still.png").code, 0);
  ASSERT_EQ(run(std::string("render still.png --loop 8 -o big.gif") + kLook).code, 0);
  const auto size = [&](const std::string& name) { return std::filesystem::file_size(dir / name); };
  for (const std::string limit : {"60K", "20000"}) {
    const RunResult r = run(std::string("render still.png --loop 8 -o small.gif --max-size ") + limit + kLook);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_LE(size("small.gif"), limit == "60K" ? 60u * 1024 : 20000u);
    EXPECT_NE(r.err.find("small.gif: "), std::string::npos);  // says what it made
  }
  EXPECT_LT(size("small.gif"), size("big.gif"));
  RunResult r = run(std::string("render still.png --loop 8 -o small.mp4 --max-size 12K") + kLook);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_LE(size("small.mp4"), 12u * 1024);
  // Too small for anything: a failure, and no file at all.
  r = run(std::string("render still.png --loop 8 -o none.gif --max-size 300") + kLook);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("can't be made to fit"), std::string::npos) << r.err;
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(e.path().filename().string().find("none"), std::string::npos) << e.path();
}

TEST_F(Moving, WrongKindsOfOutputAreUsageErrors) {
  ASSERT_EQ(run("render --sample --width 48 -q --effects '' -o still.png").code, 0);
  writeGif(dir / "in.gif", 20, 20, {5, 5});
  const struct {
    std::string args, says;
  } cases[] = {
      {"render still.png -o out.gif", "--loop N"},
      {"render in.gif -o out.png", "in.gif is a GIF or a video"},
      {"render still.png --loop 4 -o out.png", "--loop makes a GIF or a video"},
      {"render still.png --loop 1 -o out.gif", "--loop"},
      {"render in.gif -o out.gif --fps 10", "--fps"},
      {"render still.png --loop 4 --roll-every 2 -o out.gif", "--roll-every"},
      {"render in.gif --roll-every 2 --controls c.txt -o out.gif", "--roll-every"},
      {"render in.gif --max-size lots -o out.gif", "--max-size"},
      {"render still.png --max-size 1M -o out.png", "--max-size is for GIF and video"},
      {"render in.gif -o out.webp", ".gif, .mp4"},
  };
  for (const auto& c : cases) {
    const RunResult r = run(c.args);
    EXPECT_EQ(r.code, 2) << c.args;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << "\n" << r.err;
  }
  // In a batch the same mistake is the one file's failure.
  const RunResult batch = run("render still.png in.gif -o 'x/{name}.gif' --seed 1");
  EXPECT_EQ(batch.code, 1);
  EXPECT_NE(batch.err.find("still.png: a still becomes a GIF or a video with --loop N"), std::string::npos) << batch.err;
  EXPECT_TRUE(std::filesystem::exists(dir / "x/in.gif"));
}

// A video being written when Ctrl-C comes leaves nothing behind.
TEST_F(Moving, AnInterruptedVideoLeavesNoFile) {
  const std::string folder = dir / "work";
  std::filesystem::create_directory(folder);
  const pid_t child = fork();
  if (child == 0) {
    if (chdir(folder.c_str()) != 0) _exit(3);
    const std::string defaults = dir / "d.plist";
    execl(ZORVEX_CLI, ZORVEX_CLI, "render", "--sample", "--width", "64", "--loop", "5000", "--seed", "1", "-o",
          "long.mp4", "--defaults", defaults.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  // Once the hidden temporary file is there, the video is being written.
  bool writing = false;
  for (int i = 0; i < 400 && !writing; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
    writing = !std::filesystem::is_empty(folder);
  }
  EXPECT_TRUE(writing);
  kill(child, SIGINT);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

}  // namespace
}  // namespace zorvex
