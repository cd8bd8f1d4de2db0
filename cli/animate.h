// Moving pictures through the stack: every frame of a GIF or a video, or a loop made from a still,
// rendered with the same controls, with new ones every K frames, or with controls that travel a closed
// path; written as a GIF or a video, made to fit a size when asked.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "core/imaging/uikit.h"
#include "core/stack/controls.h"
#include "native/video_io.h"

namespace zorvex::cli {

class ProgressBar;

struct AnimationJob {
  std::string input, output;
  bool still = false;         // the input is a still, made a loop of `loop` frames
  UIImage picture;            // that still when it is given rather than read from `input`
  int64_t loop = 0;           // the controls go round a closed path every `loop` frames
  int64_t rollEvery = 0;      // new controls every this many frames, rolled from seed + 1, seed + 2, ...
  int64_t maxSize = 0;        // bytes the output must not exceed; 0 for no limit
  native::Ratio fps{12, 1};   // frames a second of a loop made from a still
  ControlValues controls;
  uint64_t seed = 0;
};

// The stack on frame `index` (from 0) with the given controls; nil with `error` set, naming the frame,
// on failure.
using FrameRenderer = std::function<CGImageRef(const UIImage& frame, const ControlValues& controls, int64_t index,
                                               std::string& error)>;

// Renders every frame and writes the output through a temporary file beside it; `error` names the
// file or the frame concerned. `bar` (may be null) counts frames. On success `note` may say what was
// done to fit the size.
bool renderAnimation(const AnimationJob& job, const FrameRenderer& render, ProgressBar* bar, std::string& note,
                     std::string& error);

// A size in bytes: "8M" (MiB), "500K" (KiB), "2MB" (10^6), "1.5G", or a plain count.
bool parseByteSize(const std::string& text, int64_t& bytes);
// "7.6 MB" style, in the units the person gave.
std::string formatBytes(int64_t bytes);

}  // namespace zorvex::cli
