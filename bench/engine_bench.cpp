// The drawing operations the kernels use most, on a 1080x1920 surface, each beside a plain memcpy of
// the frame (ratios hold on a noisy machine where milliseconds do not) and beside pixman's equivalent.
// At the end a table gives each as a multiple of memcpy, with the goal beside it.
#include <benchmark/benchmark.h>
#include <pixman.h>

#include <cmath>
#include <cstring>
#include <map>
#include <random>

#include "core/imaging/cg.h"
#include "core/imaging/pixels.h"

namespace zorvex {
namespace {

constexpr int W = 1080, H = 1920;

CGContextRef surface() {
  return CGBitmapContextCreate(nullptr, W, H, 8, 0, CGColorSpaceCreateDeviceRGB(), kCGImageAlphaNoneSkipLast);
}

// A busy opaque picture.
CGContextRef picture() {
  auto c = surface();
  std::mt19937 rng(1);
  auto* p = static_cast<uint8_t*>(CGBitmapContextGetData(c));
  for (size_t i = 0; i < size_t(W) * H * 4; ++i) p[i] = i % 4 == 3 ? 255 : uint8_t(rng());
  return c;
}

// A layer as kernels leave it: opaque blocks, translucent ones and holes.
CGLayerRef busyLayer(const CGContextRef& c) {
  auto layer = CGLayerCreateWithContext(c, CGSizeMake(W, H), nullptr);
  auto lc = CGLayerGetContext(layer);
  auto* p = static_cast<uint8_t*>(CGBitmapContextGetData(lc));
  std::mt19937 rng(2);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const int kind = ((x / 64) + (y / 64)) % 3;  // opaque, translucent, empty
      const uint8_t a = kind == 0 ? 255 : kind == 1 ? uint8_t(rng() % 255) : 0;
      uint8_t* q = p + (size_t(y) * W + x) * 4;
      for (int k = 0; k < 3; ++k) q[k] = uint8_t(rng() % (a + 1));
      q[3] = a;
    }
  return layer;
}

CGImageRef greyMask() {
  auto c = surface();
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const uint8_t v = uint8_t((x * 3 + y) % 256);
      writePixel(c, x, y, {v, v, v});
    }
  return CGBitmapContextCreateImage(c);
}

// ----- memcpy -----

void BM_memcpy(benchmark::State& state) {
  std::vector<uint8_t> a(size_t(W) * H * 4, 1), b(size_t(W) * H * 4);
  for (auto _ : state) {
    std::memcpy(b.data(), a.data(), a.size());
    benchmark::DoNotOptimize(b.data());
    benchmark::ClobberMemory();
  }
}

// ----- ours -----

void BM_crop_nearest(benchmark::State& state) {
  auto dst = surface();
  auto crop = CGImageCreateWithImageInRect(CGBitmapContextCreateImage(picture()), CGRectMake(300, 400, 128, 128));
  CGContextSetInterpolationQuality(dst, state.range(0) ? kCGInterpolationHigh : kCGInterpolationNone);
  for (auto _ : state) CGContextDrawImage(dst, CGRectMake(0, 0, W, H), crop);
}

void compositeLayer(benchmark::State& state, CGBlendMode mode, double alpha, bool clip) {
  auto dst = picture();
  auto layer = busyLayer(dst);
  CGContextSetBlendMode(dst, mode);
  CGContextSetAlpha(dst, alpha);
  if (clip) CGContextClipToMask(dst, CGRectMake(0, 0, W, H), greyMask());
  for (auto _ : state) CGContextDrawLayerAtPoint(dst, CGPointZero, layer);
}
void BM_layer_normal(benchmark::State& s) { compositeLayer(s, kCGBlendModeNormal, 1.0, false); }
void BM_layer_alpha(benchmark::State& s) { compositeLayer(s, kCGBlendModeNormal, 0.5, false); }
void BM_layer_clipped(benchmark::State& s) { compositeLayer(s, kCGBlendModeNormal, 1.0, true); }
void BM_layer_multiply(benchmark::State& s) { compositeLayer(s, kCGBlendModeMultiply, 1.0, false); }
void BM_layer_hardlight(benchmark::State& s) { compositeLayer(s, kCGBlendModeHardLight, 1.0, false); }
void BM_layer_luminosity(benchmark::State& s) { compositeLayer(s, kCGBlendModeLuminosity, 1.0, false); }

void BM_turned(benchmark::State& state) {
  auto dst = surface();
  auto image = CGBitmapContextCreateImage(picture());
  CGContextSetInterpolationQuality(dst, state.range(0) ? kCGInterpolationHigh : kCGInterpolationNone);
  CGContextTranslateCTM(dst, W / 2.0, H / 2.0);
  CGContextRotateCTM(dst, 10 * 3.141592653589793 / 180);
  CGContextTranslateCTM(dst, -W / 2.0, -H / 2.0);
  for (auto _ : state) CGContextDrawImage(dst, CGRectMake(0, 0, W, H), image);
}

std::vector<CGRect> fiveHundredRects() {
  std::mt19937 rng(3);
  std::vector<CGRect> rects;
  for (int i = 0; i < 500; ++i) rects.push_back(CGRectMake(rng() % (W - 99), rng() % (H - 99), 99, 99));
  return rects;
}

void BM_rect_fills(benchmark::State& state) {
  auto dst = surface();
  const auto rects = fiveHundredRects();
  for (auto _ : state) {
    for (size_t i = 0; i < rects.size(); ++i) {
      CGContextSetRGBFillColor(dst, (i % 7) / 7.0, (i % 5) / 5.0, (i % 3) / 3.0, 1.0);
      CGContextFillRect(dst, rects[i]);
    }
  }
}

// ----- pixman -----

struct PixmanFrame {
  std::vector<uint32_t> bits;
  pixman_image_t* image;
  PixmanFrame(pixman_format_code_t format, int w, int h, uint32_t fill)
      : bits(size_t(w) * h, fill), image(pixman_image_create_bits(format, w, h, bits.data(), w * 4)) {}
  ~PixmanFrame() { pixman_image_unref(image); }
};

void BM_pixman_crop(benchmark::State& state) {
  PixmanFrame dst(PIXMAN_x8b8g8r8, W, H, 0), src(PIXMAN_x8b8g8r8, 128, 128, 0xff336699);
  pixman_transform_t t;
  pixman_transform_init_scale(&t, pixman_double_to_fixed(128.0 / W), pixman_double_to_fixed(128.0 / H));
  pixman_image_set_transform(src.image, &t);
  pixman_image_set_filter(src.image, state.range(0) ? PIXMAN_FILTER_BILINEAR : PIXMAN_FILTER_NEAREST, nullptr, 0);
  pixman_image_set_repeat(src.image, PIXMAN_REPEAT_PAD);
  for (auto _ : state) pixman_image_composite32(PIXMAN_OP_SRC, src.image, nullptr, dst.image, 0, 0, 0, 0, 0, 0, W, H);
}

void pixmanLayer(benchmark::State& state, pixman_op_t op, double alpha, bool clip) {
  PixmanFrame dst(PIXMAN_x8b8g8r8, W, H, 0xff808080), src(PIXMAN_a8b8g8r8, W, H, 0);
  std::mt19937 rng(2);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const int kind = ((x / 64) + (y / 64)) % 3;
      const uint32_t a = kind == 0 ? 255 : kind == 1 ? rng() % 255 : 0;
      src.bits[size_t(y) * W + x] = a << 24 | (rng() % (a + 1)) << 16 | (rng() % (a + 1)) << 8 | (rng() % (a + 1));
    }
  pixman_image_t* mask = nullptr;
  std::vector<uint8_t> maskBits;
  if (alpha < 1) {
    const pixman_color_t c{0, 0, 0, uint16_t(alpha * 0xffff)};
    mask = pixman_image_create_solid_fill(&c);
  } else if (clip) {
    maskBits.resize(size_t(W) * H);
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) maskBits[size_t(y) * W + x] = uint8_t((x * 3 + y) % 256);
    mask = pixman_image_create_bits(PIXMAN_a8, W, H, reinterpret_cast<uint32_t*>(maskBits.data()), W);
  }
  for (auto _ : state) pixman_image_composite32(op, src.image, mask, dst.image, 0, 0, 0, 0, 0, 0, W, H);
  if (mask) pixman_image_unref(mask);
}
void BM_pixman_layer_normal(benchmark::State& s) { pixmanLayer(s, PIXMAN_OP_OVER, 1, false); }
void BM_pixman_layer_alpha(benchmark::State& s) { pixmanLayer(s, PIXMAN_OP_OVER, 0.5, false); }
void BM_pixman_layer_clipped(benchmark::State& s) { pixmanLayer(s, PIXMAN_OP_OVER, 1, true); }
void BM_pixman_layer_multiply(benchmark::State& s) { pixmanLayer(s, PIXMAN_OP_MULTIPLY, 1, false); }
void BM_pixman_layer_hardlight(benchmark::State& s) { pixmanLayer(s, PIXMAN_OP_HARD_LIGHT, 1, false); }
void BM_pixman_layer_luminosity(benchmark::State& s) { pixmanLayer(s, PIXMAN_OP_HSL_LUMINOSITY, 1, false); }

void BM_pixman_turned(benchmark::State& state) {
  PixmanFrame dst(PIXMAN_x8b8g8r8, W, H, 0), src(PIXMAN_x8b8g8r8, W, H, 0xff123456);
  pixman_transform_t t;
  pixman_transform_init_identity(&t);
  pixman_transform_translate(&t, nullptr, pixman_double_to_fixed(W / 2.0), pixman_double_to_fixed(H / 2.0));
  const double a = 10 * 3.141592653589793 / 180;
  pixman_transform_rotate(&t, nullptr, pixman_double_to_fixed(std::cos(a)), pixman_double_to_fixed(std::sin(a)));
  pixman_transform_translate(&t, nullptr, pixman_double_to_fixed(-W / 2.0), pixman_double_to_fixed(-H / 2.0));
  pixman_image_set_transform(src.image, &t);
  pixman_image_set_filter(src.image, state.range(0) ? PIXMAN_FILTER_BILINEAR : PIXMAN_FILTER_NEAREST, nullptr, 0);
  for (auto _ : state) pixman_image_composite32(PIXMAN_OP_SRC, src.image, nullptr, dst.image, 0, 0, 0, 0, 0, 0, W, H);
}

void BM_pixman_rect_fills(benchmark::State& state) {
  PixmanFrame dst(PIXMAN_x8b8g8r8, W, H, 0);
  const auto rects = fiveHundredRects();
  for (auto _ : state) {
    for (size_t i = 0; i < rects.size(); ++i) {
      const pixman_color_t c{uint16_t((i % 7) * 0xffff / 7), uint16_t((i % 5) * 0xffff / 5), uint16_t((i % 3) * 0xffff / 3), 0xffff};
      const pixman_box32_t box{int32_t(rects[i].origin.x), int32_t(rects[i].origin.y), int32_t(rects[i].origin.x + 99),
                               int32_t(rects[i].origin.y + 99)};
      pixman_image_fill_boxes(PIXMAN_OP_SRC, dst.image, &c, 1, &box);
    }
  }
}

// ----- The table -----

struct Row {
  const char* what;
  const char* ours;
  const char* pixman;
  double goal;
};
const Row kRows[] = {
    {"128x128 crop over the frame, nearest", "BM_crop_nearest/0", "BM_pixman_crop/0", 3.2},
    {"same, smooth (bilinear)", "BM_crop_nearest/1", "BM_pixman_crop/1", 8},
    {"layer composite, normal", "BM_layer_normal", "BM_pixman_layer_normal", 1.5},
    {"same at alpha 0.5", "BM_layer_alpha", "BM_pixman_layer_alpha", 3.5},
    {"same, clipped to a mask", "BM_layer_clipped", "BM_pixman_layer_clipped", 4},
    {"same under multiply", "BM_layer_multiply", "BM_pixman_layer_multiply", 5},
    {"same under hard light", "BM_layer_hardlight", "BM_pixman_layer_hardlight", 5},
    {"same under luminosity", "BM_layer_luminosity", "BM_pixman_layer_luminosity", 13},
    {"frame turned 10 degrees, nearest", "BM_turned/0", "BM_pixman_turned/0", 16},
    {"frame turned 10 degrees, smooth", "BM_turned/1", "BM_pixman_turned/1", 36},
    {"500 opaque rect fills", "BM_rect_fills", "BM_pixman_rect_fills", 1.8},
};

class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs)
      if (r.run_type == Run::RT_Iteration || r.aggregate_name == "median") times_[r.run_name.str()] = r.GetAdjustedCPUTime();
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    const double base = times_["BM_memcpy"];
    std::printf("\n1080x1920, as multiples of a memcpy of the frame (%.3f ms; CPU time)\n", base);
    std::printf("%-40s %10s %10s %10s %8s\n", "operation", "ours ms", "ours x", "pixman x", "goal x");
    for (const Row& row : kRows) {
      const double ours = times_[row.ours], pix = times_[row.pixman];
      std::printf("%-40s %10.3f %10.2f %10.2f %8.1f\n", row.what, ours, ours / base, pix / base, row.goal);
    }
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace
}  // namespace zorvex

using namespace zorvex;
BENCHMARK(BM_memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_crop_nearest)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_layer_normal)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_layer_alpha)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_layer_clipped)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_layer_multiply)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_layer_hardlight)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_layer_luminosity)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_turned)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_rect_fills)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_crop)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_layer_normal)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_layer_alpha)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_layer_clipped)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_layer_multiply)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_layer_hardlight)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_layer_luminosity)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_turned)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_pixman_rect_fills)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
