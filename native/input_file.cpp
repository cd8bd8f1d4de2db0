#include "native/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zorvex::native {
namespace {

// What a file that is not a regular file is, for the message that refuses it.
std::string notAFile(mode_t mode) {
  if (S_ISDIR(mode)) return "it is a folder, not a file";
  if (S_ISFIFO(mode)) return "it is a FIFO (a named pipe), not a file; pipe it to standard input as - instead";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "it is a device, not a file";
  if (S_ISSOCK(mode)) return "it is a socket, not a file";
  return "it is not a regular file";
}

ssize_t cookieRead(void* cookie, char* buffer, size_t size) {
  return static_cast<InputFile*>(cookie)->readSome(buffer, size);
}

}  // namespace

std::string byteCount(uint64_t bytes) {
  const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
  int u = 0;
  while (u < 4 && bytes >= 1024 && bytes % 1024 == 0) {
    bytes /= 1024;
    ++u;
  }
  return std::to_string(bytes) + " " + units[u];
}

std::unique_ptr<InputFile> InputFile::open(const std::string& path, uint64_t maxBytes, std::string& error) {
  std::unique_ptr<InputFile> in(new InputFile());
  in->max_ = maxBytes;
  struct stat st {};
  if (path == "-") {
    in->fd_ = STDIN_FILENO;
    if (fstat(in->fd_, &st) != 0) {
      error = std::string("can't read standard input (") + std::strerror(errno) + ")";
      return nullptr;
    }
    if (isatty(in->fd_)) {
      error = "standard input is a terminal; pipe a file to it";
      return nullptr;
    }
    if (S_ISDIR(st.st_mode)) {
      error = "standard input is a folder";
      return nullptr;
    }
  } else {
    // Non-blocking, so that opening a FIFO can't hang before it is refused.
    in->fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (in->fd_ < 0) {
      error = std::string("can't open it (") + std::strerror(errno) + ")";
      return nullptr;
    }
    in->ownsFd_ = true;
    if (fstat(in->fd_, &st) != 0) {
      error = std::string("can't read it (") + std::strerror(errno) + ")";
      return nullptr;
    }
    if (!S_ISREG(st.st_mode)) {
      error = notAFile(st.st_mode);
      return nullptr;
    }
    fcntl(in->fd_, F_SETFL, fcntl(in->fd_, F_GETFL) & ~O_NONBLOCK);
  }
  if (S_ISREG(st.st_mode) && uint64_t(st.st_size) > maxBytes) {
    error = "it is " + std::to_string(uint64_t(st.st_size)) + " bytes, more than the " + byteCount(maxBytes) +
            " read at most";
    return nullptr;
  }
  const cookie_io_functions_t io{cookieRead, nullptr, nullptr, nullptr};
  in->stream_ = fopencookie(in.get(), "rb", io);
  if (!in->stream_) {
    error = std::string("can't read it (") + std::strerror(errno) + ")";
    return nullptr;
  }
  return in;
}

InputFile::~InputFile() {
  if (stream_) std::fclose(stream_);
  if (ownsFd_ && fd_ >= 0) ::close(fd_);
}

ssize_t InputFile::readSome(char* buffer, size_t size) {
  if (read_ >= max_) {
    // One byte more would pass the limit: see whether there is one.
    char probe;
    ssize_t n;
    do n = ::read(fd_, &probe, 1);
    while (n < 0 && errno == EINTR);
    if (n == 0) return 0;
    exceeded_ = true;
    errno_ = errno = EFBIG;
    return -1;
  }
  if (uint64_t(size) > max_ - read_) size = size_t(max_ - read_);
  for (;;) {
    const ssize_t n = ::read(fd_, buffer, size);
    if (n >= 0) {
      read_ += uint64_t(n);
      return n;
    }
    if (errno == EINTR) continue;
    errno_ = errno;
    return -1;
  }
}

std::string InputFile::readFailure() const {
  if (exceeded_) return "it is larger than the " + byteCount(max_) + " read at most";
  if (errno_ != 0) return std::string("can't read it (") + std::strerror(errno_) + ")";
  return {};
}

bool readInputFile(const std::string& path, uint64_t maxBytes, std::string& out, std::string& error) {
  const std::unique_ptr<InputFile> in = InputFile::open(path, maxBytes, error);
  if (!in) return false;
  out.clear();
  char buffer[65536];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, in->stream())) > 0;) out.append(buffer, n);
  if (std::ferror(in->stream())) {
    error = in->readFailure();
    if (error.empty()) error = "can't read it";
    return false;
  }
  return true;
}

}  // namespace zorvex::native
