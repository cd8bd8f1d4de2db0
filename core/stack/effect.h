// A row of the effect list: an effect, or a preset whose members are further effects.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zorvex {

struct Effect;
// Effects have reference semantics: a row and a preset can hold the same object.
using EffectRef = std::shared_ptr<Effect>;
using EffectList = std::vector<EffectRef>;

struct Effect {
  std::string name;
  bool isActive = false;
  std::optional<EffectList> subEffects;  // present, even if empty, for a preset

  bool isPreset() const { return subEffects.has_value(); }

  static EffectRef make(std::string name, bool isActive, std::optional<EffectList> subEffects = std::nullopt) {
    return std::make_shared<Effect>(Effect{std::move(name), isActive, std::move(subEffects)});
  }
};

}  // namespace zorvex
