#include "native/atomic_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zorvex::native {
namespace {

// The temporary file being written, for the signal handler that removes it when the program is
// interrupted. One at a time: the command line writes its files one after another.
char gPending[4096];
volatile sig_atomic_t gHasPending = 0;

void removePendingAndDie(int sig) {
  if (gHasPending) unlink(gPending);
  signal(sig, SIG_DFL);
  raise(sig);
}

void track(const std::string& path) {
  static bool installed = false;
  if (!installed) {
    installed = true;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction old {};
      sigaction(sig, nullptr, &old);
      // Leave alone a signal that is ignored or handled by someone else.
      if (old.sa_handler != SIG_DFL) continue;
      struct sigaction sa {};
      sa.sa_handler = removePendingAndDie;
      sigemptyset(&sa.sa_mask);
      sigaction(sig, &sa, nullptr);
    }
  }
  gHasPending = 0;
  if (path.size() < sizeof gPending) {
    std::memcpy(gPending, path.c_str(), path.size() + 1);
    gHasPending = 1;
  }
}

void untrack() { gHasPending = 0; }

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
    untrack();
    temporary_.clear();
  }
}

bool AtomicFile::open(const std::string& target, std::string& error, mode_t mode) {
  discard();
  target_ = target;
  std::string temporary = target + ".tmp-XXXXXX";
  // mkstemp creates the file with O_EXCL: a name that exists, a planted link included, is never used.
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) {
    error = because(errno);
    return false;
  }
  temporary_ = temporary;
  track(temporary_);
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
    untrack();
    temporary_.clear();  // left behind, as a crash would leave it
    return false;
  }
  if (rename(temporary_.c_str(), target_.c_str()) != 0) {
    error = because(errno);
    discard();
    return false;
  }
  untrack();
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
