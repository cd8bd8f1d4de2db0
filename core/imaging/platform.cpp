#include "core/imaging/platform.h"

#include <chrono>
#include <cstdio>
#include <random>
#include <string>

namespace zorvex {
namespace {

class StandardPlatform final : public Platform {
 public:
  void consoleLine(std::string_view line) override {
    std::string s(line);
    s += '\n';
    std::fwrite(s.data(), 1, s.size(), stdout);
    std::fflush(stdout);
  }
  uint32_t random32() override { return static_cast<uint32_t>(device_()); }
  double now() override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }

 private:
  std::random_device device_;
};

Platform* gPlatform = nullptr;

}  // namespace

Platform& platform() {
  static StandardPlatform standard;
  return gPlatform ? *gPlatform : standard;
}

void setPlatform(Platform* p) { gPlatform = p; }

uint32_t arc4random_uniform(uint32_t bound) {
  if (bound < 2) return 0;
  // Reject the low values that would make some residues more likely than others.
  const uint32_t min = static_cast<uint32_t>(-bound) % bound;
  for (;;) {
    const uint32_t r = arc4random();
    if (r >= min) return r % bound;
  }
}

}  // namespace zorvex
