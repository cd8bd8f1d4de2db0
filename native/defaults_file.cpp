#include "native/defaults_file.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace zorvex::native {
namespace {

constexpr size_t kMaxFileSize = 64u << 20;  // larger than any defaults file we write, by far

std::string reason() { return std::strerror(errno); }

std::string folderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

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

bool writeAll(int fd, const std::vector<uint8_t>& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += size_t(n);
  }
  return true;
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

std::string utcStamp() {
  const time_t now = time(nullptr);
  tm t{};
  gmtime_r(&now, &t);
  char buf[32];
  strftime(buf, sizeof buf, "%Y%m%dT%H%M%SZ", &t);
  return buf;
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

bool DefaultsFile::load(std::string& notice, std::string& error) {
  notice.clear();
  replaceAll(plist::Value::dictionary());
  // Non-blocking, so that a pipe or a device given as the path can't hang the program.
  const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    if (errno == ENOENT) {
      loaded_ = true;
      return true;
    }
    error = path_ + ": can't read the defaults file: " + reason();
    return false;
  }
  struct stat st;
  std::vector<uint8_t> bytes;
  std::string failure;
  if (fstat(fd, &st) != 0) {
    failure = reason();
  } else if (!S_ISREG(st.st_mode)) {
    failure = "it is not a regular file";
  } else if (!readAll(fd, bytes)) {
    failure = reason();
  }
  close(fd);
  if (!failure.empty()) {
    error = path_ + ": can't read the defaults file: " + failure;
    return false;
  }

  plist::Value root;
  std::string why;
  if (bytes.empty()) {
    why = "it is empty";
  } else if (bytes.size() > kMaxFileSize) {
    why = "it is larger than 64 MiB";
  } else if (!plist::readBinary(bytes, root, why)) {
    // `why` says what is wrong
  } else if (!root.is(plist::Type::dictionary)) {
    why = "it holds no dictionary";
  } else {
    replaceAll(std::move(root));
    loaded_ = true;
    return true;
  }

  // Keep the unreadable file beside a fresh one, under a name that is not taken yet.
  const std::string stem = path_ + ".unreadable-" + utcStamp();
  std::string aside = stem;
  for (int k = 2; access(aside.c_str(), F_OK) == 0; ++k) aside = stem + "-" + std::to_string(k);
  if (rename(path_.c_str(), aside.c_str()) != 0) {
    error = path_ + ": the defaults file can't be read (" + why + ") nor moved aside: " + reason();
    return false;
  }
  notice = path_ + ": the defaults file can't be read (" + why + "); it was moved to " + aside +
           " and the defaults start empty";
  loaded_ = true;
  return true;
}

bool DefaultsFile::save(std::string& error) {
  std::vector<uint8_t> bytes;
  std::string why;
  if (!plist::writeBinary(dictionary(), bytes, why)) {
    error = path_ + ": can't encode the defaults: " + why;
    return false;
  }
  const std::string folder = folderOf(path_);
  if (!makeFolders(folder)) {
    error = folder + ": can't make the folder for the defaults: " + reason();
    return false;
  }
  std::string temporary = path_ + ".tmp-XXXXXX";
  const int fd = mkstemp(temporary.data());
  if (fd < 0) {
    error = path_ + ": can't write the defaults file: " + reason();
    return false;
  }
  if (!writeAll(fd, bytes) || fsync(fd) != 0) {
    error = path_ + ": can't write the defaults file: " + reason();
    close(fd);
    unlink(temporary.c_str());
    return false;
  }
  if (close(fd) != 0) {
    error = path_ + ": can't write the defaults file: " + reason();
    unlink(temporary.c_str());
    return false;
  }
  if (beforeRename && !beforeRename(temporary)) {
    error = path_ + ": the write was stopped before the rename";
    return false;
  }
  if (rename(temporary.c_str(), path_.c_str()) != 0) {
    error = path_ + ": can't replace the defaults file: " + reason();
    unlink(temporary.c_str());
    return false;
  }
  // Make the rename itself lasting.
  if (const int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
    fsync(dir);
    close(dir);
  }
  return true;
}

void DefaultsFile::changed() {
  // Before a successful load nothing is written, so an unreadable file is never overwritten.
  if (!loaded_) return;
  std::string error;
  if (!save(error) && writeError_.empty()) writeError_ = error;
}

}  // namespace zorvex::native
