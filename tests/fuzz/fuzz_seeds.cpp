// Writes starting seeds for the fuzz targets into the folder given, made here rather than stored:
// property lists (the stored effect list, a defaults dictionary, the legacy presets), control files,
// and PNG and JPEG files (RGB, grey, with alpha, interlaced, CMYK, with an orientation tag, cut
// short). The grown corpus under tests/fuzz/corpus starts the long runs from where the last ended.
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>
#include <libexif/exif-data.h>
#include <string>
#include <vector>

#include "core/look/look.h"
#include "core/look/xmp.h"
#include "core/render/sample_picture.h"
#include "core/stack/effects_data.h"
#include "core/stack/plist.h"
#include "native/image_io.h"

namespace {

using namespace zorvex;
using plist::Value;

std::string folder;
int counter = 0;

void write(const std::string& ext, const std::vector<uint8_t>& bytes) {
  const std::string path = folder + "/seed" + std::to_string(counter++) + ext;
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size() || std::fclose(f) != 0) {
    std::fprintf(stderr, "error: can't write %s\n", path.c_str());
    std::exit(1);
  }
}
void write(const std::string& ext, const std::string& text) { write(ext, std::vector<uint8_t>(text.begin(), text.end())); }

std::vector<uint8_t> plistBytes(const Value& v) {
  std::vector<uint8_t> out;
  std::string error;
  plist::writeBinary(v, out, error);
  return out;
}

std::vector<uint8_t> readBack(const std::string& path) {
  std::vector<uint8_t> out;
  if (FILE* f = std::fopen(path.c_str(), "rb")) {
    for (int c; (c = std::fgetc(f)) != EOF;) out.push_back(uint8_t(c));
    std::fclose(f);
  }
  std::remove(path.c_str());
  return out;
}

// A picture file through the command line's own writer.
std::vector<uint8_t> pictureFile(int w, int h, const std::string& ext) {
  const std::string path = folder + "/.picture" + ext;
  std::string error;
  if (!native::writeImage(drawSamplePicture(w, h), path, error)) {
    std::fprintf(stderr, "error: %s\n", error.c_str());
    std::exit(1);
  }
  return readBack(path);
}

// A CMYK JPEG as print software writes it (Adobe marker, inverted values).
std::vector<uint8_t> cmykJpeg(int w, int h) {
  jpeg_compress_struct c;
  jpeg_error_mgr err;
  c.err = jpeg_std_error(&err);
  jpeg_create_compress(&c);
  unsigned char* mem = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &mem, &size);
  c.image_width = JDIMENSION(w);
  c.image_height = JDIMENSION(h);
  c.input_components = 4;
  c.in_color_space = JCS_CMYK;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 80, TRUE);
  jpeg_start_compress(&c, TRUE);
  std::vector<uint8_t> row(size_t(w) * 4);
  while (c.next_scanline < c.image_height) {
    for (int x = 0; x < w; ++x) {
      row[size_t(x) * 4 + 0] = uint8_t(x * 255 / w);
      row[size_t(x) * 4 + 1] = uint8_t(c.next_scanline * 255 / c.image_height);
      row[size_t(x) * 4 + 2] = 128;
      row[size_t(x) * 4 + 3] = 200;
    }
    JSAMPROW r = row.data();
    jpeg_write_scanlines(&c, &r, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  std::vector<uint8_t> out(mem, mem + size);
  free(mem);
  return out;
}

// `jpeg` with an EXIF segment holding an orientation tag right after its start marker.
std::vector<uint8_t> withOrientation(const std::vector<uint8_t>& jpeg, int orientation) {
  ExifData* exif = exif_data_new();
  exif_data_set_byte_order(exif, EXIF_BYTE_ORDER_MOTOROLA);
  ExifEntry* entry = exif_entry_new();
  exif_content_add_entry(exif->ifd[EXIF_IFD_0], entry);
  exif_entry_initialize(entry, EXIF_TAG_ORIENTATION);
  exif_set_short(entry->data, EXIF_BYTE_ORDER_MOTOROLA, ExifShort(orientation));
  unsigned char* data = nullptr;
  unsigned int size = 0;
  exif_data_save_data(exif, &data, &size);
  std::vector<uint8_t> out(jpeg.begin(), jpeg.begin() + 2);
  out.insert(out.end(), {0xFF, 0xE1, uint8_t((size + 2) >> 8), uint8_t((size + 2) & 0xFF)});
  out.insert(out.end(), data, data + size);
  out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
  free(data);
  exif_entry_unref(entry);
  exif_data_unref(exif);
  return out;
}

void plists() {
  const EffectList list = {Effect::make("GRABOID", true), Effect::make("TRIBOMB", false),
                           Effect::make("Mine", false, EffectList{Effect::make("VETH", true), Effect::make("§P∆Iƒ", false)}),
                           Effect::make("Empty", false, EffectList{})};
  write(".plist", plistBytes(encodeEffects(list)));
  Value d;
  d.set(EffectsData::storedArrayKey, Value::data(plistBytes(encodeEffects(list))));
  d.set("__SaveSettingKey__", Value::integer(1));
  d.set("__FrameSettingKey__", Value::string("1"));
  d.set("zz.kvt.zorvex.kHasShownIntroMessageBaby", Value::boolean(true));
  d.set("when", Value::date(7.5));
  d.set("scale", Value::real(0.5));
  write(".plist", plistBytes(d));
  // An undecodable list (a flag stored as an integer) beside legacy presets.
  Value bad = encodeEffects(list);
  Value row = Value::dictionary();
  row.add("name", Value::string("VETH"));
  row.add("isActive", Value::integer(1));
  bad.append(std::move(row));
  Value legacyPreset;
  legacyPreset.set("Old", Value::array({Value::string("AGENCY"), Value::string("KAL1D0")}));
  Value withLegacy;
  withLegacy.set(EffectsData::storedArrayKey, Value::data(plistBytes(bad)));
  withLegacy.set(EffectsData::kCustomFilterFilename, Value::array({legacyPreset, Value::dictionary()}));
  write(".plist", plistBytes(withLegacy));
  Value onlyBad;
  onlyBad.set(EffectsData::storedArrayKey, Value::data(plistBytes(bad)));
  write(".plist", plistBytes(onlyBad));
}

void controls() {
  std::string comma, lines;
  for (int i = 0; i < 1000; ++i) {
    comma += (i ? ", " : "") + std::to_string(i % 10) + "e-1";
    lines += "0." + std::to_string(1000 + i * 7 % 9000).substr(1) + "\n";
  }
  write(".txt", comma);
  write(".txt", lines);
  write(".txt", "0.1 0.2 .3 1e-2");
  write(".txt", "0.1 1.25 nan -0 0x1p-2");
}

void pictures() {
  write(".png", pictureFile(17, 9, ".png"));
  write(".png", pictureFile(40, 33, ".png"));
  const std::vector<uint8_t> jpeg = pictureFile(33, 40, ".jpg");
  write(".jpg", jpeg);
  write(".jpg", withOrientation(jpeg, 6));
  write(".jpg", std::vector<uint8_t>(jpeg.begin(), jpeg.begin() + std::ptrdiff_t(jpeg.size() / 2)));
  write(".jpg", cmykJpeg(20, 18));
  const std::vector<uint8_t> png = pictureFile(24, 24, ".png");
  write(".png", std::vector<uint8_t>(png.begin(), png.begin() + std::ptrdiff_t(png.size() * 2 / 3)));
}

// Looks as text (JSON and the compact form of a link) and inside a JPEG and a PNG.
void looks() {
  look::Look seeded;
  seeded.stack = look::seededStack({"GRABOID", "VAN STROKE"}, 2026, BlendMode::normal, 0.75);
  look::Look edited = seeded;
  edited.size.quality = SaveQuality::half;
  look::EditStep turn, flatten;
  turn.edit = look::Edit::rotateLeft;
  flatten.edit = look::Edit::flatten;
  flatten.stack = look::seededStack({"2600++"}, 7, BlendMode::normal, 1.0);
  edited.edits = {turn, flatten};
  look::Look fixed;
  fixed.stack.effects = {"POLYBOMB"};
  for (size_t i = 0; i < fixed.stack.controls.size(); ++i) fixed.stack.controls[i] = double(i % 10000) / 10000;
  for (const look::Look* l : {&seeded, &edited, &fixed}) {
    const std::string json = look::toJson(*l), compact = look::toCompact(*l);
    write(".json", std::vector<uint8_t>(json.begin(), json.end()));
    write(".txt", std::vector<uint8_t>(compact.begin(), compact.end()));
  }
  for (const char* ext : {".jpg", ".png"}) {
    std::vector<uint8_t> carrying;
    std::string error;
    if (!look::embedXmp(pictureFile(20, 16, ext), look::xmpPacket(edited), carrying, error)) {
      std::fprintf(stderr, "error: %s\n", error.c_str());
      std::exit(1);
    }
    write(ext, carrying);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s plists|controls|pictures|looks FOLDER\n", argv[0]);
    return 2;
  }
  const std::string kind = argv[1];
  folder = argv[2];
  if (kind == "plists") {
    plists();
  } else if (kind == "controls") {
    controls();
  } else if (kind == "pictures") {
    pictures();
  } else if (kind == "looks") {
    looks();
  } else {
    std::fprintf(stderr, "unknown kind %s\n", kind.c_str());
    return 2;
  }
  std::printf("%d seeds in %s\n", counter, folder.c_str());
  return 0;
}
