#include "native/platform_linux.h"

#include <sys/random.h>
#include <time.h>

#include <cstdio>
#include <string>

namespace zorvex::native {

void LinuxPlatform::consoleLine(std::string_view line) {
  if (!verbose_) return;
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fputc('\n', stderr);
}

uint32_t LinuxPlatform::random32() {
  uint32_t v = 0;
  size_t got = 0;
  while (got < sizeof v) {
    const ssize_t n = getrandom(reinterpret_cast<char*>(&v) + got, sizeof v - got, 0);
    if (n > 0) got += size_t(n);
  }
  return v;
}

double LinuxPlatform::now() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

LinuxPlatform& installLinuxPlatform() {
  static LinuxPlatform p;
  setPlatform(&p);
  return p;
}

}  // namespace zorvex::native
