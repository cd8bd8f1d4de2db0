// Reading a file the user names, safely: only a regular file or standard input ("-"), never a
// folder, a FIFO or a device, and never more bytes than the caller allows, whatever the file's size.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace zorvex::native {

class InputFile {
 public:
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  // Opens `path` ("-" for standard input). A regular file larger than `maxBytes` is refused at once;
  // standard input may be a pipe or a regular file, not a terminal. Null with `error` set (a short
  // reason without the path, such as "it is a folder, not a file") on failure.
  static std::unique_ptr<InputFile> open(const std::string& path, uint64_t maxBytes, std::string& error);

  // A stdio stream over the file for the decoders' own streaming reads. A read past `maxBytes` fails
  // (errno EFBIG), so a file that grows, or a pipe that never ends, costs no more than that.
  FILE* stream() const { return stream_; }

  // After reads that failed or ended early: why, as a short reason ("its data ended early" is the
  // caller's to say), or empty when nothing went wrong on the way.
  std::string readFailure() const;
  bool exceededLimit() const { return exceeded_; }
  uint64_t bytesRead() const { return read_; }

  // The reading side of the stream, public for the stream's callbacks.
  ssize_t readSome(char* buffer, size_t size);

 private:
  InputFile() = default;
  int fd_ = -1;
  bool ownsFd_ = false;
  FILE* stream_ = nullptr;
  uint64_t max_ = 0, read_ = 0;
  bool exceeded_ = false;
  int errno_ = 0;
};

// The whole content of a file the user names (as InputFile::open), at most `maxBytes`. False with
// `error` set (a short reason) when it can't be opened, can't be read or is larger.
bool readInputFile(const std::string& path, uint64_t maxBytes, std::string& out, std::string& error);

// "N bytes", "N KiB", "N MiB" or "N GiB", for messages.
std::string byteCount(uint64_t bytes);

}  // namespace zorvex::native
