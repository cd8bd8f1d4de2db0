#include "core/look/json.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace zorvex::json {
namespace {

constexpr int kMaxDepth = 32;

class Parser {
 public:
  explicit Parser(std::string_view text) : s_(text) {}

  bool document(Value& out, std::string& error) {
    space();
    if (!value(out, 0)) return fail(error);
    space();
    if (i_ != s_.size()) {
      why_ = "unexpected text after the end";
      return fail(error);
    }
    return true;
  }

 private:
  bool fail(std::string& error) const {
    error = why_ + " at byte " + std::to_string(i_);
    return false;
  }
  bool bad(const char* why) {
    why_ = why;
    return false;
  }
  void space() {
    while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t' || s_[i_] == '\n' || s_[i_] == '\r')) ++i_;
  }
  bool literal(std::string_view word) {
    if (s_.substr(i_, word.size()) != word) return bad("unknown word");
    i_ += word.size();
    return true;
  }

  bool value(Value& out, int depth) {
    if (depth > kMaxDepth) return bad("nested too deeply");
    if (i_ >= s_.size()) return bad("unexpected end");
    switch (s_[i_]) {
      case '{': return object(out, depth);
      case '[': return array(out, depth);
      case '"':
        out.kind = Value::Kind::string;
        return string(out.text);
      case 't':
        out.kind = Value::Kind::boolean;
        out.boolean = true;
        return literal("true");
      case 'f':
        out.kind = Value::Kind::boolean;
        out.boolean = false;
        return literal("false");
      case 'n':
        out.kind = Value::Kind::null;
        return literal("null");
      default: return number(out);
    }
  }

  bool object(Value& out, int depth) {
    out.kind = Value::Kind::object;
    ++i_;
    space();
    if (i_ < s_.size() && s_[i_] == '}') return ++i_, true;
    for (;;) {
      space();
      if (i_ >= s_.size() || s_[i_] != '"') return bad("expected a key in quotes");
      std::string key;
      if (!string(key)) return false;
      if (out.find(key)) return bad("a key is given twice");
      space();
      if (i_ >= s_.size() || s_[i_] != ':') return bad("expected ':'");
      ++i_;
      space();
      Value v;
      if (!value(v, depth + 1)) return false;
      out.members.push_back(Member{std::move(key), std::move(v)});
      space();
      if (i_ < s_.size() && s_[i_] == ',') {
        ++i_;
        continue;
      }
      if (i_ < s_.size() && s_[i_] == '}') return ++i_, true;
      return bad("expected ',' or '}'");
    }
  }

  bool array(Value& out, int depth) {
    out.kind = Value::Kind::array;
    ++i_;
    space();
    if (i_ < s_.size() && s_[i_] == ']') return ++i_, true;
    for (;;) {
      space();
      Value v;
      if (!value(v, depth + 1)) return false;
      out.items.push_back(std::move(v));
      space();
      if (i_ < s_.size() && s_[i_] == ',') {
        ++i_;
        continue;
      }
      if (i_ < s_.size() && s_[i_] == ']') return ++i_, true;
      return bad("expected ',' or ']'");
    }
  }

  bool hex4(uint32_t& out) {
    if (s_.size() - i_ < 4) return bad("a \\u escape needs four hex digits");
    out = 0;
    for (int k = 0; k < 4; ++k) {
      const char c = s_[i_++];
      out <<= 4;
      if (c >= '0' && c <= '9') out |= uint32_t(c - '0');
      else if (c >= 'a' && c <= 'f') out |= uint32_t(c - 'a' + 10);
      else if (c >= 'A' && c <= 'F') out |= uint32_t(c - 'A' + 10);
      else return bad("a \\u escape needs four hex digits");
    }
    return true;
  }

  bool string(std::string& out) {
    ++i_;  // the opening quote
    out.clear();
    for (;;) {
      if (i_ >= s_.size()) return bad("a string has no closing quote");
      const unsigned char c = static_cast<unsigned char>(s_[i_++]);
      if (c == '"') return true;
      if (c < 0x20) return bad("a control character in a string");
      if (c != '\\') {
        out += char(c);
        continue;
      }
      if (i_ >= s_.size()) return bad("a string has no closing quote");
      switch (s_[i_++]) {
        case '"': out += '"'; break;
        case '\\': out += '\\'; break;
        case '/': out += '/'; break;
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'u': {
          uint32_t cp;
          if (!hex4(cp)) return false;
          if (cp >= 0xDC00 && cp <= 0xDFFF) return bad("a lone low surrogate");
          if (cp >= 0xD800 && cp <= 0xDBFF) {
            uint32_t low;
            if (s_.substr(i_, 2) != "\\u") return bad("a lone high surrogate");
            i_ += 2;
            if (!hex4(low)) return false;
            if (low < 0xDC00 || low > 0xDFFF) return bad("a lone high surrogate");
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          }
          appendUtf8(cp, out);
          break;
        }
        default: return bad("an unknown escape in a string");
      }
    }
  }

  bool number(Value& out) {
    const size_t start = i_;
    auto digits = [&] {
      const size_t from = i_;
      while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
      return i_ > from;
    };
    if (i_ < s_.size() && s_[i_] == '-') ++i_;
    if (i_ < s_.size() && s_[i_] == '0') {
      ++i_;
    } else if (!digits()) {
      i_ = start;
      return bad("expected a value");
    }
    if (i_ < s_.size() && s_[i_] == '.') {
      ++i_;
      if (!digits()) return bad("a number needs digits after '.'");
    }
    if (i_ < s_.size() && (s_[i_] == 'e' || s_[i_] == 'E')) {
      ++i_;
      if (i_ < s_.size() && (s_[i_] == '+' || s_[i_] == '-')) ++i_;
      if (!digits()) return bad("a number needs digits in its exponent");
    }
    out.kind = Value::Kind::number;
    out.text = std::string(s_.substr(start, i_ - start));
    errno = 0;
    out.number = std::strtod(out.text.c_str(), nullptr);
    if (errno == ERANGE && std::isinf(out.number)) return bad("a number too large");
    return true;
  }

  std::string_view s_;
  size_t i_ = 0;
  std::string why_;
};

}  // namespace

const Value* Value::find(std::string_view key) const {
  for (const Member& m : members)
    if (m.key == key) return &m.value;
  return nullptr;
}

bool parse(std::string_view text, Value& out, std::string& error) {
  out = Value{};
  return Parser(text).document(out, error);
}

void appendUtf8(uint32_t cp, std::string& out) {
  if (cp < 0x80) {
    out += char(cp);
  } else if (cp < 0x800) {
    out += char(0xC0 | (cp >> 6));
    out += char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += char(0xE0 | (cp >> 12));
    out += char(0x80 | ((cp >> 6) & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  } else {
    out += char(0xF0 | (cp >> 18));
    out += char(0x80 | ((cp >> 12) & 0x3F));
    out += char(0x80 | ((cp >> 6) & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  }
}

std::string quote(std::string_view s) {
  static const char* const kHex = "0123456789abcdef";
  std::string out = "\"";
  for (const unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          out += "\\u00";
          out += kHex[c >> 4];
          out += kHex[c & 15];
        } else {
          out += char(c);
        }
    }
  }
  return out + "\"";
}

}  // namespace zorvex::json
