#include "native/interruptible_output.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace zorvex::native {
namespace {

// The list lives in fixed storage, so that a signal handler can walk it without allocating. A slot
// is filled before it is marked used and marked unused before it is emptied.
constexpr int kSlots = 16;
char gPaths[kSlots][PATH_MAX + 16];
volatile sig_atomic_t gUsed[kSlots];

extern "C" void onInterrupt(int signal) {
  const int saved = errno;
  for (int i = 0; i < kSlots; ++i)
    if (gUsed[i]) unlink(gPaths[i]);
  errno = saved;
  // End as the signal would have ended the process.
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  sigemptyset(&standard.sa_mask);
  sigaction(signal, &standard, nullptr);
  raise(signal);
}

void install(bool onlyWhereDefault) {
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  sigemptyset(&action.sa_mask);
  for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&action.sa_mask, s);
  for (int s : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction old {};
    if (sigaction(s, nullptr, &old) != 0 || old.sa_handler == SIG_IGN) continue;
    if (onlyWhereDefault && old.sa_handler != SIG_DFL) continue;
    sigaction(s, &action, nullptr);
  }
}

}  // namespace

void installInterruptCleanup() { install(false); }
void installInterruptCleanupWhereDefault() { install(true); }

RemovedOnInterrupt::RemovedOnInterrupt(const std::string& path) : slot_(-1) {
  if (path.empty() || path.size() > PATH_MAX) return;
  for (int i = 0; i < kSlots; ++i) {
    if (gUsed[i]) continue;
    std::memcpy(gPaths[i], path.c_str(), path.size() + 1);
    gUsed[i] = 1;
    slot_ = i;
    return;
  }
}

RemovedOnInterrupt::~RemovedOnInterrupt() {
  if (slot_ >= 0) gUsed[slot_] = 0;
}

std::string makeTemporarySibling(const std::string& path, std::string& error) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  const std::string extension = dot == std::string::npos || dot == 0 ? "" : name.substr(dot);
  std::string pattern = folder + "." + name + ".zorvex-XXXXXX" + extension;
  const int fd = mkstemps(pattern.data(), int(extension.size()));
  if (fd < 0) {
    error = std::string("can't write it (") + std::strerror(errno) + ")";
    return {};
  }
  // A new file gets the mode the process's umask gives, not mkstemps's private one.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  close(fd);
  return pattern;
}

bool writeThroughTemporary(const std::string& path,
                           const std::function<bool(const std::string& temporary, std::string& error)>& write,
                           std::string& error) {
  // No interrupt between making the file and putting it on the list.
  sigset_t interrupts, previous;
  sigemptyset(&interrupts);
  for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&interrupts, s);
  sigprocmask(SIG_BLOCK, &interrupts, &previous);
  const std::string temporary = makeTemporarySibling(path, error);
  RemovedOnInterrupt guard(temporary);
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  if (temporary.empty()) return false;
  if (!write(temporary, error)) {
    std::remove(temporary.c_str());
    return false;
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    error = std::string("can't write it (") + std::strerror(errno) + ")";
    std::remove(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace zorvex::native
