// zorvex serve: the built web app on localhost, with the headers a WebAssembly app needs, and the
// server message document at /zorvex/messageJSON.php. Nothing outside the app's folder is served.
#include <httplib.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "cli/args.h"
#include "cli/commands.h"

namespace zorvex::cli {
namespace {

constexpr const char* kMessagePath = "/zorvex/messageJSON.php";

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

bool readFile(const std::string& path, std::string& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  if (in.bad()) return false;
  out = s.str();
  return true;
}

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
  if (o.message) {
    std::string document;
    if (!readFile(*o.message, document)) {
      complain("serve: " + *o.message + ": can't read it");
      return kExitFailure;
    }
  }

  httplib::Server server;
  server.set_post_routing_handler([](const httplib::Request&, httplib::Response& res) {
    res.set_header("Cross-Origin-Opener-Policy", "same-origin");
    res.set_header("Cross-Origin-Embedder-Policy", "require-corp");
    res.set_header("Cross-Origin-Resource-Policy", "same-origin");
    res.set_header("X-Content-Type-Options", "nosniff");
  });

  const std::optional<std::string> message = o.message;
  server.Get(kMessagePath, [message](const httplib::Request&, httplib::Response& res) {
    std::string document;
    if (message && !readFile(*message, document)) {
      std::fprintf(stderr, "zorvex: serve: %s: can't read it\n", message->c_str());
      res.status = 500;
      return;
    }
    res.set_header("Cache-Control", "no-store");
    res.set_content(document, "application/json");
  });

  const std::string folder = *root;
  server.Get(".*", [folder](const httplib::Request& req, httplib::Response& res) {
    const std::string file = resolve(folder, req.path);
    std::string body;
    if (file.empty() || !readFile(file, body)) {
      res.status = 404;
      res.set_content("Not found\n", "text/plain; charset=utf-8");
      return;
    }
    // Hashed build files never change; everything else is looked at again each time.
    const bool hashed = req.path.rfind("/assets/", 0) == 0;
    res.set_header("Cache-Control", hashed ? "public, max-age=31536000, immutable" : "no-cache");
    res.set_content(std::move(body), contentType(file));
  });

  int port = int(o.port);
  if (port == 0) {
    port = server.bind_to_any_port("127.0.0.1");
  } else if (!server.bind_to_port("127.0.0.1", port)) {
    port = -1;
  }
  if (port <= 0) {
    complain("serve: can't listen on port " + std::to_string(o.port) + " (is it in use?)");
    return kExitFailure;
  }
  std::printf("Serving %s at http://localhost:%d/ (Ctrl-C stops)\n", folder.c_str(), port);
  std::fflush(stdout);
  return server.listen_after_bind() ? kExitOk : kExitFailure;
}

}  // namespace zorvex::cli
