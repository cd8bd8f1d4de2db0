#include "core/stack/plist.h"

#include <gtest/gtest.h>

#include "core/stack/effects_data.h"

namespace zorvex::plist {
namespace {

std::vector<uint8_t> write(const Value& v) {
  std::vector<uint8_t> out;
  std::string error;
  EXPECT_TRUE(writeBinary(v, out, error)) << error;
  return out;
}

bool read(const std::vector<uint8_t>& bytes, Value& out, std::string& error) { return readBinary(bytes, out, error); }

// Every kind of value, counts above 14 (which take an integer after the marker), integers of every
// size, and strings outside the Basic Multilingual Plane.
Value everything() {
  Value d = Value::dictionary();
  d.set("flags", Value::array({Value::boolean(true), Value::boolean(false)}));
  d.set("ints", Value::array({Value::integer(0), Value::integer(255), Value::integer(256), Value::integer(65536),
                              Value::integer(int64_t(1) << 40), Value::integer(-1), Value::integer(INT64_MIN),
                              Value::integer(INT64_MAX)}));
  d.set("real", Value::real(0.1));
  d.set("date", Value::date(-12.5));
  d.set("ascii", Value::string("a string longer than fourteen characters"));
  d.set("§P∆Iƒ", Value::string("B∑AMRID∑R and a smile 😀"));
  d.set("empty", Value::string(""));
  d.set("data", Value::data(std::vector<uint8_t>(300, 0xAB)));
  std::vector<Value> many;
  for (int i = 0; i < 300; ++i) many.push_back(Value::integer(i % 7));  // shared objects, 2-byte counts
  d.set("many", Value::array(many));
  d.set("nested", Value::array({Value::array(), Value::dictionary()}));
  return d;
}

TEST(Plist, EveryKindOfValueRoundTrips) {
  const Value v = everything();
  Value back;
  std::string error;
  ASSERT_TRUE(read(write(v), back, error)) << error;
  EXPECT_EQ(back, v);
}

// The layout the platform's encoder gives a one-row list: the root array first, then the row, its
// keys, its values; one-byte references and offsets; the trailer.
TEST(Plist, WritesTheEncodersLayout) {
  const std::vector<uint8_t> got = write(encodeEffects({Effect::make("VETH", true)}));
  const std::vector<uint8_t> want = {
      'b', 'p', 'l', 'i', 's', 't', '0', '0',                // header
      0xA1, 0x01,                                             // 0 @8: array of one: object 1
      0xD2, 0x02, 0x03, 0x04, 0x05,                           // 1 @10: dictionary, keys 2 3, values 4 5
      0x54, 'n', 'a', 'm', 'e',                               // 2 @15
      0x58, 'i', 's', 'A', 'c', 't', 'i', 'v', 'e',           // 3 @20
      0x54, 'V', 'E', 'T', 'H',                               // 4 @29
      0x09,                                                   // 5 @34: true
      8, 10, 15, 20, 29, 34,                                  // offset table @35
      0, 0, 0, 0, 0, 0, 1, 1,                                 // sizes of offsets and references
      0, 0, 0, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 35};
  EXPECT_EQ(got, want);
}

TEST(Plist, WritesNonAsciiAsUtf16AndSharesEqualStrings) {
  Value rows = encodeEffects({Effect::make("§P∆Iƒ", false), Effect::make("§P∆Iƒ", false)});
  const std::vector<uint8_t> bytes = write(rows);
  const std::vector<uint8_t> utf16 = {0x65, 0x00, 0xA7, 0x00, 'P', 0x22, 0x06, 0x00, 'I', 0x01, 0x92};
  size_t found = 0;
  for (size_t i = 0; i + utf16.size() <= bytes.size(); ++i)
    found += std::equal(utf16.begin(), utf16.end(), bytes.begin() + std::ptrdiff_t(i));
  EXPECT_EQ(found, 1u);  // one string object, referenced by both rows
  // array, 2 dictionaries, 2 keys, the name, false
  EXPECT_EQ(bytes[bytes.size() - 17], 7);
}

TEST(Plist, RefusesToWriteInvalidUtf8) {
  std::vector<uint8_t> out = {1, 2, 3};
  std::string error;
  EXPECT_FALSE(writeBinary(Value::string("\xff"), out, error));
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(out, (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_FALSE(writeBinary(Value::string("\xed\xa0\x80"), out, error));  // a surrogate
  EXPECT_FALSE(writeBinary(Value::string("\xc0\xaf"), out, error));      // overlong
}

// A binary property list assembled by hand: objects in the order given, with the offset and
// reference sizes given, so that the reader meets layouts our writer never makes.
struct Assembler {
  int offsetSize = 1, refSize = 1;
  uint64_t top = 0;
  std::vector<std::vector<uint8_t>> objects;  // by object number
  std::vector<size_t> order;                  // the order in the file; empty: by number

  std::vector<uint8_t> ref(uint64_t r) const {
    std::vector<uint8_t> b;
    for (int k = refSize - 1; k >= 0; --k) b.push_back(uint8_t(r >> (8 * k)));
    return b;
  }
  std::vector<uint8_t> bytes() const {
    std::vector<uint8_t> out = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
    std::vector<uint64_t> offsets(objects.size());
    std::vector<size_t> o = order;
    if (o.empty())
      for (size_t i = 0; i < objects.size(); ++i) o.push_back(i);
    for (size_t i : o) {
      offsets[i] = out.size();
      out.insert(out.end(), objects[i].begin(), objects[i].end());
    }
    const uint64_t table = out.size();
    auto put = [&](uint64_t v, int n) {
      for (int k = n - 1; k >= 0; --k) out.push_back(uint8_t(v >> (8 * k)));
    };
    for (uint64_t off : offsets) put(off, offsetSize);
    out.insert(out.end(), 6, 0);
    out.push_back(uint8_t(offsetSize));
    out.push_back(uint8_t(refSize));
    put(objects.size(), 8);
    put(top, 8);
    put(table, 8);
    return out;
  }
};

std::vector<uint8_t> cat(std::initializer_list<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// A file of the given objects, laid out by the assembler.
std::vector<uint8_t> assembled(std::vector<std::vector<uint8_t>> objects) {
  Assembler a;
  a.objects = std::move(objects);
  return a.bytes();
}

// An effect row as another writer might lay it out: keys in another order, the root not first,
// objects in reverse, wide references and offsets, a UTF-16 string, a 16-byte integer.
TEST(Plist, ReadsOtherWritersLayouts) {
  for (int size : {1, 2, 4, 8}) {
    Assembler a;
    a.offsetSize = size;
    a.refSize = size;
    a.top = 6;
    const std::vector<uint8_t> utf16Name = {0x69, 0x00, 'B', 0x22, 0x11, 0x00, 'A', 0x00, 'M', 0x00, 'R',
                                            0x00, 'I', 0x00, 'D', 0x22, 0x11, 0x00, 'R'};
    a.objects = {
        {0x58, 'i', 's', 'A', 'c', 't', 'i', 'v', 'e'},   // 0
        {0x08},                                             // 1 false
        {0x54, 'n', 'a', 'm', 'e'},                         // 2
        utf16Name,                                          // 3
        cat({{0xD2}, a.ref(0), a.ref(2), a.ref(1), a.ref(3)}),  // 4: isActive first
        {0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 42},  // 5
        cat({{0xA2}, a.ref(4), a.ref(4)}),                  // 6: the root, the same row twice
    };
    a.order = {6, 5, 4, 3, 2, 1, 0};
    Value v;
    std::string error;
    ASSERT_TRUE(read(a.bytes(), v, error)) << size << ": " << error;
    EffectList rows;
    ASSERT_TRUE(decodeEffects(v, rows));
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0]->name, "B∑AMRID∑R");
    EXPECT_FALSE(rows[1]->isActive);

    Assembler b = a;
    b.top = 5;
    ASSERT_TRUE(read(b.bytes(), v, error)) << error;
    EXPECT_EQ(v, Value::integer(42));
  }
}

TEST(Plist, DecodesSurrogatePairsAndReplacesLoneSurrogates) {
  Value v;
  std::string error;  // U+1F600, then a lone low surrogate
  ASSERT_TRUE(read(assembled({{0x63, 0xD8, 0x3D, 0xDE, 0x00, 0xDC, 0x00}}), v, error)) << error;
  EXPECT_EQ(v.asString(), "😀\xEF\xBF\xBD");
}

void expectRejected(const std::vector<uint8_t>& bytes, const std::string& what) {
  Value v;
  std::string error;
  EXPECT_FALSE(read(bytes, v, error)) << what;
  EXPECT_FALSE(error.empty()) << what;
}

TEST(Plist, RejectsMalformedFiles) {
  const std::vector<uint8_t> good = write(everything());
  // Every truncation, and every trailer field spoilt.
  for (size_t n = 0; n < good.size(); ++n)
    expectRejected(std::vector<uint8_t>(good.begin(), good.begin() + std::ptrdiff_t(n)), "truncated");
  const size_t t = good.size() - 32;
  for (auto [at, value, what] : {std::tuple{size_t(0), 'x', "header"}, {t + 6, 0, "offset size 0"}, {t + 6, 9, "offset size 9"},
                                 {t + 7, 0, "reference size 0"}, {t + 8, 0x7F, "absurd object count"},
                                 {t + 16, 0x01, "root out of range"}, {t + 24, 0xFF, "offset table beyond the end"}}) {
    std::vector<uint8_t> b = good;
    b[at] = uint8_t(value);
    expectRejected(b, what);
  }
  std::vector<uint8_t> early = good;
  std::fill(early.begin() + std::ptrdiff_t(t + 24), early.end(), 0);
  early.back() = 4;
  expectRejected(early, "offset table inside the header");
  std::vector<uint8_t> intoTrailer = assembled({{0x09}});
  intoTrailer[9] = uint8_t(intoTrailer.size() - 20);  // the object's offset now points into the trailer
  expectRejected(intoTrailer, "offset into the trailer");

  const std::pair<std::vector<std::vector<uint8_t>>, const char*> objects[] = {
      {{{0xA1, 0x00}}, "an array that holds itself"},
      {{{0xA1, 0x01}, {0xD1, 0x02, 0x00}, {0x51, 'k'}}, "a cycle through a dictionary"},
      {{{0xAF, 0x13, 0x0F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}, "absurd array count"},
      {{{0x5F, 0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}, "negative string count"},
      {{{0x6F, 0x12, 0x7F, 0xFF, 0xFF, 0xFF, 'a'}}, "UTF-16 string past the end"},
      {{{0xA1, 0x05}}, "reference out of range"},
      {{{0xD1, 0x01, 0x01}, {0x10, 0x01}}, "key that is no string"},
      {{{0x00}}, "null"},
      {{{0x14, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}}, "integer beyond 64 bits"},
      {{{0x74, 0xff, 0xfe, 'a', 'b'}}, "invalid UTF-8 string"},
  };
  for (const auto& [o, what] : objects) expectRejected(assembled(o), what);
}

// Arrays nested `depth` deep, each holding the next: object i refers to object i + 1.
std::vector<uint8_t> nested(int depth) {
  Assembler a;
  a.offsetSize = 2;
  a.refSize = 2;
  for (int i = 0; i < depth; ++i) a.objects.push_back({0xA1, uint8_t((i + 1) >> 8), uint8_t(i + 1)});
  a.objects.push_back({0x09});
  return a.bytes();
}

TEST(Plist, BoundsNestingAndSharing) {
  Value v;
  std::string error;
  EXPECT_TRUE(read(nested(kMaxDepth), v, error)) << error;
  expectRejected(nested(kMaxDepth + 1), "too deep");
  expectRejected(nested(5000), "far too deep");

  // Each array holds the next one twice: a small file that would read as 2^60 values.
  Assembler a;
  for (int i = 0; i < 60; ++i) a.objects.push_back({0xA2, uint8_t(i + 1), uint8_t(i + 1)});
  a.objects.push_back({0x09});
  expectRejected(a.bytes(), "exponential sharing");
}

// The legacy presets' form is checked where they are migrated; here the other kinds of value.
TEST(Plist, DescribesInTheOldTextForm) {
  EXPECT_EQ(describe(Value::array({Value::boolean(true), Value::integer(-3), Value::data({0x0a, 0xff})})),
            "(1, -3, <0aff>)");
}

}  // namespace
}  // namespace zorvex::plist
