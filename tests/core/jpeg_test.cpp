// The JPEG codec, the byte replacement and the two effects that damage JPEG streams.
#include <gtest/gtest.h>

#include "core/imaging/jpeg.h"
#include "core/imaging/jpeg_internal.h"
#include "core/imaging/mutable_data.h"
#include "core/kernels/kernels.h"
#include "core/render/sample_picture.h"
#include "core/stack/filters.h"
#include "tests/core/test_pictures.h"

namespace zorvex {
namespace {

using testing::psnr;
using testing::sameRGB;
using testing::sameRows;
using testing::TestPlatform;

// The picture drawn into a context of another layout.
CGImageRef redrawn(const CGImageRef& image, uint32_t bitmapInfo) {
  CGContextRef c = CGBitmapContextCreate(nullptr, CGImageGetWidth(image), CGImageGetHeight(image), 8, 0,
                                         CGColorSpaceCreateDeviceRGB(), bitmapInfo);
  CGContextDrawImage(c, CGRectMake(0, 0, double(image->width()), double(image->height())), image);
  return CGBitmapContextCreateImage(c);
}

// The offset of the first marker 0xFF `code` in one of our streams.
size_t markerAt(const std::vector<uint8_t>& s, uint8_t code) {
  size_t i = 0;
  while (!(s[i] == 0xFF && s[i + 1] == code)) ++i;
  return i;
}

TEST(JpegTransform, FastTransformsMatchTheTextbookDCT) {
  using namespace jpeg;
  double px[8][8], F[8][8];
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) px[y][x] = double((x * 37 + y * 91 + x * y * 13) % 256) - 128.0;
  const double pi = 3.14159265358979323846;
  for (int v = 0; v < 8; ++v)
    for (int u = 0; u < 8; ++u) {
      double s = 0;
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) s += px[y][x] * std::cos((2 * x + 1) * u * pi / 16) * std::cos((2 * y + 1) * v * pi / 16);
      F[v][u] = 0.25 * (u ? 1.0 : std::sqrt(0.5)) * (v ? 1.0 : std::sqrt(0.5)) * s;
    }
  f32x8 r[8], c[8];
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) r[y][x] = float(px[y][x]);
  forwardDCT(r);
  for (int u = 0; u < 8; ++u)
    for (int v = 0; v < 8; ++v) {
      EXPECT_NEAR(r[u][v] / (aanScale(u) * aanScale(v) * 8), F[v][u], 1e-3) << u << "," << v;
      c[u][v] = float(F[v][u] * aanScale(u) * aanScale(v) / 8);
    }
  inverseDCT(c);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) EXPECT_NEAR(c[y][x], px[y][x], 1e-3);
}

TEST(JpegCodec, RoundTripsAtSeveralQualities) {
  // An odd size, so that the MCUs at the right and bottom edges are partly padding.
  const CGImageRef picture = drawSamplePicture(203, 149);
  // PSNR of the decoded picture against the original: what this picture measured (17.2, 21.7, 23.0,
  // 24.1, 25.7 dB) less about 1 dB. At this small size the picture is nearly all hard colour edges,
  // and halving the chroma resolution across them caps even quality 1.0 well below lossless.
  const std::pair<double, double> cases[] = {{0.0, 16.0}, {0.25, 20.5}, {0.5, 22.0}, {0.75, 23.0}, {1.0, 24.5}};
  size_t lastSize = 0;
  for (const auto& [quality, minPSNR] : cases) {
    const std::vector<uint8_t> stream = encodeJPEG(picture, quality);
    EXPECT_GT(stream.size(), lastSize) << "a better quality makes a longer stream";
    lastSize = stream.size();
    const CGImageRef decoded = decodeJPEG(stream);
    ASSERT_TRUE(decoded && decoded->width() == 203 && decoded->height() == 149);
    EXPECT_EQ(decoded->format(), PixelFormat::RGBX);
    EXPECT_GT(psnr(picture, decoded), minPSNR) << "quality " << quality;
  }
}

TEST(JpegCodec, QualityScalesTheStandardTablesAsLibjpegDoes) {
  const CGImageRef picture = drawSamplePicture(16, 16);
  auto dqt = [&](double q) {
    const std::vector<uint8_t> s = encodeJPEG(picture, q);
    const ptrdiff_t at = ptrdiff_t(markerAt(s, 0xDB)) + 5;
    return std::vector<uint8_t>(s.begin() + at, s.begin() + at + 64);
  };
  // Quality 50 is the standard's luminance table itself (here in zigzag order).
  const std::vector<uint8_t> q50 = dqt(0.5);
  for (int k = 0; k < 64; ++k) EXPECT_EQ(q50[size_t(k)], jpeg::kLuminanceQuant[jpeg::kZigzag[size_t(k)]]);
  EXPECT_EQ(dqt(1.0), std::vector<uint8_t>(64, 1));
  // 0.0 is libjpeg quality 1, not 0: entries are 50 times the standard's, capped at 255.
  EXPECT_EQ(dqt(0.0), dqt(0.004));
  EXPECT_EQ(dqt(0.0)[0], 255);
  EXPECT_NE(dqt(0.0), dqt(0.02));
  EXPECT_EQ(dqt(0.75)[0], 8);  // (16 * 50 + 50) / 100
}

TEST(JpegCodec, ReadsEveryLayoutAndCropsAtTheirOffsets) {
  const CGImageRef picture = drawSamplePicture(40, 24);
  const std::vector<uint8_t> reference = encodeJPEG(picture, 0.8);
  EXPECT_EQ(encodeJPEG(redrawn(picture, kCGImageAlphaPremultipliedLast), 0.8), reference);
  EXPECT_EQ(encodeJPEG(redrawn(picture, kCGImageAlphaPremultipliedFirst), 0.8), reference);

  // A crop is a view with the stride of its parent.
  const CGImageRef crop = CGImageCreateWithImageInRect(drawSamplePicture(80, 60), CGRectMake(13, 7, 40, 24));
  EXPECT_EQ(encodeJPEG(crop, 0.8), encodeJPEG(redrawn(crop, kCGImageAlphaNoneSkipLast), 0.8));

  // A grey picture is coded as grey RGB: no colour comes back.
  CGContextRef gray = CGBitmapContextCreate(nullptr, 24, 24, 8, 0, CGColorSpaceCreateDeviceGray(), kCGImageAlphaNone);
  for (int y = 0; y < 24; ++y)
    for (int x = 0; x < 24; ++x) gray->pixels().at(x, y)[0] = uint8_t(x * 10);
  const CGImageRef decoded = decodeJPEG(encodeJPEG(CGBitmapContextCreateImage(gray), 1.0));
  ASSERT_TRUE(decoded);
  for (int x = 0; x < 24; ++x) {
    const uint8_t* p = decoded->pixels().at(x, 12);
    EXPECT_NEAR(p[0], x * 10, 2);
    EXPECT_TRUE(std::abs(p[1] - p[0]) <= 1 && std::abs(p[2] - p[0]) <= 1) << x;
  }
  EXPECT_TRUE(UIImageJPEGRepresentation(UIImage{}, 0.5).empty());
}

// FNV-1a of a byte range.
uint64_t fingerprint(const uint8_t* p, size_t n, uint64_t h = 14695981039346656037ull) {
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

TEST(JpegCodec, GivesTheSameBytesInEveryBuild) {
  // The arithmetic is IEEE single precision without contraction and integer otherwise, so native and
  // WebAssembly builds (which vectorise differently) agree to the bit. When a change of the codec is
  // intended, print the new values and put them here.
  // A picture of integer arithmetic alone, so that changes of the drawing engine don't touch it.
  CGContextRef c = testing::blankSurface(77, 51);
  for (int y = 0; y < 51; ++y)
    for (int x = 0; x < 77; ++x)
      writePixel(c, x, y, {uint8_t(x * 3 + y), uint8_t((x * y) / 8 + ((x / 9 + y / 7) % 2) * 90), uint8_t(255 - y * 5)});
  const std::vector<uint8_t> stream = encodeJPEG(CGBitmapContextCreateImage(c), 0.6);
  const CGImageRef decoded = decodeJPEG(stream);
  ASSERT_TRUE(decoded);
  uint64_t pixels = fingerprint(nullptr, 0);
  for (int y = 0; y < decoded->height(); ++y) pixels = fingerprint(decoded->pixels().row(y), 77 * 4, pixels);
  EXPECT_EQ(stream.size(), 2039u);
  EXPECT_EQ(fingerprint(stream.data(), stream.size()), 3065849980807700339ull);
  EXPECT_EQ(pixels, 7099585823181028214ull);
}

TEST(JpegDamage, PicturesAboveTheFirstDamagedBlockStayIntact) {
  // 10 x 10 MCUs of 16 x 16 pixels.
  const CGImageRef picture = drawSamplePicture(160, 160);
  const std::vector<uint8_t> full = encodeJPEG(picture, 0.75);
  const CGImageRef clean = decodeJPEG(full);
  ASSERT_TRUE(clean);
  for (int rows : {1, 4, 9}) {
    // The stream of the top MCU rows alone codes exactly the same bits for them, so that every byte
    // from its padded last byte on belongs, in the full stream, to the MCU rows below.
    const std::vector<uint8_t> top =
        encodeJPEG(CGImageCreateWithImageInRect(picture, CGRectMake(0, 0, 160, 16.0 * rows)), 0.75);
    const size_t firstOfRest = top.size() - 2;
    for (size_t offset : {size_t(0), size_t(37)}) {
      std::vector<uint8_t> damaged = full;
      ASSERT_LT(firstOfRest + offset + 4, damaged.size() - 2);
      std::fill_n(damaged.begin() + ptrdiff_t(firstOfRest + offset), 4, 7);
      const CGImageRef broken = decodeJPEG(damaged);
      ASSERT_TRUE(broken) << "damage never costs the picture";
      EXPECT_TRUE(sameRows(broken, clean, 0, 16 * rows)) << rows << " rows, offset " << offset;
      EXPECT_FALSE(sameRows(broken, clean, 16 * rows, 160)) << rows << " rows, offset " << offset;

      // Cut there instead: the same rows survive, and what the data no longer reaches is grey.
      const CGImageRef truncated = decodeJPEG(std::vector<uint8_t>(full.begin(), full.begin() + ptrdiff_t(firstOfRest + offset)));
      ASSERT_TRUE(truncated);
      EXPECT_EQ(truncated->height(), 160);
      EXPECT_TRUE(sameRows(truncated, clean, 0, 16 * rows));
      for (int c = 0; c < 3; ++c) EXPECT_EQ(truncated->pixels().at(159, 159)[c], 128);
    }
  }
}

TEST(JpegDamage, AnyOverwrittenByteStillGivesThePicture) {
  const std::vector<uint8_t> stream = encodeJPEG(drawSamplePicture(48, 40), 0.3);
  const size_t sos = markerAt(stream, 0xDA), scan = sos + 2 + (size_t(stream[sos + 2]) << 8 | stream[sos + 3]);
  ASSERT_GT(scan, 600u);
  // Every byte from the scan header on, overwritten with what glitches and damage write: the
  // decoder neither fails nor leaves the frame's size.
  for (size_t i = scan - 14; i < stream.size(); ++i)
    for (uint8_t value : {uint8_t(0x00), uint8_t(0x07), uint8_t(0xFF), uint8_t(0xD9), uint8_t(0xD3)}) {
      std::vector<uint8_t> damaged = stream;
      damaged[i] = value;
      const CGImageRef decoded = decodeJPEG(damaged);
      ASSERT_TRUE(decoded) << "byte " << i << " = " << int(value);
      EXPECT_TRUE(decoded->width() == 48 && decoded->height() == 40) << "byte " << i << " = " << int(value);
    }
  // Scan data of nothing but codes no table holds.
  std::vector<uint8_t> garbage(stream.begin(), stream.begin() + ptrdiff_t(scan));
  garbage.insert(garbage.end(), 5000, 0xFE);
  EXPECT_TRUE(decodeJPEG(garbage));
  // The scan header's selectors hit: unknown component ids and table ids fall back.
  std::vector<uint8_t> selectors = stream;
  std::fill(selectors.begin() + ptrdiff_t(scan - 10), selectors.begin() + ptrdiff_t(scan), 7);
  EXPECT_TRUE(decodeJPEG(selectors));
  // Bytes past the end, and the end marker overwritten with the stream grown by 7s (as a glitch across
  // the end does it), change nothing: all the MCUs were read before.
  std::vector<uint8_t> trailing = stream, grown(stream.begin(), stream.end() - 1);
  trailing.insert(trailing.end(), {7, 7, 7, 0xFF, 0xD8, 0xFF, 0xC0, 0, 0});
  grown.insert(grown.end(), 20, 7);
  EXPECT_TRUE(sameRGB(decodeJPEG(trailing), decodeJPEG(stream)));
  EXPECT_TRUE(sameRGB(decodeJPEG(grown), decodeJPEG(stream)));
}

TEST(JpegDamage, NoPictureOnlyWithoutAUsableFrame) {
  const std::vector<uint8_t> stream = encodeJPEG(drawSamplePicture(32, 32), 0.5);
  EXPECT_FALSE(decodeJPEG({}));
  EXPECT_FALSE(decodeJPEG(std::vector<uint8_t>{0xFF, 0xD8, 0xFF, 0xD9}));
  EXPECT_FALSE(decodeJPEG(std::vector<uint8_t>(1000, 0x07)));
  EXPECT_FALSE(UIImageWithData(std::vector<uint8_t>(stream.begin(), stream.begin() + 150)));  // cut before the frame header

  // Headers up to the frame, and no scan: the frame in middle grey.
  const size_t sof = markerAt(stream, 0xC0);
  const CGImageRef grey = decodeJPEG(std::vector<uint8_t>(stream.begin(), stream.begin() + ptrdiff_t(sof) + 19));
  ASSERT_TRUE(grey);
  EXPECT_EQ(grey->pixels().at(5, 5)[0], 128);

  auto withFrame = [&](int width, int height, uint8_t marker = 0xC0, uint8_t precision = 8) {
    std::vector<uint8_t> s = stream;
    s[sof + 1] = marker;
    s[sof + 4] = precision;
    s[sof + 5] = uint8_t(height >> 8);
    s[sof + 6] = uint8_t(height);
    s[sof + 7] = uint8_t(width >> 8);
    s[sof + 8] = uint8_t(width);
    return decodeJPEG(s);
  };
  EXPECT_TRUE(withFrame(32, 32, 0xC1)) << "extended sequential Huffman is baseline enough";
  EXPECT_FALSE(withFrame(0, 32));
  EXPECT_FALSE(withFrame(32, 0));
  EXPECT_FALSE(withFrame(32, 32, 0xC0, 12));
  EXPECT_FALSE(withFrame(32, 32, 0xC2)) << "progressive";
  EXPECT_FALSE(withFrame(40000, 8)) << "a side over 32768";
  EXPECT_FALSE(withFrame(20000, 20000)) << "400 megapixels";
  const CGImageRef big = withFrame(3000, 2000);  // 6 megapixels of a 32 x 32 scan
  ASSERT_TRUE(big);
  EXPECT_EQ(big->width(), 3000);
  EXPECT_FALSE(decodeJPEG(std::vector<uint8_t>(stream), JPEGLimits{1000, 32768})) << "limits are the caller's";
}

TEST(MutableData, ReplacesGrowsAndRefusesLikeTheFoundationClass) {
  const uint8_t sevens[4] = {7, 7, 7, 7};
  NSMutableData data(std::vector<uint8_t>{1, 2, 3, 4, 5});
  auto bytes = [&] { return std::vector<uint8_t>(data.bytes().begin(), data.bytes().end()); };
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(1, 2), sevens));
  EXPECT_EQ(bytes(), (std::vector<uint8_t>{1, 7, 7, 4, 5}));
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(3, 4), sevens));  // across the end: the buffer grows
  EXPECT_EQ(bytes(), (std::vector<uint8_t>{1, 7, 7, 7, 7, 7, 7}));
  // At the end is inside; an empty range changes nothing.
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(7, 0), nullptr));
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(7, 1), sevens));
  // Past the end: refused, nothing changes.
  EXPECT_FALSE(data.replaceBytesInRange(NSMakeRange(9, 0), sevens));
  EXPECT_FALSE(data.replaceBytesInRange(NSMakeRange(100, 2), sevens));
  EXPECT_FALSE(data.replaceBytesInRange(NSMakeRange(2, uint64_t(int64_t(-1))), sevens));
  EXPECT_EQ(data.length(), 8u);
  NSMutableData empty;
  EXPECT_FALSE(empty.replaceBytesInRange(NSMakeRange(1, 1), sevens));
  EXPECT_TRUE(empty.replaceBytesInRange(NSMakeRange(0, 0), sevens));
}

// The sample picture on a surface of the given size, with a fresh layer.
testing::Scene sampleScene(int w, int h) {
  auto s = testing::blankSurface(w, h);
  CGContextDrawImage(s, CGRectMake(0, 0, w, h), drawSamplePicture(w, h));
  return testing::Scene(s);
}

TEST(SigStop, WithoutGlitchesOrOnlyAtTheVeryEndIsACleanReencode) {
  // Controls: glitch size (x 20 bytes), glitch count (x 10), quality.
  const struct {
    std::vector<double> controls;
    std::deque<uint32_t> randoms;
    int draws;
  } cases[] = {
      {{0.9, 0.05, 0.4}, {}, 0},  // no glitch
      {{0.04, 0.99, 0.4}, {}, 9},  // 9 glitches of no bytes, one position drawn for each
      // The largest draw rounds to 1.0 in single precision: the position is the length itself, and
      // the 19 bytes there grow the stream behind its end marker.
      {{0.999, 0.1, 0.5}, {0xFFFFFFFFu}, 1},
  };
  for (const auto& c : cases) {
    TestPlatform platform(c.randoms);
    testing::Scene s = sampleScene(96, 64);
    const CGImageRef before = s.now();
    ControlValues controls(kControlCount, 0.0);
    std::copy(c.controls.begin(), c.controls.end(), controls.begin());
    // Through the dispatcher, which hands the kernel its controls as floats.
    Filters::applyEffect(Effect{"SIGSTOP", true, std::nullopt}, s.surface, s.layer, controls);
    EXPECT_TRUE(sameRGB(s.now(), decodeJPEG(encodeJPEG(before, double(float(c.controls[2]))))));
    EXPECT_EQ(platform.draws, c.draws);
    EXPECT_TRUE(platform.lines.empty());
  }
}

TEST(SigStop, OverwritesTheDrawnPlacesWithSevens) {
  testing::Scene s = sampleScene(160, 120);
  const std::vector<uint8_t> stream = encodeJPEG(s.now(), 0.6);
  // Two glitches of 8 bytes (0.4 * 20), at 600 + (length - 600) * r with r = 0.25 and 0.75.
  std::vector<uint8_t> expected = stream;
  for (double r : {0.25, 0.75}) {
    const float position = 600.0f + (float(stream.size()) - 600.0f) * float(r);
    std::fill_n(expected.begin() + ptrdiff_t(position), 8, 7);
  }
  TestPlatform platform({0x40000000u, 0xC0000000u});
  KCGContextProcessing::sigStop(s.surface, s.layer, ControlFloats(std::vector<float>{0.4f, 0.2f, 0.6f}));
  const CGImageRef damaged = decodeJPEG(expected);
  EXPECT_TRUE(sameRGB(s.now(), damaged));
  EXPECT_FALSE(sameRGB(damaged, decodeJPEG(stream)));
  EXPECT_TRUE(platform.lines.empty());
}

TEST(Kernel2600, ShowsHardSquarePixelsOfTheReducedPicture) {
  // With the positions all at the end the stream is only lengthened; with the others it is damaged.
  for (uint32_t r : {0xFFFFFFFFu, 0x20000000u}) {
    TestPlatform platform({r, r, r, r, r});
    testing::Scene s = sampleScene(480, 320);
    const CGImageRef before = s.now();
    // 0.5 * 240 / 480: a quarter of the size, so each pixel of the small picture covers 4 x 4.
    KCGContextProcessing::_2600(s.surface, s.layer, ControlFloats(std::vector<float>{0.5f}));
    EXPECT_EQ(platform.draws, 5);
    EXPECT_TRUE(platform.lines.empty()) << "a 120 x 80 stream is longer than 600 bytes";
    const CGImageRef after = s.now();
    for (int y = 0; y < 320; ++y)
      for (int x = 0; x < 480; ++x)
        ASSERT_EQ(testing::pixelOf(after, x, y), testing::pixelOf(after, x & ~3, y & ~3)) << x << "," << y;
    if (r == 0xFFFFFFFFu) {
      EXPECT_GT(psnr(after, before), 14.0) << "the picture, coarse";
    }
  }
}

TEST(Kernel2600, APictureTooSmallToExistLeavesTheLayerAsItStood) {
  TestPlatform platform({0, 0, 0, 0, 0});
  testing::Scene s = sampleScene(100, 80);
  const CGImageRef before = s.now();
  // Paint the layer, which the kernel then draws over the surface unchanged.
  CGContextSetRGBFillColor(s.layerContext(), 1, 0, 0, 1);
  CGContextFillRect(s.layerContext(), CGRectMake(0, 0, 50, 80));
  KCGContextProcessing::_2600(s.surface, s.layer, ControlFloats(std::vector<float>{0.001f}));  // 0.24 pixels wide
  // The empty stream is shorter than 600 bytes: every one of the 5 glitches lands past its end.
  ASSERT_EQ(platform.lines.size(), 10u);
  for (size_t i = 0; i < 10; i += 2) {
    EXPECT_EQ(platform.lines[i], "ERROR!)");
    EXPECT_EQ(platform.lines[i + 1], "There was an error corrupting data");
  }
  EXPECT_EQ(s.at(10, 10), (KColor{255, 0, 0}));
  EXPECT_EQ(s.at(70, 10), testing::pixelOf(before, 70, 10));
}

}  // namespace
}  // namespace zorvex
