#include <gtest/gtest.h>

#include "core/stack/effects_data.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using plist::Value;

class EffectsStore : public ::testing::Test {
 protected:
  // A fresh start of the program on the same store: a new list, loaded.
  EffectsData restart() {
    EffectsData data;
    data.setDefaults(&store);
    data.loadEffects();
    return data;
  }
  void storeList(const EffectList& list) { store.setData(testing::plistBytes(encodeEffects(list)), EffectsData::storedArrayKey); }
  EffectList storedList() {
    EffectList list;
    Value root;
    std::string error;
    const std::vector<uint8_t>* blob = store.dataForKey(EffectsData::storedArrayKey);
    if (!blob || !plist::readBinary(*blob, root, error) || !decodeEffects(root, list)) ADD_FAILURE() << "no list stored";
    return list;
  }
  static std::vector<std::string> names(const EffectList& list, bool activeOnly = false) {
    std::vector<std::string> out;
    for (const EffectRef& e : list)
      if (e->isActive || !activeOnly) out.push_back(e->name);
    return out;
  }
  static std::vector<std::string> activeNames(const EffectList& list) { return names(list, true); }
  static std::vector<std::string> builtins() {
    return std::vector<std::string>(EffectsData::builtinEffectNames.begin(), EffectsData::builtinEffectNames.end());
  }

  testing::TestPlatform platform;
  MemoryDefaults store;
};

TEST_F(EffectsStore, FirstStartGivesTheBuiltInListWithVethAndAgencyOn) {
  EffectsData data = restart();
  EXPECT_EQ(platform.lines, std::vector<std::string>{"No old effects found."});
  ASSERT_EQ(data.effects.size(), 34u);
  EXPECT_EQ(names(data.effects), builtins());
  EXPECT_EQ(activeNames(data.effects), (std::vector<std::string>{"VETH", "AGENCY"}));
  for (const EffectRef& e : data.effects) EXPECT_FALSE(e->isPreset());
  EXPECT_EQ(names(storedList()), builtins());
}

TEST_F(EffectsStore, AnOlderListGetsTheMissingEffectAppendedOffAndKeepsItsOrder) {
  EffectList old;
  for (auto it = EffectsData::builtinEffectNames.rbegin() + 1; it != EffectsData::builtinEffectNames.rend(); ++it)
    old.push_back(Effect::make(std::string(*it), *it == "ISAM"));  // reversed, without KAL1D0
  old.push_back(Effect::make("GONE IN THIS VERSION", true));
  storeList(old);

  EffectsData data = restart();
  ASSERT_EQ(data.effects.size(), 35u);
  std::vector<std::string> want = names(old);
  want.push_back("KAL1D0");
  EXPECT_EQ(names(data.effects), want);
  EXPECT_FALSE(data.effects.back()->isActive);
  EXPECT_EQ(activeNames(data.effects), (std::vector<std::string>{"ISAM", "GONE IN THIS VERSION"}));
  // One line per built-in name, and the append line right after the missing one.
  std::vector<std::string> expected = {"No old effects found."};
  for (const std::string& n : builtins()) {
    expected.push_back("Builtin Effectname is " + n);
    if (n == "KAL1D0") expected.push_back("NOT PRESENT IN CURRENT EFFECTS, APPEND");
  }
  EXPECT_EQ(platform.lines, expected);
  EXPECT_EQ(names(storedList()), want);
}

TEST_F(EffectsStore, TribombIsRenamedAtTheTopOnlyAndNotAppendedAgain) {
  EffectList old;
  for (std::string_view n : EffectsData::builtinEffectNames)
    old.push_back(Effect::make(n == "POLYBOMB" ? "TRIBOMB" : std::string(n), n == "POLYBOMB"));
  old.push_back(Effect::make("P", true, EffectList{Effect::make("TRIBOMB", false)}));
  storeList(old);

  EffectsData data = restart();
  ASSERT_EQ(data.effects.size(), 35u);
  EXPECT_EQ(data.effects[21]->name, "POLYBOMB");
  EXPECT_TRUE(data.effects[21]->isActive);
  EXPECT_EQ((*data.effects[34]->subEffects)[0]->name, "TRIBOMB");
  EXPECT_EQ(platform.count("NOT PRESENT IN CURRENT EFFECTS, APPEND"), 0u);
  EXPECT_EQ(storedList()[21]->name, "POLYBOMB");
}

TEST_F(EffectsStore, APresetNamedLikeABuiltInCountsAsThatEffect) {
  EffectList old;
  for (std::string_view n : EffectsData::builtinEffectNames)
    if (n != "VETH") old.push_back(Effect::make(std::string(n), false));
  old.push_back(Effect::make("VETH", false, EffectList{Effect::make("GRABOID", true)}));
  storeList(old);

  EffectsData data = restart();
  EXPECT_EQ(data.effects.size(), 34u);
  EXPECT_TRUE(data.effects.back()->isPreset());
  EXPECT_EQ(platform.count("NOT PRESENT IN CURRENT EFFECTS, APPEND"), 0u);
}

TEST_F(EffectsStore, PresetsHoldTheActiveRowsAndAnEmptyOneStaysAPreset) {
  EffectsData data = restart();
  data.saveActiveAsPreset("Mine");
  const EffectRef mine = data.effects.back();
  EXPECT_EQ(mine->name, "Mine");
  EXPECT_FALSE(mine->isActive);
  ASSERT_EQ(mine->subEffects->size(), 2u);
  EXPECT_EQ((*mine->subEffects)[0], data.effects[1]);  // the same objects as the rows
  EXPECT_EQ((*mine->subEffects)[1], data.effects[2]);

  for (size_t i : {1, 2}) data.toggleEffect(i);
  data.saveActiveAsPreset("Nothing");
  EXPECT_TRUE(data.effects.back()->isPreset());
  EXPECT_TRUE(data.effects.back()->subEffects->empty());

  // The stored form keeps the empty member list, and plain rows have no members key.
  Value root;
  std::string error;
  ASSERT_TRUE(plist::readBinary(*store.dataForKey(EffectsData::storedArrayKey), root, error));
  EXPECT_EQ(root.items()[0].keys(), (std::vector<std::string>{"name", "isActive"}));
  const Value* empty = root.items().back().find("subEffects");
  ASSERT_TRUE(empty && empty->is(plist::Type::array));
  EXPECT_EQ(empty->count(), 0u);

  EffectsData again = restart();
  ASSERT_EQ(again.effects.size(), 36u);
  EXPECT_TRUE(again.effects.back()->isPreset());
  EXPECT_EQ(names(*again.effects[34]->subEffects), (std::vector<std::string>{"VETH", "AGENCY"}));
  // Switched on, the empty preset runs nothing.
  again.effects.back()->isActive = true;
  EXPECT_TRUE(EffectsData::flattenEffects({again.effects.back()}).empty());
}

Value legacyPresets() {
  Value first = Value::dictionary();
  first.set("Old Look", Value::array({Value::string("GRABOID"), Value::string("§P∆Iƒ")}));
  Value second = Value::dictionary();
  second.set("Second", Value::array());
  second.set("Ignored", Value::array({Value::string("VETH")}));
  return Value::array({first, Value::dictionary(), second});
}

TEST_F(EffectsStore, LegacyPresetsWinOverACurrentListAndAreMigratedOnce) {
  storeList({Effect::make("AGENCY", true), Effect::make("Current Preset", true, EffectList{})});
  EXPECT_EQ(storedListProblem(store), "");
  store.setObject(EffectsData::kCustomFilterFilename, legacyPresets());
  // The caller is told, so that it can keep the current list before the migration overwrites it.
  EXPECT_NE(storedListProblem(store).find("older presets"), std::string::npos);

  EffectsData data = restart();
  EXPECT_EQ(platform.lines, (std::vector<std::string>{
                                "We have old effects : ({\"Old Look\" = (GRABOID, \"§P∆Iƒ\");}, {}, "
                                "{Second = (); Ignored = (VETH);})",
                                "Key : Old Look",
                                "Subbies (GRABOID, \"§P∆Iƒ\")",
                                "There was no key present. (?)",
                                "Key : Second",
                                "Subbies ()",
                            }));
  ASSERT_EQ(data.effects.size(), 36u);
  const std::vector<std::string> all = names(data.effects);
  EXPECT_EQ(std::vector<std::string>(all.begin(), all.begin() + 34), builtins());
  EXPECT_EQ(activeNames(data.effects), (std::vector<std::string>{"VETH", "AGENCY"}));
  const Effect& old = *data.effects[34];
  EXPECT_EQ(old.name, "Old Look");
  EXPECT_FALSE(old.isActive);
  EXPECT_EQ(names(*old.subEffects), (std::vector<std::string>{"GRABOID", "§P∆Iƒ"}));
  for (const EffectRef& m : *old.subEffects) EXPECT_FALSE(m->isActive || m->isPreset());
  EXPECT_TRUE(data.effects[35]->subEffects->empty());

  EXPECT_EQ(store.objectForKey(EffectsData::kCustomFilterFilename), nullptr);
  EXPECT_EQ(names(storedList()), names(data.effects));  // the current list was overwritten
  platform.lines.clear();
  EXPECT_EQ(restart().effects.size(), 36u);
  EXPECT_EQ(platform.count("No old effects found."), 1u);
}

TEST_F(EffectsStore, ALegacyValueOfAnotherShapeStaysUnread) {
  Value odd = Value::array({Value::string("not a dictionary")});
  store.setObject(EffectsData::kCustomFilterFilename, odd);
  EXPECT_EQ(storedListProblem(store), "");
  EffectsData data = restart();
  EXPECT_EQ(platform.lines, std::vector<std::string>{"No old effects found."});
  EXPECT_EQ(data.effects.size(), 34u);
  ASSERT_NE(store.objectForKey(EffectsData::kCustomFilterFilename), nullptr);
  EXPECT_EQ(*store.objectForKey(EffectsData::kCustomFilterFilename), odd);
}

TEST_F(EffectsStore, AnUndecodableListGivesWayToTheDefaults) {
  Value row = Value::dictionary();  // a property list of the wrong shape: a row without its flag
  row.set("name", Value::string("VETH"));
  for (const auto& blob : {std::vector<uint8_t>{'n', 'o', 'p', 'e'}, testing::plistBytes(Value::array({row}))}) {
    platform.lines.clear();
    store.setData(blob, EffectsData::storedArrayKey);
    EXPECT_NE(storedListProblem(store), "");  // so that the caller keeps a copy first
    EffectsData data = restart();
    EXPECT_EQ(storedListProblem(store), "");
    EXPECT_EQ(platform.lines, (std::vector<std::string>{"No old effects found.", "Culdn't decode the effects plist"}));
    EXPECT_EQ(names(data.effects), builtins());
    EXPECT_EQ(names(storedList()), builtins());
  }
  // A value that is no data blob at all is simply replaced.
  platform.lines.clear();
  store.setString("VETH", EffectsData::storedArrayKey);
  EXPECT_EQ(storedListProblem(store), "it is not a data value");
  EXPECT_EQ(restart().effects.size(), 34u);
  EXPECT_EQ(platform.lines, std::vector<std::string>{"No old effects found."});
}

TEST_F(EffectsStore, AMoveIsForgottenUntilSomethingSaves) {
  EffectsData data = restart();
  data.moveEffect(0, 33);
  EXPECT_EQ(data.effects.back()->name, "GRABOID");
  EXPECT_EQ(data.effects[0]->name, "VETH");
  EXPECT_EQ(names(restart().effects), builtins());  // quitting now brings the old order back

  data.moveEffect(33, 0);
  data.moveEffect(5, 2);  // "CHIP13h" goes in before "AGENCY"
  EXPECT_EQ(data.effects[2]->name, "CHIP13h");
  EXPECT_EQ(data.effects[3]->name, "AGENCY");
  data.toggleEffect(0);  // any operation that saves stores the new order too
  EffectsData again = restart();
  EXPECT_EQ(again.effects[2]->name, "CHIP13h");
  EXPECT_TRUE(again.effects[0]->isActive);
}

TEST_F(EffectsStore, ARemovedBuiltInComesBackOffAndLastAndResetAppends) {
  EffectsData data = restart();
  data.removeEffect(1);  // VETH
  EXPECT_EQ(storedList().size(), 33u);
  EffectsData again = restart();
  ASSERT_EQ(again.effects.size(), 34u);
  EXPECT_EQ(again.effects.back()->name, "VETH");
  EXPECT_FALSE(again.effects.back()->isActive);
  again.resetToDefaults();  // to a list that has rows
  EXPECT_EQ(storedList().size(), 68u);
}

TEST_F(EffectsStore, AFailedSaveLeavesTheStoreAsItWas) {
  EffectsData data = restart();
  const std::vector<uint8_t> before = *store.dataForKey(EffectsData::storedArrayKey);
  platform.lines.clear();
  data.saveActiveAsPreset("bad \xff name");
  EXPECT_EQ(platform.lines, std::vector<std::string>{"Error saving effects."});
  EXPECT_EQ(*store.dataForKey(EffectsData::storedArrayKey), before);
}

TEST_F(EffectsStore, RandomizeShufflesPresetsWithTheRestAndTurnsOnTheTopTwo) {
  EffectsData data = restart();
  data.saveActiveAsPreset("Both");
  data.saveActiveAsPreset("Again");
  const EffectList before = data.effects;
  data.randomizeEffects();

  ASSERT_EQ(data.effects.size(), before.size());
  EXPECT_TRUE(std::is_permutation(data.effects.begin(), data.effects.end(), before.begin()));
  for (size_t i = 0; i < data.effects.size(); ++i) EXPECT_EQ(data.effects[i]->isActive, i < 2) << i;
  EXPECT_NE(names(data.effects), names(before));
  // The members of the presets keep their flags: the preset "Both" still holds VETH and AGENCY, now
  // off unless they are among the top two.
  const EffectRef both = *std::find_if(data.effects.begin(), data.effects.end(), [](auto& e) { return e->name == "Both"; });
  EXPECT_EQ(names(*both->subEffects), (std::vector<std::string>{"VETH", "AGENCY"}));

  const EffectsData again = restart();
  EXPECT_EQ(names(again.effects), names(data.effects));
  EXPECT_EQ(activeNames(again.effects), activeNames(data.effects));
}

// Row i is swapped with row i + draw % (count - i): draws 38 and 37 take [a b c] to [c b a] to [c a b].
TEST_F(EffectsStore, RandomizeDrawsEachSwapFromTheRowsNotYetPlaced) {
  EffectsData data;
  data.setDefaults(&store);
  data.effects = {Effect::make("a", true), Effect::make("b", true), Effect::make("c", true)};
  platform.randoms = {38, 37};
  data.randomizeEffects();
  EXPECT_EQ(names(data.effects), (std::vector<std::string>{"c", "a", "b"}));
  EXPECT_EQ(activeNames(data.effects), (std::vector<std::string>{"c", "a"}));
  EXPECT_TRUE(platform.randoms.empty());
}

TEST(Effect, EqualByNameHashedByNameAndMembers) {
  const EffectRef a = Effect::make("VETH", true), b = Effect::make("VETH", false, EffectList{Effect::make("GRABOID", true)});
  EXPECT_EQ(*a, *b);
  EXPECT_NE(*a, *Effect::make("AGENCY", true));
  EXPECT_NE(std::hash<Effect>()(*a), Effect::make("VETH", false, EffectList{})->hash());  // a preset is not a row
  EXPECT_EQ(b->hash(), Effect::make("VETH", true, EffectList{Effect::make("GRABOID", false)})->hash());  // flags aside
  EXPECT_NE(b->hash(), Effect::make("VETH", false, EffectList{Effect::make("AGENCY", true)})->hash());
}

#ifndef __EMSCRIPTEN__
TEST(EffectsStoreDeath, RowIndexesOutsideTheListAreFatal) {
  EffectsData data;
  MemoryDefaults store;
  data.setDefaults(&store);
  data.effects = {Effect::make("a", true)};
  EXPECT_DEATH(data.toggleEffect(1), "");
  EXPECT_DEATH(data.removeEffect(1), "");
  EXPECT_DEATH(data.moveEffect(0, 1), "");
  EXPECT_DEATH(data.randomizeEffects(), "");
}
#endif

}  // namespace
}  // namespace zorvex
