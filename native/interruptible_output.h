// Output files that an interruption never leaves half written. A file is written under a unique
// temporary name beside its target and renamed over it when whole; while it is being written, its
// temporary name is on a list that the handlers of SIGINT, SIGTERM and SIGHUP clear before the
// process ends as the signal would have ended it.
#pragma once

#include <functional>
#include <string>

namespace zorvex::native {

// Installs the handlers (once per process; again in a child after fork is harmless). A signal the
// shell set to be ignored stays ignored.
void installInterruptCleanup();
// The same, but only for the signals that still have their default action, so that a handler of
// the caller's own (a batch's parent) is kept.
void installInterruptCleanupWhereDefault();

// Keeps `path` on the list of files removed on an interrupt for as long as it lives.
class RemovedOnInterrupt {
 public:
  explicit RemovedOnInterrupt(const std::string& path);
  ~RemovedOnInterrupt();
  RemovedOnInterrupt(const RemovedOnInterrupt&) = delete;
  RemovedOnInterrupt& operator=(const RemovedOnInterrupt&) = delete;

 private:
  int slot_;
};

// A fresh, empty file beside `path` whose name ends as path's does (the writers tell formats by the
// extension), hidden by a leading dot. Empty with `error` set when it can't be made.
std::string makeTemporarySibling(const std::string& path, std::string& error);

// Writes `path` through `write`, which is handed the temporary name to fill; the result is renamed
// over `path` when `write` succeeds, and removed when it fails or the process is interrupted.
bool writeThroughTemporary(const std::string& path,
                           const std::function<bool(const std::string& temporary, std::string& error)>& write,
                           std::string& error);

}  // namespace zorvex::native
