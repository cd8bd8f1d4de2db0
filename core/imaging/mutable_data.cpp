#include "core/imaging/mutable_data.h"

#include <algorithm>

namespace zorvex {

bool NSMutableData::replaceBytesInRange(NSRange range, const uint8_t* bytes) {
  if (range.location > bytes_.size()) return false;
  if (range.length > kMaxLength || range.location + range.length > kMaxLength) return false;
  if (range.length == 0) return true;
  const uint64_t end = range.location + range.length;
  if (end > bytes_.size()) bytes_.resize(size_t(end));
  std::copy(bytes, bytes + range.length, bytes_.begin() + ptrdiff_t(range.location));
  return true;
}

}  // namespace zorvex
