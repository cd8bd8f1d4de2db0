// The model behind the picture view: it holds the base picture, the control vector, the blend mode
// and the opacity, runs the stack at preview size behind a frame gate, composes for the screen, and
// runs it at full size for saving, sharing and flattening. The command line and the web engine use
// it alike; the platform around it supplies the view's size and shows what compose gives.
#pragma once

#include <functional>
#include <optional>

#include "core/imaging/blend_modes.h"
#include "core/imaging/cg.h"
#include "core/stack/controls.h"
#include "core/stack/effects_data.h"
#include "core/stack/settings.h"

namespace zorvex {

class EffectedImageView {
 public:
  // `screenScale` is pixels per point of the screen the view is on.
  explicit EffectedImageView(double screenScale = 1.0, EffectsData& data = EffectsData::shared());

  BlendMode blendMode = BlendMode::normal;
  CGImageRef originalImage;  // the base: the latest frame, or the photo being edited
  CGImageRef effectedImage;  // what the stack made of a base at preview size
  bool shouldHideEffects = false;  // a finger is down on the view: only the base shows
  bool isDrawing = false;  // the frame gate: a render is under way or its result isn't shown yet
  CGContextRef offscreeenContext;  // the layout surface, or the surface of the last render
  CGLayerRef offscreenLayer;
  ControlValues controlValues = ControlValues(kControlCount, 0.0);
  uint64_t controlSeed = 0;  // the seed of the last roll, to show and repeat a look
  std::optional<double> frameWidth;  // width of the view in points, as of the last layout

  // Told when the view should be drawn again (compose), and when it should be laid out and drawn
  // after a render. The platform posts these to its display.
  std::function<void()> setNeedsDisplay;
  std::function<void()> setNeedsLayoutAndDisplay;
  // Where the save quality comes from: the stored setting unless the caller says otherwise.
  std::function<SaveQuality()> saveQuality = [] { return SettingsController::saveQuality(); };

  double layerAlpha() const { return layerAlpha_; }
  // Changes only the composition; asks for a redraw.
  void setLayerAlpha(double alpha);
  // Changes only the composition; asks for a redraw unless `skipDisplay`.
  void setBlendMode(BlendMode mode, bool skipDisplay);

  // truncate(frameWidth * screen scale); 0 before the first layout.
  int64_t pixelFrameWidth() const;

  // The preview: nothing while the gate is shut; else shuts it, makes a surface no wider than the view
  // in pixels and (unless `skipEffects`) runs the stack on the base into effectedImage.
  void render(bool skipEffects);
  // Layout with the view's frame in points: records the width and makes the layout surface (at half
  // size for the low frame quality).
  void layoutSubviews(CGSize frame);
  void makeSurface(double width, double height);

  // What the screen shows, drawn into a picture of `width` x `height` pixels: the base aspect-fitted
  // and centred, the effected picture over it under the blend mode and alpha unless effects are
  // hidden. This is the one way to get pixels for the screen, and the one thing that opens the frame
  // gate again. Nil (the gate left as it is) while there is no layout surface.
  CGImageRef compose(int64_t width, int64_t height);

  // The stack on the base at full size (or half, by the save quality), composed; nil on failure.
  CGImageRef renderFinal();
  // The same, giving the stack's picture before composition as well.
  struct Final {
    CGImageRef effected;
    CGImageRef composed;
  };
  std::optional<Final> renderFinalParts();

  // The composed final becomes the new base; false (and nothing changed) when it can't be made.
  bool flatten();
  // The base turned by `degrees` (mirrored left to right when `mirrored`); false without a base.
  bool rotateBaseImage(double degrees, bool mirrored);
  // New control values from a fresh seed, then a preview render.
  void randomizeControls();

 private:
  double screenScale_;
  EffectsData& data_;
  double layerAlpha_ = 1.0;
  CGSize frame_{};
};

}  // namespace zorvex
