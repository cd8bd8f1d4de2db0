// What differs between Linux and the browser, behind one small interface: where a plain console line
// goes, the unrepeatable random source behind arc4random, and the clock. The command line and the web
// app install their own; tests install one that they control.
#pragma once

#include <cstdint>
#include <string_view>

namespace zorvex {

class Platform {
 public:
  virtual ~Platform() = default;
  // One plain diagnostic line, without a newline.
  virtual void consoleLine(std::string_view line) = 0;
  // 32 bits from a source that can't be repeated.
  virtual uint32_t random32() = 0;
  // Seconds on a monotonic clock.
  virtual double now() = 0;
};

// The installed platform; a standard-library one until another is installed.
Platform& platform();
// Installs `p` (not owned) or, with nullptr, the standard-library one again.
void setPlatform(Platform* p);

inline void consoleLine(std::string_view line) { platform().consoleLine(line); }
inline uint32_t arc4random() { return platform().random32(); }
// Uniform in [0, bound), without modulo bias; 0 for a bound of 0.
uint32_t arc4random_uniform(uint32_t bound);

}  // namespace zorvex
