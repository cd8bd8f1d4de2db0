// Writing a file so that nothing else is ever written: the bytes go to a new file of a unique name
// in the target's folder (created exclusively, so a link planted there is never followed), which is
// flushed to disk and then renamed over the target. A reader sees the old file or the whole new one;
// two writers to one target leave one whole file; a failure or an interrupt leaves the target as it
// was and removes the temporary file.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <optional>
#include <span>
#include <string>

#include "native/interruptible_output.h"

namespace zorvex::native {

class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile();  // removes the temporary file unless committed

  // Makes the temporary file "TARGET.tmp-XXXXXX" beside `target`, with `mode` (by default the mode
  // a new file gets under the umask). False with `error` set (errno's text) on failure.
  static constexpr mode_t kModeOfANewFile = mode_t(-1);
  bool open(const std::string& target, std::string& error, mode_t mode = kModeOfANewFile);

  FILE* stream() const { return stream_; }
  const std::string& temporaryPath() const { return temporary_; }
  // errno of the first write to the stream that failed, or 0.
  int writeErrno() const { return writeErrno_; }

  // Flushes, syncs and closes the temporary file and renames it over the target. False with `error`
  // set (errno's text) when a write failed on the way or the rename fails; the target is untouched.
  // `beforeRename`, when given, runs just before the rename; returning false stops there and leaves
  // the temporary file, as a crash at that moment would.
  bool commit(std::string& error, bool (*beforeRename)(const std::string&, void*) = nullptr, void* context = nullptr);

  // The stream's writes, public for its callback: records errno of the first failure.
  ssize_t writeSome(const char* bytes, size_t size);

 private:
  void discard();

  std::string target_, temporary_;
  std::optional<RemovedOnInterrupt> onInterrupt_;  // the temporary file, while there is one
  int fd_ = -1;
  FILE* stream_ = nullptr;
  int writeErrno_ = 0;
};

// Writes `bytes` to `target` through an AtomicFile.
bool writeFileAtomically(const std::string& target, std::span<const uint8_t> bytes, std::string& error,
                         mode_t mode = AtomicFile::kModeOfANewFile);

// The folder part of a path ("." for a bare name).
std::string folderOf(const std::string& path);

}  // namespace zorvex::native
