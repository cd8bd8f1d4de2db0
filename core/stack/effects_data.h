// The effect list and the application of its active rows to a picture.
#pragma once

#include <array>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "core/imaging/cg.h"
#include "core/stack/defaults.h"
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

  // --- The stored list (effects_store.cpp) ---

  // The legacy defaults key (presets only, as arrays of names) and the current one (the whole list).
  static constexpr std::string_view kCustomFilterFilename = "kCustomFilterFilename2x";
  static constexpr std::string_view storedArrayKey = "zz.kvt.zorvex.activefilters.5.101";

  // Every effect of this version, in the default order; a reset turns on rows 1 and 2.
  static constexpr std::array<std::string_view, 34> builtinEffectNames = {
      "GRABOID",     "VETH",        "AGENCY",     "2600++",      "BUNKER",     "CHIP13h",      "FINGERBLIB",
      "M0T0R",       "L225",        "PRECOG1",    "BLITBOMB",    "INTERFACE",  "VORTRON",      "BRAINFEED3R",
      "DOCTOR OCULAR", "XEXOX",     "FOLD4RAP5",  "BITBOY",      "TI994X",     "01RECTINE",    "GLASSDAGGER",
      "POLYBOMB",    "KOMPLIANCE",  "DROPFRAME",  "§P∆Iƒ",       "B∑AMRID∑R",  "ISAM",         "VAN STROKE",
      "YUBARI",      "MXLHXLLXND",  "SIGSTOP",    "ARECIBO",     "5HR00M",     "KAL1D0"};

  // The store the list is read from and written to: the standard defaults unless one is set here.
  void setDefaults(DefaultsStore* store) { defaults_ = store; }
  DefaultsStore& defaults() const { return defaults_ ? *defaults_ : standardDefaults(); }

  // Fills `effects` from the store: migrates the legacy presets once, renames "TRIBOMB" rows to
  // "POLYBOMB", appends the built-in effects the stored list lacks, and stores the result.
  void loadEffects();
  // Writes `effects` to the store; on failure says so and leaves the store as it was.
  void saveEffects();
  // Appends every built-in effect (rows 1 and 2 on) and saves. It doesn't clear the list.
  void resetToDefaults();
  // The row operations; an index outside the list is fatal.
  void toggleEffect(size_t row);
  void moveEffect(size_t from, size_t to);  // `to` counts in the list without the row; doesn't save
  void removeEffect(size_t row);
  // Appends a preset, off, holding the rows that are on (the same objects), and saves.
  void saveActiveAsPreset(std::string name);
  // Turns every row off, shuffles the rows, turns on the first two, and saves. Fewer than two rows is
  // fatal.
  void randomizeEffects();

 private:
  DefaultsStore* defaults_ = nullptr;
};

// Why loadEffects would put the built-in list in place of the value stored under storedArrayKey in
// `store` (a value that is not a blob or doesn't decode, or one that the legacy presets take over
// from), or empty when it would keep it or there is none; so that the caller can keep a copy first.
std::string storedListProblem(const DefaultsStore& store);

// The list as the stored blob's property list: an array with a dictionary per row ("name",
// "isActive", and "subEffects" for presets only).
plist::Value encodeEffects(const EffectList& list);
// The rows of such a property list; false when it has another shape.
bool decodeEffects(const plist::Value& value, EffectList& out);

}  // namespace zorvex
