#include "native/defaults_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cctype>
#include <cstring>
#include <ctime>
#include <map>

#include "native/atomic_file.h"

namespace zorvex::native {
namespace {

constexpr size_t kMaxFileSize = 64u << 20;  // larger than any defaults file we write, by far

std::string reason() { return std::strerror(errno); }

// Makes `folder` and its missing parents.
bool makeFolders(const std::string& folder) {
  struct stat st;
  if (stat(folder.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return true;
    errno = ENOTDIR;
    return false;
  }
  const std::string parent = folderOf(folder);
  if (parent != folder && !makeFolders(parent)) return false;
  return mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
}

// The whole file, or false with errno set; a file above the size limit reads as far as the limit.
bool readAll(int fd, std::vector<uint8_t>& out) {
  uint8_t buffer[65536];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    out.insert(out.end(), buffer, buffer + n);
    if (out.size() > kMaxFileSize) return true;
  }
}

// The path with its symbolic links followed to the file they name, which need not exist yet.
std::string resolveLinks(std::string path) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
    char buffer[PATH_MAX];
    const ssize_t n = readlink(path.c_str(), buffer, sizeof buffer - 1);
    if (n <= 0) return path;
    const std::string link(buffer, size_t(n));
    path = link[0] == '/' ? link : folderOf(path) + "/" + link;
  }
  return path;
}

std::string baseName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Removes temporary files of ours ("NAME.tmp-" and six letters or digits) that a killed write left
// beside `target`. Only under the lock, when no other write can be under way.
void removeStaleTemporaries(const std::string& target) {
  const std::string folder = folderOf(target), prefix = baseName(target) + ".tmp-";
  DIR* dir = opendir(folder.c_str());
  if (!dir) return;
  while (const dirent* e = readdir(dir)) {
    const std::string name = e->d_name;
    if (name.size() != prefix.size() + 6 || name.compare(0, prefix.size(), prefix) != 0) continue;
    bool ours = true;
    for (size_t i = prefix.size(); i < name.size(); ++i) ours = ours && std::isalnum(static_cast<unsigned char>(name[i]));
    struct stat st;
    const std::string path = folder + "/" + name;
    if (ours && lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) unlink(path.c_str());
  }
  closedir(dir);
}

// A name beside `path` for what is kept of it: "<path>.unreadable-<UTC time>", with "-2", "-3"...
// when that is taken.
std::string asideName(const std::string& path) {
  const time_t now = time(nullptr);
  tm t{};
  gmtime_r(&now, &t);
  char buf[32];
  strftime(buf, sizeof buf, "%Y%m%dT%H%M%SZ", &t);
  const std::string stem = path + ".unreadable-" + buf;
  std::string aside = stem;
  for (int k = 2; access(aside.c_str(), F_OK) == 0; ++k) aside = stem + "-" + std::to_string(k);
  return aside;
}

// The folders this process holds the lock of, with the number of holders: a second DefaultsFile of
// the same folder in one process shares the lock instead of waiting for itself.
struct HeldLock {
  int fd;
  int holders;
};
std::map<std::string, HeldLock>& heldLocks() {
  static std::map<std::string, HeldLock> held;
  return held;
}

}  // namespace

std::string defaultsPath(const std::optional<std::string>& flag) {
  if (flag) return *flag;
  if (const char* env = std::getenv("ZORVEX_DEFAULTS"); env && *env) return env;
  // Only an absolute XDG_CONFIG_HOME counts; a relative one is to be ignored.
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && xdg[0] == '/') {
    return std::string(xdg) + "/zorvex/defaults.plist";
  }
  std::string home;
  if (const char* h = std::getenv("HOME"); h && *h) {
    home = h;
  } else if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) {
    home = pw->pw_dir;
  }
  return (home.empty() ? std::string(".") : home) + "/.config/zorvex/defaults.plist";
}

bool parseDefaults(const std::vector<uint8_t>& bytes, plist::Value& root, std::string& why) {
  if (bytes.empty()) {
    root = plist::Value::dictionary();
    return true;
  }
  if (bytes.size() > kMaxFileSize) {
    why = "it is larger than 64 MiB";
    return false;
  }
  plist::Value value;
  if (!plist::readBinary(bytes, value, why)) return false;
  if (!value.is(plist::Type::dictionary)) {
    why = "it holds no dictionary";
    return false;
  }
  root = std::move(value);
  return true;
}

DefaultsFile::~DefaultsFile() { release(); }

// The lock is on the folder, which stays while the file in it is replaced by renames. A folder that
// isn't there yet holds no file to read: the lock is taken when the first write has made it.
void DefaultsFile::lock() {
  if (!lockedFolder_.empty()) return;
  char real[PATH_MAX];
  if (!realpath(folderOf(target_).c_str(), real)) return;
  if (auto it = heldLocks().find(real); it != heldLocks().end()) {
    ++it->second.holders;
    lockedFolder_ = real;
    return;
  }
  const int fd = open(real, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  while (flock(fd, LOCK_EX) != 0 && errno == EINTR) {
  }
  heldLocks()[real] = HeldLock{fd, 1};
  lockedFolder_ = real;
}

void DefaultsFile::release() {
  if (!lockedFolder_.empty()) {
    auto it = heldLocks().find(lockedFolder_);
    if (it != heldLocks().end() && --it->second.holders == 0) {
      close(it->second.fd);
      heldLocks().erase(it);
    }
    lockedFolder_.clear();
  }
  released_ = true;
}

bool DefaultsFile::load(std::string& notice, std::string& error) {
  notice.clear();
  replaceAll(plist::Value::dictionary());
  stored_ = plist::Value::dictionary();
  bytes_.clear();
  target_ = resolveLinks(path_);
  released_ = false;
  lock();
  // Non-blocking, so that a pipe or a device given as the path can't hang the program.
  const int fd = open(target_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    if (errno == ENOENT) {
      loaded_ = true;
      return true;
    }
    error = path_ + ": can't read the defaults file: " + reason();
    return false;
  }
  struct stat st;
  std::string failure;
  if (fstat(fd, &st) != 0) {
    failure = reason();
  } else if (!S_ISREG(st.st_mode)) {
    failure = "it is not a regular file";
  } else if (!readAll(fd, bytes_)) {
    failure = reason();
  }
  close(fd);
  if (!failure.empty()) {
    error = path_ + ": can't read the defaults file: " + failure;
    return false;
  }

  plist::Value root;
  std::string why;
  if (parseDefaults(bytes_, root, why)) {
    stored_ = root;
    replaceAll(std::move(root));
    loaded_ = true;
    return true;
  }

  // Keep the unreadable file beside a fresh one, under a name that is not taken yet.
  const std::string aside = asideName(target_);
  if (rename(target_.c_str(), aside.c_str()) != 0) {
    error = path_ + ": the defaults file can't be read (" + why + ") nor moved aside: " + reason();
    return false;
  }
  notice = path_ + ": the defaults file can't be read (" + why + "); it was moved to " + aside +
           " and the defaults start empty";
  bytes_.clear();
  loaded_ = true;
  return true;
}

std::string DefaultsFile::keepCopy(std::string& error) {
  const std::string aside = asideName(target_);
  const int fd = open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) {
    error = reason();
    return {};
  }
  size_t done = 0;
  while (done < bytes_.size()) {
    const ssize_t n = write(fd, bytes_.data() + done, bytes_.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += size_t(n);
  }
  if (done != bytes_.size() || fsync(fd) != 0) {
    error = reason();
    close(fd);
    unlink(aside.c_str());
    return {};
  }
  close(fd);
  return aside;
}

bool DefaultsFile::save(std::string& error) {
  std::vector<uint8_t> bytes;
  std::string why;
  if (!plist::writeBinary(dictionary(), bytes, why)) {
    error = path_ + ": can't encode the defaults: " + why;
    return false;
  }
  if (target_.empty()) target_ = resolveLinks(path_);
  // A file without write permission is the user's way of saying "don't change it".
  mode_t mode = 0600;
  if (struct stat st; stat(target_.c_str(), &st) == 0) {
    if ((st.st_mode & 0222) == 0) {
      error = path_ + ": the defaults file is read-only; the change was not stored";
      return false;
    }
    mode = st.st_mode & 07777;
  }
  const std::string folder = folderOf(target_);
  if (!makeFolders(folder)) {
    error = folder + ": can't make the folder for the defaults: " + reason();
    return false;
  }
  if (lockedFolder_.empty() && !released_) lock();
  if (!lockedFolder_.empty()) removeStaleTemporaries(target_);
  AtomicFile file;
  if (!file.open(target_, why, mode)) {
    error = path_ + ": can't write the defaults file: " + why;
    return false;
  }
  std::fwrite(bytes.data(), 1, bytes.size(), file.stream());
  const auto hook = [](const std::string& temporary, void* self) {
    auto* me = static_cast<DefaultsFile*>(self);
    return !me->beforeRename || me->beforeRename(temporary);
  };
  if (!file.commit(why, hook, this)) {
    error = path_ + ": can't write the defaults file: " + why;
    return false;
  }
  stored_ = dictionary();
  return true;
}

void DefaultsFile::changed() {
  // Before a successful load nothing is written, so an unreadable file is never overwritten; and a
  // change that leaves the same values writes nothing.
  if (!loaded_ || dictionary() == stored_) return;
  std::string error = path_ + ": the defaults file is left as it was; the change was not stored";
  if (readOnly_) {
    if (writeError_.empty()) writeError_ = error;
    return;
  }
  if (!save(error) && writeError_.empty()) writeError_ = error;
}

}  // namespace zorvex::native
