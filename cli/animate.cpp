#include "cli/animate.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>

#include "cli/progress.h"
#include "core/stack/loop_controls.h"
#include "native/gif_io.h"
#include "native/image_io.h"
#include "native/interruptible_output.h"

namespace zorvex::cli {
namespace {

using native::Ratio;
using native::VideoFrame;

// Where frames come from: a GIF or a video, or one still shown `loop` times.
class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual bool next(VideoFrame& frame, std::string& error) = 0;
  Ratio timeBase{1, 1}, frameRate;
  int64_t count = 0;  // 0 when not known
};

class VideoSource final : public FrameSource {
 public:
  bool open(const std::string& path, std::string& error) {
    if (!reader.open(path, error)) return false;
    timeBase = reader.info().timeBase;
    frameRate = reader.info().frameRate;
    count = reader.info().frameCount;
    return true;
  }
  bool next(VideoFrame& frame, std::string& error) override { return reader.next(frame, error); }
  native::VideoReader reader;
};

class StillSource final : public FrameSource {
 public:
  StillSource(UIImage picture, int64_t frames, Ratio fps) : picture_(std::move(picture)) {
    timeBase = {fps.den, fps.num};
    frameRate = fps;
    count = frames;
  }
  bool next(VideoFrame& frame, std::string&) override {
    if (done_ >= count) return false;
    frame.picture = picture_;
    frame.pts = done_++;
    frame.duration = 1;
    return true;
  }

 private:
  UIImage picture_;
  int64_t done_ = 0;
};

// What a sink does to the frames to make a file smaller.
struct Encoding {
  double scale = 1.0;   // of the width and height
  int colors = 256;     // a GIF's colours a frame
  int64_t bitRate = 0;  // a video's bits a second; 0 for a constant quality
  int64_t step = 1;     // keep every step-th frame, each lasting until the next kept one
  bool audio = true;    // carry the input's audio into a video
};

// Where frames go: a GIF or a video, opened at the first frame, when its size is known.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual bool write(const CGImageRef& picture, int64_t pts, int64_t duration, std::string& error) = 0;
  virtual bool finish(std::string& error) = 0;
};

int32_t scaled(int32_t side, double scale) { return std::max(1, int32_t(std::lround(side * scale))); }

class GifSink final : public FrameSink {
 public:
  GifSink(std::string path, Ratio timeBase, Encoding encoding)
      : path_(std::move(path)), timeBase_(timeBase), encoding_(encoding) {}

  // GIF delays are whole hundredths: each frame runs from its start, rounded, to the next one's, so
  // the rounding never adds up. A frame that would last less than 2 hundredths (which browsers slow
  // down) gives way to the next one.
  bool write(const CGImageRef& picture, int64_t pts, int64_t duration, std::string& error) override {
    if (!opened_) {
      if (!gif_.open(path_, scaled(picture->width(), encoding_.scale), scaled(picture->height(), encoding_.scale),
                     encoding_.colors, error))
        return false;
      opened_ = true;
    }
    const int64_t start = hundredths(pts);
    end_ = std::max(end_, hundredths(pts + duration));
    if (held_ && start - heldStart_ >= 2) {
      if (!gif_.write(held_, int(start - heldStart_), error)) return false;
      heldStart_ = start;
    } else if (!held_) {
      heldStart_ = start;
    }
    held_ = picture;
    return true;
  }
  bool finish(std::string& error) override {
    if (held_ && !gif_.write(held_, int(std::max<int64_t>(2, end_ - heldStart_)), error)) return false;
    return gif_.finish(error);
  }

 private:
  int64_t hundredths(int64_t t) const {
    return int64_t(std::llround(double(t) * timeBase_.num * 100.0 / double(timeBase_.den)));
  }
  std::string path_;
  Ratio timeBase_;
  Encoding encoding_;
  native::GifWriter gif_;
  bool opened_ = false;
  CGImageRef held_;
  int64_t heldStart_ = 0, end_ = 0;
};

class VideoSink final : public FrameSink {
 public:
  VideoSink(std::string path, native::VideoSettings settings, Encoding encoding)
      : path_(std::move(path)), settings_(std::move(settings)), encoding_(encoding) {}
  bool write(const CGImageRef& picture, int64_t pts, int64_t duration, std::string& error) override {
    if (!opened_) {
      settings_.width = scaled(picture->width(), encoding_.scale);
      settings_.height = scaled(picture->height(), encoding_.scale);
      settings_.bitRate = encoding_.bitRate;
      if (!encoding_.audio) settings_.audioFrom.clear();
      if (!video_.open(path_, settings_, error)) return false;
      opened_ = true;
    }
    return video_.write(picture, pts, duration, error);
  }
  bool finish(std::string& error) override { return video_.finish(error); }

 private:
  std::string path_;
  native::VideoSettings settings_;
  Encoding encoding_;
  native::VideoWriter video_;
  bool opened_ = false;
};

int64_t fileSize(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? int64_t(info.st_size) : -1;
}

// Frames from `source` (named `from` in errors) into `sink` (named `to`), every `step`-th kept, each
// kept one lasting until the next. `transform` renders a frame (or passes it on); its errors name
// themselves. Gives the number of frames read.
int64_t pump(FrameSource& source, const std::string& from, FrameSink& sink, const std::string& to, int64_t step,
             const std::function<CGImageRef(const VideoFrame&, int64_t index, std::string& error)>& transform,
             ProgressBar* bar, std::string& error) {
  VideoFrame frame;
  std::optional<VideoFrame> kept;
  int64_t index = 0;
  const auto written = [&](const VideoFrame& f, int64_t duration) {
    if (sink.write(f.picture.CGImage, f.pts, duration, error)) return true;
    error = to + ": " + error;
    return false;
  };
  for (; source.next(frame, error); ++index) {
    if (index % step == 0) {
      if (kept && !written(*kept, frame.pts - kept->pts)) return -1;
      const CGImageRef out = transform(frame, index, error);
      if (!out) return -1;
      kept = VideoFrame{UIImage{out, UIImageOrientationUp}, frame.pts, frame.duration};
    } else if (kept) {
      kept->duration = frame.pts + frame.duration - kept->pts;
    }
    if (bar) bar->update(index + 1);
  }
  if (!error.empty() || index == 0) {
    error = from + ": " + (error.empty() ? "it holds no frames" : error);
    return -1;
  }
  if (!written(*kept, kept->duration)) return -1;
  if (!sink.finish(error)) {
    error = to + ": " + error;
    return -1;
  }
  return index;
}

std::unique_ptr<FrameSink> makeSink(const std::string& path, Ratio timeBase, Ratio frameRate,
                                    const native::VideoSettings& base, const Encoding& encoding) {
  if (native::isGifPath(path)) return std::make_unique<GifSink>(path, timeBase, encoding);
  native::VideoSettings settings = base;
  settings.timeBase = timeBase;
  settings.frameRate = frameRate;
  if (encoding.step > 1 && settings.frameRate.num > 0) settings.frameRate.den *= int(encoding.step);
  return std::make_unique<VideoSink>(path, settings, encoding);
}

// Tries encodings of the exactly kept frames in `frames` until one fits in `limit` bytes, adjusting
// size, colours, bit rate and frame count by how far each try missed.
bool fit(const std::string& frames, const std::string& target, const std::string& output, int64_t limit,
         Ratio frameRate, const native::VideoSettings& base, const native::VideoInfo& original, std::string& note,
         std::string& error) {
  native::VideoReader probe;
  if (!probe.open(frames, error)) return false;
  const native::VideoInfo info = probe.info();
  const bool gif = native::isGifPath(target);
  // The length in seconds and the number of the kept frames.
  double seconds = 0;
  int64_t count = 0;
  {
    VideoFrame f;
    int64_t end = 0;
    for (; probe.next(f, error); ++count) end = f.pts + f.duration;
    if (!error.empty()) return false;
    seconds = double(end) * info.timeBase.value();
  }
  const double pixels = double(info.width) * double(info.height);
  const double rate = seconds > 0 ? double(count) / seconds : 25.0;
  Encoding e;
  if (gif) {
    // A glitched frame costs about three quarters of a byte a pixel; start near the size that fits.
    const double guess = pixels * double(std::max<int64_t>(1, count)) * 0.75;
    e.scale = std::min(1.0, std::sqrt(double(limit) / guess));
  } else {
    int64_t audio = original.hasAudio && !base.audioFrom.empty() ? original.audioBitRate : 0;
    if (double(audio) * seconds / 8 > 0.5 * double(limit)) {
      e.audio = false;  // the sound alone would take half the room
      audio = 0;
    }
    e.bitRate = std::max<int64_t>(16000, int64_t(double(limit) * 8 * 0.92 / std::max(seconds, 0.04)) - audio - 20000);
    // Below about 0.06 bits a pixel H.264 falls apart: smaller frames instead.
    const double bitsPerPixel = double(e.bitRate) / (pixels * rate);
    if (bitsPerPixel < 0.06) e.scale = std::max(0.1, std::sqrt(bitsPerPixel / 0.06));
  }
  // Each try is written over the last (the writers truncate the file, which keeps its mode). A try
  // that fits with room to spare at less than full size is followed by a larger one; if that one
  // misses, the fitting one is made again.
  std::optional<Encoding> fitted;
  const auto encode = [&](const Encoding& with, int64_t& size) {
    VideoSource source;
    if (!source.open(frames, error)) return false;
    const std::unique_ptr<FrameSink> sink = makeSink(target, info.timeBase, frameRate, base, with);
    const auto pass = [](const VideoFrame& f, int64_t, std::string&) { return f.picture.CGImage; };
    if (pump(source, "the kept frames", *sink, output, with.step, pass, nullptr, error) < 0) return false;
    size = fileSize(target);
    return size >= 0;
  };
  const auto done = [&](const Encoding& with, int64_t size) {
    char text[200];
    std::snprintf(text, sizeof text, "%s: %s, under %s (%dx%d%s%s%s)", output.c_str(), formatBytes(size).c_str(),
                  formatBytes(limit).c_str(), scaled(info.width, with.scale), scaled(info.height, with.scale),
                  gif ? (", " + std::to_string(with.colors) + " colours").c_str() : "",
                  with.step > 1 ? (", 1 frame in " + std::to_string(with.step)).c_str() : "",
                  with.audio || gif ? "" : ", without its sound");
    note = text;
    return true;
  };
  for (int attempt = 0; attempt < 14; ++attempt) {
    if (scaled(info.width, e.scale) < 16 || scaled(info.height, e.scale) < 16) break;
    int64_t size = 0;
    if (!encode(e, size)) return false;
    const double r = double(limit) / double(std::max<int64_t>(1, size));
    if (size <= limit) {
      if (r < 1.0 / 0.7 || e.scale >= 1.0 || fitted || attempt >= 10) return done(e, size);
      fitted = e;
      e.scale = std::min(1.0, e.scale * std::sqrt(r * 0.9));
      continue;
    }
    if (fitted) {
      if (!encode(*fitted, size)) return false;
      if (size <= limit) return done(*fitted, size);
      e = *fitted;
    }
    if (gif) {
      if (r >= 0.8 && e.colors > 64) {
        e.colors /= 2;
      } else if (scaled(info.width, e.scale * std::sqrt(r)) >= 64 || e.step >= 8) {
        e.scale *= std::min(0.95, std::sqrt(r) * 0.95);
      } else {
        e.step *= 2;
      }
    } else if (e.bitRate > 0 && double(e.bitRate) * r * 0.9 / (pixels * e.scale * e.scale * rate) >= 0.03) {
      e.bitRate = int64_t(double(e.bitRate) * r * 0.9);
    } else {
      e.scale *= std::min(0.9, std::sqrt(r));
    }
  }
  error = output + ": can't be made to fit in " + formatBytes(limit) + " (even small and short it is larger)";
  return false;
}

}  // namespace

bool parseByteSize(const std::string& text, int64_t& bytes) {
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || end == text.c_str() || !std::isfinite(v) || v <= 0) return false;
  std::string unit(end);
  for (char& c : unit) c = char(std::toupper(static_cast<unsigned char>(c)));
  double scale = 1;
  if (unit == "" || unit == "B") scale = 1;
  else if (unit == "K" || unit == "KIB") scale = 1024.0;
  else if (unit == "M" || unit == "MIB") scale = 1024.0 * 1024;
  else if (unit == "G" || unit == "GIB") scale = 1024.0 * 1024 * 1024;
  else if (unit == "KB") scale = 1e3;
  else if (unit == "MB") scale = 1e6;
  else if (unit == "GB") scale = 1e9;
  else return false;
  const double total = std::floor(v * scale);
  if (total < 1 || total > 1e15) return false;
  bytes = int64_t(total);
  return true;
}

std::string formatBytes(int64_t bytes) {
  char text[32];
  if (bytes >= 1024 * 1024) std::snprintf(text, sizeof text, "%.1f MiB", double(bytes) / (1024.0 * 1024));
  else if (bytes >= 1024) std::snprintf(text, sizeof text, "%.1f KiB", double(bytes) / 1024.0);
  else std::snprintf(text, sizeof text, "%lld bytes", static_cast<long long>(bytes));
  return text;
}

bool renderAnimation(const AnimationJob& job, const FrameRenderer& render, ProgressBar* bar, std::string& note,
                     std::string& error) {
  std::unique_ptr<FrameSource> source;
  native::VideoInfo original;
  if (job.still) {
    UIImage picture = job.picture ? job.picture : native::readImage(job.input, error);
    if (!picture) {
      error = job.input + ": " + error;
      return false;
    }
    source = std::make_unique<StillSource>(picture, job.loop, job.fps);
  } else {
    auto video = std::make_unique<VideoSource>();
    if (!video->open(job.input, error)) {
      error = job.input + ": " + error;
      return false;
    }
    original = video->reader.info();
    source = std::move(video);
  }
  if (bar) bar->setTotal(source->count);

  // The controls of each frame: the same, round a loop, or rolled anew every rollEvery frames.
  int64_t segment = 0;
  ControlValues current = job.controls;
  const auto renderFrame = [&](const VideoFrame& frame, int64_t index, std::string& why) -> CGImageRef {
    if (job.loop > 0) return render(frame.picture, loopControls(job.controls, index % job.loop, job.loop), index, why);
    if (job.rollEvery > 0 && index / job.rollEvery != segment) {
      segment = index / job.rollEvery;
      current = segment == 0 ? job.controls : rollControls(job.seed + uint64_t(segment));
    }
    return render(frame.picture, current, index, why);
  };

  // A video's sound goes along into a video.
  native::VideoSettings base;
  if (!native::isGifPath(job.output) && original.hasAudio) {
    base.audioFrom = job.input;
    base.audioStart = original.startSeconds;
  }
  if (job.maxSize <= 0) {
    if (!native::writeThroughTemporary(job.output, [&](const std::string& temporary, std::string& why) {
      const std::unique_ptr<FrameSink> sink = makeSink(temporary, source->timeBase, source->frameRate, base, Encoding{});
      return pump(*source, job.input, *sink, job.output, 1, renderFrame, bar, why) > 0;
    }, error)) {
      if (error.rfind(job.output + ": ", 0) != 0 && error.rfind(job.input, 0) != 0) error = job.output + ": " + error;
      return false;
    }
    return true;
  }

  // To fit a size the rendered frames are kept exactly in a file of their own, then encoded until
  // an encoding fits.
  const std::string frames = native::makeTemporarySibling(job.output + ".frames.nut", error);
  if (frames.empty()) {
    error = job.output + ": " + error;
    return false;
  }
  native::RemovedOnInterrupt framesGuard(frames);
  bool ok;
  {
    native::VideoSettings lossless;
    lossless.lossless = true;
    const std::unique_ptr<FrameSink> sink = makeSink(frames, source->timeBase, source->frameRate, lossless, Encoding{});
    ok = pump(*source, job.input, *sink, job.output, 1, renderFrame, bar, error) > 0;
  }
  if (bar) bar->finish();
  ok = ok && native::writeThroughTemporary(job.output, [&](const std::string& temporary, std::string& why) {
    return fit(frames, temporary, job.output, job.maxSize, source->frameRate, base, original, note, why);
  }, error);
  if (!ok && error.rfind(job.output + ": ", 0) != 0 && error.rfind(job.input, 0) != 0) error = job.output + ": " + error;
  std::remove(frames.c_str());
  return ok;
}

}  // namespace zorvex::cli
