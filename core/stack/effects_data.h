// The effect list and the application of its active rows to a picture.
#pragma once

#include <functional>
#include <span>

#include "core/imaging/cg.h"
#include "core/stack/effect.h"

namespace zorvex {

class EffectsData {
 public:
  // The one shared list of the program.
  static EffectsData& shared();

  // The rows, in list order.
  EffectList effects;

  // Told before each kernel of a stack runs (its place in the flattened list and the list's length),
  // so that long renders can show progress. Empty by default.
  std::function<void(size_t index, size_t count, const Effect& effect)> onEffect;

  // stackApply with the current list.
  CGImageRef renderStack(const CGLayerRef& layer, const CGContextRef& context, std::span<const double> controls,
                         const CGImageRef& image, double width, double height);
  // Paints `image` into the surface at width x height, runs each active effect (presets opened up) in
  // list order and gives a snapshot; nil for a zero size. `list` is not looked at: the rows are read
  // afresh from `effects`.
  CGImageRef stackApply(const EffectList& list, const CGLayerRef& layer, const CGContextRef& context,
                        std::span<const double> controls, const CGImageRef& image, double width, double height);
  // Presets replaced by their members, recursively; flags are not read.
  static EffectList flattenEffects(const EffectList& list);
};

}  // namespace zorvex
