// A growable byte buffer with the range-checked replacement of Foundation's NSMutableData.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace zorvex {

struct NSRange {
  uint64_t location = 0;
  uint64_t length = 0;
};
inline NSRange NSMakeRange(uint64_t location, uint64_t length) { return {location, length}; }

class NSMutableData {
 public:
  // The largest size the buffer grows to; a replacement past it is refused like a bad range.
  static constexpr uint64_t kMaxLength = uint64_t{1} << 30;

  NSMutableData() = default;
  explicit NSMutableData(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  uint64_t length() const { return bytes_.size(); }
  std::span<const uint8_t> bytes() const { return bytes_; }

  // Overwrites the bytes of `range` with `range.length` bytes from `bytes`, one for one. A range that
  // crosses the end grows the buffer to hold it. A location past the end (or a range too long to
  // hold) is the platform's range exception: nothing changes and the result is false.
  [[nodiscard]] bool replaceBytesInRange(NSRange range, const uint8_t* bytes);

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace zorvex
