// What the engine keeps for the look of its picture: the edit steps done on the base since it was set,
// and the current look built from the view and the list.
#pragma once

#include <vector>

#include "core/look/look.h"
#include "core/render/effected_image_view.h"
#include "core/stack/effects_data.h"

namespace zorvex::web {

// The engine's picture view (engine_api.cpp).
EffectedImageView& engineView();

class LookLog {
 public:
  static LookLog& shared();

  // A new base (a still, a live frame, or none): no edits yet.
  void baseChanged() { edits_.clear(); }
  // The base was turned by `degrees` (mirrored when `mirrored`), as the four tools do.
  void turned(double degrees, bool mirrored);
  // The base is about to be flattened under the view's present stack and save quality.
  void flattening(const EffectedImageView& view, const EffectsData& data);
  void add(const look::EditStep& step) { edits_.push_back(step); }

  // The look of the picture as the view and the list stand. The vector is named by the view's seed
  // when that seed rolls it.
  look::Look current(const EffectedImageView& view, const EffectsData& data) const;

 private:
  std::vector<look::EditStep> edits_;
};

}  // namespace zorvex::web
