// The control values of a loop: an animation of a still in which the values travel a closed path
// around the current ones, so that the last frame leads back into the first without a jump. The web
// app's "Animate" and `zorvex render --loop N` share this path, so they give the same frames.
#pragma once

#include <cstdint>
#include <span>

#include "core/stack/controls.h"

namespace zorvex {

// How far a value strays from its own: at most this much either way.
inline constexpr double kLoopAmplitude = 0.05;

// The values of frame `frame` of a loop of `frames` frames around `center` (frames >= 1; any frame,
// taken modulo frames). Frame 0 is `center` itself, rounded to the grid. Each value i moves on a
// triangle wave of period `frames`, shifted by a phase of its own, so that the vector as a whole goes
// round a loop rather than back and forth along a line; at the ends of 0..0.9999 it turns back
// rather than jumping across. All in integer steps of 0.0001, so every build gives the same values,
// each a multiple of 0.0001 from 0 to 0.9999. `amplitude` is from 0 to 0.9999; `frames` below 1 is
// fatal.
ControlValues loopControls(std::span<const double> center, int64_t frame, int64_t frames,
                           double amplitude = kLoopAmplitude);

}  // namespace zorvex
