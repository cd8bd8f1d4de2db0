// Every effect of the table runs through the dispatcher and changes a picture that is not flat, for at
// least one of a few control vectors: a built-in name that silently runs nothing is a fault.
#include <gtest/gtest.h>

#include <string_view>

#include "core/render/sample_picture.h"
#include "core/stack/filters.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

bool hasKernel(const KernelEntry& e) { return !std::holds_alternative<std::monostate>(e.kernel); }

// Whether the effect changes the picture for any of the first `rolls` vectors.
bool changesPicture(std::string_view name, const CGImageRef& picture, int w, int h, uint64_t rolls) {
  for (uint64_t roll = 1; roll <= rolls; ++roll) {
    auto s = testing::blankSurface(w, h);
    CGContextDrawImage(s, CGRectMake(0, 0, w, h), picture);
    auto layer = CGLayerCreateWithContext(s, CGSizeMake(w, h), nullptr);
    Filters::applyEffect(Effect{std::string(name), true, std::nullopt}, s, layer, rollControls(roll));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        if (readPixel(s, x, y) != testing::pixelOf(picture, x, y)) return true;
  }
  return false;
}

TEST(EveryEffect, EveryRowHasAKernelThatChangesAPicture) {
  const int w = 96, h = 64;
  const CGImageRef picture = drawSamplePicture(w, h);
  ASSERT_EQ(Filters::kernelTable().size(), 34u);
  for (const KernelEntry& e : Filters::kernelTable()) {
    ASSERT_TRUE(hasKernel(e)) << e.name << " has no kernel";
    EXPECT_TRUE(changesPicture(e.name, picture, w, h, 8)) << e.name << " changed nothing";
  }
}

TEST(EveryEffect, AliasesReachTheirRows) {
  for (const KernelEntry& e : Filters::kernelTable()) {
    if (!e.alias.empty()) {
      EXPECT_EQ(Filters::findKernel(e.alias), &e) << e.alias;
    }
  }
}

}  // namespace
}  // namespace zorvex
