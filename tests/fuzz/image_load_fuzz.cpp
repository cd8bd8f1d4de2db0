// Feeds arbitrary bytes to the command line's picture reading (the format check, our code around
// libpng and libjpeg, the EXIF orientation, the CMYK conversion) as a file would reach it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "native/image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
  if (!stream) return 0;
  // Smaller pictures than the reader's own limit keep each run quick; the code paths are the same.
  constexpr int64_t kMaxPixels = 2'000'000;
  std::string error, warning;
  const zorvex::UIImage image = zorvex::native::readImage(stream, error, &warning, kMaxPixels);
  std::fclose(stream);
  if (!image) {
    if (error.empty()) std::abort();
    return 0;
  }
  const zorvex::PixelView& p = image.CGImage->pixels();
  if (p.width < 1 || p.height < 1 || int64_t(p.width) * p.height > kMaxPixels) std::abort();
  // Touch every pixel, so that the sanitizer sees the whole picture written.
  unsigned sum = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) sum += p.at(x, y)[0];
  return sum == 0xFFFFFFFF;
}
