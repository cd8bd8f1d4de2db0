// The dispatcher's name table and the application of a list of effects to a picture.
#include <gtest/gtest.h>

#include "core/stack/effects_data.h"
#include "core/kernels/kernels.h"
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
  ASSERT_TRUE(data.renderStack(testing::layerFor(s), s, rollControls(5), CGBitmapContextCreateImage(s), 20, 16));
  EXPECT_EQ(rec.names, (std::vector<std::string>{"VETH", "X", "INTERFACE", "AGENCY", "AGENCY", "AGENCY"}));
}

TEST(Stack, ZeroSizeGivesNilAndTouchesNothing) {
  EffectsData data;
  data.effects = {Effect::make("INTERFACE", true)};
  auto s = testing::gradientSurface(8, 8);
  const CGImageRef before = CGBitmapContextCreateImage(s);
  EXPECT_FALSE(data.stackApply({}, testing::layerFor(s), s, rollControls(1), before, 0.0, 8));
  EXPECT_FALSE(data.stackApply({}, testing::layerFor(s), s, rollControls(1), before, 8, 0.0));
  EXPECT_TRUE(testing::samePixels(s, testing::gradientSurface(8, 8)));
}

TEST(Stack, WithNothingOnTheResultIsTheBaseAtSurfaceSize) {
  EffectsData data;
  data.effects = {Effect::make("AGENCY", false), Effect::make("NO SUCH EFFECT", true)};
  auto base = CGBitmapContextCreateImage(testing::gradientSurface(4, 4));
  auto s = testing::blankSurface(8, 8);
  CGContextSetInterpolationQuality(s, kCGInterpolationNone);
  auto out = data.renderStack(testing::layerFor(s), s, rollControls(1), base, 8, 8);
  ASSERT_TRUE(out);
  EXPECT_EQ(CGImageGetWidth(out), 8u);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) EXPECT_EQ(testing::pixelOf(out, x, y), testing::gradientPixel(x / 2, y / 2));
}

TEST(Stack, KernelsRunBackToBackOnOneSurfaceAndOneLayerAndUnknownNamesAreSkipped) {
  // INTERFACE leaves its bars in the layer and its state on the surface, and AGENCY composites the
  // layer again over its smear: the stack gives what the two kernels give called one after the other,
  // with nothing cleared or reset between them.
  const ControlValues controls = testing::controlsWith({{0, 0.105}, {1, 0.9}});
  EffectsData data;
  data.effects = {Effect::make("INTERFACE", true), Effect::make("UNKNOWN", true), Effect::make("AGENCY", true)};
  testing::Scene stacked(testing::blankSurface(16, 100)), direct(testing::solidSurface(16, 100, {255, 255, 255}));
  const CGImageRef white = CGBitmapContextCreateImage(direct.surface);
  ASSERT_TRUE(data.renderStack(stacked.layer, stacked.surface, controls, white, 16, 100));
  Filters::interface(direct.surface, direct.layer, controls);
  Filters::agency(direct.surface, direct.layer, controls);
  EXPECT_TRUE(testing::samePixels(stacked.surface, direct.surface));
  EXPECT_EQ(stacked.surface->state().interpolation, direct.surface->state().interpolation);  // left for the next
}

}  // namespace
}  // namespace zorvex
