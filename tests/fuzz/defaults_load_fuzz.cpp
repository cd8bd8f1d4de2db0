// Feeds arbitrary bytes to the path from a defaults file to the effect list: the file's dictionary,
// the check that keeps an undecodable list, the legacy migration, the merge with the built-in
// effects and the store. Whatever the file holds, the list comes out whole: every built-in effect is
// a row, and what is stored reads back as that list.
#include <cstdint>
#include <cstdlib>

#include "core/imaging/platform.h"
#include "core/stack/effects_data.h"
#include "native/defaults_file.h"

namespace {

class SilentPlatform final : public zorvex::Platform {
 public:
  void consoleLine(std::string_view) override {}
  uint32_t random32() override { return next = next * 1664525u + 1013904223u; }
  double now() override { return 0; }
  uint32_t next = 1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zorvex;
  static SilentPlatform silent;
  setPlatform(&silent);
  plist::Value root;
  std::string why;
  if (!native::parseDefaults(std::vector<uint8_t>(data, data + size), root, why)) {
    if (why.empty()) std::abort();
    return 0;
  }
  MemoryDefaults store;
  store.replaceAll(std::move(root));
  const std::string problem = storedListProblem(store);
  const bool hadList = store.objectForKey(EffectsData::storedArrayKey) != nullptr;
  EffectsData list;
  list.setDefaults(&store);
  list.loadEffects();
  // A list that could be used is kept: the problem check and the loader agree.
  if (hadList && problem.empty() && list.effects.size() < EffectsData::builtinEffectNames.size()) std::abort();
  for (std::string_view builtin : EffectsData::builtinEffectNames) {
    bool present = false;
    for (const EffectRef& e : list.effects) present = present || e->name == builtin;
    if (!present) std::abort();
  }
  const std::vector<uint8_t>* blob = store.dataForKey(EffectsData::storedArrayKey);
  if (!blob) return 0;  // a name that is not UTF-8 can't be encoded: the store keeps its old value
  plist::Value stored;
  EffectList back;
  if (!plist::readBinary(*blob, stored, why) || !decodeEffects(stored, back)) std::abort();
  if (storedListProblem(store).size() && !store.objectForKey(EffectsData::kCustomFilterFilename)) std::abort();
  return 0;
}
