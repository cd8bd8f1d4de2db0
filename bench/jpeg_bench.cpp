// Our JPEG codec beside libjpeg-turbo's TurboJPEG API on a 1080x1920 camera-like frame: encoding at
// quality 0.0 and 0.5 (turbo's 1 and 50, 4:2:0 both), and decoding those streams. Each iteration
// runs both, one after the other, so the ratio holds on a busy machine where milliseconds don't; the
// counters give the fastest run of each and their ratio, ours / turbo. Goal: at most 2.
//
// Both sides do what the effects need: the encoder makes a new stream and the decoder a new picture
// in new memory each time. turbo decodes with its defaults (accurate integer IDCT, smooth chroma
// upsampling); ours repeats chroma samples.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <chrono>
#include <cstdlib>
#include <limits>

#include "core/imaging/jpeg.h"
#include "core/render/sample_picture.h"

namespace zorvex {
namespace {

constexpr int W = 1080, H = 1920;

// The sample picture with a little noise, as a sensor gives it, so that blocks carry detail.
const CGImageRef& cameraFrame() {
  static const CGImageRef frame = [] {
    const CGImageRef clean = drawSamplePicture(W, H);
    std::shared_ptr<uint8_t[]> pixels(new uint8_t[size_t(W) * H * 4]);
    uint32_t seed = 12345;
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x)
        for (int c = 0; c < 4; ++c) {
          seed = seed * 1664525u + 1013904223u;
          const int v = clean->pixels().at(x, y)[c] + (c == 3 ? 0 : int(seed >> 28) - 8);
          pixels[(size_t(y) * W + size_t(x)) * 4 + size_t(c)] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
        }
    const PixelView view{pixels.get(), W, H, W * 4, PixelFormat::RGBX};
    return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(pixels)), view);
  }();
  return frame;
}

enum class Op { Encode, Decode };

double seconds(std::chrono::steady_clock::time_point a, std::chrono::steady_clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

void BM_jpeg_vs_turbo(benchmark::State& state, Op op, double quality) {
  const CGImageRef& frame = cameraFrame();
  const std::vector<uint8_t> stream = encodeJPEG(frame, quality);
  const int turboQuality = std::max(1, int(quality * 100.0 + 0.5));
  tjhandle compressor = tjInitCompress(), decompressor = tjInitDecompress();
  double ours = std::numeric_limits<double>::infinity(), turbo = ours;
  size_t bytes = 0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    if (op == Op::Encode) {
      std::vector<uint8_t> s = encodeJPEG(frame, quality);
      benchmark::DoNotOptimize(s.data());
      bytes = s.size();
    } else {
      CGImageRef image = decodeJPEG(stream);
      benchmark::DoNotOptimize(image.get());
    }
    const auto t1 = std::chrono::steady_clock::now();
    if (op == Op::Encode) {
      unsigned char* out = nullptr;
      unsigned long size = 0;
      if (tjCompress2(compressor, frame->pixels().data, W, W * 4, H, TJPF_RGBX, &out, &size, TJSAMP_420,
                      turboQuality, 0) != 0)
        state.SkipWithError(tjGetErrorStr2(compressor));
      benchmark::DoNotOptimize(out);
      tjFree(out);
    } else {
      std::unique_ptr<uint8_t[]> out(new uint8_t[size_t(W) * H * 4]);
      if (tjDecompress2(decompressor, stream.data(), stream.size(), out.get(), W, W * 4, H, TJPF_RGBX, 0) != 0)
        state.SkipWithError(tjGetErrorStr2(decompressor));
      benchmark::DoNotOptimize(out.get());
    }
    const auto t2 = std::chrono::steady_clock::now();
    ours = std::min(ours, seconds(t0, t1));
    turbo = std::min(turbo, seconds(t1, t2));
    state.SetIterationTime(seconds(t0, t1));
  }
  tjDestroy(compressor);
  tjDestroy(decompressor);
  state.counters["ours_ms"] = ours * 1e3;
  state.counters["turbo_ms"] = turbo * 1e3;
  state.counters["ours/turbo"] = ours / turbo;
  state.counters["stream_kB"] = double(op == Op::Encode ? bytes : stream.size()) / 1e3;
}

BENCHMARK_CAPTURE(BM_jpeg_vs_turbo, encode_q0.0, Op::Encode, 0.0)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_jpeg_vs_turbo, encode_q0.5, Op::Encode, 0.5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_jpeg_vs_turbo, decode_q0.0, Op::Decode, 0.0)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_jpeg_vs_turbo, decode_q0.5, Op::Decode, 0.5)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zorvex
