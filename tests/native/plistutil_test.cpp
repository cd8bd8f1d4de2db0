// Our binary property lists against Debian's plistutil (libplist): it reads what we write, and we read
// what it writes, for the stored effect list in its current and legacy forms and for the whole
// defaults file.
#include <gtest/gtest.h>

#include "core/stack/effects_data.h"
#include "tests/core/test_pictures.h"
#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using plist::Value;
using testsupport::RunResult;
using testsupport::TempDir;
using testsupport::quote;
using testsupport::readFile;
using testsupport::shell;
using testsupport::writeFile;

constexpr const char* kXmlHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

// plistutil converts `from` into `to` in the given format ("xml" or "bin").
void convert(const TempDir& dir, const std::string& from, const std::string& to, const char* format) {
  const RunResult r = shell(dir, "plistutil -i " + quote(from) + " -o " + quote(to) + " -f " + format);
  ASSERT_EQ(r.code, 0) << "plistutil failed (is libplist-utils installed? tools/install-deps.sh installs it): "
                       << r.err;
}

Value readOurs(const std::string& path) {
  const std::string bytes = readFile(path);
  Value v;
  std::string error;
  EXPECT_TRUE(plist::readBinary(std::vector<uint8_t>(bytes.begin(), bytes.end()), v, error)) << path << ": " << error;
  return v;
}

void writeOurs(const std::string& path, const Value& v) {
  const std::vector<uint8_t> bytes = testing::plistBytes(v);
  writeFile(path, std::string(bytes.begin(), bytes.end()));
}

std::string base64(const std::string& in) {
  static const char* table = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < in.size(); i += 3) {
    uint32_t n = uint32_t(uint8_t(in[i])) << 16;
    if (i + 1 < in.size()) n |= uint32_t(uint8_t(in[i + 1])) << 8;
    if (i + 2 < in.size()) n |= uint8_t(in[i + 2]);
    out += table[n >> 18 & 63];
    out += table[n >> 12 & 63];
    out += i + 1 < in.size() ? table[n >> 6 & 63] : '=';
    out += i + 2 < in.size() ? table[n & 63] : '=';
  }
  return out;
}

// Drops the line breaks and tabs of plistutil's indentation (and those inside base64 data), so that
// XML can be compared as one line.
std::string compact(const std::string& xml) {
  std::string out;
  for (char c : xml)
    if (c != '\n' && c != '\t') out += c;
  return out;
}

EffectList sampleList() {
  return {
      Effect::make("§P∆Iƒ", true),
      Effect::make("B∑AMRID∑R", false),
      Effect::make("Mine", true, EffectList{Effect::make("VETH", false), Effect::make("AGENCY", true)}),
      Effect::make("Nothing yet", false, EffectList{}),
  };
}

TEST(Plistutil, ReadsTheListWeStore) {
  TempDir dir;
  const Value list = encodeEffects(sampleList());
  writeOurs(dir / "ours.bplist", list);
  convert(dir, dir / "ours.bplist", dir / "ours.xml", "xml");
  const std::string xml = compact(readFile(dir / "ours.xml"));
  EXPECT_NE(xml.find("<array><dict><key>name</key><string>§P∆Iƒ</string><key>isActive</key><true/></dict>"
                     "<dict><key>name</key><string>B∑AMRID∑R</string><key>isActive</key><false/></dict>"
                     "<dict><key>name</key><string>Mine</string><key>isActive</key><true/><key>subEffects</key>"
                     "<array><dict><key>name</key><string>VETH</string><key>isActive</key><false/></dict>"
                     "<dict><key>name</key><string>AGENCY</string><key>isActive</key><true/></dict></array></dict>"
                     "<dict><key>name</key><string>Nothing yet</string><key>isActive</key><false/>"
                     "<key>subEffects</key><array/></dict></array>"),
            std::string::npos)
      << xml;
  // And back through plistutil's own binary writer.
  convert(dir, dir / "ours.xml", dir / "theirs.bplist", "bin");
  EXPECT_EQ(readOurs(dir / "theirs.bplist"), list);
}

TEST(Plistutil, ReadsOurDefaultsFileWithItsBlobAndLegacyArray) {
  TempDir dir;
  const std::vector<uint8_t> blob = testing::plistBytes(encodeEffects(sampleList()));
  Value defaults;
  defaults.set("__FrameSettingKey__", Value::integer(1));
  defaults.set("zz.kvt.zorvex.kHasShownIntroMessageBaby", Value::boolean(true));
  defaults.set(EffectsData::storedArrayKey, Value::data(blob));
  Value legacy = Value::dictionary();
  legacy.set("Ünïcode", Value::array({Value::string("GRABOID"), Value::string("§P∆Iƒ")}));
  defaults.set(EffectsData::kCustomFilterFilename, Value::array({legacy}));
  writeOurs(dir / "defaults.plist", defaults);
  convert(dir, dir / "defaults.plist", dir / "defaults.xml", "xml");
  const std::string xml = compact(readFile(dir / "defaults.xml"));
  EXPECT_NE(xml.find("<key>__FrameSettingKey__</key><integer>1</integer>"), std::string::npos) << xml;
  EXPECT_NE(xml.find("<key>zz.kvt.zorvex.kHasShownIntroMessageBaby</key><true/>"), std::string::npos) << xml;
  EXPECT_NE(xml.find("<key>kCustomFilterFilename2x</key><array><dict><key>Ünïcode</key><array>"
                     "<string>GRABOID</string><string>§P∆Iƒ</string></array></dict></array>"),
            std::string::npos)
      << xml;
  std::string data = xml.substr(xml.find("<data>") + 6);
  data = data.substr(0, data.find("</data>"));
  EXPECT_EQ(data, base64(std::string(blob.begin(), blob.end())));
}

// A defaults file as plistutil writes it, from XML written by hand: the current list (keys in another
// order, a "TRIBOMB" row, non-ASCII names, an empty preset) as a blob inside it, a legacy array beside
// it, and settings.
TEST(Plistutil, WeReadWhatItWrites) {
  TempDir dir;
  const std::string listXml = std::string(kXmlHead) +
                              "<array>\n"
                              " <dict><key>isActive</key><true/><key>name</key><string>§P∆Iƒ</string></dict>\n"
                              " <dict><key>name</key><string>TRIBOMB</string><key>isActive</key><true/></dict>\n"
                              " <dict><key>subEffects</key><array>\n"
                              "   <dict><key>name</key><string>B∑AMRID∑R</string><key>isActive</key><false/></dict>\n"
                              "  </array><key>name</key><string>Ünïcode preset</string><key>isActive</key><false/></dict>\n"
                              " <dict><key>name</key><string>Empty</string><key>isActive</key><false/>"
                              "<key>subEffects</key><array/></dict>\n"
                              "</array>\n</plist>\n";
  writeFile(dir / "list.xml", listXml);
  convert(dir, dir / "list.xml", dir / "list.bplist", "bin");
  EffectList rows;
  ASSERT_TRUE(decodeEffects(readOurs(dir / "list.bplist"), rows));
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(rows[0]->name, "§P∆Iƒ");
  EXPECT_TRUE(rows[0]->isActive);
  EXPECT_EQ(rows[2]->name, "Ünïcode preset");
  EXPECT_EQ((*rows[2]->subEffects)[0]->name, "B∑AMRID∑R");
  EXPECT_TRUE(rows[3]->isPreset() && rows[3]->subEffects->empty());

  const std::string legacy =
      "<array><dict><key>Old §P∆Iƒ</key><array><string>GRABOID</string><string>B∑AMRID∑R</string></array></dict>"
      "<dict/></array>";
  writeFile(dir / "legacy.xml", std::string(kXmlHead) + legacy + "\n</plist>\n");
  convert(dir, dir / "legacy.xml", dir / "legacy.bplist", "bin");
  EXPECT_EQ(plist::describe(readOurs(dir / "legacy.bplist")), "({\"Old §P∆Iƒ\" = (GRABOID, \"B∑AMRID∑R\");}, {})");

  // The whole defaults file, with both the current blob and the legacy presets.
  const std::string defaultsXml = std::string(kXmlHead) + "<dict>\n<key>" + std::string(EffectsData::storedArrayKey) +
                                  "</key><data>" + base64(readFile(dir / "list.bplist")) +
                                  "</data>\n<key>__FrameSettingKey__</key><integer>7</integer>\n"
                                  "<key>zz.kvt.zorvex.hasShownEditControlsKey</key><true/>\n"
                                  "<key>kCustomFilterFilename2x</key>" +
                                  legacy + "\n</dict>\n</plist>\n";
  writeFile(dir / "defaults.xml", defaultsXml);
  convert(dir, dir / "defaults.xml", dir / "defaults.plist", "bin");

  RunResult r = shell(dir, std::string(ZORVEX_CLI) + " settings --defaults " + quote(dir / "defaults.plist"));
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("frame-quality: normal\n"), std::string::npos) << r.out;  // 7 reads as normal
  EXPECT_NE(r.out.find("shown-edit-controls: yes\n"), std::string::npos) << r.out;
  // That first run migrated the legacy presets: the defaults and the old presets, nothing else.
  r = shell(dir, std::string(ZORVEX_CLI) + " effects -q --defaults " + quote(dir / "defaults.plist"));
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("33 off KAL1D0\n34 off Old §P∆Iƒ\n  off GRABOID\n  off B∑AMRID∑R\n"), std::string::npos)
      << r.out;
  EXPECT_EQ(r.out.find("TRIBOMB"), std::string::npos);

  // plistutil reads the file we rewrote: the legacy key is gone, the settings are kept.
  convert(dir, dir / "defaults.plist", dir / "after.xml", "xml");
  const std::string after = compact(readFile(dir / "after.xml"));
  EXPECT_EQ(after.find("kCustomFilterFilename2x"), std::string::npos) << after;
  EXPECT_NE(after.find("<key>__FrameSettingKey__</key><integer>7</integer>"), std::string::npos) << after;
}

}  // namespace
}  // namespace zorvex
