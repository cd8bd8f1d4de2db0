#include "core/stack/loop_controls.h"

#include <algorithm>
#include <cmath>

#include "core/imaging/fatal.h"

namespace zorvex {
namespace {

constexpr int64_t kTop = 9999;            // the largest value, in steps of 0.0001
constexpr int64_t kPhaseSteps = 1024;     // a period is this many phase steps per frame
constexpr int64_t kPhaseStride = 633;     // about 1024 / golden ratio: phases spread evenly

// The grid step nearest to `v`, within 0..kTop.
int64_t toSteps(double v) {
  if (!std::isfinite(v)) return 0;
  return std::clamp<int64_t>(std::llround(std::clamp(v, 0.0, 1.0) * 10000.0), 0, kTop);
}

// num / den rounded to the nearest integer, halves away from zero (den > 0).
int64_t roundedQuotient(int64_t num, int64_t den) {
  return num >= 0 ? (2 * num + den) / (2 * den) : -((-2 * num + den) / (2 * den));
}

// Folds any step count into 0..kTop as a ball bounces between two walls.
int64_t fold(int64_t u) {
  constexpr int64_t period = 2 * kTop;
  int64_t m = u % period;
  if (m < 0) m += period;
  return m > kTop ? period - m : m;
}

}  // namespace

ControlValues loopControls(std::span<const double> center, int64_t frame, int64_t frames, double amplitude) {
  if (frames < 1 || frames > (int64_t{1} << 30)) fatal();
  const int64_t a = toSteps(amplitude);
  const int64_t period = frames * kPhaseSteps;
  const int64_t f = ((frame % frames) + frames) % frames;
  // Distance from the middle of the period, 0 to 2 * period: a triangle wave of the position.
  const auto wave = [period](int64_t position) { return std::abs(4 * position - 2 * period); };
  ControlValues values(center.size());
  for (size_t i = 0; i < center.size(); ++i) {
    const int64_t phase = (int64_t(i) * kPhaseStride % kPhaseSteps) * frames;
    const int64_t offset = roundedQuotient(a * (wave(phase) - wave((phase + f * kPhaseSteps) % period)), 2 * period);
    values[i] = double(fold(toSteps(center[i]) + offset)) / 10000.0;
  }
  return values;
}

}  // namespace zorvex
