// zorvex serve: the built web app on localhost, with the headers a WebAssembly app needs, and the
// server message document at /zorvex/messageJSON.php. Nothing outside the app's folder is served.
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

#include "cli/args.h"
#include "cli/commands.h"
#include "core/look/json.h"
#include "native/http_server.h"
#include "native/input_file.h"

namespace zorvex::cli {
namespace {

constexpr const char* kMessagePath = "/zorvex/messageJSON.php";
constexpr uint64_t kMaxMessageBytes = 64 * 1024;
// Files of the app are read whole into memory for each answer; none is near this.
constexpr uint64_t kMaxServedFileBytes = 256u << 20;

struct ServeOptions {
  int64_t port = 8080;
  std::string root;
  std::optional<std::string> message;
};

// The folder of this program's own file, from /proc.
std::string programFolder() {
  char buffer[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) return ".";
  std::string path(buffer, size_t(n));
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::optional<std::string> realPath(const std::string& path) {
  char buffer[PATH_MAX];
  if (!realpath(path.c_str(), buffer)) return std::nullopt;
  return std::string(buffer);
}

// The message document: read at start, and again when the file changes (its identity, size or
// time), keeping the last good one when the new content is refused.
class MessageDocument {
 public:
  explicit MessageDocument(std::string path) : path_(std::move(path)) {}

  // Reads the file if it changed since the last look. False with `error` when what is there now
  // can't be used.
  bool refresh(std::string& error) {
    struct stat st {};
    if (stat(path_.c_str(), &st) == 0 && st.st_ino == seen_.st_ino && st.st_dev == seen_.st_dev &&
        st.st_size == seen_.st_size && st.st_mtim.tv_sec == seen_.st_mtim.tv_sec &&
        st.st_mtim.tv_nsec == seen_.st_mtim.tv_nsec)
      return true;
    std::string text, why;
    if (!native::readInputFile(path_, kMaxMessageBytes, text, why)) {
      error = path_ + ": " + why;
      return false;
    }
    json::Value document;
    if (!json::parse(text, document, why)) {
      error = path_ + ": it is not JSON (" + why + ")";
      return false;
    }
    if (document.kind != json::Value::Kind::object) {
      error = path_ + ": it is not a JSON object ({...})";
      return false;
    }
    text_ = std::move(text);
    seen_ = st;
    return true;
  }
  const std::string& text() const { return text_; }

 private:
  std::string path_, text_;
  struct stat seen_ {};
};

std::string contentType(const std::string& path) {
  static const std::pair<const char*, const char*> kTypes[] = {
      {".html", "text/html; charset=utf-8"},  {".js", "text/javascript; charset=utf-8"},
      {".mjs", "text/javascript; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
      {".wasm", "application/wasm"},            {".json", "application/json"},
      {".webmanifest", "application/manifest+json"}, {".png", "image/png"},
      {".svg", "image/svg+xml"},                {".ico", "image/x-icon"},
      {".jpg", "image/jpeg"},                   {".jpeg", "image/jpeg"},
      {".txt", "text/plain; charset=utf-8"},    {".map", "application/json"},
  };
  for (const auto& [ext, type] : kTypes) {
    const std::string e(ext);
    if (path.size() >= e.size() && path.compare(path.size() - e.size(), e.size(), e) == 0) return type;
  }
  return "application/octet-stream";
}

// The file under `root` (already a real path) that a request path names, or empty when the path
// leaves the folder (a ".." segment, a symbolic link out), names nothing, or names no regular file.
// The request path is already percent-decoded.
std::string resolve(const std::string& root, const std::string& requestPath) {
  if (requestPath.empty() || requestPath[0] != '/') return {};
  if (requestPath.find('\0') != std::string::npos || requestPath.find('\\') != std::string::npos) return {};
  std::stringstream segments(requestPath);
  std::string segment;
  while (std::getline(segments, segment, '/'))
    if (segment == "..") return {};
  std::string path = root + requestPath;
  struct stat info {};
  if (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) path += "/index.html";
  const std::optional<std::string> real = realPath(path);
  if (!real || real->compare(0, root.size() + 1, root + "/") != 0) return {};
  if (stat(real->c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  return *real;
}

int parse(int argc, char** argv, ServeOptions& o) {
  Args args(argc, argv, 2, {"--port", "--message", "--root"}, {});
  if (args.wantsHelp()) return commandHelp("serve");
  if (!args.error().empty()) {
    complain("serve: " + args.error());
    return kExitUsage;
  }
  if (!args.positional().empty()) {
    complain("serve: unexpected argument \"" + args.positional()[0] + "\"");
    return kExitUsage;
  }
  std::string error;
  if (auto port = args.value("--port"); port && !parseInt("--port", *port, 0, 65535, o.port, error)) {
    complain("serve: " + error);
    return kExitUsage;
  }
  o.message = args.value("--message");
  if (auto root = args.value("--root")) {
    o.root = *root;
  } else {
    // The build tree keeps the app in web/dist beside the build folder; an installed copy keeps it in
    // share/zorvex/web beside the bin folder.
    const std::string built = programFolder() + "/../web/dist", installed = programFolder() + "/../share/zorvex/web";
    struct stat info {};
    o.root = stat(built.c_str(), &info) != 0 && stat(installed.c_str(), &info) == 0 ? installed : built;
  }
  return -1;
}

}  // namespace

int serveCommand(int argc, char** argv) {
  ServeOptions o;
  if (int code = parse(argc, argv, o); code >= 0) return code;

  const std::optional<std::string> root = realPath(o.root);
  struct stat info {};
  if (!root || stat(root->c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    complain("serve: " + o.root + ": no such folder (make builds the web app into web/dist)");
    return kExitFailure;
  }
  const std::string folder = *root;
  std::optional<MessageDocument> message;
  if (o.message) {
    message.emplace(*o.message);
    std::string error;
    if (!message->refresh(error)) {
      complain("serve: --message " + error);
      return kExitFailure;
    }
  }

  native::HttpServer server(
      [&](const native::HttpRequest& req, native::HttpResponse& res) {
        if (req.path == kMessagePath) {
          std::string error;
          if (message && !message->refresh(error)) {
            // Told once per change of the file; the last good document is still answered.
            static std::string told;
            if (error != told) std::fprintf(stderr, "zorvex: serve: %s; the previous message is answered\n", error.c_str());
            told = error;
          }
          res.headers.emplace_back("Cache-Control", "no-store");
          res.contentType = "application/json";
          if (message) res.body = message->text();
          return;
        }
        const std::string file = resolve(folder, req.path);
        std::string body, why;
        if (file.empty() || !native::readInputFile(file, kMaxServedFileBytes, body, why)) {
          res.status = 404;
          res.body = "Not found\n";
          return;
        }
        // Hashed build files never change; everything else is looked at again each time.
        const bool hashed = req.path.rfind("/assets/", 0) == 0;
        res.headers.emplace_back("Cache-Control", hashed ? "public, max-age=31536000, immutable" : "no-cache");
        res.contentType = contentType(file);
        res.body = std::move(body);
      },
      {{"Cross-Origin-Opener-Policy", "same-origin"},
       {"Cross-Origin-Embedder-Policy", "require-corp"},
       {"Cross-Origin-Resource-Policy", "same-origin"},
       {"X-Content-Type-Options", "nosniff"}});

  std::string error;
  if (!server.listen("127.0.0.1", int(o.port), error)) {
    complain("serve: " + error);
    return kExitFailure;
  }
  std::printf("Serving %s at http://localhost:%d/ (Ctrl-C stops)\n", folder.c_str(), server.port());
  std::fflush(stdout);
  if (!server.run(error)) {
    complain("serve: " + error);
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace zorvex::cli
