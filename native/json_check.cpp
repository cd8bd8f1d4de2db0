#include "native/json_check.h"

#include <cctype>

#include "core/stack/plist.h"

namespace zorvex::native {
namespace {

constexpr int kMaxDepth = 256;

class Checker {
 public:
  explicit Checker(std::string_view text) : t_(text) {}

  bool document(std::string& error) {
    blank();
    if (!at('{')) return fail("it is not a JSON object (it must start with {)", error);
    if (!value(0)) return fail(why_, error);
    blank();
    if (i_ != t_.size()) return fail("there is more after the object", error);
    return true;
  }

 private:
  bool fail(const std::string& what, std::string& error) {
    error = what + " at byte " + std::to_string(i_ + 1);
    return false;
  }
  bool bad(const char* what) {
    why_ = what;
    return false;
  }
  bool at(char c) const { return i_ < t_.size() && t_[i_] == c; }
  void blank() {
    while (i_ < t_.size() && (t_[i_] == ' ' || t_[i_] == '\t' || t_[i_] == '\n' || t_[i_] == '\r')) ++i_;
  }
  bool literal(std::string_view word) {
    if (t_.substr(i_, word.size()) != word) return bad("an unknown word");
    i_ += word.size();
    return true;
  }
  bool value(int depth) {
    if (depth > kMaxDepth) return bad("it is nested too deeply");
    blank();
    if (i_ >= t_.size()) return bad("it ends early");
    switch (t_[i_]) {
      case '{': return object(depth);
      case '[': return array(depth);
      case '"': return string();
      case 't': return literal("true");
      case 'f': return literal("false");
      case 'n': return literal("null");
      default: return number();
    }
  }
  bool object(int depth) {
    ++i_;
    blank();
    if (at('}')) return ++i_, true;
    for (;;) {
      blank();
      if (!at('"')) return bad("a key must be a string");
      if (!string()) return false;
      blank();
      if (!at(':')) return bad("a key must be followed by :");
      ++i_;
      if (!value(depth + 1)) return false;
      blank();
      if (at('}')) return ++i_, true;
      if (!at(',')) return bad("expected , or }");
      ++i_;
    }
  }
  bool array(int depth) {
    ++i_;
    blank();
    if (at(']')) return ++i_, true;
    for (;;) {
      if (!value(depth + 1)) return false;
      blank();
      if (at(']')) return ++i_, true;
      if (!at(',')) return bad("expected , or ]");
      ++i_;
    }
  }
  bool string() {
    const size_t start = ++i_;
    while (i_ < t_.size() && t_[i_] != '"') {
      const auto c = static_cast<unsigned char>(t_[i_]);
      if (c < 0x20) return bad("a control character in a string");
      if (c == '\\') {
        if (++i_ >= t_.size()) break;
        const char e = t_[i_];
        if (e == 'u') {
          for (int k = 1; k <= 4; ++k)
            if (i_ + size_t(k) >= t_.size() || !std::isxdigit(static_cast<unsigned char>(t_[i_ + size_t(k)])))
              return bad("a bad \\u escape");
          i_ += 4;
        } else if (std::string_view("\"\\/bfnrt").find(e) == std::string_view::npos) {
          return bad("a bad escape");
        }
      }
      ++i_;
    }
    if (i_ >= t_.size()) return bad("a string doesn't end");
    if (!plist::isValidUtf8(t_.substr(start, i_ - start))) return bad("a string is not UTF-8");
    ++i_;
    return true;
  }
  bool number() {
    auto digits = [&] {
      const size_t from = i_;
      while (i_ < t_.size() && t_[i_] >= '0' && t_[i_] <= '9') ++i_;
      return i_ > from;
    };
    if (at('-')) ++i_;
    if (at('0')) {
      ++i_;
    } else if (!digits()) {
      return bad("not a value");
    }
    if (at('.')) {
      ++i_;
      if (!digits()) return bad("a bad number");
    }
    if (at('e') || at('E')) {
      ++i_;
      if (at('+') || at('-')) ++i_;
      if (!digits()) return bad("a bad number");
    }
    return true;
  }

  std::string_view t_;
  size_t i_ = 0;
  std::string why_;
};

}  // namespace

bool isJsonObject(std::string_view text, std::string& error) { return Checker(text).document(error); }

}  // namespace zorvex::native
