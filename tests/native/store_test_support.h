// Helpers for the tests of the stored state: a scratch folder, whole-file reads and writes, and runs
// of the zorvex binary or any shell command with their output captured.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace zorvex::testsupport {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zorvex-test-XXXXXX").string();
    path_ = mkdtemp(pattern.data()) ? pattern : "";
  }
  ~TempDir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }
  // The names in the folder, sorted.
  std::vector<std::string> names() const {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(path_)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
  }

 private:
  std::string path_;
};

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string quote(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

struct RunResult {
  int code = -1;
  std::string out, err;
};

// Runs `command` through the shell with standard output and error captured in `dir`.
inline RunResult shell(const TempDir& dir, const std::string& command) {
  const std::string out = dir / ".out", err = dir / ".err";
  const int status = std::system((command + " >" + quote(out) + " 2>" + quote(err) + " </dev/null").c_str());
  RunResult r;
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = readFile(out);
  r.err = readFile(err);
  std::filesystem::remove(out);
  std::filesystem::remove(err);
  return r;
}

}  // namespace zorvex::testsupport
