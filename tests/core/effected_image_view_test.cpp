// The picture view's model: preview sizes, the frame gate, composition, the final render, flatten,
// and the turn and mirror of the base.
#include <gtest/gtest.h>

#include "core/imaging/platform.h"
#include "core/render/compose.h"
#include "core/render/effected_image_view.h"
#include "core/stack/defaults.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

class ViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setStandardDefaults(&defaults);
    data.effects = {Effect::make("INTERFACE", true)};
    data.onEffect = [this](size_t, size_t, const Effect&) { ++kernelsRun; };
    view.controlValues = rollControls(3);
    view.setNeedsDisplay = [this] { ++displays; };
    view.setNeedsLayoutAndDisplay = [this] { ++layouts; };
  }
  void TearDown() override { setStandardDefaults(nullptr); }
  static CGImageRef picture(int w, int h) { return CGBitmapContextCreateImage(testing::gradientSurface(w, h)); }
  // A view of the given size in points showing a w x h gradient, its first frame drawn.
  void show(double viewW, double viewH, int w, int h) {
    view.layoutSubviews(CGSizeMake(viewW, viewH));
    view.originalImage = picture(w, h);
    view.render(false);
  }

  testing::TestPlatform console;
  MemoryDefaults defaults;
  EffectsData data;
  EffectedImageView view{2.0, data};  // a screen of two pixels a point
  int kernelsRun = 0, displays = 0, layouts = 0;
};

TEST_F(ViewTest, PreviewIsNoWiderThanTheViewAndNeverScaledUp) {
  show(30, 40, 100, 50);  // 60 pixels wide
  EXPECT_EQ(view.pixelFrameWidth(), 60);
  EXPECT_EQ(CGImageGetWidth(view.effectedImage), 60u);
  EXPECT_EQ(CGImageGetHeight(view.effectedImage), 30u);
  ASSERT_TRUE(view.compose(60, 80));

  view.layoutSubviews(CGSizeMake(300, 40));  // wider than the picture
  view.render(false);
  EXPECT_EQ(CGImageGetWidth(view.effectedImage), 100u);
  EXPECT_EQ(layouts, 2);
}

TEST_F(ViewTest, TheGateDropsFramesUntilComposeOpensIt) {
  show(20, 20, 40, 40);
  const CGImageRef first = view.effectedImage;
  const CGContextRef surface = view.offscreeenContext;
  view.originalImage = picture(30, 30);
  view.render(false);  // still drawing: nothing at all happens
  EXPECT_EQ(view.effectedImage, first);
  EXPECT_EQ(view.offscreeenContext, surface);
  EXPECT_EQ(kernelsRun, 1);
  ASSERT_TRUE(view.compose(40, 40));
  EXPECT_FALSE(view.isDrawing);
  view.render(false);
  EXPECT_NE(view.effectedImage, first);
  EXPECT_EQ(kernelsRun, 2);
}

TEST_F(ViewTest, NoBaseOrNoSizeLeavesTheGateShut) {
  view.render(false);  // no base
  EXPECT_TRUE(view.isDrawing);
  EXPECT_FALSE(view.compose(10, 10));  // no layout surface yet: nothing to show, gate still shut
  EXPECT_TRUE(view.isDrawing);
  view.layoutSubviews(CGSizeMake(0, 0));
  EXPECT_EQ(console.lines.back(), "Could not create context - this is probably ok - size was (0.0, 0.0) ");
  view.isDrawing = false;
  view.originalImage = picture(16, 16);
  view.render(false);  // a view 0 wide gives a preview of no size
  EXPECT_EQ(console.lines.back(), "Rendersize was zero or context was nil");
  EXPECT_EQ(kernelsRun, 0);
}

TEST_F(ViewTest, CompositionNeedsNoRunOfTheStack) {
  show(10, 10, 20, 20);
  ASSERT_TRUE(view.compose(20, 20));
  const int before = kernelsRun;
  view.setBlendMode(BlendMode::difference, false);
  view.setBlendMode(BlendMode::multiply, true);
  view.setLayerAlpha(0.5);
  view.shouldHideEffects = true;
  ASSERT_TRUE(view.compose(20, 20));
  EXPECT_EQ(kernelsRun, before);
  EXPECT_EQ(displays, 2);  // the blend mode with display, and the alpha
  EXPECT_EQ(view.blendMode, BlendMode::multiply);
}

TEST_F(ViewTest, AlphaZeroShowsTheBaseAndNormalAtOneCoversIt) {
  show(12, 8, 24, 16);
  const CGImageRef base = view.originalImage, effected = view.effectedImage;
  view.setLayerAlpha(0.0);
  const CGImageRef onlyBase = view.compose(24, 16);
  view.setLayerAlpha(1.0);
  view.render(true);  // keeps the effected picture without a run, lays out and redraws
  EXPECT_EQ(view.effectedImage, effected);
  EXPECT_EQ(kernelsRun, 1);
  EXPECT_EQ(layouts, 2);
  const CGImageRef covered = view.compose(24, 16);
  bool differs = false;
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 24; ++x) {
      ASSERT_EQ(testing::pixelOf(onlyBase, x, y), testing::pixelOf(base, x, y));
      ASSERT_EQ(testing::pixelOf(covered, x, y), testing::pixelOf(view.effectedImage, x, y));
      differs = differs || testing::pixelOf(covered, x, y) != testing::pixelOf(base, x, y);
    }
  EXPECT_TRUE(differs);
}

TEST_F(ViewTest, FinalRenderAtHalfAndBesideAPreview) {
  show(10, 10, 1001, 20);  // a preview in progress: the gate is shut
  const CGImageRef preview = view.effectedImage;
  defaults.setInteger(1, "__SaveSettingKey__");
  const CGImageRef half = view.renderFinal();
  ASSERT_TRUE(half);
  EXPECT_EQ(CGImageGetWidth(half), 500u);
  EXPECT_EQ(CGImageGetHeight(half), 10u);
  EXPECT_EQ(console.lines[console.lines.size() - 2], "Rendering final.  Original size is 1001, 20");
  EXPECT_EQ(console.lines.back(), "Final image size is 500.0, 10.0");
  // The preview's state is untouched by the final.
  EXPECT_TRUE(view.isDrawing);
  EXPECT_EQ(view.effectedImage, preview);
  defaults.setInteger(0, "__SaveSettingKey__");
  EXPECT_EQ(CGImageGetWidth(view.renderFinal()), 1001u);
  view.originalImage = nullptr;
  EXPECT_FALSE(view.renderFinal());
}

TEST_F(ViewTest, FlattenMakesTheResultTheBaseOrChangesNothing) {
  view.layoutSubviews(CGSizeMake(20, 20));
  view.originalImage = picture(20, 20);
  ASSERT_TRUE(view.flatten());
  EXPECT_EQ(view.originalImage->format(), PixelFormat::ARGB);  // the composed picture
  EXPECT_EQ(kernelsRun, 2);  // the final, then the preview of the new base
  // A stack that can't run (a base of one pixel at half size has no pixels): nothing changes.
  defaults.setInteger(1, "__SaveSettingKey__");
  const CGImageRef tiny = picture(1, 1);
  view.originalImage = tiny;
  EXPECT_FALSE(view.flatten());
  EXPECT_EQ(view.originalImage, tiny);
  EXPECT_EQ(console.lines.back(), "Couldn't create context");
}

TEST_F(ViewTest, LowFrameQualityHalvesTheLayoutSurface) {
  defaults.setInteger(1, "__FrameSettingKey__");
  view.layoutSubviews(CGSizeMake(40, 30));
  EXPECT_EQ(CGBitmapContextGetWidth(view.offscreeenContext), 20u);
  EXPECT_EQ(CGBitmapContextGetHeight(view.offscreeenContext), 15u);
}

TEST_F(ViewTest, TurnsAndMirrorsOfTheBase) {
  EXPECT_FALSE(view.rotateBaseImage(90, false));  // no base
  const CGImageRef base = picture(6, 4);
  view.originalImage = base;
  ASSERT_TRUE(view.rotateBaseImage(90, false));  // right: the top-left corner goes top-right
  ASSERT_EQ(CGImageGetWidth(view.originalImage), 4u);
  ASSERT_EQ(CGImageGetHeight(view.originalImage), 6u);
  EXPECT_EQ(testing::pixelOf(view.originalImage, 3, 0), testing::gradientPixel(0, 0));
  EXPECT_EQ(testing::pixelOf(view.originalImage, 0, 5), testing::gradientPixel(5, 3));
  ASSERT_TRUE(view.rotateBaseImage(-90, false));  // and left again
  EXPECT_TRUE(testing::sameRGB(view.originalImage, base));
  for (double degrees : {0.0, 180.0}) {  // flip horizontally, flip vertically; twice gives the picture back
    view.rotateBaseImage(degrees, true);
    EXPECT_EQ(testing::pixelOf(view.originalImage, 0, 0), degrees == 0 ? testing::gradientPixel(5, 0) : testing::gradientPixel(0, 3));
    view.rotateBaseImage(degrees, true);
    EXPECT_TRUE(testing::sameRGB(view.originalImage, base));
  }
}

TEST_F(ViewTest, RandomizeControlsKeepsTheSeedAndRenders) {
  view.layoutSubviews(CGSizeMake(10, 10));
  view.originalImage = picture(20, 20);
  view.randomizeControls();
  EXPECT_EQ(view.controlValues, rollControls(view.controlSeed));
  EXPECT_EQ(kernelsRun, 1);
}

}  // namespace
}  // namespace zorvex
