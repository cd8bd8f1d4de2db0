// Animated GIFs written through giflib: a colour table of its own for each frame (median cut, up to
// 256 colours), each frame's delay in hundredths of a second, and looping for ever.
#pragma once

#include <memory>
#include <string>

#include "core/imaging/uikit.h"

namespace zorvex::native {

class GifWriter {
 public:
  GifWriter();
  ~GifWriter();
  GifWriter(const GifWriter&) = delete;
  GifWriter& operator=(const GifWriter&) = delete;

  // A GIF of w x h pixels (frames of another size are scaled to it) with up to `colors` colours a
  // frame (2 to 256; rounded down to a power of two).
  bool open(const std::string& path, int32_t w, int32_t h, int colors, std::string& error);
  // One frame shown for `delay` hundredths of a second (2 at least: browsers slow down anything less).
  bool write(const CGImageRef& picture, int delay, std::string& error);
  bool finish(std::string& error);

 private:
  struct State;
  std::unique_ptr<State> s_;
};

}  // namespace zorvex::native
