// The compact form of a look, for links: a binary encoding in base64url (RFC 4648, section 5) without
// padding. A value of the vector is a whole number of ten-thousandths below 10000, so it takes 14 bits.
//
//   byte     version (1)
//   byte     size: 0 full, 1 half, 2 preview (then a varint, the preview width)
//   stack    the look's stack
//   varint   the number of edit steps, then each:
//     byte   bits 0-2 the edit (0 rotate left, 1 rotate right, 2 mirror h, 3 mirror v, 4 flatten);
//            bit 4 set: the step's own stack follows; bit 5 set: its own save quality, half when
//            bit 6 is set
//     stack  when bit 4 is set
//
//   stack:
//   byte     bit 0 set: seeded
//   byte     the blend mode's place in the picker's list (0 to 17)
//   8 bytes  the opacity, an IEEE 754 double, little-endian
//   varint   the number of effects, then a byte each: its place in the built-in list of effects
//   8 bytes  the seed, little-endian, when seeded; else 1750 bytes: the 1000 values of 14 bits each,
//            most significant bit first
//
// Varints are LEB128: seven bits a byte, low first, the high bit set on all but the last.
#include <cstring>

#include "core/look/look.h"
#include "core/stack/effects_data.h"

namespace zorvex::look {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr size_t kMaxCompact = 1 << 20;

std::string base64url(const std::vector<uint8_t>& bytes) {
  std::string out;
  uint32_t buffer = 0;
  int bits = 0;
  for (uint8_t b : bytes) {
    buffer = (buffer << 8) | b;
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      out += kAlphabet[(buffer >> bits) & 63];
    }
  }
  if (bits > 0) out += kAlphabet[(buffer << (6 - bits)) & 63];
  return out;
}

bool unbase64url(std::string_view text, std::vector<uint8_t>& out) {
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  if (text.size() % 4 == 1) return false;
  uint32_t buffer = 0;
  int bits = 0;
  for (char c : text) {
    const char* p = c ? std::strchr(kAlphabet, c) : nullptr;
    if (!p) return false;
    buffer = (buffer << 6) | uint32_t(p - kAlphabet);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(uint8_t(buffer >> bits));
    }
  }
  // The bits left over must be zero, so that one look has one text.
  return (buffer & ((1u << bits) - 1)) == 0;
}

struct Writer {
  std::vector<uint8_t> out;

  void byte(uint8_t b) { out.push_back(b); }
  void varint(uint64_t v) {
    do {
      const uint8_t low = v & 0x7F;
      v >>= 7;
      byte(v ? (low | 0x80) : low);
    } while (v);
  }
  void u64(uint64_t v) {
    for (int i = 0; i < 8; ++i) byte(uint8_t(v >> (8 * i)));
  }
  void stack(const Stack& s) {
    byte(s.seed ? 1 : 0);
    byte(uint8_t(s.blend));
    uint64_t opacityBits;
    static_assert(sizeof opacityBits == sizeof s.opacity);
    std::memcpy(&opacityBits, &s.opacity, sizeof opacityBits);
    u64(opacityBits);
    varint(s.effects.size());
    const auto& names = EffectsData::builtinEffectNames;
    for (const std::string& name : s.effects) {
      size_t i = 0;
      while (i < names.size() && names[i] != name) ++i;
      byte(uint8_t(i));  // a kernel's name is always a built-in one; the tests say so
    }
    if (s.seed) {
      u64(*s.seed);
      return;
    }
    uint32_t buffer = 0;
    int bits = 0;
    for (double v : s.controls) {
      buffer = (buffer << 14) | uint32_t(tenThousandths(v).value_or(0));
      bits += 14;
      while (bits >= 8) {
        bits -= 8;
        byte(uint8_t(buffer >> bits));
      }
    }
    if (bits) byte(uint8_t(buffer << (8 - bits)));
  }
};

struct Reader {
  const std::vector<uint8_t>& in;
  std::string& error;
  size_t i = 0;

  bool fail(const std::string& why) {
    error = "the look's link text is damaged: " + why;
    return false;
  }
  bool byte(uint8_t& b) {
    if (i >= in.size()) return fail("it ends too soon");
    b = in[i++];
    return true;
  }
  bool varint(uint64_t& v) {
    v = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      uint8_t b = 0;
      if (!byte(b)) return false;
      v |= uint64_t(b & 0x7F) << shift;
      if (!(b & 0x80)) return true;
    }
    return fail("a count is too long");
  }
  bool u64(uint64_t& v) {
    v = 0;
    for (int k = 0; k < 8; ++k) {
      uint8_t b = 0;
      if (!byte(b)) return false;
      v |= uint64_t(b) << (8 * k);
    }
    return true;
  }
  bool stack(Stack& s) {
    uint8_t flags = 0, blend = 0;
    if (!byte(flags) || !byte(blend)) return false;
    if (flags > 1) return fail("unknown flags in a stack");
    if (blend >= allBlendModes.size()) return fail("blend mode " + std::to_string(blend) + " is unknown");
    s.blend = BlendMode(blend);
    uint64_t bits;
    if (!u64(bits)) return false;
    std::memcpy(&s.opacity, &bits, sizeof bits);
    if (!(s.opacity >= 0.0 && s.opacity <= 1.0)) return fail("the opacity is outside 0 to 1");
    uint64_t count;
    if (!varint(count)) return false;
    if (count > kMaxEffects) return fail("it has " + std::to_string(count) + " effects");
    s.effects.clear();
    const auto& names = EffectsData::builtinEffectNames;
    for (uint64_t k = 0; k < count; ++k) {
      uint8_t index = 0;
      if (!byte(index)) return false;
      if (index >= names.size())
        return fail("effect number " + std::to_string(index) + " is one this version doesn't have");
      s.effects.emplace_back(names[index]);
    }
    if (flags & 1) {
      uint64_t seed;
      if (!u64(seed)) return false;
      s.seed = seed;
      s.controls = rollControls(seed);
      return true;
    }
    s.seed.reset();
    uint32_t buffer = 0;
    int have = 0;
    for (size_t v = 0; v < kControlCount; ++v) {
      while (have < 14) {
        uint8_t b = 0;
        if (!byte(b)) return false;
        buffer = (buffer << 8) | b;
        have += 8;
      }
      have -= 14;
      const uint32_t k = (buffer >> have) & 0x3FFF;
      if (k > 9999) return fail("control value " + std::to_string(v + 1) + " is above 0.9999");
      s.controls[v] = double(k) / 10000.0;
    }
    if (buffer & ((1u << have) - 1)) return fail("stray bits after the control values");
    return true;
  }
};

}  // namespace

std::string toCompact(const Look& look) {
  Writer w;
  w.byte(uint8_t(kVersion));
  if (look.size.previewWidth) {
    w.byte(2);
    w.varint(uint64_t(look.size.previewWidth));
  } else {
    w.byte(look.size.quality == SaveQuality::half ? 1 : 0);
  }
  w.stack(look.stack);
  w.varint(look.edits.size());
  for (const EditStep& step : look.edits) {
    uint8_t b = uint8_t(step.edit);
    if (step.stack) b |= 0x10;
    if (step.quality) b |= 0x20 | (*step.quality == SaveQuality::half ? 0x40 : 0);
    w.byte(b);
    if (step.stack) w.stack(*step.stack);
  }
  return base64url(w.out);
}

bool fromCompact(std::string_view text, Look& out, std::string& error) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\n' || text.front() == '\r' || text.front() == '\t'))
    text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\n' || text.back() == '\r' || text.back() == '\t'))
    text.remove_suffix(1);
  if (text.empty()) {
    error = "the look is empty";
    return false;
  }
  if (text.size() > kMaxCompact) {
    error = "the look's link text is too long";
    return false;
  }
  std::vector<uint8_t> bytes;
  if (!unbase64url(text, bytes)) {
    error = "the look's link text is not base64url (A-Z, a-z, 0-9, - and _)";
    return false;
  }
  Reader r{bytes, error};
  uint8_t version = 0, size = 0;
  if (!r.byte(version)) return false;
  if (version != kVersion) {
    error = "the look is of version " + std::to_string(version) + "; this Zorvex reads version " +
            std::to_string(kVersion);
    return false;
  }
  Look look;
  if (!r.byte(size)) return false;
  if (size > 2) return r.fail("size " + std::to_string(size) + " is unknown");
  if (size == 2) {
    uint64_t width;
    if (!r.varint(width)) return false;
    if (width < 1 || width > (1 << 20)) return r.fail("the preview width is outside 1 to 1048576");
    look.size.previewWidth = int64_t(width);
  } else {
    look.size.quality = size == 1 ? SaveQuality::half : SaveQuality::full;
  }
  if (!r.stack(look.stack)) return false;
  uint64_t count;
  if (!r.varint(count)) return false;
  if (count > kMaxEdits) return r.fail("it has " + std::to_string(count) + " edit steps");
  for (uint64_t k = 0; k < count; ++k) {
    uint8_t b = 0;
    if (!r.byte(b)) return false;
    if ((b & 0x07) > uint8_t(Edit::flatten) || (b & 0x88) || ((b & 0x40) && !(b & 0x20)))
      return r.fail("edit step " + std::to_string(k + 1) + " is of an unknown kind");
    EditStep step;
    step.edit = Edit(b & 0x07);
    if (b & 0x20) step.quality = (b & 0x40) ? SaveQuality::half : SaveQuality::full;
    if (b & 0x10) {
      Stack s;
      if (!r.stack(s)) return false;
      step.stack = std::move(s);
    }
    look.edits.push_back(std::move(step));
  }
  if (r.i != bytes.size()) return r.fail("it has bytes after its end");
  if (!validate(look, error)) return false;
  normalize(look);
  out = std::move(look);
  return true;
}

}  // namespace zorvex::look
