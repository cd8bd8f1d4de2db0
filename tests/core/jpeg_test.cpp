// The JPEG codec, the byte replacement and the two effects that damage JPEG streams.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <string>

#include "core/imaging/jpeg.h"
#include "core/imaging/jpeg_internal.h"
#include "core/imaging/mutable_data.h"
#include "core/imaging/platform.h"
#include "core/kernels/kernels.h"
#include "core/render/sample_picture.h"
#include "core/stack/filters.h"

namespace zorvex {
namespace {

// PSNR of the RGB of two pictures of the same size, in dB (99 for identical pictures).
double psnr(const CGImageRef& a, const CGImageRef& b) {
  const PixelView &pa = a->pixels(), &pb = b->pixels();
  double sum = 0;
  for (int y = 0; y < pa.height; ++y)
    for (int x = 0; x < pa.width; ++x)
      for (int c = 0; c < 3; ++c) {
        const double d = double(pa.at(x, y)[c]) - double(pb.at(x, y)[c]);
        sum += d * d;
      }
  if (sum == 0) return 99.0;
  return 10.0 * std::log10(255.0 * 255.0 / (sum / (3.0 * pa.width * pa.height)));
}

// True when rows [y0, y1) of two pictures have the same RGB.
bool sameRows(const CGImageRef& a, const CGImageRef& b, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < a->width(); ++x)
      if (std::memcmp(a->pixels().at(x, y), b->pixels().at(x, y), 3) != 0) return false;
  return true;
}

bool sameRGB(const CGImageRef& a, const CGImageRef& b) {
  return a && b && a->width() == b->width() && a->height() == b->height() && sameRows(a, b, 0, a->height());
}

// The picture drawn into a context of another layout.
CGImageRef redrawn(const CGImageRef& image, uint32_t bitmapInfo) {
  CGContextRef c = CGBitmapContextCreate(nullptr, CGImageGetWidth(image), CGImageGetHeight(image), 8, 0,
                                         CGColorSpaceCreateDeviceRGB(), bitmapInfo);
  CGContextDrawImage(c, CGRectMake(0, 0, double(image->width()), double(image->height())), image);
  return CGBitmapContextCreateImage(c);
}

// The offset just past the scan header of one of our streams.
size_t entropyStart(const std::vector<uint8_t>& s) {
  for (size_t i = 0; i + 1 < s.size(); ++i)
    if (s[i] == 0xFF && s[i + 1] == 0xDA) return i + 2 + (size_t(s[i + 2]) << 8 | s[i + 3]);
  return 0;
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
  f32x8 r[8];
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) r[y][x] = float(px[y][x]);
  forwardDCT(r);
  for (int u = 0; u < 8; ++u)
    for (int v = 0; v < 8; ++v) EXPECT_NEAR(r[u][v] / (aanScale(u) * aanScale(v) * 8), F[v][u], 1e-3) << u << "," << v;
  f32x8 c[8];
  for (int u = 0; u < 8; ++u)
    for (int v = 0; v < 8; ++v) c[u][v] = float(F[v][u] * aanScale(u) * aanScale(v) / 8);
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
  const struct {
    double quality, minPSNR;
  } cases[] = {{0.0, 16.0}, {0.25, 20.5}, {0.5, 22.0}, {0.75, 23.0}, {1.0, 24.5}};
  size_t lastSize = 0;
  for (const auto& c : cases) {
    const std::vector<uint8_t> stream = encodeJPEG(picture, c.quality);
    ASSERT_GT(stream.size(), 620u);
    EXPECT_EQ(stream[0], 0xFF);
    EXPECT_EQ(stream[1], 0xD8);
    EXPECT_EQ(std::string(stream.begin() + 6, stream.begin() + 10), "JFIF");
    EXPECT_EQ(stream[stream.size() - 2], 0xFF);
    EXPECT_EQ(stream.back(), 0xD9);
    EXPECT_GT(stream.size(), lastSize) << "a better quality makes a longer stream";
    lastSize = stream.size();
    const CGImageRef decoded = decodeJPEG(stream);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->width(), 203);
    EXPECT_EQ(decoded->height(), 149);
    EXPECT_EQ(decoded->format(), PixelFormat::RGBX);
    EXPECT_GT(psnr(picture, decoded), c.minPSNR) << "quality " << c.quality;
  }
}

TEST(JpegCodec, QualityScalesTheStandardTablesAsLibjpegDoes) {
  const CGImageRef picture = drawSamplePicture(16, 16);
  auto dqt = [&](double q) {
    const std::vector<uint8_t> s = encodeJPEG(picture, q);
    for (size_t i = 0; i + 1 < s.size(); ++i)
      if (s[i] == 0xFF && s[i + 1] == 0xDB) return std::vector<uint8_t>(s.begin() + ptrdiff_t(i) + 5, s.begin() + ptrdiff_t(i) + 69);
    return std::vector<uint8_t>{};
  };
  // Quality 50 is the standard's luminance table itself (here in zigzag order).
  const std::vector<uint8_t> q50 = dqt(0.5);
  ASSERT_EQ(q50.size(), 64u);
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
  const CGImageRef wide = drawSamplePicture(80, 60);
  const CGImageRef crop = CGImageCreateWithImageInRect(wide, CGRectMake(13, 7, 40, 24));
  const CGImageRef copy = redrawn(crop, kCGImageAlphaNoneSkipLast);
  EXPECT_EQ(encodeJPEG(crop, 0.8), encodeJPEG(copy, 0.8));

  // A grey picture is coded as grey RGB: no colour comes back.
  CGContextRef gray = CGBitmapContextCreate(nullptr, 24, 24, 8, 0, CGColorSpaceCreateDeviceGray(), kCGImageAlphaNone);
  for (int y = 0; y < 24; ++y)
    for (int x = 0; x < 24; ++x) gray->pixels().at(x, y)[0] = uint8_t(x * 10);
  const CGImageRef decoded = decodeJPEG(encodeJPEG(CGBitmapContextCreateImage(gray), 1.0));
  ASSERT_TRUE(decoded);
  for (int x = 0; x < 24; ++x) {
    const uint8_t* p = decoded->pixels().at(x, 12);
    EXPECT_NEAR(p[0], x * 10, 2);
    EXPECT_NEAR(p[1], p[0], 1);
    EXPECT_NEAR(p[2], p[0], 1);
  }

  EXPECT_TRUE(encodeJPEG(nullptr, 0.5).empty());
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
  CGContextRef c = CGBitmapContextCreate(nullptr, 77, 51, 8, 0, CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
  for (int y = 0; y < 51; ++y)
    for (int x = 0; x < 77; ++x) {
      uint8_t* p = c->pixels().at(x, y);
      p[0] = uint8_t(x * 3 + y);
      p[1] = uint8_t((x * y) / 8 + ((x / 9 + y / 7) % 2) * 90);
      p[2] = uint8_t(255 - y * 5);
    }
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
      const std::vector<uint8_t> cut(full.begin(), full.begin() + ptrdiff_t(firstOfRest + offset));
      const CGImageRef truncated = decodeJPEG(cut);
      ASSERT_TRUE(truncated);
      EXPECT_EQ(truncated->height(), 160);
      EXPECT_TRUE(sameRows(truncated, clean, 0, 16 * rows));
      for (int c = 0; c < 3; ++c) EXPECT_EQ(truncated->pixels().at(159, 159)[c], 128);
    }
  }
}

TEST(JpegDamage, BytesPastTheEndAndALengthenedStreamAreHarmless) {
  const CGImageRef picture = drawSamplePicture(64, 48);
  const std::vector<uint8_t> stream = encodeJPEG(picture, 0.5);
  const CGImageRef clean = decodeJPEG(stream);

  std::vector<uint8_t> trailing = stream;
  trailing.insert(trailing.end(), {7, 7, 7, 0xFF, 0xD8, 0xFF, 0xC0, 0, 0});
  EXPECT_TRUE(sameRGB(decodeJPEG(trailing), clean));

  // The end marker overwritten and the stream grown by 7s, as a glitch across the end does it: the
  // data now runs on into the 7s, after all the MCUs were read.
  std::vector<uint8_t> grown(stream.begin(), stream.end() - 1);
  grown.insert(grown.end(), 20, 7);
  EXPECT_TRUE(sameRGB(decodeJPEG(grown), clean));
}

TEST(JpegDamage, AnyOverwrittenByteStillGivesThePicture) {
  const CGImageRef picture = drawSamplePicture(48, 40);
  const std::vector<uint8_t> stream = encodeJPEG(picture, 0.3);
  const size_t scan = entropyStart(stream);
  ASSERT_GT(scan, 600u);
  // Every byte from the scan header on, overwritten with what glitches and damage write: the
  // decoder neither fails nor leaves the frame's size.
  for (size_t i = scan - 14; i < stream.size(); ++i)
    for (uint8_t value : {uint8_t(0x00), uint8_t(0x07), uint8_t(0xFF), uint8_t(0xD9), uint8_t(0xD3)}) {
      std::vector<uint8_t> damaged = stream;
      damaged[i] = value;
      const CGImageRef decoded = decodeJPEG(damaged);
      ASSERT_TRUE(decoded) << "byte " << i << " = " << int(value);
      EXPECT_EQ(decoded->width(), 48);
      EXPECT_EQ(decoded->height(), 40);
    }
  // Scan data of nothing but codes no table holds.
  std::vector<uint8_t> garbage(stream.begin(), stream.begin() + ptrdiff_t(scan));
  garbage.insert(garbage.end(), 5000, 0xFE);
  EXPECT_TRUE(decodeJPEG(garbage));
  // The scan header's selectors hit: unknown component ids and table ids fall back.
  std::vector<uint8_t> selectors = stream;
  std::fill(selectors.begin() + ptrdiff_t(scan - 10), selectors.begin() + ptrdiff_t(scan), 7);
  EXPECT_TRUE(decodeJPEG(selectors));
}

TEST(JpegDamage, NoPictureOnlyWithoutAUsableFrame) {
  const std::vector<uint8_t> stream = encodeJPEG(drawSamplePicture(32, 32), 0.5);
  EXPECT_FALSE(decodeJPEG({}));
  EXPECT_FALSE(decodeJPEG(std::vector<uint8_t>{0xFF, 0xD8, 0xFF, 0xD9}));
  EXPECT_FALSE(decodeJPEG(std::vector<uint8_t>(1000, 0x07)));
  EXPECT_FALSE(UIImageWithData(std::vector<uint8_t>(stream.begin(), stream.begin() + 150)));  // cut before the frame header

  // Headers up to the frame, and no scan: the frame in middle grey.
  size_t sof = 0;
  while (!(stream[sof] == 0xFF && stream[sof + 1] == 0xC0)) ++sof;
  const std::vector<uint8_t> frameOnly(stream.begin(), stream.begin() + ptrdiff_t(sof) + 19);
  const CGImageRef grey = decodeJPEG(frameOnly);
  ASSERT_TRUE(grey);
  EXPECT_EQ(grey->pixels().at(5, 5)[0], 128);

  auto withFrame = [&](int width, int height, uint8_t marker, uint8_t precision) {
    std::vector<uint8_t> s = stream;
    s[sof + 1] = marker;
    s[sof + 4] = precision;
    s[sof + 5] = uint8_t(height >> 8);
    s[sof + 6] = uint8_t(height);
    s[sof + 7] = uint8_t(width >> 8);
    s[sof + 8] = uint8_t(width);
    return decodeJPEG(s);
  };
  EXPECT_TRUE(withFrame(32, 32, 0xC1, 8)) << "extended sequential Huffman is baseline enough";
  EXPECT_FALSE(withFrame(0, 32, 0xC0, 8));
  EXPECT_FALSE(withFrame(32, 0, 0xC0, 8));
  EXPECT_FALSE(withFrame(32, 32, 0xC0, 12));
  EXPECT_FALSE(withFrame(32, 32, 0xC2, 8)) << "progressive";
  EXPECT_FALSE(withFrame(40000, 8, 0xC0, 8)) << "a side over 32768";
  EXPECT_FALSE(withFrame(20000, 20000, 0xC0, 8)) << "400 megapixels";
  const CGImageRef big = withFrame(3000, 2000, 0xC0, 8);  // 6 megapixels of a 32 x 32 scan
  ASSERT_TRUE(big);
  EXPECT_EQ(big->width(), 3000);
  EXPECT_FALSE(decodeJPEG(std::vector<uint8_t>(stream), JPEGLimits{1000, 32768})) << "limits are the caller's";
}

TEST(MutableData, ReplacesGrowsAndRefusesLikeTheFoundationClass) {
  const uint8_t sevens[4] = {7, 7, 7, 7};
  NSMutableData data(std::vector<uint8_t>{1, 2, 3, 4, 5});
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(1, 2), sevens));
  EXPECT_EQ(std::vector<uint8_t>(data.bytes().begin(), data.bytes().end()), (std::vector<uint8_t>{1, 7, 7, 4, 5}));
  // Across the end: the buffer grows.
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(3, 4), sevens));
  EXPECT_EQ(std::vector<uint8_t>(data.bytes().begin(), data.bytes().end()),
            (std::vector<uint8_t>{1, 7, 7, 7, 7, 7, 7}));
  // At the end is inside; an empty range changes nothing.
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(7, 0), nullptr));
  EXPECT_TRUE(data.replaceBytesInRange(NSMakeRange(7, 1), sevens));
  EXPECT_EQ(data.length(), 8u);
  // Past the end: refused, nothing changes.
  EXPECT_FALSE(data.replaceBytesInRange(NSMakeRange(9, 0), sevens));
  EXPECT_FALSE(data.replaceBytesInRange(NSMakeRange(100, 2), sevens));
  EXPECT_FALSE(data.replaceBytesInRange(NSMakeRange(2, uint64_t(int64_t(-1))), sevens));
  EXPECT_EQ(data.length(), 8u);
  NSMutableData empty;
  EXPECT_FALSE(empty.replaceBytesInRange(NSMakeRange(1, 1), sevens));
  EXPECT_TRUE(empty.replaceBytesInRange(NSMakeRange(0, 0), sevens));
}

// A platform whose random numbers come from a list (then 0) and whose console lines are kept.
class FixedPlatform final : public Platform {
 public:
  explicit FixedPlatform(std::deque<uint32_t> randoms = {}) : randoms_(std::move(randoms)) { setPlatform(this); }
  ~FixedPlatform() override { setPlatform(nullptr); }
  void consoleLine(std::string_view line) override { lines.emplace_back(line); }
  uint32_t random32() override {
    ++draws;
    if (randoms_.empty()) return 0;
    const uint32_t r = randoms_.front();
    randoms_.pop_front();
    return r;
  }
  double now() override { return 0; }
  std::vector<std::string> lines;
  int draws = 0;

 private:
  std::deque<uint32_t> randoms_;
};

struct Surface {
  CGContextRef context;
  CGLayerRef layer;
  CGImageRef before;
  Surface(int w, int h) {
    context = CGBitmapContextCreate(nullptr, size_t(w), size_t(h), 8, size_t(4 * w), CGColorSpaceCreateDeviceRGB(),
                                    kCGImageAlphaNoneSkipLast);
    CGContextDrawImage(context, CGRectMake(0, 0, w, h), drawSamplePicture(w, h));
    layer = CGLayerCreateWithContext(context, CGSizeMake(w, h), nullptr);
    before = CGBitmapContextCreateImage(context);
  }
  CGImageRef now() const { return CGBitmapContextCreateImage(context); }
};

std::vector<float> controlsWith(std::initializer_list<float> first) {
  std::vector<float> c(kControlCount, 0.5f);
  std::copy(first.begin(), first.end(), c.begin());
  return c;
}

TEST(SigStop, WithoutGlitchesIsACleanReencode) {
  const float quality = 0.4f;
  for (const auto& controls : {controlsWith({0.9f, 0.05f, quality}),     // glitchCount 0
                               controlsWith({0.04f, 0.99f, quality})}) {  // glitchSize 0, 9 glitches
    FixedPlatform platform({123456789u, 4000000000u, 77u});
    Surface s(96, 64);
    KCGContextProcessing::sigStop(s.context, s.layer, ControlFloats(controls));
    EXPECT_TRUE(sameRGB(s.now(), decodeJPEG(encodeJPEG(s.before, double(quality)))));
    EXPECT_EQ(platform.draws, controls[1] < 0.1f ? 0 : 9) << "one position drawn per glitch, if any";
    EXPECT_TRUE(platform.lines.empty());
  }
}

TEST(SigStop, OverwritesTheDrawnPlacesWithSevens) {
  Surface s(160, 120);
  const std::vector<uint8_t> stream = encodeJPEG(s.before, 0.6);
  // Two glitches of 8 bytes (0.4 * 20), at 600 + (length - 600) * r with r = 0.25 and 0.75.
  std::vector<uint8_t> expected = stream;
  for (double r : {0.25, 0.75}) {
    const float position = 600.0f + (float(stream.size()) - 600.0f) * float(r);
    std::fill_n(expected.begin() + ptrdiff_t(position), 8, 7);
  }
  FixedPlatform platform({0x40000000u, 0xC0000000u});
  KCGContextProcessing::sigStop(s.context, s.layer, ControlFloats(controlsWith({0.4f, 0.2f, 0.6f})));
  const CGImageRef damaged = decodeJPEG(expected);
  EXPECT_TRUE(sameRGB(s.now(), damaged));
  EXPECT_FALSE(sameRGB(damaged, decodeJPEG(stream)));
  EXPECT_TRUE(platform.lines.empty());
}

TEST(SigStop, AGlitchAtTheVeryEndLengthensTheStreamWithoutError) {
  // The largest draw rounds to 1.0 in single precision: the position is the length itself, and the
  // 20 bytes there grow the stream behind its end marker.
  FixedPlatform platform({0xFFFFFFFFu});
  Surface s(64, 64);
  KCGContextProcessing::sigStop(s.context, s.layer, ControlFloats(controlsWith({0.999f, 0.1f, 0.5f})));
  EXPECT_TRUE(platform.lines.empty());
  EXPECT_TRUE(sameRGB(s.now(), decodeJPEG(encodeJPEG(s.before, 0.5))));
}

TEST(Kernel2600, ShowsHardSquarePixelsOfTheReducedPicture) {
  // With the positions all at the end the stream is only lengthened; with the others it is damaged.
  for (uint32_t r : {0xFFFFFFFFu, 0x20000000u}) {
    FixedPlatform platform({r, r, r, r, r});
    Surface s(480, 320);
    // 0.5 * 240 / 480: a quarter of the size, so each pixel of the small picture covers 4 x 4.
    KCGContextProcessing::_2600(s.context, s.layer, ControlFloats(controlsWith({0.5f})));
    EXPECT_EQ(platform.draws, 5);
    EXPECT_TRUE(platform.lines.empty()) << "a 120 x 80 stream is longer than 600 bytes";
    const CGImageRef after = s.now();
    for (int y = 0; y < 320; ++y)
      for (int x = 0; x < 480; ++x)
        ASSERT_EQ(0, std::memcmp(after->pixels().at(x, y), after->pixels().at(x & ~3, y & ~3), 3)) << x << "," << y;
    if (r == 0xFFFFFFFFu) {
      EXPECT_GT(psnr(after, s.before), 14.0) << "the picture, coarse";
    }
  }
}

TEST(Kernel2600, APictureTooSmallToExistLeavesTheLayerAsItStood) {
  FixedPlatform platform;
  Surface s(100, 80);
  // Paint the layer, which the kernel then draws over the surface unchanged.
  CGContextSetRGBFillColor(CGLayerGetContext(s.layer), 1, 0, 0, 1);
  CGContextFillRect(CGLayerGetContext(s.layer), CGRectMake(0, 0, 50, 80));
  KCGContextProcessing::_2600(s.context, s.layer, ControlFloats(controlsWith({0.001f})));  // 0.24 pixels wide
  // The empty stream is shorter than 600 bytes: every one of the 5 glitches lands past its end.
  ASSERT_EQ(platform.lines.size(), 10u);
  for (size_t i = 0; i < 10; i += 2) {
    EXPECT_EQ(platform.lines[i], "ERROR!)");
    EXPECT_EQ(platform.lines[i + 1], "There was an error corrupting data");
  }
  const CGImageRef after = s.now();
  const uint8_t* left = after->pixels().at(10, 10);
  EXPECT_EQ(left[0], 255);
  EXPECT_EQ(left[1], 0);
  EXPECT_TRUE(std::memcmp(after->pixels().at(70, 10), s.before->pixels().at(70, 10), 3) == 0);
}

TEST(JpegKernels, AreRegisteredAsFloatKernels) {
  for (const char* name : {"2600++", "SIGSTOP"}) {
    const KernelEntry* entry = Filters::findKernel(name);
    ASSERT_NE(entry, nullptr);
    EXPECT_TRUE(std::holds_alternative<FloatKernel>(entry->kernel)) << name;
  }
  // Through the dispatcher, with the doubles made floats.
  FixedPlatform platform;
  Surface s(64, 48);
  ControlValues controls(kControlCount, 0.0);
  controls[2] = 0.7;
  Filters::applyEffect(Effect{"SIGSTOP", true, std::nullopt}, s.context, s.layer, controls);
  EXPECT_TRUE(sameRGB(s.now(), decodeJPEG(encodeJPEG(s.before, double(0.7f)))));
}

}  // namespace
}  // namespace zorvex
