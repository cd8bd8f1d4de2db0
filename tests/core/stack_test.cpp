// The dispatcher's name table and the application of a list of effects to a picture.
#include <gtest/gtest.h>

#include "core/stack/effects_data.h"
#include "core/stack/filters.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

TEST(Dispatcher, NameTable) {
  const auto table = Filters::kernelTable();
  ASSERT_EQ(table.size(), 34u);
  EXPECT_EQ(table.front().name, "AGENCY");
  EXPECT_EQ(table.back().name, "KAL1D0");
  EXPECT_EQ(Filters::findKernel("TRIBOMB"), Filters::findKernel("POLYBOMB"));
  EXPECT_EQ(Filters::findKernel("VORTRON(REDUX)"), Filters::findKernel("VORTRON"));
  EXPECT_EQ(Filters::findKernel("TI994X(SHA5 Mix)"), Filters::findKernel("TI994X"));
  EXPECT_EQ(Filters::findKernel("59.94"), Filters::findKernel("DROPFRAME"));
  EXPECT_NE(Filters::findKernel("§P∆Iƒ"), nullptr);
  EXPECT_NE(Filters::findKernel("B∑AMRID∑R"), nullptr);
  EXPECT_EQ(Filters::findKernel("agency"), nullptr);  // case counts
  EXPECT_EQ(Filters::findKernel(""), nullptr);
  // No two rows answer to the same name.
  for (size_t i = 0; i < table.size(); ++i) EXPECT_EQ(Filters::findKernel(table[i].name), &table[i]);
}

struct Recorder {
  std::vector<std::string> names;
  explicit Recorder(EffectsData& d) {
    d.onEffect = [this](size_t, size_t, const Effect& e) { names.push_back(e.name); };
  }
};

TEST(Stack, FlatteningOpensPresetsWhateverTheirMembersFlags) {
  EffectsData data;
  auto agency = Effect::make("AGENCY", false);
  auto inner = Effect::make("INNER", false, EffectList{Effect::make("INTERFACE", false), agency});
  auto preset = Effect::make("MY PRESET", true, EffectList{Effect::make("X", false), inner, agency});
  auto empty = Effect::make("EMPTY", true, EffectList{});
  data.effects = {Effect::make("VETH", true), preset, Effect::make("OFF", false), empty, Effect::make("AGENCY", true)};
  Recorder rec(data);
  auto s = testing::gradientSurface(20, 16);
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(20, 16), nullptr);
  const ControlValues controls = rollControls(5);
  ASSERT_TRUE(data.renderStack(layer, s, controls, CGBitmapContextCreateImage(s), 20, 16));
  EXPECT_EQ(rec.names, (std::vector<std::string>{"VETH", "X", "INTERFACE", "AGENCY", "AGENCY", "AGENCY"}));
}

TEST(Stack, ZeroSizeGivesNilAndTouchesNothing) {
  EffectsData data;
  data.effects = {Effect::make("INTERFACE", true)};
  auto s = testing::gradientSurface(8, 8);
  auto before = CGBitmapContextCreateImage(s);
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(8, 8), nullptr);
  EXPECT_FALSE(data.stackApply({}, layer, s, rollControls(1), before, 0.0, 8));
  EXPECT_FALSE(data.stackApply({}, layer, s, rollControls(1), before, 8, 0.0));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) EXPECT_EQ(readPixel(s, x, y), testing::pixelOf(before, x, y));
}

TEST(Stack, WithNothingOnTheResultIsTheBaseAtSurfaceSize) {
  EffectsData data;
  data.effects = {Effect::make("AGENCY", false), Effect::make("NO SUCH EFFECT", true)};
  auto base = CGBitmapContextCreateImage(testing::gradientSurface(4, 4));
  auto s = testing::blankSurface(8, 8);
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(8, 8), nullptr);
  CGContextSetInterpolationQuality(s, kCGInterpolationNone);
  auto out = data.renderStack(layer, s, rollControls(1), base, 8, 8);
  ASSERT_TRUE(out);
  EXPECT_EQ(CGImageGetWidth(out), 8u);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) EXPECT_EQ(testing::pixelOf(out, x, y), testing::gradientPixel(x / 2, y / 2));
}

TEST(Stack, UnknownNamesChangeNothingAndKernelsLeaveTheirState) {
  auto run = [](std::vector<std::string> names) {
    EffectsData data;
    for (auto& n : names) data.effects.push_back(Effect::make(n, true));
    auto s = testing::blankSurface(32, 24);
    auto layer = CGLayerCreateWithContext(s, CGSizeMake(32, 24), nullptr);
    ControlValues controls(kControlCount, 0.3);
    return std::make_pair(data.renderStack(layer, s, controls, CGBitmapContextCreateImage(testing::gradientSurface(32, 24)), 32, 24), s);
  };
  auto [a, sa] = run({"INTERFACE", "AGENCY"});
  auto [b, sb] = run({"INTERFACE", "UNKNOWN", "AGENCY"});
  EXPECT_TRUE(testing::samePixels(sa, sb));
  // A kernel's settings stay on the surface for the next one.
  EXPECT_EQ(sa->state().interpolation, kCGInterpolationNone);
  EXPECT_EQ(sa->state().blendMode, kCGBlendModeNormal);
}

TEST(Stack, TheLayerStaysDirtyForTheNextKernel) {
  // INTERFACE leaves its bars in the layer; AGENCY composites the layer again over its own smear,
  // so the bars lie over the smeared band too.
  EffectsData data;
  data.effects = {Effect::make("INTERFACE", true), Effect::make("AGENCY", true)};
  auto s = testing::blankSurface(16, 100);
  auto layer = CGLayerCreateWithContext(s, CGSizeMake(16, 100), nullptr);
  ControlValues controls(kControlCount, 0.0);
  controls[0] = 0.105;  // AGENCY smears row 10; INTERFACE's bars are 1 apart... spacing = h / 100
  controls[1] = 0.9;
  auto white = testing::solidSurface(16, 100, {255, 255, 255});
  ASSERT_TRUE(data.renderStack(layer, s, controls, CGBitmapContextCreateImage(white), 16, 100));
  // spacing = 0.105 * (5 - 1) + 1 = 1.42; the bottom row carries a bar whatever AGENCY did.
  EXPECT_LT(readPixel(s, 3, 99).r, 255);
}

}  // namespace
}  // namespace zorvex
