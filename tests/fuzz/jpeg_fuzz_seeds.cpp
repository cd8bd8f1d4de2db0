// Writes a small seed corpus for the decoder's fuzz target into the folder given: our own streams of
// a few sizes and qualities, some of them cut short or overwritten, and some with their headers
// edited toward what other encoders write (a restart interval, a single-component frame), so that
// the fuzzer starts near those paths too.
#include <cstdio>
#include <string>
#include <vector>

#include "core/imaging/jpeg.h"
#include "core/render/sample_picture.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  int n = 0;
  auto write = [&](const std::vector<uint8_t>& bytes) {
    const std::string path = std::string(argv[1]) + "/seed" + std::to_string(n++) + ".jpg";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) {
      std::fprintf(stderr, "error: can't write %s\n", path.c_str());
      std::exit(1);
    }
    std::fclose(f);
  };
  const int sizes[][2] = {{8, 8}, {17, 9}, {33, 40}, {64, 48}};
  for (const auto& s : sizes)
    for (double q : {0.0, 0.5, 1.0}) {
      const std::vector<uint8_t> stream = zorvex::encodeJPEG(zorvex::drawSamplePicture(s[0], s[1]), q);
      write(stream);
      if (s[0] == 33 && q == 0.5) {
        write(std::vector<uint8_t>(stream.begin(), stream.begin() + ptrdiff_t(stream.size() * 3 / 4)));
        std::vector<uint8_t> damaged = stream;
        for (size_t i = 610; i < damaged.size(); i += 50) damaged[i] = 7;
        write(damaged);
        // A restart interval of 2 MCUs (the markers themselves missing), before the scan header.
        size_t sos = 0;
        while (!(stream[sos] == 0xFF && stream[sos + 1] == 0xDA)) ++sos;
        std::vector<uint8_t> restarts = stream;
        restarts.insert(restarts.begin() + ptrdiff_t(sos), {0xFF, 0xDD, 0, 4, 0, 2});
        write(restarts);
        // One component with 2 x 2 sampling in frame and scan, read as a single-component scan.
        size_t sof = 0;
        while (!(stream[sof] == 0xFF && stream[sof + 1] == 0xC0)) ++sof;
        std::vector<uint8_t> grey(stream.begin(), stream.begin() + ptrdiff_t(sof));
        grey.insert(grey.end(), {0xFF, 0xC0, 0, 11, 8, stream[sof + 5], stream[sof + 6], stream[sof + 7],
                                 stream[sof + 8], 1, 1, 0x22, 0});
        grey.insert(grey.end(), stream.begin() + ptrdiff_t(sof + 19), stream.begin() + ptrdiff_t(sos));
        grey.insert(grey.end(), {0xFF, 0xDA, 0, 8, 1, 1, 0, 0, 63, 0});
        grey.insert(grey.end(), stream.begin() + ptrdiff_t(sos + 14), stream.end());
        write(grey);
      }
    }
  std::printf("%d seeds in %s\n", n, argv[1]);
  return 0;
}
