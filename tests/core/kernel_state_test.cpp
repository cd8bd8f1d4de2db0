// What the copying, tiling, stretching, warping and block kernels leave behind for the next kernel of
// the same render, and the control counts below which they stop the process.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "core/stack/filters.h"
#include "tests/core/kernel_scene.h"

namespace zorvex {
namespace {

constexpr CGBlendMode kOld = kCGBlendModeDifference;
constexpr CGInterpolationQuality kOldQuality = kCGInterpolationHigh;
constexpr CGBlendMode kPicked = kCGBlendModeHardLight;  // blendTable[truncate(0.3 * 7)]

struct Expected {
  const char* name;
  CGBlendMode surfaceMode;
  CGInterpolationQuality surfaceQuality;
  CGBlendMode layerMode;
  CGInterpolationQuality layerQuality;
  std::optional<bool> layerOnTop;  // whether the layer's old content ends on the surface; unset: not known
  size_t controlsNeeded;
};

const Expected kKernels[] = {
    {"GRABOID", kCGBlendModeNormal, kCGInterpolationNone, kOld, kOldQuality, false, 36},
    {"VETH", kCGBlendModeNormal, kOldQuality, kCGBlendModeNormal, kOldQuality, true, 4},
    {"FOLD4RAP5", kCGBlendModeNormal, kCGInterpolationNone, kCGBlendModeNormal, kOldQuality, {}, 1},
    {"BUNKER", kOld, kOldQuality, kOld, kOldQuality, {}, 3},
    {"FINGERBLIB", kCGBlendModeNormal, kCGInterpolationNone, kOld, kOldQuality, {}, 1},
    {"KOMPLIANCE", kCGBlendModeNormal, kCGInterpolationNone, kOld, kOldQuality, {}, 2},
    {"M0T0R", kOld, kCGInterpolationNone, kCGBlendModeNormal, kOldQuality, {}, 4},
    {"XEXOX", kCGBlendModeNormal, kOldQuality, kCGBlendModeNormal, kOldQuality, {}, 4},
    {"PRECOG1", kCGBlendModeNormal, kOldQuality, kCGBlendModeNormal, kCGInterpolationNone, true, 6},
    {"L225", kCGBlendModeNormal, kOldQuality, kCGBlendModeNormal, kCGInterpolationNone, true, 6},
    {"CHIP13h", kCGBlendModeNormal, kCGInterpolationNone, kPicked, kCGInterpolationNone, {}, 1},
    {"BLITBOMB", kPicked, kCGInterpolationNone, kPicked, kOldQuality, {}, 3},
};

testing::KernelScene oldState() {
  testing::KernelScene s(testing::gradientSurface(64, 48));
  s.markLayer(5, 5, {255, 0, 255});
  for (const CGContextRef& c : {s.surface, s.layerContext()}) {
    CGContextSetBlendMode(c, kOld);
    CGContextSetInterpolationQuality(c, kOldQuality);
  }
  return s;
}

TEST(KernelState, EachLeavesTheStateOfItsDescription) {
  const ControlValues controls(kControlCount, 0.3);
  for (const Expected& e : kKernels) {
    testing::KernelScene s = oldState();
    Filters::applyEffect(*Effect::make(e.name, true), s.surface, s.layer, controls);
    EXPECT_EQ(s.surface->state().blendMode, e.surfaceMode) << e.name;
    EXPECT_EQ(s.surface->state().interpolation, e.surfaceQuality) << e.name;
    EXPECT_EQ(s.layerContext()->state().blendMode, e.layerMode) << e.name;
    EXPECT_EQ(s.layerContext()->state().interpolation, e.layerQuality) << e.name;
    if (e.layerOnTop) {
      EXPECT_EQ(readPixel(s.surface, 5, 5) == (KColor{255, 0, 255}), *e.layerOnTop) << e.name;
    }
  }
}

TEST(KernelState, TheSmallestControlVectorsSuffice) {
  for (const Expected& e : kKernels) {
    const ControlValues controls(e.controlsNeeded, 0.3);
    testing::KernelScene s = oldState();
    Filters::applyEffect(*Effect::make(e.name, true), s.surface, s.layer, controls);
  }
}

#ifndef __EMSCRIPTEN__
TEST(KernelStateDeathTest, OneControlTooFewIsFatal) {
  for (const Expected& e : kKernels) {
    const ControlValues controls(e.controlsNeeded - 1, 0.3);
    testing::KernelScene s = oldState();
    EXPECT_DEATH(Filters::applyEffect(*Effect::make(e.name, true), s.surface, s.layer, controls), "") << e.name;
  }
  // A blend mode control of 1.0 or more is past the end of the table of seven modes.
  for (const char* name : {"CHIP13h", "BLITBOMB"}) {
    testing::KernelScene s = oldState();
    EXPECT_DEATH(Filters::applyEffect(*Effect::make(name, true), s.surface, s.layer, ControlValues(kControlCount, 1.0)),
                 "")
        << name;
  }
}
#endif

}  // namespace
}  // namespace zorvex
