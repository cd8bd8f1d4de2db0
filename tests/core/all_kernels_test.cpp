// Every kernel that exists runs on a small picture, alone and after every other kernel, with a
// random vector, the all-zero vector (the state before the first roll) and the all-0.9999 vector,
// without a fatal error, and leaves a picture of the surface's size. And every effect of the table
// has a kernel that changes a picture that is not flat: a built-in name that silently runs nothing
// is a fault.
#include <gtest/gtest.h>

#include "core/render/sample_picture.h"
#include "core/stack/effects_data.h"
#include "core/stack/filters.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

bool hasKernel(const KernelEntry& e) { return !std::holds_alternative<std::monostate>(e.kernel); }

TEST(AllKernels, RunAloneAndInPairs) {
  testing::TestPlatform quiet;  // kernels' diagnostic lines are not what this test looks at
  std::vector<std::string> names;
  for (const KernelEntry& e : Filters::kernelTable())
    if (hasKernel(e)) names.emplace_back(e.name);
  ASSERT_FALSE(names.empty());
  const ControlValues vectors[] = {rollControls(2026), ControlValues(kControlCount, 0.0),
                                   ControlValues(kControlCount, 0.9999)};
  const CGImageRef base = CGBitmapContextCreateImage(testing::gradientSurface(64, 48));
  for (const ControlValues& controls : vectors)
    for (const std::string& first : names)
      for (size_t second = 0; second <= names.size(); ++second) {  // names.size(): alone
        EffectsData data;
        data.effects = {Effect::make(first, true)};
        if (second < names.size()) data.effects.push_back(Effect::make(names[second], true));
        auto s = testing::blankSurface(64, 48);
        auto out = data.renderStack(testing::layerFor(s), s, controls, base, 64, 48);
        ASSERT_TRUE(out) << first;
        ASSERT_EQ(CGImageGetWidth(out), 64u);
      }
}

// Whether the effect changes the picture for any of the first `rolls` vectors.
bool changesPicture(std::string_view name, const CGImageRef& picture, int w, int h, uint64_t rolls) {
  for (uint64_t roll = 1; roll <= rolls; ++roll) {
    auto s = testing::blankSurface(w, h);
    CGContextDrawImage(s, CGRectMake(0, 0, w, h), picture);
    Filters::applyEffect(Effect{std::string(name), true, std::nullopt}, s, testing::layerFor(s), rollControls(roll));
    if (!testing::sameRGB(CGBitmapContextCreateImage(s), picture)) return true;
  }
  return false;
}

TEST(EveryEffect, EveryRowHasAKernelThatChangesAPicture) {
  const CGImageRef picture = drawSamplePicture(96, 64);
  ASSERT_EQ(Filters::kernelTable().size(), 34u);
  for (const KernelEntry& e : Filters::kernelTable()) {
    ASSERT_TRUE(hasKernel(e)) << e.name << " has no kernel";
    EXPECT_TRUE(changesPicture(e.name, picture, 96, 64, 8)) << e.name << " changed nothing";
  }
}

}  // namespace
}  // namespace zorvex
