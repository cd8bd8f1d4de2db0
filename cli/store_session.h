// The stored state a subcommand works on: the defaults file, installed as the standard defaults and
// as the effect list's store, with the effect list loaded from it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "native/defaults_file.h"

namespace zorvex::cli {

class StoreSession {
 public:
  StoreSession() = default;
  StoreSession(const StoreSession&) = delete;
  StoreSession& operator=(const StoreSession&) = delete;
  ~StoreSession();

  // Opens the defaults named by --defaults (`flag`), ZORVEX_DEFAULTS or the standard place (waiting
  // while another command works on them), says on standard error when an unreadable file was moved
  // aside or a stored list that can't be used was kept in a copy, and loads the effect list (its lines
  // go to standard output). Gives -1 to go on, or the exit code when the file can't be read.
  int open(const std::optional<std::string>& flag);

  // Says on standard error when a write of the defaults failed. Gives `code`, or kExitFailure after a
  // failed write when `writesMatter`.
  int finish(int code, bool writesMatter = true);

  // Lets other commands at the file, for a command that has read what it needs.
  void release();

 private:
  std::unique_ptr<native::DefaultsFile> file_;
  bool keepUnchanged_ = false;  // the file can't be written over: a value in it can't be kept
};

}  // namespace zorvex::cli
