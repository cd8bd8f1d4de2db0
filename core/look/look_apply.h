// Between a look and the things that render: the stack that a list and a view give, the list's rows
// set to run a look's effects, and a look's edit steps replayed on a base.
#pragma once

#include <functional>
#include <string_view>

#include "core/look/look.h"
#include "core/render/effected_image_view.h"
#include "core/stack/effects_data.h"

namespace zorvex::look {

// The name of the preset that a look's effects are kept in when no rows of the list run them.
inline constexpr std::string_view kLookPresetName = "FROM PHOTO";

// The stack that these rows run (the active ones, presets opened up; names without a kernel dropped)
// under these controls, blend mode and opacity.
Stack currentStack(const EffectList& rows, const ControlValues& controls, std::optional<uint64_t> seed,
                   BlendMode blend, double opacity);

// Rows that run exactly these effects, in this order, each on.
EffectList rowsFor(const std::vector<std::string>& effects);

// Sets the list so that its active rows run these effects in this order: the rows that do so in the
// list's own order are turned on and every other row off; when no choice of rows does, a preset named
// "FROM PHOTO" holding the effects is appended and is the one row on. Stores the list. True when the
// preset was added.
bool useEffects(EffectsData& data, const std::vector<std::string>& effects);

// The view takes the stack's vector (and seed), blend mode and opacity.
void applyStack(EffectedImageView& view, const Stack& stack);

// Replays the look's edit steps on the view's base, in order: turns and mirrors, and flattens, each
// under its own stack and save quality (the view and the list are given back as they were after each).
// `done` is told of each step carried out. False, with `error` saying why, when the view has no base or
// a flatten can't be rendered; the steps before stay done.
bool replayEdits(EffectedImageView& view, EffectsData& data, const Look& look, std::string& error,
                 const std::function<void(const EditStep&)>& done = {});

}  // namespace zorvex::look
