// The closed path of the controls in a loop: it starts and ends on the current values, never leaves
// the grid of 0.0001 within 0..0.9999, moves by small steps (the wrap from the last frame to the first
// included), and goes round rather than back and forth.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "core/stack/loop_controls.h"

namespace zorvex {
namespace {

// The integer k of a value k / 10000, or -1 when the value is not on that grid within 0..0.9999.
int64_t gridStep(double v) {
  const double k = std::round(v * 10000.0);
  return k >= 0 && k <= 9999 && double(k) / 10000.0 == v ? int64_t(k) : -1;
}

TEST(LoopControls, AClosedPathOnTheGridThatMovesBySmallSteps) {
  // A rolled vector, with values at both ends of the range.
  ControlValues center = rollControls(42);
  center[0] = 0.0;
  center[1] = 0.9999;
  center[2] = 0.0001;
  center[3] = 0.9998;
  for (const int64_t frames : {int64_t(1), int64_t(2), int64_t(7), int64_t(24)}) {
    const ControlValues first = loopControls(center, 0, frames);
    EXPECT_EQ(first, center) << frames;
    EXPECT_EQ(loopControls(center, frames, frames), first) << frames;
    EXPECT_EQ(loopControls(center, frames + 3, frames), loopControls(center, 3, frames)) << frames;
    ControlValues previous = first;
    for (int64_t f = 1; f <= frames; ++f) {
      const ControlValues now = loopControls(center, f, frames);
      ASSERT_EQ(now.size(), center.size());
      for (size_t i = 0; i < now.size(); ++i) {
        ASSERT_GE(gridStep(now[i]), 0) << "frame " << f << " value " << i << " is " << now[i];
        // Never further than the amplitude from its own value, and no jump from frame to frame (a
        // value that wrapped across the range instead of turning back would move by almost 1).
        ASSERT_LE(std::abs(now[i] - center[i]), kLoopAmplitude + 1e-9) << f << " " << i;
        ASSERT_LE(std::abs(now[i] - previous[i]), 2 * kLoopAmplitude / double(frames) + 1.5e-4) << f << " " << i;
      }
      previous = now;
    }
  }
  // At the edges of the range the values turn back inside it rather than clamping or wrapping.
  std::set<double> atZero;
  for (int64_t f = 0; f < 24; ++f) atZero.insert(loopControls(center, f, 24)[0]);
  EXPECT_GT(atZero.size(), 5u);
  EXPECT_EQ(*atZero.begin(), 0.0);
}

TEST(LoopControls, GoesRoundRatherThanBackAndForth) {
  const ControlValues center = rollControls(7);
  std::set<ControlValues> frames;
  for (int64_t f = 0; f < 24; ++f) frames.insert(loopControls(center, f, 24));
  EXPECT_EQ(frames.size(), 24u);  // played back and forth, frame f and frame 24 - f would agree
  // The values don't all move together: at a quarter of the loop some have gone up and some down.
  const ControlValues quarter = loopControls(center, 6, 24);
  int up = 0, down = 0;
  for (size_t i = 0; i < center.size(); ++i) {
    up += quarter[i] > center[i];
    down += quarter[i] < center[i];
  }
  EXPECT_GT(up, 300);
  EXPECT_GT(down, 300);
  // A wider amplitude goes further; none keeps the centre.
  const ControlValues wide = loopControls(center, 12, 24, 0.2), still = loopControls(center, 12, 24, 0.0);
  EXPECT_EQ(still, center);
  double widest = 0;
  for (size_t i = 0; i < center.size(); ++i) widest = std::max(widest, std::abs(wide[i] - center[i]));
  EXPECT_GT(widest, 0.15);
}

}  // namespace
}  // namespace zorvex
