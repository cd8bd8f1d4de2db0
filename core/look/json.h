// A small JSON reader and the string quoting of a writer: enough for the looks that pictures, links
// and files carry, and strict, since what it reads comes from outside.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zorvex::json {

struct Member;

struct Value {
  enum class Kind { null, boolean, number, string, array, object };
  Kind kind = Kind::null;
  bool boolean = false;
  double number = 0;
  std::string text;  // a string's value, or a number as written
  std::vector<Value> items;
  std::vector<Member> members;  // in the order written

  // The member named `key`, or null.
  const Value* find(std::string_view key) const;
};

struct Member {
  std::string key;
  Value value;
};

// Parses one JSON document (RFC 8259): white space around it, nothing after it. Nesting deeper than
// 32, a duplicate key in an object, a lone surrogate or a number that does not fit a double is an
// error. On failure `error` says what and where (the byte offset), and `out` is left unspecified.
bool parse(std::string_view text, Value& out, std::string& error);

// `s` as a JSON string literal, quotes included; UTF-8 passes through.
std::string quote(std::string_view s);

// Appends the code point `cp` (at most 0x10FFFF) to `out` in UTF-8.
void appendUtf8(uint32_t cp, std::string& out);

}  // namespace zorvex::json
