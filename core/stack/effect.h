// A row of the effect list: an effect, or a preset whose members are further effects.
#pragma once

#include <cstddef>
#include <functional>
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

  // Two effects are equal when their names are; the flag and the members don't count.
  bool operator==(const Effect& other) const { return name == other.name; }
  // Takes in the name and, recursively, the members (whether there are any, how many, each one),
  // not the flag. So two equal presets with different members can hash differently.
  size_t hash() const {
    size_t h = std::hash<std::string>()(name);
    const auto mix = [&h](size_t v) { h ^= v + size_t(0x9E3779B9u) + (h << 6) + (h >> 2); };
    mix(subEffects.has_value());
    if (subEffects) {
      mix(subEffects->size());
      for (const EffectRef& e : *subEffects) mix(e ? e->hash() : 0);
    }
    return h;
  }

  static EffectRef make(std::string name, bool isActive, std::optional<EffectList> subEffects = std::nullopt) {
    return std::make_shared<Effect>(Effect{std::move(name), isActive, std::move(subEffects)});
  }
};

}  // namespace zorvex

template <>
struct std::hash<zorvex::Effect> {
  size_t operator()(const zorvex::Effect& e) const { return e.hash(); }
};
