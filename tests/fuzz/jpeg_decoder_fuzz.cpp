// Feeds arbitrary bytes to the JPEG decoder. The sanitizers catch any read or write out of bounds,
// any undefined arithmetic and any leak; libFuzzer's timeout catches a decoder that doesn't stop.
#include <cstdint>
#include <cstdlib>

#include "core/imaging/jpeg.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Smaller frames than the decoder's own limits keep each run quick; the code paths are the same.
  const zorvex::JPEGLimits limits{4'000'000, 8192};
  const zorvex::CGImageRef image = zorvex::decodeJPEG({data, size}, limits);
  if (!image) return 0;
  const zorvex::PixelView& p = image->pixels();
  if (p.width < 1 || p.height < 1 || p.width > limits.maxSide || int64_t(p.width) * p.height > limits.maxPixels ||
      p.stride != ptrdiff_t(p.width) * 4)
    std::abort();
  // Read every byte, so that the sanitizer sees the whole picture touched; the skipped byte is 255.
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x)
      if (p.at(x, y)[3] != 255) std::abort();
  return 0;
}
