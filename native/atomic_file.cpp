#include "native/atomic_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "native/interruptible_output.h"

namespace zorvex::native {
namespace {

std::string because(int e) { return std::string(std::strerror(e)); }

ssize_t cookieWrite(void* cookie, const char* bytes, size_t size) {
  return static_cast<AtomicFile*>(cookie)->writeSome(bytes, size);
}

}  // namespace

std::string folderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

AtomicFile::~AtomicFile() { discard(); }

ssize_t AtomicFile::writeSome(const char* bytes, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(fd_, bytes + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (!writeErrno_) writeErrno_ = n < 0 ? errno : ENOSPC;
      return done > 0 ? ssize_t(done) : -1;
    }
    done += size_t(n);
  }
  return ssize_t(done);
}

void AtomicFile::discard() {
  if (stream_) {
    std::fclose(stream_);
    stream_ = nullptr;
  }
  if (fd_ >= 0) {
    close(fd_);
    fd_ = -1;
  }
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
    onInterrupt_.reset();
    temporary_.clear();
  }
}

bool AtomicFile::open(const std::string& target, std::string& error, mode_t mode) {
  discard();
  target_ = target;
  std::string temporary = target + ".tmp-XXXXXX";
  // An interrupt removes the temporary file; none comes between making it and putting it on the list.
  installInterruptCleanupWhereDefault();
  sigset_t interrupts, previous;
  sigemptyset(&interrupts);
  for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&interrupts, s);
  sigprocmask(SIG_BLOCK, &interrupts, &previous);
  // mkstemp creates the file with O_EXCL: a name that exists, a planted link included, is never used.
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  const int made = errno;
  if (fd >= 0) onInterrupt_.emplace(temporary);
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  if (fd < 0) {
    error = because(made);
    return false;
  }
  temporary_ = temporary;
  if (mode == kModeOfANewFile) {
    const mode_t mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  fd_ = fd;
  writeErrno_ = 0;
  const cookie_io_functions_t io{nullptr, cookieWrite, nullptr, nullptr};
  if (fchmod(fd_, mode) != 0 || !(stream_ = fopencookie(this, "wb", io))) {
    error = because(errno);
    discard();
    return false;
  }
  return true;
}

bool AtomicFile::commit(std::string& error, bool (*beforeRename)(const std::string&, void*), void* context) {
  if (!stream_) {
    error = "the file was not opened";
    return false;
  }
  const bool flushed = std::fflush(stream_) == 0 && !std::ferror(stream_);
  std::fclose(stream_);
  stream_ = nullptr;
  if (!flushed || writeErrno_) {
    error = because(writeErrno_ ? writeErrno_ : EIO);
    discard();
    return false;
  }
  if (fsync(fd_) != 0 || close(fd_) != 0) {
    fd_ = -1;
    error = because(errno);
    discard();
    return false;
  }
  fd_ = -1;
  if (beforeRename && !beforeRename(temporary_, context)) {
    error = "the write was stopped before the rename";
    onInterrupt_.reset();
    temporary_.clear();  // left behind, as a crash would leave it
    return false;
  }
  if (rename(temporary_.c_str(), target_.c_str()) != 0) {
    error = because(errno);
    discard();
    return false;
  }
  onInterrupt_.reset();
  temporary_.clear();
  // Make the rename itself lasting.
  if (const int dir = ::open(folderOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
    fsync(dir);
    close(dir);
  }
  return true;
}

bool writeFileAtomically(const std::string& target, std::span<const uint8_t> bytes, std::string& error, mode_t mode) {
  AtomicFile file;
  if (!file.open(target, error, mode)) return false;
  if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), file.stream());
  return file.commit(error);  // says why when the write failed
}

}  // namespace zorvex::native
