// Moving pictures for the command line, through FFmpeg's libraries: GIF and video files read frame by
// frame with their timing, and videos written (H.264 in MP4, MOV or Matroska) with the audio of
// another file carried over. GIFs are written by gif_io.h.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/imaging/uikit.h"

namespace zorvex::native {

// A rational number of seconds (a time base) or of frames a second (a rate).
struct Ratio {
  int num = 0, den = 1;
  double value() const { return den ? double(num) / double(den) : 0.0; }
};

struct VideoInfo {
  int32_t width = 0, height = 0;  // as stored, before any turn its orientation asks for
  Ratio timeBase{1, 1};           // of a frame's pts and duration
  Ratio frameRate;                // the stream's average rate; 0 when not known
  int64_t frameCount = 0;         // as the file says or its duration suggests; 0 when not known
  bool hasAudio = false;
  int64_t audioBitRate = 0;       // bits a second of the sound, as the file says or a guess
  double startSeconds = 0;        // the time of the first frame, which becomes 0
  std::string format;             // the demuxer's name: "gif", "mov,mp4,m4a,3gp,3g2,mj2", ...
};

struct VideoFrame {
  UIImage picture;           // with the orientation the stream's display matrix asks for
  int64_t pts = 0;           // from 0 at the first frame, in the time base
  int64_t duration = 0;      // until the next frame (for the last, as the file says)
};

// True when the file holds a GIF or a video in a container we read (MP4, MOV, Matroska, WebM, AVI,
// MPEG-TS, and NUT, which we write ourselves), judged by its content.
bool isAnimationFile(const std::string& path);
// True when the name ends in an extension we write moving pictures to: .gif, .mp4, .m4v, .mov, .mkv.
bool isAnimationPath(const std::string& path);
bool isGifPath(const std::string& path);

class VideoReader {
 public:
  VideoReader();
  ~VideoReader();
  VideoReader(const VideoReader&) = delete;
  VideoReader& operator=(const VideoReader&) = delete;

  bool open(const std::string& path, std::string& error);
  const VideoInfo& info() const;
  // The next frame in display order; false at the end (`error` empty) or on a failure (`error` set).
  bool next(VideoFrame& frame, std::string& error);

 private:
  struct State;
  std::unique_ptr<State> s_;
};

struct VideoSettings {
  int32_t width = 0, height = 0;  // of the written frames; frames of another size are scaled to it
  Ratio timeBase{1, 25};
  Ratio frameRate{25, 1};
  int64_t bitRate = 0;            // bits a second for the picture; 0 for a constant quality
  std::string audioFrom;          // a file whose audio goes along; empty for none
  double audioStart = 0;          // the time in that file that becomes 0 (its first frame's)
  bool lossless = false;          // FFV1 in NUT: frames kept exactly, for reading back
};

// Writes a video in the container its name says (.mp4, .m4v, .mov, .mkv): H.264 at a constant quality
// or a bit rate, 4:2:0 (so an odd width or height loses its last column or row), and the audio of
// `audioFrom` copied as it is where the container takes it, else made AAC.
class VideoWriter {
 public:
  VideoWriter();
  ~VideoWriter();
  VideoWriter(const VideoWriter&) = delete;
  VideoWriter& operator=(const VideoWriter&) = delete;

  bool open(const std::string& path, const VideoSettings& settings, std::string& error);
  // The picture at pts for duration, in the settings' time base; pts must grow.
  bool write(const CGImageRef& picture, int64_t pts, int64_t duration, std::string& error);
  // Flushes the encoder and the rest of the audio, and closes the file.
  bool finish(std::string& error);
  // Bits a second of the audio that goes along (an estimate before finish).
  int64_t audioBitRate() const;

 private:
  struct State;
  std::unique_ptr<State> s_;
};

// FFmpeg's own messages (its warnings, the encoder's statistics) go to standard error only when
// verbose; by default they are off, and failures are told through our errors.
void setLibraryMessages(bool verbose);

// The 8-bit RGB of a picture, scaled to w x h (area averaging when smaller), its alpha over black.
std::vector<uint8_t> scaledRgb(const CGImageRef& picture, int32_t w, int32_t h);

}  // namespace zorvex::native
