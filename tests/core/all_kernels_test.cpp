// Every kernel that exists runs on a small picture, alone and after every other kernel, with a
// random vector, the all-zero vector (the state before the first roll) and the all-0.9999 vector,
// without a fatal error, and leaves a picture of the surface's size.
#include <gtest/gtest.h>

#include "core/imaging/platform.h"
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

// Kernels' diagnostic lines are not what this test looks at.
class QuietPlatform final : public Platform {
 public:
  void consoleLine(std::string_view) override {}
  uint32_t random32() override { return state_ = state_ * 1664525u + 1013904223u; }
  double now() override { return 0; }

 private:
  uint32_t state_ = 1;
};

TEST(AllKernels, RunAloneAndInPairs) {
  QuietPlatform quiet;
  setPlatform(&quiet);
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
  setPlatform(nullptr);
}

}  // namespace
}  // namespace zorvex
