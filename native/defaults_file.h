// The user defaults of the command line: one binary property-list file holding a dictionary of every
// key. It is rewritten whole after each change, atomically, so a crash never leaves half a file.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "core/stack/defaults.h"

namespace zorvex::native {

// Where the defaults live: `flag` if given, else $ZORVEX_DEFAULTS, else
// $XDG_CONFIG_HOME/zorvex/defaults.plist, else ~/.config/zorvex/defaults.plist.
std::string defaultsPath(const std::optional<std::string>& flag);

class DefaultsFile final : public MemoryDefaults {
 public:
  explicit DefaultsFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // Reads the file; a missing one gives empty defaults. A file whose content is not a property-list
  // dictionary is renamed to "<path>.unreadable-<UTC time>", `notice` says so and where it went, and
  // the defaults start empty. False, with `error`, when the file can't be read or moved aside: then
  // nothing may be written over it.
  bool load(std::string& notice, std::string& error);

  // Writes every key: a temporary file in the same folder, flushed to disk, renamed over the old one.
  bool save(std::string& error);

  // The first failure of a write made after a change, or empty.
  const std::string& writeError() const { return writeError_; }

  // Called with the temporary file's path once it is written and flushed, just before the rename.
  // Returning false stops there, as a crash at that moment would: the old file stays as it was.
  std::function<bool(const std::string& temporary)> beforeRename;

 protected:
  void changed() override;

 private:
  std::string path_;
  bool loaded_ = false;
  std::string writeError_;
};

}  // namespace zorvex::native
