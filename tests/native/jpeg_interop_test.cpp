// Our JPEG codec against libjpeg-turbo, in both directions.
//
// How close two decoders of the same stream must come: libjpeg here decodes with its accurate
// integer IDCT and without fancy upsampling (chroma samples repeated, as ours does), and converts
// colour in the same 16-bit fixed point. What remains is the rounding of the IDCT, ours being in
// float: a sample now and then lands one level off (we measure 60 to 80 dB). One level off on every
// sample would be 48.1 dB; we ask for 55 dB, about one sample in five a level off, which any real
// fault (a wrong table, a shifted block, a wrong colour matrix) misses by far.
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstring>

#include <jpeglib.h>

#include "core/imaging/jpeg.h"
#include "native/image_io.h"
#include "core/render/sample_picture.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::psnr;
using testing::sameRows;

// libjpeg's errors end the call through a jump instead of ending the process; warnings are counted.
struct ErrorManager {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
};
void onError(j_common_ptr info) { std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1); }
void onMessage(j_common_ptr, int) {}

struct Options {
  int quality = 75;
  int h = 2, v = 2;  // luminance sampling factors; chroma is 1 x 1
  bool gray = false;
  int restartInterval = 0;  // in MCUs
  bool optimizeCoding = false;
  bool oneScanPerComponent = false;
  bool progressive = false;
};

std::vector<uint8_t> libjpegEncode(const CGImageRef& image, const Options& o) {
  jpeg_compress_struct c{};
  ErrorManager err;
  c.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = onError;
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  if (setjmp(err.jump)) {
    jpeg_destroy_compress(&c);
    std::free(buffer);
    return {};
  }
  jpeg_create_compress(&c);
  jpeg_mem_dest(&c, &buffer, &size);
  c.image_width = JDIMENSION(image->width());
  c.image_height = JDIMENSION(image->height());
  c.input_components = 3;
  c.in_color_space = JCS_RGB;
  jpeg_set_defaults(&c);
  if (o.gray) jpeg_set_colorspace(&c, JCS_GRAYSCALE);
  jpeg_set_quality(&c, o.quality, TRUE);
  c.comp_info[0].h_samp_factor = o.h;
  c.comp_info[0].v_samp_factor = o.v;
  c.restart_interval = JDIMENSION(o.restartInterval);
  c.optimize_coding = o.optimizeCoding;
  jpeg_scan_info scans[3];
  if (o.oneScanPerComponent) {
    for (int i = 0; i < 3; ++i) scans[i] = {1, {i, 0, 0, 0}, 0, 63, 0, 0};
    c.scan_info = scans;
    c.num_scans = 3;
  }
  if (o.progressive) jpeg_simple_progression(&c);
  jpeg_start_compress(&c, TRUE);
  std::vector<uint8_t> row(size_t(image->width()) * 3);
  while (c.next_scanline < c.image_height) {
    const uint8_t* src = image->pixels().row(int32_t(c.next_scanline));
    for (int x = 0; x < image->width(); ++x) std::memcpy(&row[size_t(x) * 3], src + 4 * x, 3);
    JSAMPROW rows[1] = {row.data()};
    jpeg_write_scanlines(&c, rows, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  std::vector<uint8_t> out(buffer, buffer + size);
  std::free(buffer);
  return out;
}

// libjpeg's picture of a stream as RGBX, and the number of warnings it gave; nil on an error.
CGImageRef libjpegDecode(const std::vector<uint8_t>& stream, long* warnings = nullptr) {
  jpeg_decompress_struct d{};
  ErrorManager err;
  d.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = onError;
  err.mgr.emit_message = onMessage;
  if (setjmp(err.jump)) {
    jpeg_destroy_decompress(&d);
    return nullptr;
  }
  jpeg_create_decompress(&d);
  jpeg_mem_src(&d, stream.data(), static_cast<unsigned long>(stream.size()));
  jpeg_read_header(&d, TRUE);
  d.out_color_space = JCS_RGB;
  d.do_fancy_upsampling = FALSE;
  d.dct_method = JDCT_ISLOW;
  jpeg_start_decompress(&d);
  const int w = int(d.output_width), h = int(d.output_height);
  std::shared_ptr<uint8_t[]> pixels(new uint8_t[size_t(w) * size_t(h) * 4]);
  std::vector<uint8_t> row(size_t(w) * 3);
  while (d.output_scanline < d.output_height) {
    uint8_t* dst = pixels.get() + size_t(d.output_scanline) * size_t(w) * 4;
    JSAMPROW rows[1] = {row.data()};
    jpeg_read_scanlines(&d, rows, 1);
    for (int x = 0; x < w; ++x) {
      std::memcpy(dst + 4 * x, &row[size_t(x) * 3], 3);
      dst[4 * x + 3] = 255;
    }
  }
  if (warnings) *warnings = d.err->num_warnings;
  jpeg_finish_decompress(&d);
  jpeg_destroy_decompress(&d);
  const PixelView view{pixels.get(), w, h, ptrdiff_t(w) * 4, PixelFormat::RGBX};
  return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(pixels)), view);
}

TEST(JpegInterop, OurStreamsDecodeInLibjpeg) {
  const CGImageRef picture = drawSamplePicture(333, 250);
  for (double quality : {0.0, 0.5, 0.9, 1.0}) {
    const std::vector<uint8_t> stream = encodeJPEG(picture, quality);
    long warnings = -1;
    const CGImageRef theirs = libjpegDecode(stream, &warnings);
    ASSERT_TRUE(theirs) << quality;
    EXPECT_EQ(warnings, 0) << "a clean stream: " << quality;
    const CGImageRef ours = decodeJPEG(stream);
    EXPECT_GT(psnr(ours, theirs), 55.0) << quality;
    // And the pictures are equally good copies of the original.
    EXPECT_NEAR(psnr(ours, picture), psnr(theirs, picture), 0.05) << quality;
  }
}

TEST(JpegInterop, LibjpegStreamsDecodeInOurs) {
  const CGImageRef picture = drawSamplePicture(301, 203);
  struct Case {
    const char* name;
    Options options;
  };
  const Case cases[] = {
      {"4:4:4", {.h = 1, .v = 1}},
      {"4:2:2", {.h = 2, .v = 1}},
      {"4:2:0", {.h = 2, .v = 2}},
      {"4:4:0", {.h = 1, .v = 2}},
      {"grey", {.h = 1, .v = 1, .gray = true}},
      {"4:2:0, restarts", {.restartInterval = 3}},
      {"4:4:4, restarts, optimised tables", {.h = 1, .v = 1, .restartInterval = 7, .optimizeCoding = true}},
      {"grey 2x2, restarts", {.h = 2, .v = 2, .gray = true, .restartInterval = 5}},
      {"a scan per component", {.h = 2, .v = 1, .restartInterval = 4, .oneScanPerComponent = true}},
      {"quality 100", {.quality = 100}},
      {"quality 5", {.quality = 5, .optimizeCoding = true}},
  };
  for (const Case& c : cases) {
    const std::vector<uint8_t> stream = libjpegEncode(picture, c.options);
    ASSERT_FALSE(stream.empty()) << c.name;
    const CGImageRef theirs = libjpegDecode(stream);
    const CGImageRef ours = decodeJPEG(stream);
    ASSERT_TRUE(ours && ours->width() == 301 && ours->height() == 203) << c.name;
    EXPECT_GT(psnr(ours, theirs), 55.0) << c.name;
  }
}

TEST(JpegInterop, DamageEndsAtTheNextRestartMarker) {
  // A restart marker after every MCU row of 16 pixels.
  const CGImageRef picture = drawSamplePicture(160, 160);
  const std::vector<uint8_t> stream = libjpegEncode(picture, {.restartInterval = 10});
  std::vector<size_t> markers;
  for (size_t i = 0; i + 1 < stream.size(); ++i)
    if (stream[i] == 0xFF && stream[i + 1] >= 0xD0 && stream[i + 1] <= 0xD7) markers.push_back(i);
  ASSERT_EQ(markers.size(), 9u);
  const CGImageRef clean = decodeJPEG(stream);
  for (size_t row : {size_t(3), size_t(6)}) {
    // Damage just after the marker that starts MCU row `row`.
    std::vector<uint8_t> damaged = stream;
    std::fill_n(damaged.begin() + ptrdiff_t(markers[row - 1] + 4), 3, 7);
    const CGImageRef broken = decodeJPEG(damaged);
    ASSERT_TRUE(broken);
    const int y = int(row) * 16;
    EXPECT_TRUE(sameRows(broken, clean, 0, y)) << row;
    EXPECT_FALSE(sameRows(broken, clean, y, y + 16)) << row;
    EXPECT_TRUE(sameRows(broken, clean, y + 16, 160)) << row;
  }
}

// Our reader of picture files, on a stream in memory.
UIImage readFromMemory(const std::vector<uint8_t>& bytes, std::string& error) {
  FILE* stream = fmemopen(const_cast<uint8_t*>(bytes.data()), bytes.size(), "rb");
  UIImage image = native::readImage(stream, error);
  std::fclose(stream);
  return image;
}

TEST(JpegInterop, AProgressiveStreamOfEndlessScansIsRefusedBeforeItDecodes) {
  Options o;
  o.progressive = true;
  const std::vector<uint8_t> stream = libjpegEncode(drawSamplePicture(64, 48), o);
  std::string error;
  ASSERT_TRUE(readFromMemory(stream, error)) << error;
  // The last scan again and again: each is a pass over the picture that the decoder takes, with a
  // warning, as more detail.
  size_t lastScan = 0;
  for (size_t i = 0; i + 1 < stream.size(); ++i)
    if (stream[i] == 0xFF && stream[i + 1] == 0xDA) lastScan = i;
  const std::vector<uint8_t> scan(stream.begin() + std::ptrdiff_t(lastScan), stream.end() - 2);
  std::vector<uint8_t> endless(stream.begin(), stream.end() - 2);
  for (int i = 0; i < 600; ++i) endless.insert(endless.end(), scan.begin(), scan.end());
  endless.insert(endless.end(), {0xFF, 0xD9});
  EXPECT_FALSE(readFromMemory(endless, error));
  EXPECT_NE(error.find("more than 500 scans"), std::string::npos) << error;
  // A few repeats are read, as the decoder reads them.
  std::vector<uint8_t> few(stream.begin(), stream.end() - 2);
  for (int i = 0; i < 3; ++i) few.insert(few.end(), scan.begin(), scan.end());
  few.insert(few.end(), {0xFF, 0xD9});
  EXPECT_TRUE(readFromMemory(few, error)) << error;
}

}  // namespace
}  // namespace zorvex
