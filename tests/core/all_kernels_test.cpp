// Every kernel that exists runs on a small picture, alone and after every other kernel, with a
// random vector, the all-zero vector (the state before the first roll) and the all-0.9999 vector,
// without a fatal error, and leaves a picture of the surface's size.
#include <gtest/gtest.h>

#include "core/stack/effects_data.h"
#include "core/stack/filters.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

std::vector<std::string> existingKernels() {
  std::vector<std::string> names;
  for (const KernelEntry& e : Filters::kernelTable())
    if (!std::holds_alternative<std::monostate>(e.kernel)) names.emplace_back(e.name);
  return names;
}

TEST(AllKernels, RunAloneAndInPairs) {
  const auto names = existingKernels();
  ASSERT_FALSE(names.empty());
  const ControlValues vectors[] = {rollControls(2026), ControlValues(kControlCount, 0.0),
                                   ControlValues(kControlCount, 0.9999)};
  const CGImageRef base = CGBitmapContextCreateImage(testing::gradientSurface(64, 48));
  for (const ControlValues& controls : vectors) {
    for (const std::string& first : names) {
      for (const std::string* second : [&] {
             std::vector<const std::string*> v{nullptr};
             for (const auto& n : names) v.push_back(&n);
             return v;
           }()) {
        EffectsData data;
        data.effects = {Effect::make(first, true)};
        if (second) data.effects.push_back(Effect::make(*second, true));
        auto s = testing::blankSurface(64, 48);
        auto layer = CGLayerCreateWithContext(s, CGSizeMake(64, 48), nullptr);
        auto out = data.renderStack(layer, s, controls, base, 64, 48);
        ASSERT_TRUE(out) << first;
        ASSERT_EQ(CGImageGetWidth(out), 64u);
      }
    }
  }
}

}  // namespace
}  // namespace zorvex
