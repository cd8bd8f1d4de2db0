#include "core/stack/defaults.h"

namespace zorvex {
namespace {

// The leading integer of a string, as the platform's integerValue reads it: blanks, a sign, digits;
// 0 when there are none; clamped to the 64-bit range.
int64_t leadingInteger(const std::string& s) {
  size_t i = 0;
  while (i < s.size() && (s[i] == ' ' || s[i] == '\t' || s[i] == '\n' || s[i] == '\r')) ++i;
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
  uint64_t magnitude = 0;
  const uint64_t limit = negative ? uint64_t(INT64_MAX) + 1 : uint64_t(INT64_MAX);
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
    const uint64_t digit = uint64_t(s[i] - '0');
    magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
  }
  return negative ? int64_t(0 - magnitude) : int64_t(magnitude);
}

bool leadingTruth(const std::string& s) {
  size_t i = 0;
  while (i < s.size() && (s[i] == ' ' || s[i] == '\t' || s[i] == '\n' || s[i] == '\r')) ++i;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  while (i < s.size() && s[i] == '0') ++i;
  if (i >= s.size()) return false;
  const char c = s[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

}  // namespace

int64_t DefaultsStore::integerForKey(std::string_view key) const {
  const plist::Value* v = objectForKey(key);
  if (!v) return 0;
  switch (v->type()) {
    case plist::Type::integer: return v->asInteger();
    case plist::Type::boolean: return v->asBool() ? 1 : 0;
    case plist::Type::real: {
      const double d = v->asReal();
      if (!(d > -9223372036854775808.0 && d < 9223372036854775808.0)) return 0;
      return int64_t(d);
    }
    case plist::Type::string: return leadingInteger(v->asString());
    default: return 0;
  }
}

bool DefaultsStore::boolForKey(std::string_view key) const {
  const plist::Value* v = objectForKey(key);
  if (!v) return false;
  switch (v->type()) {
    case plist::Type::boolean: return v->asBool();
    case plist::Type::integer: return v->asInteger() != 0;
    case plist::Type::real: return v->asReal() != 0.0;
    case plist::Type::string: return leadingTruth(v->asString());
    default: return false;
  }
}

std::optional<std::string> DefaultsStore::stringForKey(std::string_view key) const {
  const plist::Value* v = objectForKey(key);
  if (!v || !v->is(plist::Type::string)) return std::nullopt;
  return v->asString();
}

const std::vector<uint8_t>* DefaultsStore::dataForKey(std::string_view key) const {
  const plist::Value* v = objectForKey(key);
  return v && v->is(plist::Type::data) ? &v->asData() : nullptr;
}

void MemoryDefaults::setObject(std::string_view key, plist::Value value) {
  values_.set(key, std::move(value));
  changed();
}

void MemoryDefaults::removeObjectForKey(std::string_view key) {
  if (values_.remove(key)) changed();
}

namespace {
DefaultsStore* gStandard = nullptr;
}

DefaultsStore& standardDefaults() {
  static MemoryDefaults memory;
  return gStandard ? *gStandard : memory;
}

void setStandardDefaults(DefaultsStore* store) { gStandard = store; }

}  // namespace zorvex
