// Loading, migrating, storing and changing the effect list.
#include <string>

#include "core/imaging/fatal.h"
#include "core/imaging/platform.h"
#include "core/stack/effects_data.h"

namespace zorvex {

using plist::Type;
using plist::Value;

Value encodeEffects(const EffectList& list) {
  Value rows = Value::array();
  for (const EffectRef& e : list) {
    Value row = Value::dictionary();
    row.add("name", Value::string(e->name));
    row.add("isActive", Value::boolean(e->isActive));
    if (e->subEffects) row.add("subEffects", encodeEffects(*e->subEffects));
    rows.append(std::move(row));
  }
  return rows;
}

bool decodeEffects(const Value& value, EffectList& out) {
  if (!value.is(Type::array)) return false;
  EffectList rows;
  rows.reserve(value.count());
  for (const Value& row : value.items()) {
    const Value* name = row.find("name");
    const Value* isActive = row.find("isActive");
    if (!name || !name->is(Type::string) || !isActive || !isActive->is(Type::boolean)) return false;
    std::optional<EffectList> members;
    if (const Value* sub = row.find("subEffects")) {
      members.emplace();
      if (!decodeEffects(*sub, *members)) return false;
    }
    rows.push_back(Effect::make(name->asString(), isActive->asBool(), std::move(members)));
  }
  out = std::move(rows);
  return true;
}

namespace {

// The legacy form: an array of dictionaries, each holding under its first key an array of strings.
// A dictionary without keys passes; migration skips it.
bool isLegacyForm(const Value& v) {
  if (!v.is(Type::array)) return false;
  for (const Value& d : v.items()) {
    if (!d.is(Type::dictionary)) return false;
    if (d.count() == 0) continue;
    const Value& names = d.items()[0];
    if (!names.is(Type::array)) return false;
    for (const Value& n : names.items())
      if (!n.is(Type::string)) return false;
  }
  return true;
}

}  // namespace

std::string storedListProblem(const DefaultsStore& store) {
  const Value* stored = store.objectForKey(EffectsData::storedArrayKey);
  if (!stored) return {};
  if (const Value* legacy = store.objectForKey(EffectsData::kCustomFilterFilename); legacy && isLegacyForm(*legacy))
    return "older presets under \"" + std::string(EffectsData::kCustomFilterFilename) + "\" take its place";
  if (!stored->is(Type::data)) return "it is not a data value";
  Value root;
  std::string error;
  if (!plist::readBinary(stored->asData(), root, error)) return "it is not a property list: " + error;
  EffectList decoded;
  if (!decodeEffects(root, decoded)) return "a row of it has no name or no flag of the right type";
  return {};
}

void EffectsData::saveEffects() {
  std::vector<uint8_t> blob;
  std::string error;
  if (!plist::writeBinary(encodeEffects(effects), blob, error)) {
    consoleLine("Error saving effects.");
    return;
  }
  defaults().setData(std::move(blob), storedArrayKey);
}

void EffectsData::resetToDefaults() {
  for (size_t i = 0; i < builtinEffectNames.size(); ++i)
    effects.push_back(Effect::make(std::string(builtinEffectNames[i]), i == 1 || i == 2));
  saveEffects();
}

void EffectsData::loadEffects() {
  DefaultsStore& store = defaults();
  if (const Value* legacy = store.objectForKey(kCustomFilterFilename); legacy && isLegacyForm(*legacy)) {
    const Value old = *legacy;  // the store is written below
    consoleLine("We have old effects : " + plist::describe(old));
    resetToDefaults();
    for (const Value& d : old.items()) {
      if (d.count() == 0) {
        consoleLine("There was no key present. (?)");
        continue;
      }
      const std::string& key = d.keys()[0];
      const Value& names = d.items()[0];
      consoleLine("Key : " + key);
      consoleLine("Subbies " + plist::describe(names));
      EffectList members;
      for (const Value& n : names.items()) members.push_back(Effect::make(n.asString(), false));
      effects.push_back(Effect::make(key, false, std::move(members)));
    }
    saveEffects();
    store.removeObjectForKey(kCustomFilterFilename);
    return;
  }
  consoleLine("No old effects found.");

  const std::vector<uint8_t>* blob = store.dataForKey(storedArrayKey);
  if (!blob) {
    resetToDefaults();
    return;
  }
  Value root;
  std::string error;
  EffectList decoded;
  if (!plist::readBinary(*blob, root, error) || !decodeEffects(root, decoded)) {
    consoleLine("Culdn't decode the effects plist");
    resetToDefaults();
    return;
  }
  effects = std::move(decoded);
  // The effect was renamed; the dispatcher knows both names, so members keep the old one.
  for (const EffectRef& e : effects)
    if (e->name == "TRIBOMB") e->name = "POLYBOMB";
  for (std::string_view builtin : builtinEffectNames) {
    consoleLine("Builtin Effectname is " + std::string(builtin));
    bool present = false;
    for (const EffectRef& e : effects) present = present || e->name == builtin;
    if (!present) {
      consoleLine("NOT PRESENT IN CURRENT EFFECTS, APPEND");
      effects.push_back(Effect::make(std::string(builtin), false));
    }
  }
  saveEffects();
}

void EffectsData::toggleEffect(size_t row) {
  Effect& e = *at<EffectRef>(effects, row);
  e.isActive = !e.isActive;
  saveEffects();
}

void EffectsData::moveEffect(size_t from, size_t to) {
  const EffectRef e = at<EffectRef>(effects, from);
  effects.erase(effects.begin() + std::ptrdiff_t(from));
  if (to > effects.size()) fatal();
  effects.insert(effects.begin() + std::ptrdiff_t(to), e);
}

void EffectsData::removeEffect(size_t row) {
  at<EffectRef>(effects, row);
  effects.erase(effects.begin() + std::ptrdiff_t(row));
  saveEffects();
}

void EffectsData::saveActiveAsPreset(std::string name) {
  EffectList members;
  for (const EffectRef& e : effects)
    if (e->isActive) members.push_back(e);
  effects.push_back(Effect::make(std::move(name), false, std::move(members)));
  saveEffects();
}

void EffectsData::randomizeEffects() {
  if (effects.size() < 2) fatal();
  for (const EffectRef& e : effects) e->isActive = false;
  for (size_t i = 0; i + 1 < effects.size(); ++i) {
    const size_t j = i + arc4random_uniform(uint32_t(effects.size() - i));
    std::swap(effects[i], effects[j]);
  }
  effects[0]->isActive = true;
  effects[1]->isActive = true;
  saveEffects();
}

}  // namespace zorvex
