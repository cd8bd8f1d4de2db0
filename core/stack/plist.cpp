#include "core/stack/plist.h"

#include <cstring>
#include <map>
#include <unordered_map>

#include "core/imaging/text.h"

namespace zorvex::plist {

// --- Values ---------------------------------------------------------------------------------------

Value Value::boolean(bool b) {
  Value v(Type::boolean);
  v.boolean_ = b;
  return v;
}

Value Value::integer(int64_t i) {
  Value v(Type::integer);
  v.integer_ = i;
  return v;
}

Value Value::real(double d) {
  Value v(Type::real);
  v.real_ = d;
  return v;
}

Value Value::date(double secondsSince2001) {
  Value v(Type::date);
  v.real_ = secondsSince2001;
  return v;
}

Value Value::string(std::string s) {
  Value v(Type::string);
  v.string_ = std::move(s);
  return v;
}

Value Value::data(std::vector<uint8_t> bytes) {
  Value v(Type::data);
  v.data_ = std::move(bytes);
  return v;
}

Value Value::array(std::vector<Value> elements) {
  Value v(Type::array);
  v.items_ = std::move(elements);
  return v;
}

const Value* Value::find(std::string_view key) const {
  if (type_ != Type::dictionary) return nullptr;
  for (size_t i = 0; i < keys_.size(); ++i)
    if (keys_[i] == key) return &items_[i];
  return nullptr;
}

void Value::set(std::string_view key, Value v) {
  for (size_t i = 0; i < keys_.size(); ++i) {
    if (keys_[i] == key) {
      items_[i] = std::move(v);
      return;
    }
  }
  keys_.emplace_back(key);
  items_.push_back(std::move(v));
}

void Value::add(std::string key, Value v) {
  keys_.push_back(std::move(key));
  items_.push_back(std::move(v));
}

bool Value::remove(std::string_view key) {
  for (size_t i = 0; i < keys_.size(); ++i) {
    if (keys_[i] == key) {
      keys_.erase(keys_.begin() + std::ptrdiff_t(i));
      items_.erase(items_.begin() + std::ptrdiff_t(i));
      return true;
    }
  }
  return false;
}

bool Value::operator==(const Value& o) const {
  if (type_ != o.type_) return false;
  switch (type_) {
    case Type::boolean: return boolean_ == o.boolean_;
    case Type::integer: return integer_ == o.integer_;
    case Type::real:
    case Type::date: return real_ == o.real_ || (real_ != real_ && o.real_ != o.real_);
    case Type::string: return string_ == o.string_;
    case Type::data: return data_ == o.data_;
    case Type::array: return items_ == o.items_;
    case Type::dictionary: return keys_ == o.keys_ && items_ == o.items_;
  }
  return false;
}

// --- UTF-8 and UTF-16 -----------------------------------------------------------------------------

namespace {

// Decodes one code point at s[i], advancing i; false for an invalid sequence.
bool nextCodePoint(std::string_view s, size_t& i, uint32_t& cp) {
  const auto byte = [&](size_t k) { return static_cast<uint8_t>(s[k]); };
  const uint8_t b0 = byte(i);
  size_t len;
  uint32_t min;
  if (b0 < 0x80) {
    cp = b0;
    ++i;
    return true;
  } else if ((b0 & 0xE0) == 0xC0) {
    len = 2, cp = b0 & 0x1F, min = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    len = 3, cp = b0 & 0x0F, min = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    len = 4, cp = b0 & 0x07, min = 0x10000;
  } else {
    return false;
  }
  if (s.size() - i < len) return false;
  for (size_t k = 1; k < len; ++k) {
    const uint8_t b = byte(i + k);
    if ((b & 0xC0) != 0x80) return false;
    cp = cp << 6 | (b & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
  i += len;
  return true;
}

void appendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out += char(cp);
  } else if (cp < 0x800) {
    out += char(0xC0 | cp >> 6);
    out += char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += char(0xE0 | cp >> 12);
    out += char(0x80 | (cp >> 6 & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  } else {
    out += char(0xF0 | cp >> 18);
    out += char(0x80 | (cp >> 12 & 0x3F));
    out += char(0x80 | (cp >> 6 & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  }
}

bool toUtf16(std::string_view s, std::vector<uint16_t>& out) {
  out.clear();
  for (size_t i = 0; i < s.size();) {
    uint32_t cp;
    if (!nextCodePoint(s, i, cp)) return false;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(uint16_t(0xD800 | cp >> 10));
      out.push_back(uint16_t(0xDC00 | (cp & 0x3FF)));
    } else {
      out.push_back(uint16_t(cp));
    }
  }
  return true;
}

bool isAscii(std::string_view s) {
  for (char c : s)
    if (static_cast<uint8_t>(c) >= 0x80) return false;
  return true;
}

}  // namespace

bool isValidUtf8(std::string_view s) {
  for (size_t i = 0; i < s.size();) {
    uint32_t cp;
    if (!nextCodePoint(s, i, cp)) return false;
  }
  return true;
}

// --- Writer ---------------------------------------------------------------------------------------

namespace {

// Bytes needed for values up to `n`, as the platform's writer chooses them: 1, 2, 4 or 8.
int byteCount(uint64_t n) {
  if (n <= 0xFF) return 1;
  if (n <= 0xFFFF) return 2;
  if (n <= 0xFFFFFFFFull) return 4;
  return 8;
}

void putBigEndian(std::vector<uint8_t>& out, uint64_t v, int bytes) {
  for (int k = bytes - 1; k >= 0; --k) out.push_back(uint8_t(v >> (8 * k)));
}

class Writer {
 public:
  bool write(const Value& root, std::vector<uint8_t>& out, std::string& error) {
    flatten(root);
    const int refSize = byteCount(objects_.size());
    out.assign({'b', 'p', 'l', 'i', 's', 't', '0', '0'});
    std::vector<uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& o : objects_) {
      offsets.push_back(out.size());
      if (o.key) {
        if (!writeString(out, *o.key, error)) return false;
      } else if (!writeValue(out, *o.value, o.refs, refSize, error)) {
        return false;
      }
    }
    const uint64_t tableOffset = out.size();
    const int offsetSize = byteCount(tableOffset);
    for (uint64_t off : offsets) putBigEndian(out, off, offsetSize);
    out.insert(out.end(), 6, 0);  // five unused bytes and the sort version
    out.push_back(uint8_t(offsetSize));
    out.push_back(uint8_t(refSize));
    putBigEndian(out, objects_.size(), 8);
    putBigEndian(out, 0, 8);  // the root is the first object
    putBigEndian(out, tableOffset, 8);
    return true;
  }

 private:
  struct Object {
    const Value* value = nullptr;
    const std::string* key = nullptr;  // a dictionary key, written as a string
    std::vector<uint64_t> refs;
  };

  // A key under which equal scalars share one object.
  static std::string uniqueKey(const Value& v) {
    std::string k(1, char('0' + int(v.type())));
    switch (v.type()) {
      case Type::boolean: k += v.asBool() ? '1' : '0'; break;
      case Type::integer: k += std::to_string(v.asInteger()); break;
      case Type::real:
      case Type::date: k += std::to_string(__builtin_bit_cast(uint64_t, v.asReal())); break;
      case Type::string: k += v.asString(); break;
      case Type::data: k.append(v.asData().begin(), v.asData().end()); break;
      default: break;
    }
    return k;
  }

  uint64_t flattenKey(const std::string& key) {
    const std::string k = char('0' + int(Type::string)) + key;
    if (auto it = shared_.find(k); it != shared_.end()) return it->second;
    const uint64_t id = objects_.size();
    objects_.push_back(Object{nullptr, &key, {}});
    shared_.emplace(k, id);
    return id;
  }

  uint64_t flatten(const Value& v) {
    const bool container = v.is(Type::array) || v.is(Type::dictionary);
    std::string k;
    if (!container) {
      k = uniqueKey(v);
      if (auto it = shared_.find(k); it != shared_.end()) return it->second;
    }
    const uint64_t id = objects_.size();
    objects_.push_back(Object{&v, nullptr, {}});
    if (!container) {
      shared_.emplace(std::move(k), id);
      return id;
    }
    std::vector<uint64_t> refs;
    refs.reserve(v.keys().size() + v.items().size());
    for (const std::string& key : v.keys()) refs.push_back(flattenKey(key));
    for (const Value& item : v.items()) refs.push_back(flatten(item));
    objects_[id].refs = std::move(refs);
    return id;
  }

  static void writeMarker(std::vector<uint8_t>& out, uint8_t kind, uint64_t count) {
    if (count < 15) {
      out.push_back(uint8_t(kind << 4 | count));
      return;
    }
    out.push_back(uint8_t(kind << 4 | 0xF));
    writeInteger(out, int64_t(count));
  }

  static void writeInteger(std::vector<uint8_t>& out, int64_t i) {
    const int bytes = i < 0 ? 8 : byteCount(uint64_t(i));
    out.push_back(uint8_t(0x10 | (bytes == 1 ? 0 : bytes == 2 ? 1 : bytes == 4 ? 2 : 3)));
    putBigEndian(out, uint64_t(i), bytes);
  }

  static bool writeString(std::vector<uint8_t>& out, const std::string& s, std::string& error) {
    if (isAscii(s)) {
      writeMarker(out, 0x5, s.size());
      out.insert(out.end(), s.begin(), s.end());
      return true;
    }
    std::vector<uint16_t> units;
    if (!toUtf16(s, units)) {
      error = "a string is not valid UTF-8";
      return false;
    }
    writeMarker(out, 0x6, units.size());
    for (uint16_t u : units) putBigEndian(out, u, 2);
    return true;
  }

  static bool writeValue(std::vector<uint8_t>& out, const Value& v, const std::vector<uint64_t>& refs, int refSize,
                         std::string& error) {
    switch (v.type()) {
      case Type::boolean: out.push_back(v.asBool() ? 0x09 : 0x08); break;
      case Type::integer: writeInteger(out, v.asInteger()); break;
      case Type::real:
        out.push_back(0x23);
        putBigEndian(out, __builtin_bit_cast(uint64_t, v.asReal()), 8);
        break;
      case Type::date:
        out.push_back(0x33);
        putBigEndian(out, __builtin_bit_cast(uint64_t, v.asReal()), 8);
        break;
      case Type::string: return writeString(out, v.asString(), error);
      case Type::data:
        writeMarker(out, 0x4, v.asData().size());
        out.insert(out.end(), v.asData().begin(), v.asData().end());
        break;
      case Type::array:
      case Type::dictionary:
        writeMarker(out, v.is(Type::array) ? 0xA : 0xD, v.count());
        for (uint64_t r : refs) putBigEndian(out, r, refSize);
        break;
    }
    return true;
  }

  std::vector<Object> objects_;
  std::map<std::string, uint64_t> shared_;
};

}  // namespace

bool writeBinary(const Value& root, std::vector<uint8_t>& out, std::string& error) {
  std::vector<uint8_t> bytes;
  if (!Writer().write(root, bytes, error)) return false;
  out = std::move(bytes);
  return true;
}

// --- Reader ---------------------------------------------------------------------------------------

namespace {

class Reader {
 public:
  explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  bool read(Value& out, std::string& error) {
    if (!readTrailer()) {
      error = error_;
      return false;
    }
    inProgress_.assign(numObjects_, false);
    if (!readObject(topObject_, 0, out)) {
      error = error_;
      return false;
    }
    return true;
  }

 private:
  static constexpr size_t kHeader = 8, kTrailer = 32;

  bool fail(std::string why) {
    if (error_.empty()) error_ = std::move(why);
    return false;
  }

  uint64_t bigEndian(uint64_t pos, uint64_t bytes) const {
    uint64_t v = 0;
    for (uint64_t k = 0; k < bytes; ++k) v = v << 8 | bytes_[pos + k];
    return v;
  }

  bool readTrailer() {
    if (bytes_.size() < kHeader + kTrailer) return fail("too short to be a binary property list");
    if (std::memcmp(bytes_.data(), "bplist00", kHeader) != 0) return fail("no \"bplist00\" header");
    const uint64_t t = bytes_.size() - kTrailer;
    offsetSize_ = bytes_[t + 6];
    refSize_ = bytes_[t + 7];
    numObjects_ = bigEndian(t + 8, 8);
    topObject_ = bigEndian(t + 16, 8);
    tableOffset_ = bigEndian(t + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8) return fail("bad offset size in the trailer");
    if (refSize_ < 1 || refSize_ > 8) return fail("bad reference size in the trailer");
    if (numObjects_ < 1) return fail("no objects");
    if (topObject_ >= numObjects_) return fail("the root object is out of range");
    if (tableOffset_ <= kHeader || tableOffset_ > t) return fail("the offset table is out of range");
    if (numObjects_ > (t - tableOffset_) / offsetSize_) return fail("the object count does not fit the offset table");
    return true;
  }

  // Whether `len` bytes from `pos` lie inside the object area.
  bool inside(uint64_t pos, uint64_t len) const { return pos <= tableOffset_ && len <= tableOffset_ - pos; }

  // The count of an object: the marker's low nibble, or the integer that follows it.
  bool readCount(uint64_t& pos, uint8_t info, uint64_t& count) {
    if (info != 0xF) {
      count = info;
      return true;
    }
    if (!inside(pos, 1)) return fail("truncated object count");
    const uint8_t m = bytes_[pos];
    if ((m & 0xF0) != 0x10 || (m & 0x0F) > 3) return fail("bad object count");
    const uint64_t n = uint64_t(1) << (m & 0x0F);
    if (!inside(pos + 1, n)) return fail("truncated object count");
    count = bigEndian(pos + 1, n);
    pos += 1 + n;
    return true;
  }

  bool readRef(uint64_t pos, uint64_t& ref) {
    ref = bigEndian(pos, refSize_);
    if (ref >= numObjects_) return fail("an object reference is out of range");
    return true;
  }

  // Counts memory against the budget, so that a small file that shares one object many times can't
  // make the reader build an enormous value.
  bool spend(uint64_t bytes) {
    spent_ += bytes;
    if (spent_ > kMaxOutputBytes) return fail("too large when read");
    return true;
  }

  bool readString(uint8_t kind, uint64_t pos, uint64_t count, Value& out) {
    std::string s;
    if (kind == 0x6) {
      if (count > (tableOffset_ - pos) / 2) return fail("truncated string");
      for (uint64_t k = 0; k < count; ++k) {
        uint32_t u = uint32_t(bigEndian(pos + 2 * k, 2));
        if (u >= 0xD800 && u <= 0xDBFF && k + 1 < count) {
          const uint32_t low = uint32_t(bigEndian(pos + 2 * (k + 1), 2));
          if (low >= 0xDC00 && low <= 0xDFFF) {
            appendUtf8(s, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
            ++k;
            continue;
          }
        }
        if (u >= 0xD800 && u <= 0xDFFF) u = 0xFFFD;  // an unpaired surrogate
        appendUtf8(s, u);
      }
    } else {
      if (!inside(pos, count)) return fail("truncated string");
      const std::string_view raw(reinterpret_cast<const char*>(bytes_.data() + pos), count);
      if (kind == 0x7) {
        if (!isValidUtf8(raw)) return fail("a UTF-8 string is not valid UTF-8");
        s = raw;
      } else {
        for (char c : raw) appendUtf8(s, static_cast<uint8_t>(c));  // bytes above 127 read as Latin-1
      }
    }
    if (!spend(s.size())) return false;
    out = Value::string(std::move(s));
    return true;
  }

  bool readObject(uint64_t ref, int depth, Value& out) {
    if (depth > kMaxDepth) return fail("nested too deeply");
    if (!spend(sizeof(Value))) return false;
    const uint64_t pos0 = bigEndian(tableOffset_ + ref * offsetSize_, offsetSize_);
    if (pos0 < kHeader || pos0 >= tableOffset_) return fail("an object offset is out of range");
    const uint8_t marker = bytes_[pos0];
    const uint8_t kind = marker >> 4, info = marker & 0x0F;
    uint64_t pos = pos0 + 1;
    switch (kind) {
      case 0x0:
        if (info == 0x8 || info == 0x9) {
          out = Value::boolean(info == 0x9);
          return true;
        }
        return fail("unsupported object type");
      case 0x1: {
        if (info > 4) return fail("bad integer size");
        const uint64_t n = uint64_t(1) << info;
        if (!inside(pos, n)) return fail("truncated integer");
        if (n == 16) {
          // Sixteen bytes: kept when the value fits in 64 signed bits.
          const uint64_t high = bigEndian(pos, 8), low = bigEndian(pos + 8, 8);
          const bool fits = (high == 0 && low <= uint64_t(INT64_MAX)) || (high == ~uint64_t(0) && low > uint64_t(INT64_MAX));
          if (!fits) return fail("an integer beyond 64 bits");
          out = Value::integer(int64_t(low));
        } else {
          out = Value::integer(int64_t(bigEndian(pos, n)));
        }
        return true;
      }
      case 0x2:
      case 0x3: {
        if (info != 2 && info != 3) return fail("bad real size");
        if (kind == 0x3 && info != 3) return fail("bad date size");
        const uint64_t n = uint64_t(1) << info;
        if (!inside(pos, n)) return fail("truncated number");
        double d;
        if (n == 4) {
          d = __builtin_bit_cast(float, uint32_t(bigEndian(pos, 4)));
        } else {
          d = __builtin_bit_cast(double, bigEndian(pos, 8));
        }
        out = kind == 0x2 ? Value::real(d) : Value::date(d);
        return true;
      }
      case 0x4: {
        uint64_t count;
        if (!readCount(pos, info, count)) return false;
        if (!inside(pos, count)) return fail("truncated data");
        if (!spend(count)) return false;
        out = Value::data(std::vector<uint8_t>(bytes_.begin() + std::ptrdiff_t(pos),
                                               bytes_.begin() + std::ptrdiff_t(pos + count)));
        return true;
      }
      case 0x5:
      case 0x6:
      case 0x7: {
        uint64_t count;
        if (!readCount(pos, info, count)) return false;
        return readString(kind, pos, count, out);
      }
      case 0x8: {
        const uint64_t n = uint64_t(info) + 1;
        if (n > 8) return fail("bad UID size");
        if (!inside(pos, n)) return fail("truncated UID");
        out = Value::integer(int64_t(bigEndian(pos, n)));
        return true;
      }
      case 0xA:
      case 0xC:
      case 0xD: {
        uint64_t count;
        if (!readCount(pos, info, count)) return false;
        const uint64_t refs = kind == 0xD ? 2 : 1;
        if (count > (tableOffset_ - pos) / refSize_ / refs) return fail("truncated container");
        if (inProgress_[ref]) return fail("a reference cycle");
        inProgress_[ref] = true;
        Value container = kind == 0xD ? Value::dictionary() : Value::array();
        std::unordered_map<std::string, size_t> seen;  // a repeated key keeps its last value
        for (uint64_t k = 0; k < count; ++k) {
          uint64_t itemRef;
          if (!readRef(pos + (kind == 0xD ? count + k : k) * refSize_, itemRef)) return false;
          Value item;
          if (!readObject(itemRef, depth + 1, item)) return false;
          if (kind != 0xD) {
            container.append(std::move(item));
            continue;
          }
          uint64_t keyRef;
          if (!readRef(pos + k * refSize_, keyRef)) return false;
          Value key;
          if (!readObject(keyRef, depth + 1, key)) return false;
          if (!key.is(Type::string)) return fail("a dictionary key is not a string");
          if (auto it = seen.find(key.asString()); it != seen.end()) {
            container.items()[it->second] = std::move(item);
          } else {
            seen.emplace(key.asString(), container.count());
            container.add(key.asString(), std::move(item));
          }
        }
        inProgress_[ref] = false;
        out = std::move(container);
        return true;
      }
      default: return fail("unsupported object type");
    }
  }

  std::span<const uint8_t> bytes_;
  uint64_t offsetSize_ = 0, refSize_ = 0, numObjects_ = 0, topObject_ = 0, tableOffset_ = 0;
  std::vector<bool> inProgress_;
  uint64_t spent_ = 0;
  std::string error_;
};

}  // namespace

bool readBinary(std::span<const uint8_t> bytes, Value& out, std::string& error) {
  Value v;
  if (!Reader(bytes).read(v, error)) return false;
  out = std::move(v);
  return true;
}

// --- Description ----------------------------------------------------------------------------------

namespace {

std::string quoted(const std::string& s) {
  bool bare = !s.empty();
  for (char c : s) {
    const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
                    c == '$' || c == '.' || c == '/' || c == ':' || c == '-' || c == '+';
    if (!ok) bare = false;
  }
  if (bare) return s;
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else {
      out += c;
    }
  }
  return out + "\"";
}

}  // namespace

std::string describe(const Value& v) {
  switch (v.type()) {
    case Type::boolean: return v.asBool() ? "1" : "0";
    case Type::integer: return std::to_string(v.asInteger());
    case Type::real:
    case Type::date: return zorvex::describe(v.asReal());
    case Type::string: return quoted(v.asString());
    case Type::data: {
      static const char* hex = "0123456789abcdef";
      std::string out = "<";
      for (uint8_t b : v.asData()) {
        out += hex[b >> 4];
        out += hex[b & 15];
      }
      return out + ">";
    }
    case Type::array: {
      std::string out = "(";
      for (size_t i = 0; i < v.count(); ++i) out += (i ? ", " : "") + describe(v.items()[i]);
      return out + ")";
    }
    case Type::dictionary: {
      std::string out = "{";
      for (size_t i = 0; i < v.count(); ++i) out += (i ? " " : "") + quoted(v.keys()[i]) + " = " + describe(v.items()[i]) + ";";
      return out + "}";
    }
  }
  return {};
}

}  // namespace zorvex::plist
