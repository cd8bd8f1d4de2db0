#include "core/stack/effects_data.h"

#include "core/stack/filters.h"

namespace zorvex {

EffectsData& EffectsData::shared() {
  static EffectsData data;
  return data;
}

CGImageRef EffectsData::renderStack(const CGLayerRef& layer, const CGContextRef& context,
                                    std::span<const double> controls, const CGImageRef& image, double width,
                                    double height) {
  return stackApply(effects, layer, context, controls, image, width, height);
}

CGImageRef EffectsData::stackApply(const EffectList&, const CGLayerRef& layer, const CGContextRef& context,
                                   std::span<const double> controls, const CGImageRef& image, double width,
                                   double height) {
  if (width == 0.0 || height == 0.0) return nullptr;
  // The render works on the array as it stands now; the objects in it are shared.
  const EffectList rows = effects;
  EffectList active;
  for (const EffectRef& e : rows)
    if (e->isActive) active.push_back(e);
  const EffectList flat = flattenEffects(active);
  CGContextClearRect(context, CGRectMake(0, 0, width, height));
  CGContextDrawImage(context, CGRectMake(0, 0, width, height), image);
  for (size_t i = 0; i < flat.size(); ++i) {
    if (onEffect) onEffect(i, flat.size(), *flat[i]);
    Filters::applyEffect(*flat[i], context, layer, controls);
  }
  return CGBitmapContextCreateImage(context);
}

EffectList EffectsData::flattenEffects(const EffectList& list) {
  EffectList out;
  for (const EffectRef& e : list) {
    if (!e->subEffects) {
      out.push_back(e);
    } else {
      const EffectList members = flattenEffects(*e->subEffects);
      out.insert(out.end(), members.begin(), members.end());
    }
  }
  return out;
}

}  // namespace zorvex
