// A progress bar on standard error for long work: pictures of a batch or frames of a video, with the
// count and the time left. Drawn only when standard error is a terminal; lines said meanwhile are
// printed above it.
#pragma once

#include <cstdint>
#include <string>

namespace zorvex::cli {

class ProgressBar {
 public:
  // `unit` names what is counted ("pictures", "frames"); a `total` of 0 means it is not known.
  ProgressBar(std::string unit, int64_t total, bool enabled);
  ~ProgressBar() { finish(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // True when standard error is a terminal and the command isn't quiet.
  static bool wanted(bool quiet);

  void setTotal(int64_t total) { total_ = total; }
  // Redraws with `done` finished, at most ten times a second (always for the last one).
  void update(int64_t done);
  // Prints a line on standard error, above the bar.
  void say(const std::string& line);
  // Takes the bar off the screen.
  void finish();

 private:
  void draw();
  std::string unit_;
  int64_t total_;
  int64_t done_ = 0;
  bool enabled_;
  bool shown_ = false;
  double start_, lastDraw_ = -1;
};

// "1:05" or "1:02:03".
std::string formatDuration(double seconds);

}  // namespace zorvex::cli
