// The platform of the command line: console lines on standard output (unless quiet), randomness from
// the kernel, the monotonic clock.
#pragma once

#include "core/imaging/platform.h"

namespace zorvex::native {

class LinuxPlatform final : public Platform {
 public:
  void setQuiet(bool quiet) { quiet_ = quiet; }
  void consoleLine(std::string_view line) override;
  uint32_t random32() override;
  double now() override;

 private:
  bool quiet_ = false;
};

// Installs the Linux platform for the process and gives it.
LinuxPlatform& installLinuxPlatform();

}  // namespace zorvex::native
