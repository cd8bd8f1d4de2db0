// Writes a small seed corpus for the decoder's fuzz target into the folder given: our own streams of
// a few sizes and qualities, and some of them cut short or overwritten.
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
      }
    }
  std::printf("%d seeds in %s\n", n, argv[1]);
  return 0;
}
