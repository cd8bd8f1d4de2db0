// Property-list values and our coder for the binary form ("bplist00"): the stored effect list and the
// Linux defaults file are both written and read through it. Nothing here throws on bad input: the
// reader and the writer return false and say why.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zorvex::plist {

enum class Type { boolean, integer, real, date, string, data, array, dictionary };

// One property-list object. Strings are UTF-8. A dictionary keeps its keys in the order they were
// set; keys() and items() line up, so items()[i] is the value of keys()[i]. For an array, items() are
// its elements and keys() is empty.
class Value {
 public:
  Value() : Value(Type::dictionary) {}  // an empty dictionary

  static Value boolean(bool b);
  static Value integer(int64_t i);
  static Value real(double d);
  static Value date(double secondsSince2001);
  static Value string(std::string s);
  static Value data(std::vector<uint8_t> bytes);
  static Value array(std::vector<Value> elements = {});
  static Value dictionary() { return Value(Type::dictionary); }

  Type type() const { return type_; }
  bool is(Type t) const { return type_ == t; }

  bool asBool() const { return boolean_; }
  int64_t asInteger() const { return integer_; }
  double asReal() const { return real_; }  // reals and dates
  const std::string& asString() const { return string_; }
  const std::vector<uint8_t>& asData() const { return data_; }

  const std::vector<Value>& items() const { return items_; }
  std::vector<Value>& items() { return items_; }
  const std::vector<std::string>& keys() const { return keys_; }
  size_t count() const { return items_.size(); }

  // Dictionary access; find gives null for a missing key or a value that is no dictionary.
  const Value* find(std::string_view key) const;
  void set(std::string_view key, Value v);  // replaces the value of a key that is there
  void add(std::string key, Value v);       // appends a key that the caller knows is new
  bool remove(std::string_view key);
  // Array access.
  void append(Value v) { items_.push_back(std::move(v)); }

  // Same type and content; dictionaries compare in order.
  bool operator==(const Value& other) const;

 private:
  explicit Value(Type t) : type_(t) {}

  Type type_;
  bool boolean_ = false;
  int64_t integer_ = 0;
  double real_ = 0.0;
  std::string string_;
  std::vector<uint8_t> data_;
  std::vector<std::string> keys_;
  std::vector<Value> items_;
};

// Limits of the reader, so that a hostile file costs bounded time and memory.
inline constexpr int kMaxDepth = 256;                 // nesting of arrays and dictionaries
inline constexpr uint64_t kMaxOutputBytes = 128u << 20;  // memory of the values produced, shared ones
                                                          // counted each time they are used

// Writes `root` in the binary form as the platform's encoder does: objects in depth-first order from
// the root, strings and numbers written once and shared, dictionaries as all keys then all values,
// ASCII strings as ASCII and others as UTF-16 big-endian, the smallest offset and reference sizes.
// Fails only for a string that is not valid UTF-8.
bool writeBinary(const Value& root, std::vector<uint8_t>& out, std::string& error);

// Reads any well-formed binary property list (any object order, sharing, and offset or reference
// size). A malformed or truncated one gives false and a reason, never a read out of bounds.
bool readBinary(std::span<const uint8_t> bytes, Value& out, std::string& error);

// A one-line description in the old-style text form, e.g. ({Mine = (GRABOID, "VAN STROKE");}).
std::string describe(const Value& v);

// Whether `s` is valid UTF-8 (no surrogates, no overlong forms).
bool isValidUtf8(std::string_view s);

}  // namespace zorvex::plist
