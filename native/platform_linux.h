// The platform of the command line: the core's console lines on standard error when verbose (they are
// for the developer of a kernel, so they are dropped otherwise), randomness from the kernel, the
// monotonic clock.
#pragma once

#include "core/imaging/platform.h"

namespace zorvex::native {

class LinuxPlatform final : public Platform {
 public:
  void setVerbose(bool verbose) { verbose_ = verbose; }
  bool verbose() const { return verbose_; }
  void consoleLine(std::string_view line) override;
  uint32_t random32() override;
  double now() override;

 private:
  bool verbose_ = false;
};

// Installs the Linux platform for the process and gives it.
LinuxPlatform& installLinuxPlatform();

}  // namespace zorvex::native
