// The three vocabularies of blend modes: BlendMode, what the user picks for laying the effected picture
// over the base; the raw CGBlendMode numbers, with the short list of modes that look good, which the
// kernels pick from; and KCBlendMode, the names of the compositing filters.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "core/imaging/cg.h"

namespace zorvex {

enum class BlendMode : int32_t {
  normal, color, colorBurn, colorDodge, darken, difference, exclusion, hardLight, hue,
  lighten, luminosity, multiply, overlay, plusDarker, plusLighter, saturation, screen, softLight,
};

// All 18 cases in their order, as the blend picker shows them.
extern const std::array<BlendMode, 18> allBlendModes;
// The label, which is also the raw value: "Color Burn".
std::string_view rawValue(BlendMode mode);
std::optional<BlendMode> blendModeFromLabel(std::string_view label);
CGBlendMode cgBlendMode(BlendMode mode);

enum class KCBlendMode : int32_t {
  Normal, ColorBlendMode, ColorBurnBlendMode, ColorDodgeBlendMode, DarkenBlendMode, DifferenceBlendMode,
  DivideBlendMode, ExclusionBlendMode, HardLightBlendMode, HueBlendMode, LightenBlendMode, LinearBurnBlendMode,
  LinearDodgeBlendMode, LuminosityBlendMode, MaximumCompositing, MinimumCompositing, MultiplyBlendMode,
  OverlayBlendMode, PinLightBlendMode, SaturationBlendMode, ScreenBlendMode, SoftLightBlendMode, SubtractBlendMode,
};
std::string_view rawValue(KCBlendMode mode);

namespace KCGContextProcessing {
// Twelve modes a control can reach, then the normal mode, which only the seeded pick reaches.
inline constexpr std::array<CGBlendMode, 13> goodBlendModes = {
    kCGBlendModeMultiply,  kCGBlendModeScreen,     kCGBlendModeOverlay,  kCGBlendModeDarken,
    kCGBlendModeLighten,   kCGBlendModeColorDodge, kCGBlendModeColorBurn, kCGBlendModeSoftLight,
    kCGBlendModeHardLight, kCGBlendModeDifference, kCGBlendModeHue,       kCGBlendModeColor,
    kCGBlendModeNormal};

CGBlendMode getBlendmodeForNormalizedControl(float c);
CGBlendMode getRandomGoodBlendMode();
CGBlendMode getRandomGoodBlendModeWithSeed(int32_t seed);
}  // namespace KCGContextProcessing

}  // namespace zorvex
