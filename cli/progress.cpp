#include "cli/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace zorvex::cli {
namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

int terminalWidth() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 20) return size.ws_col;
  return 80;
}

}  // namespace

std::string formatDuration(double s) {
  const int64_t total = std::max<int64_t>(0, std::llround(s));
  char text[32];
  if (total >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(total / 3600),
                  static_cast<long long>(total / 60 % 60), static_cast<long long>(total % 60));
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(total / 60), static_cast<long long>(total % 60));
  }
  return text;
}

ProgressBar::ProgressBar(std::string unit, int64_t total, bool enabled)
    : unit_(std::move(unit)), total_(total), enabled_(enabled), start_(seconds()) {}

bool ProgressBar::wanted(bool quiet) { return !quiet && isatty(STDERR_FILENO); }

void ProgressBar::update(int64_t done) {
  done_ = done;
  if (!enabled_) return;
  const double now = seconds();
  if (now - lastDraw_ < 0.1 && done != total_) return;
  lastDraw_ = now;
  draw();
}

void ProgressBar::draw() {
  const double elapsed = seconds() - start_;
  char count[64];
  if (total_ > 0) {
    std::snprintf(count, sizeof count, " %lld/%lld ", static_cast<long long>(done_), static_cast<long long>(total_));
  } else {
    std::snprintf(count, sizeof count, " %lld ", static_cast<long long>(done_));
  }
  std::string tail = count;
  tail.append(unit_).append("  ");
  if (total_ > 0 && done_ > 0 && done_ < total_) {
    tail.append(formatDuration(elapsed / double(done_) * double(total_ - done_))).append(" left");
  } else {
    tail.append(formatDuration(elapsed));
  }
  const int width = terminalWidth() - 1;
  const int barWidth = std::min(40, width - int(tail.size()) - 2);
  std::string line;
  if (total_ > 0 && barWidth >= 10) {
    const int filled = int(std::min<int64_t>(barWidth, done_ * barWidth / total_));
    line.append("[").append(size_t(filled), '#').append(size_t(barWidth - filled), '.').append("]");
  }
  line.append(tail);
  if (int(line.size()) > width) line.resize(size_t(width));
  std::fprintf(stderr, "\r%s\033[K", line.c_str());
  shown_ = true;
}

void ProgressBar::say(const std::string& line) {
  if (shown_) std::fputs("\r\033[K", stderr);
  std::fprintf(stderr, "%s\n", line.c_str());
  if (shown_) draw();
}

void ProgressBar::finish() {
  if (shown_) std::fputs("\r\033[K", stderr);
  shown_ = false;
}

}  // namespace zorvex::cli
