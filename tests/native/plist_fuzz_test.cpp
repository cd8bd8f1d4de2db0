// Damaged binary property lists: random changes to valid ones must give a value or an error, never a
// crash, a hang or a read out of bounds (run under a sanitizer to see the last). The changes come from
// a fixed seed, so a failure repeats; the iterations are bounded.
#include <gtest/gtest.h>

#include <random>

#include "core/stack/effects_data.h"
#include "core/stack/plist.h"
#include "tests/core/test_pictures.h"

namespace zorvex::plist {
namespace {

std::vector<std::vector<uint8_t>> seeds() {
  std::vector<std::vector<uint8_t>> out;
  auto add = [&](const Value& v) { out.push_back(testing::plistBytes(v)); };
  add(encodeEffects({Effect::make("§P∆Iƒ", true),
                     Effect::make("Mine", false, EffectList{Effect::make("VETH", true), Effect::make("X", false)}),
                     Effect::make("Empty", false, EffectList{})}));
  Value d;
  d.set("int", Value::integer(-5));
  d.set("big", Value::integer(int64_t(1) << 40));
  d.set("real", Value::real(1.5));
  d.set("date", Value::date(3));
  d.set("data", Value::data({1, 2, 3}));
  d.set("a string of more than fourteen letters", Value::string("B∑AMRID∑R"));
  std::vector<Value> many;
  for (int i = 0; i < 260; ++i) many.push_back(Value::integer(i));  // two-byte references
  d.set("many", Value::array(many));
  add(d);
  return out;
}

TEST(PlistFuzz, DamagedFilesAreReadOrRefusedNeverCrash) {
  std::mt19937 random(20240501);
  const auto pick = [&](size_t n) { return size_t(random() % n); };
  size_t read = 0, refused = 0;
  for (const std::vector<uint8_t>& seed : seeds()) {
    for (int iteration = 0; iteration < 6000; ++iteration) {
      std::vector<uint8_t> b = seed;
      switch (pick(5)) {
        case 0:  // a few random bytes anywhere
          for (size_t k = 0, n = 1 + pick(4); k < n; ++k) b[pick(b.size())] = uint8_t(random());
          break;
        case 1:  // a byte of the trailer or the offset table
          b[b.size() - 1 - pick(std::min<size_t>(b.size(), 48))] = uint8_t(random());
          break;
        case 2:  // truncated
          b.resize(pick(b.size()));
          break;
        case 3:  // bytes inserted or removed in the middle
          if (pick(2)) {
            b.insert(b.begin() + std::ptrdiff_t(pick(b.size())), uint8_t(random()));
          } else {
            b.erase(b.begin() + std::ptrdiff_t(pick(b.size())));
          }
          break;
        default:  // a marker's count nibble set to 0xF (an extended count follows) or to a large value
          for (size_t k = 0; k < 3; ++k) {
            const size_t at = 8 + pick(b.size() - 8);
            b[at] = uint8_t((b[at] & 0xF0) | (pick(2) ? 0x0F : 0x0E));
          }
      }
      Value v;
      std::string error;
      if (readBinary(b, v, error)) {
        ++read;
        // Whatever was read writes and reads back the same (unless a string can't be written).
        std::vector<uint8_t> again;
        if (writeBinary(v, again, error)) {
          Value back;
          ASSERT_TRUE(readBinary(again, back, error)) << error;
          EXPECT_EQ(back, v);
        }
      } else {
        ++refused;
        EXPECT_FALSE(error.empty());
      }
    }
  }
  EXPECT_GT(read, 0u);
  EXPECT_GT(refused, 0u);
}

}  // namespace
}  // namespace zorvex::plist
