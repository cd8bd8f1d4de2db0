#include "core/render/effected_image_view.h"

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/platform.h"
#include "core/imaging/text.h"
#include "core/render/compose.h"
#include "core/stack/randomize_controls.h"

namespace zorvex {

EffectedImageView::EffectedImageView(double screenScale, EffectsData& data) : screenScale_(screenScale), data_(data) {}

void EffectedImageView::setLayerAlpha(double alpha) {
  layerAlpha_ = alpha;
  if (setNeedsDisplay) setNeedsDisplay();
}

void EffectedImageView::setBlendMode(BlendMode mode, bool skipDisplay) {
  blendMode = mode;
  if (!skipDisplay && setNeedsDisplay) setNeedsDisplay();
}

int64_t EffectedImageView::pixelFrameWidth() const { return truncInt(frameWidth.value_or(0.0) * screenScale_); }

void EffectedImageView::render(bool skipEffects) {
  if (isDrawing) return;  // frames that come while one is in work or not yet shown are dropped
  isDrawing = true;
  const CGImageRef base = originalImage;
  if (!base) return;  // the gate stays shut until the next compose
  const CGSize size = previewSize(int64_t(CGImageGetWidth(base)), int64_t(CGImageGetHeight(base)), pixelFrameWidth());
  const int64_t w = int64_t(size.width), h = int64_t(size.height);
  offscreeenContext = nullptr;
  offscreenLayer = nullptr;
  const Surface surface = zorvex::makeSurface(w, h);
  offscreeenContext = surface.context;
  if ((w == 0 && h == 0) || !offscreeenContext) {
    consoleLine("Rendersize was zero or context was nil");
    return;
  }
  offscreenLayer = surface.layer;
  if (!skipEffects && offscreeenContext && offscreenLayer) {
    effectedImage = data_.renderStack(offscreenLayer, offscreeenContext, controlValues, base, double(w), double(h));
  }
  // What the display does next: lay out (which makes the layout surface) and draw.
  layoutSubviews(frame_);
  if (setNeedsLayoutAndDisplay) setNeedsLayoutAndDisplay();
}

void EffectedImageView::layoutSubviews(CGSize frame) {
  frame_ = frame;
  frameWidth = frame.width;
  offscreeenContext = nullptr;
  offscreenLayer = nullptr;
  makeSurface(frame.width, frame.height);
}

void EffectedImageView::makeSurface(double width, double height) {
  const double q = SettingsController::frameQuality() == FrameQuality::low ? 0.5 : 1.0;
  const Surface s = zorvex::makeSurface(truncInt(q * width), truncInt(q * height));
  if (!s.context) {
    consoleLine("Could not create context - this is probably ok - size was " + describe(CGSize{width, height}) + " ");
    return;
  }
  offscreeenContext = s.context;
  offscreenLayer = s.layer;
}

CGImageRef EffectedImageView::compose(int64_t width, int64_t height) {
  if (!offscreeenContext) return nullptr;
  CGImageRef picture = composeForDisplay(originalImage, effectedImage, width, height, blendMode, layerAlpha_,
                                         shouldHideEffects);
  if (!picture) return nullptr;
  isDrawing = false;
  return picture;
}

std::optional<EffectedImageView::Final> EffectedImageView::renderFinalParts() {
  const CGImageRef base = originalImage;
  if (!base) return std::nullopt;
  int64_t w = int64_t(CGImageGetWidth(base)), h = int64_t(CGImageGetHeight(base));
  consoleLine("Rendering final.  Original size is " + std::to_string(w) + ", " + std::to_string(h));
  if (saveQuality() == SaveQuality::half) {
    w /= 2;
    h /= 2;
  }
  const Surface surface = zorvex::makeSurface(w, h);
  if (!surface.context) {
    consoleLine("Couldn't create context");
    return std::nullopt;
  }
  if (!surface.layer) {
    consoleLine("Couldn't create layer");
    return std::nullopt;
  }
  const CGImageRef effected = data_.renderStack(surface.layer, surface.context, controlValues, base, double(w), double(h));
  if (!effected) return std::nullopt;
  const CGImageRef composed = composeFinal(base, effected, w, h, blendMode, layerAlpha_);
  if (!composed) return std::nullopt;
  consoleLine("Final image size is " + describe(double(CGImageGetWidth(composed))) + ", " +
              describe(double(CGImageGetHeight(composed))));
  return Final{effected, composed};
}

CGImageRef EffectedImageView::renderFinal() {
  const auto parts = renderFinalParts();
  return parts ? parts->composed : nullptr;
}

bool EffectedImageView::flatten() {
  const CGImageRef image = renderFinal();
  if (!image) return false;
  originalImage = image;
  effectedImage = nullptr;
  render(false);
  return true;
}

bool EffectedImageView::rotateBaseImage(double degrees, bool mirrored) {
  if (!originalImage) return false;
  const UIImage turned = ImageUtils::rotatedImage(UIImage{originalImage, UIImageOrientationUp}, degrees, mirrored);
  if (!turned) return false;
  originalImage = turned.CGImage;
  return true;
}

void EffectedImageView::randomizeControls() {
  const RolledControls rolled = zorvex::randomizeControls();
  controlValues = rolled.values;
  controlSeed = rolled.seed;
  render(false);
}

}  // namespace zorvex
