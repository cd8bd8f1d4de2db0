#include "core/imaging/blend_modes.h"

#include "core/imaging/fatal.h"
#include "core/imaging/math_utils.h"
#include "core/imaging/platform.h"

namespace zorvex {
namespace {

struct BlendModeRow {
  std::string_view label;
  CGBlendMode cg;
};
constexpr std::array<BlendModeRow, 18> kBlendModes = {{
    {"Normal", kCGBlendModeNormal},
    {"Color", kCGBlendModeColor},
    {"Color Burn", kCGBlendModeColorBurn},
    {"Color Dodge", kCGBlendModeColorDodge},
    {"Darken", kCGBlendModeDarken},
    {"Difference", kCGBlendModeDifference},
    {"Exclusion", kCGBlendModeExclusion},
    {"Hard Light", kCGBlendModeHardLight},
    {"Hue", kCGBlendModeHue},
    {"Lighten", kCGBlendModeLighten},
    {"Luminosity", kCGBlendModeLuminosity},
    {"Multiply", kCGBlendModeMultiply},
    {"Overlay", kCGBlendModeOverlay},
    {"Plus Darker", kCGBlendModePlusDarker},
    {"Plus Lighter", kCGBlendModePlusLighter},
    {"Saturation", kCGBlendModeSaturation},
    {"Screen", kCGBlendModeScreen},
    {"Soft Light", kCGBlendModeSoftLight},
}};

constexpr std::array<std::string_view, 23> kKCBlendModeNames = {
    "Normal", "ColorBlendMode", "ColorBurnBlendMode", "ColorDodgeBlendMode", "DarkenBlendMode",
    "DifferenceBlendMode", "DivideBlendMode", "ExclusionBlendMode", "HardLightBlendMode", "HueBlendMode",
    "LightenBlendMode", "LinearBurnBlendMode", "LinearDodgeBlendMode", "LuminosityBlendMode",
    "MaximumCompositing", "MinimumCompositing", "MultiplyBlendMode", "OverlayBlendMode", "PinLightBlendMode",
    "SaturationBlendMode", "ScreenBlendMode", "SoftLightBlendMode", "SubtractBlendMode"};

}  // namespace

const std::array<BlendMode, 18> allBlendModes = {
    BlendMode::normal,    BlendMode::color,       BlendMode::colorBurn,  BlendMode::colorDodge, BlendMode::darken,
    BlendMode::difference, BlendMode::exclusion,  BlendMode::hardLight,  BlendMode::hue,        BlendMode::lighten,
    BlendMode::luminosity, BlendMode::multiply,   BlendMode::overlay,    BlendMode::plusDarker, BlendMode::plusLighter,
    BlendMode::saturation, BlendMode::screen,     BlendMode::softLight};

std::string_view rawValue(BlendMode mode) { return kBlendModes[size_t(mode)].label; }
CGBlendMode cgBlendMode(BlendMode mode) { return kBlendModes[size_t(mode)].cg; }

std::optional<BlendMode> blendModeFromLabel(std::string_view label) {
  for (size_t i = 0; i < kBlendModes.size(); ++i)
    if (kBlendModes[i].label == label) return BlendMode(i);
  return std::nullopt;
}

std::string_view rawValue(KCBlendMode mode) { return kKCBlendModeNames[size_t(mode)]; }

namespace KCGContextProcessing {

CGBlendMode getBlendmodeForNormalizedControl(float c) {
  const float mapped = (c - 0.0f) * (12.0f - 0.0f) / (1.0f - 0.0f) + 0.0f;
  const int64_t i = truncInt(mapped) % 12;
  return at(std::span<const CGBlendMode>(goodBlendModes), size_t(i < 0 ? goodBlendModes.size() : i));
}

CGBlendMode getRandomGoodBlendMode() {
  const float r = float(arc4random()) * 2.3283064e-10f;
  const int64_t i = truncInt(12.0f * r);
  return at(std::span<const CGBlendMode>(goodBlendModes), size_t(i));
}

CGBlendMode getRandomGoodBlendModeWithSeed(int32_t seed) {
  const uint32_t s = uint32_t(seed);
  const uint32_t n = s ^ (s << 13);
  const uint32_t v = (n * (n * n * 15731u + 789221u) + 1376312589u) & 0x7fffffffu;
  const float f = float(v * 9.313225746154785e-10 * 0.5);
  const int64_t i = truncInt(f * 13.0f);
  return at(std::span<const CGBlendMode>(goodBlendModes), size_t(i));
}

}  // namespace KCGContextProcessing
}  // namespace zorvex
