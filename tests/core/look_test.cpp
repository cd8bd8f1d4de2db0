// Looks: the JSON and compact forms round trip and refuse what is malformed, whole; the XMP packet is
// found again in a JPEG and a PNG, replaces any other and takes the personal metadata with it; a list
// is set to run a look's effects; the edit steps replay as the tools do them.
#include <gtest/gtest.h>

#include <random>

#include "core/imaging/jpeg.h"
#include "core/look/json.h"
#include "core/look/look_apply.h"
#include "core/look/xmp.h"
#include "core/stack/defaults.h"
#include "core/stack/filters.h"
#include "tests/core/test_pictures.h"

namespace zorvex::look {
namespace {

EditStep plain(Edit e) {
  EditStep step;
  step.edit = e;
  return step;
}

// A look of every part: explicit controls, names outside ASCII, an opacity with no short decimal,
// turns, a flatten of its own stack at half size and one of the look's.
Look everyPart() {
  Look look;
  look.stack.effects = {"§P∆Iƒ", "VETH", "B∑AMRID∑R", "VETH"};
  for (size_t i = 0; i < kControlCount; ++i) look.stack.controls[i] = double((i * 7919) % 10000) / 10000.0;
  look.stack.controls[0] = 0.9999;
  look.stack.blend = BlendMode::softLight;
  look.stack.opacity = 1.0 / 3.0;
  look.size.quality = SaveQuality::half;
  EditStep own{Edit::flatten, seededStack({"AGENCY"}, 99, BlendMode::difference, 0.37), SaveQuality::full};
  look.edits = {plain(Edit::rotateRight), plain(Edit::mirrorV), own, plain(Edit::flatten), plain(Edit::rotateLeft),
                plain(Edit::mirrorH)};
  return look;
}

Look seeded() {
  Look look;
  look.stack = seededStack({"GRABOID", "AGENCY"}, 18446744073709551615ull, BlendMode::normal, 1.0);
  look.size.previewWidth = 360;
  return look;
}

TEST(Look, BothFormsRoundTrip) {
  for (const Look& look : {everyPart(), seeded(), Look{}}) {
    std::string error;
    ASSERT_TRUE(validate(look, error)) << error;
    Look fromJsonForm, fromOneLine, fromCompactForm;
    ASSERT_TRUE(fromJson(toJson(look), fromJsonForm, error)) << error;
    ASSERT_TRUE(fromText(toJson(look, false), fromOneLine, error)) << error;
    ASSERT_TRUE(fromText(toCompact(look) + "\n", fromCompactForm, error)) << error;
    EXPECT_EQ(fromJsonForm, look);
    EXPECT_EQ(fromOneLine, look);
    EXPECT_EQ(fromCompactForm, look);
  }
  // Explicit controls take 14 bits each: 1750 bytes, about 2340 characters.
  EXPECT_LT(toCompact(everyPart()).size(), 2500u);
  EXPECT_LT(toCompact(seeded()).size(), 40u);
}

TEST(Look, JsonNamesTheSeedAsTextAndTakesWhatPeopleWrite) {
  EXPECT_NE(toJson(seeded()).find("\"seed\": \"18446744073709551615\""), std::string::npos);
  Look look;
  std::string error;
  // Defaults for blend, opacity, size and edits; an alias and a whole-number seed.
  ASSERT_TRUE(fromJson(R"({"zorvexLook": 1, "effects": ["TRIBOMB", "VETH"], "seed": 42})", look, error)) << error;
  EXPECT_EQ(look.stack.effects, (std::vector<std::string>{"POLYBOMB", "VETH"}));
  EXPECT_EQ(look.stack.controls, rollControls(42));
  EXPECT_EQ(look.stack.blend, BlendMode::normal);
  EXPECT_EQ(look.stack.opacity, 1.0);
  EXPECT_TRUE(look.edits.empty());
  // A flatten that names the look's own stack is the plain step.
  Look own = seeded();
  own.size.previewWidth = 0;
  own.edits = {{Edit::flatten, own.stack, SaveQuality::full}};
  ASSERT_TRUE(fromJson(toJson(own), look, error)) << error;
  EXPECT_EQ(look.edits, (std::vector<EditStep>{plain(Edit::flatten)}));
}

TEST(Look, MalformedJsonIsRefusedWithWhatIsWrong) {
  // `count` values, the first one `first`, the rest 0.5.
  auto controls = [](const std::string& first, int count = 1000) {
    std::string s = "[" + first;
    for (int i = 1; i < count; ++i) s += ",0.5";
    return s + "]";
  };
  const std::pair<std::string, std::string> cases[] = {
      {"", "not valid JSON"},
      {"{\"zorvexLook\": 1, \"effects\": []", "not valid JSON"},
      {"[1]", "a JSON object"},
      {R"({"effects": [], "seed": "1"})", "no \"zorvexLook\""},
      {R"({"zorvexLook": 2, "effects": [], "seed": "1"})", "version 2; this Zorvex reads version 1"},
      {R"({"zorvexLook": "1", "effects": [], "seed": "1"})", "version ?"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "colour": "red"})", "unknown key \"colour\""},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "seed": "2"})", "twice"},
      {R"({"zorvexLook": 1, "effects": ["VETH", "NOPE"], "seed": "1"})", "doesn't have: \"NOPE\""},
      {R"({"zorvexLook": 1, "effects": [3], "seed": "1"})", "not a name"},
      {R"({"zorvexLook": 1, "effects": []})", "needs \"seed\" or \"controls\""},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "controls": [0]})", "both"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "-1"})", "whole number"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "18446744073709551616"})", "larger"},
      {R"({"zorvexLook": 1, "effects": [], "seed": 1.5})", "whole number"},
      {R"({"zorvexLook": 1, "effects": [], "controls": )" + controls("0", 999) + "}", "exactly 1000"},
      {R"({"zorvexLook": 1, "effects": [], "controls": )" + controls("0.12345") + "}", "value 1 (0.12345)"},
      {R"({"zorvexLook": 1, "effects": [], "controls": )" + controls("1") + "}", "value 1 (1)"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "opacity": 1.5})", "opacity"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "blend": "Plaid"})", "blend"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "size": "large"})", "neither \"full\" nor \"half\""},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "previewWidth": 9})", "not \"preview\""},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "size": "preview"})", "previewWidth"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "size": "preview", "previewWidth": 9, "edits": ["flatten"]})",
       "can't have a flatten"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "edits": ["spin"]})", "edit step 1 is \"spin\""},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "edits": [{"rotate": {}}]})", "edit step 1 is neither"},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "edits": [{"flatten": {"blend": "Hue"}}]})",
       "edit step 1 needs \"effects\""},
      {R"({"zorvexLook": 1, "effects": [], "seed": "1", "edits": [{"flatten": {"size": "small"}}]})", "edit step 1 has"},
      {std::string(40, '[') + std::string(40, ']'), "nested too deeply"},
      {"{\"zorvexLook\": 1, \"effects\": [\"\\ud800\"], \"seed\": \"1\"}", "surrogate"},
  };
  for (const auto& [text, message] : cases) {
    Look look = seeded();
    std::string error;
    EXPECT_FALSE(fromJson(text, look, error)) << text;
    EXPECT_NE(error.find(message), std::string::npos) << text << "\n  said: " << error;
    EXPECT_EQ(look, seeded()) << "nothing is filled from a refused look: " << text;
  }
}

TEST(Look, MalformedCompactFormsAreRefused) {
  std::string error;
  Look look;
  const std::string good = toCompact(everyPart());
  // Every shortened text is refused, and so is any text with a byte too many.
  for (size_t n = 0; n < good.size(); ++n) {
    EXPECT_FALSE(fromCompact(good.substr(0, n), look, error)) << n;
  }
  EXPECT_FALSE(fromCompact(good + "AA", look, error));
  EXPECT_NE(error.find("bytes after its end"), std::string::npos) << error;
  EXPECT_FALSE(fromCompact("AQ*A", look, error));
  EXPECT_NE(error.find("not base64url"), std::string::npos);
  EXPECT_FALSE(fromCompact("Ag" + good.substr(2), look, error));  // version 2 in the first byte
  EXPECT_NE(error.find("version 2"), std::string::npos) << error;
  // Damage anywhere either is refused or gives a look that passes every check: never half a look.
  std::mt19937 random(7);
  for (int i = 0; i < 500; ++i) {
    std::string damaged = good;
    damaged[random() % damaged.size()] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"[random() % 64];
    Look out;
    if (fromCompact(damaged, out, error)) {
      EXPECT_TRUE(validate(out, error)) << error;
    }
  }
}

TEST(Look, EveryKernelHasABuiltInPlaceForTheCompactForm) {
  for (const KernelEntry& e : Filters::kernelTable()) {
    Look look;
    look.stack.effects = {std::string(e.name)};
    Look back;
    std::string error;
    ASSERT_TRUE(fromCompact(toCompact(look), back, error)) << e.name << ": " << error;
    EXPECT_EQ(back.stack.effects, look.stack.effects);
  }
}

TEST(Json, ReadsTheGrammarAndRefusesTheRest) {
  json::Value v;
  std::string error;
  ASSERT_TRUE(json::parse(R"( {"a": [true, false, null, -0.5e2, "x\"\\\/\b\f\n\r\t\u00e9\ud83d\ude00"]} )", v, error))
      << error;
  const json::Value& a = *v.find("a");
  EXPECT_EQ(a.items[3].number, -50.0);
  EXPECT_EQ(a.items[4].text, "x\"\\/\b\f\n\r\t\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(json::quote("a\"b\\c\n\x01§"), "\"a\\\"b\\\\c\\n\\u0001§\"");
  for (const char* bad : {"01", "1.", "-", "1e", "\"\x01\"", "\"\\x\"", "tru", "[1,]", "{\"a\" 1}", "1 2", "\"abc", "1e999"})
    EXPECT_FALSE(json::parse(bad, v, error)) << bad;
}

// --- Pictures ---

std::vector<uint8_t> smallJpeg() { return encodeJPEG(CGBitmapContextCreateImage(testing::gradientSurface(40, 24)), 0.9); }

// A JPEG with an EXIF segment (a camera's, with its location) after its JFIF segment, and a comment.
std::vector<uint8_t> jpegWithExif() {
  std::vector<uint8_t> jpeg = smallJpeg();
  const size_t afterJfif = 4 + (size_t(jpeg[4]) << 8 | jpeg[5]);
  const std::string exif = std::string("Exif\0\0", 6) + "GPS 51.5N 0.1W";
  std::vector<uint8_t> app1 = {0xFF, 0xE1, 0, uint8_t(exif.size() + 2)};
  app1.insert(app1.end(), exif.begin(), exif.end());
  const std::string note = "taken at home";
  std::vector<uint8_t> com = {0xFF, 0xFE, 0, uint8_t(note.size() + 2)};
  com.insert(com.end(), note.begin(), note.end());
  jpeg.insert(jpeg.begin() + ptrdiff_t(afterJfif), com.begin(), com.end());
  jpeg.insert(jpeg.begin() + ptrdiff_t(afterJfif), app1.begin(), app1.end());
  return jpeg;
}

void chunk(std::vector<uint8_t>& png, const std::string& type, const std::string& data) {
  std::vector<uint8_t> body(type.begin(), type.end());
  body.insert(body.end(), data.begin(), data.end());
  uint32_t crc = 0xFFFFFFFF;
  for (uint8_t b : body) {
    crc ^= b;
    for (int k = 0; k < 8; ++k) crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
  }
  crc = ~crc;
  for (int s = 24; s >= 0; s -= 8) png.push_back(uint8_t(data.size() >> s));
  png.insert(png.end(), body.begin(), body.end());
  for (int s = 24; s >= 0; s -= 8) png.push_back(uint8_t(crc >> s));
}

// The chunks of a PNG (their data isn't decoded here), with a text chunk naming its author.
std::vector<uint8_t> smallPng() {
  std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  chunk(png, "IHDR", std::string("\0\0\0\x10\0\0\0\x10\x08\x02\0\0\0", 13));
  chunk(png, "tEXt", std::string("Author\0Someone", 14));
  chunk(png, "IDAT", "pixels");
  chunk(png, "IEND", "");
  return png;
}

TEST(Xmp, ThePacketIsFoundAgainInAJpegAndAPngAndReplacesAnyOther) {
  const Look look = everyPart(), other = seeded();
  for (const auto& file : {jpegWithExif(), smallPng()}) {
    std::vector<uint8_t> once, twice;
    std::string error, packet;
    ASSERT_TRUE(embedXmp(file, xmpPacket(other), once, error)) << error;
    ASSERT_TRUE(embedXmp(once, xmpPacket(look), twice, error)) << error;
    Look found;
    ASSERT_EQ(lookInPicture(twice, found, error), Found::look) << error;
    EXPECT_EQ(found, look);
    // One packet only, and nothing of the camera's, the place or the author's.
    const std::string text(twice.begin(), twice.end());
    EXPECT_EQ(text.find("<?xpacket begin"), text.rfind("<?xpacket begin"));
    for (const char* personal : {"GPS", "at home", "Someone"}) EXPECT_EQ(text.find(personal), std::string::npos);
    EXPECT_EQ(lookInPicture(file, found, error), Found::none) << error;
    EXPECT_TRUE(error.empty());
  }
  // The JPEG keeps its JFIF segment first and its picture whole.
  std::vector<uint8_t> jpeg;
  std::string error;
  ASSERT_TRUE(embedXmp(smallJpeg(), xmpPacket(look), jpeg, error));
  EXPECT_EQ(std::vector<uint8_t>(jpeg.begin() + 2, jpeg.begin() + 4), (std::vector<uint8_t>{0xFF, 0xE0}));
  EXPECT_TRUE(testing::sameRGB(decodeJPEG(jpeg), decodeJPEG(smallJpeg())));
}

TEST(Xmp, DamagedAndForeignFilesAreErrorsNotLooks) {
  std::vector<uint8_t> out;
  std::string error;
  Look look;
  const std::vector<uint8_t> text = {'h', 'e', 'l', 'l', 'o'};
  EXPECT_EQ(lookInPicture(text, look, error), Found::error);
  EXPECT_EQ(error, "not a PNG or JPEG picture");
  EXPECT_FALSE(embedXmp(text, "x", out, error));

  std::vector<uint8_t> png = smallPng();
  png[png.size() - 20] ^= 1;  // in the IDAT chunk: its check sum fails
  EXPECT_EQ(lookInPicture(png, look, error), Found::error);
  EXPECT_NE(error.find("check sum"), std::string::npos) << error;
  EXPECT_FALSE(embedXmp(png, "x", out, error));

  std::vector<uint8_t> jpeg = jpegWithExif();
  jpeg.resize(30);  // inside the EXIF segment
  EXPECT_EQ(lookInPicture(jpeg, look, error), Found::error);
  EXPECT_FALSE(embedXmp(jpeg, "x", out, error));
  EXPECT_FALSE(embedXmp(smallJpeg(), std::string(70000, ' '), out, error));
  EXPECT_NE(error.find("too large"), std::string::npos);
}

TEST(Xmp, ReadsThePacketAsOtherToolsWriteItBack) {
  Look look;
  std::string error;
  const std::string json = toJson(seeded(), false);
  std::string quoted;  // as an attribute, quotes escaped
  for (char c : json) quoted += c == '"' ? std::string("&quot;") : std::string(1, c);
  const std::string attribute = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF><rdf:Description rdf:about='' xmlns:zv = '" +
                                std::string(kNamespace) + "' zv:look=\"" + quoted + "\"/></rdf:RDF></x:xmpmeta>";
  ASSERT_EQ(lookFromXmp(attribute, look, error), Found::look) << error;
  EXPECT_EQ(look, seeded());
  std::string escaped;  // as an element under another prefix, with character references
  for (char c : json) escaped += c == '{' ? std::string("&#x7B;") : c == '}' ? std::string("&#125;") : std::string(1, c);
  const std::string element = "<rdf:Description xmlns:other=\"" + std::string(kNamespace) + "\">\n <other:look>" +
                              escaped + "</other:look></rdf:Description>";
  ASSERT_EQ(lookFromXmp(element, look, error), Found::look) << error;
  EXPECT_EQ(look, seeded());

  EXPECT_EQ(lookFromXmp("<x:xmpmeta xmlns:dc='http://purl.org/dc/elements/1.1/'/>", look, error), Found::none);
  EXPECT_EQ(lookFromXmp("<d xmlns:z=\"" + std::string(kNamespace) + "\"><z:look>{&bogus;}</z:look></d>", look, error),
            Found::error);
  EXPECT_EQ(lookFromXmp("<d xmlns:z=\"" + std::string(kNamespace) + "\"><z:look>{\"zorvexLook\": 9}</z:look></d>", look,
                        error),
            Found::error);
  EXPECT_NE(error.find("version 9"), std::string::npos);
}

// --- The list and the view ---

class LookListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    data.setDefaults(&defaults);
    for (const char* name : {"GRABOID", "VETH", "AGENCY", "INTERFACE", "NOT AN EFFECT"}) data.effects.push_back(Effect::make(name, false));
    // A preset of two, then a row under an older name.
    data.effects.push_back(Effect::make("PAIR", true, EffectList{Effect::make("VETH", true), Effect::make("BUNKER", true)}));
    data.effects.push_back(Effect::make("TRIBOMB", true));
  }
  std::vector<std::string> names() const {
    std::vector<std::string> out;
    for (const EffectRef& row : data.effects) out.push_back(row->name);
    return out;
  }
  std::vector<std::string> running() const {
    return currentStack(data.effects, ControlValues(kControlCount, 0.0), std::nullopt, BlendMode::normal, 1).effects;
  }

  testing::TestPlatform console;
  MemoryDefaults defaults;
  EffectsData data;
};

TEST_F(LookListTest, RowsOfTheListAreSwitchedWhenTheyRunTheLookInOrder) {
  const auto before = names();
  using Names = std::vector<std::string>;
  for (const Names& wanted : {Names{"GRABOID", "INTERFACE"}, Names{"AGENCY", "VETH", "BUNKER", "POLYBOMB"}, Names{}}) {
    EXPECT_FALSE(useEffects(data, wanted));
    EXPECT_EQ(running(), wanted);
    EXPECT_EQ(names(), before) << "the order of the list stays";
  }
  EXPECT_NE(defaults.dataForKey(EffectsData::storedArrayKey), nullptr) << "the list is stored";
}

TEST_F(LookListTest, APresetIsAddedWhenTheListLacksTheOrder) {
  using Names = std::vector<std::string>;
  for (const Names& wanted : {Names{"INTERFACE", "GRABOID"}, Names{"VETH", "VETH"}, Names{"VETH", "KAL1D0"}}) {
    const size_t rows = data.effects.size();
    EXPECT_TRUE(useEffects(data, wanted));
    ASSERT_EQ(data.effects.size(), rows + 1);
    EXPECT_EQ(data.effects.back()->name, kLookPresetName);
    EXPECT_TRUE(data.effects.back()->isPreset());
    EXPECT_EQ(running(), wanted);
  }
  // The same look again finds its preset.
  EXPECT_FALSE(useEffects(data, {"VETH", "KAL1D0"}));
}

TEST_F(LookListTest, EditsReplayAsTheToolsDoThem) {
  EffectedImageView byHand(1.0, data), replayed(1.0, data);
  const CGImageRef base = CGBitmapContextCreateImage(testing::gradientSurface(48, 30));
  Look look;
  look.stack = seededStack({"INTERFACE"}, 5, BlendMode::difference, 0.5);
  const Stack other = seededStack({"AGENCY", "VETH"}, 6, BlendMode::normal, 1.0);
  look.edits = {plain(Edit::rotateRight), {Edit::flatten, other, SaveQuality::half}, plain(Edit::mirrorH),
                plain(Edit::flatten)};

  byHand.originalImage = base;
  byHand.isDrawing = true;  // no previews
  byHand.rotateBaseImage(90, false);
  data.effects = rowsFor(other.effects);
  applyStack(byHand, other);
  byHand.saveQuality = [] { return SaveQuality::half; };
  ASSERT_TRUE(byHand.flatten());
  byHand.rotateBaseImage(0, true);
  data.effects = rowsFor(look.stack.effects);
  applyStack(byHand, look.stack);
  byHand.saveQuality = [] { return SaveQuality::full; };
  ASSERT_TRUE(byHand.flatten());

  data.effects = {Effect::make("PAIR", true, rowsFor(look.stack.effects))};
  replayed.originalImage = base;
  applyStack(replayed, look.stack);
  replayed.saveQuality = [] { return SaveQuality::full; };
  std::vector<Edit> done;
  std::string error;
  ASSERT_TRUE(replayEdits(replayed, data, look, error, [&](const EditStep& s) { done.push_back(s.edit); })) << error;
  EXPECT_EQ(done.size(), 4u);
  ASSERT_EQ(CGImageGetWidth(replayed.originalImage), 15u);  // turned, then halved
  EXPECT_TRUE(testing::sameRGB(replayed.originalImage, byHand.originalImage));
  // The view and the list are as they were.
  EXPECT_EQ(replayed.controlValues, look.stack.controls);
  EXPECT_EQ(replayed.blendMode, BlendMode::difference);
  EXPECT_EQ(data.effects.size(), 1u);

  replayed.originalImage = nullptr;
  EXPECT_FALSE(replayEdits(replayed, data, look, error));
}

}  // namespace
}  // namespace zorvex::look
