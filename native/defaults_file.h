// The user defaults of the command line: one binary property-list file holding a dictionary of every
// key. It is written only when a change made it differ from what is stored, whole and atomically (a
// new file renamed over the old one, through a symbolic link to its target), so a crash never leaves
// half a file. Commands that read, change and write it hold an advisory lock on its folder from the
// load on, so that two at once take turns instead of losing each other's changes.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/stack/defaults.h"

namespace zorvex::native {

// Where the defaults live: `flag` if given, else $ZORVEX_DEFAULTS, else
// $XDG_CONFIG_HOME/zorvex/defaults.plist, else ~/.config/zorvex/defaults.plist.
std::string defaultsPath(const std::optional<std::string>& flag);

// The bytes of a defaults file as a dictionary. False with `why` for anything else (an empty file
// reads as an empty dictionary).
bool parseDefaults(const std::vector<uint8_t>& bytes, plist::Value& root, std::string& why);

class DefaultsFile final : public MemoryDefaults {
 public:
  explicit DefaultsFile(std::string path) : path_(std::move(path)) {}
  ~DefaultsFile() override;
  DefaultsFile(const DefaultsFile&) = delete;
  DefaultsFile& operator=(const DefaultsFile&) = delete;

  const std::string& path() const { return path_; }

  // Takes the lock (waiting for another command to finish with the file) and reads the file; a
  // missing or empty one gives empty defaults. A file whose content is not a property-list
  // dictionary is renamed to "<path>.unreadable-<UTC time>", `notice` says so and where it went, and
  // the defaults start empty. False, with `error`, when the file can't be read or moved aside: then
  // nothing may be written over it. DefaultsFiles of one folder in one process share the lock.
  bool load(std::string& notice, std::string& error);

  // Ends the lock, for a command that has read what it needs and writes nothing more.
  void release();

  // Writes a copy of the file as it was read to "<path>.unreadable-<UTC time>", for a value in it
  // that is about to be replaced. Gives the copy's path, or empty with `error` set.
  std::string keepCopy(std::string& error);

  // Writes every key: a temporary file in the same folder, flushed to disk, renamed over the old one.
  // Refused when the file is read-only (no write permission bits).
  bool save(std::string& error);

  // Keeps the file as it is: later changes stay in memory and are reported as not written.
  void setReadOnly(bool readOnly) { readOnly_ = readOnly; }

  // The first failure of a write made after a change, or empty.
  const std::string& writeError() const { return writeError_; }
  void clearWriteError() { writeError_.clear(); }

  // Called with the temporary file's path once it is written and flushed, just before the rename.
  // Returning false stops there, as a crash at that moment would: the old file stays as it was.
  std::function<bool(const std::string& temporary)> beforeRename;

 protected:
  void changed() override;

 private:
  void lock();

  std::string path_;    // as given, for messages
  std::string target_;  // the file itself, symbolic links followed
  std::string lockedFolder_;  // the folder whose lock this holds, or empty
  bool released_ = false;
  bool readOnly_ = false;
  bool loaded_ = false;
  std::vector<uint8_t> bytes_;  // the file as read
  plist::Value stored_;         // what the file holds now
  std::string writeError_;
};

}  // namespace zorvex::native
