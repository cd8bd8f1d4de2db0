// zorvex serve: the app's files with their types and the headers a WebAssembly app needs, the message
// document, and nothing from outside the app's folder however the path is written.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <regex>
#include <thread>

#include "tests/native/store_test_support.h"

namespace zorvex {
namespace {

using testsupport::TempDir;
using testsupport::writeFile;

struct Response {
  int status = 0;
  std::string head, body;
  bool has(const std::string& header) const { return head.find(header) != std::string::npos; }
};

// Runs `zorvex serve` on a free port for the life of the object.
class Server {
 public:
  explicit Server(std::vector<std::string> args) {
    int out[2];
    if (pipe(out) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], 1);
      close(out[0]);
      std::vector<std::string> all = {ZORVEX_CLI, "serve", "--port", "0"};
      all.insert(all.end(), args.begin(), args.end());
      std::vector<char*> argv;
      for (std::string& a : all) argv.push_back(a.data());
      argv.push_back(nullptr);
      execv(ZORVEX_CLI, argv.data());
      _exit(127);
    }
    close(out[1]);
    std::string line;
    char c;
    while (read(out[0], &c, 1) == 1 && c != '\n') line += c;
    close(out[0]);
    std::smatch m;
    if (std::regex_search(line, m, std::regex("http://localhost:(\\d+)/"))) port_ = std::stoi(m[1]);
  }
  ~Server() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }
  int port() const { return port_; }

  // A connection to the server, or -1.
  int connectTo() const {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port_));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      close(fd);
      return -1;
    }
    return fd;
  }

  // One request, the target written to the wire exactly as given; no answer within `seconds` is
  // no answer.
  Response get(const std::string& target, int seconds = 30) const {
    Response r;
    const int fd = connectTo();
    if (fd < 0) return r;
    const timeval limit{seconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const std::string request = "GET " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    if (write(fd, request.data(), request.size()) != ssize_t(request.size())) return r;
    std::string all;
    char buffer[4096];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) all.append(buffer, size_t(n));
    close(fd);
    const size_t split = all.find("\r\n\r\n");
    if (split == std::string::npos) return r;
    r.head = all.substr(0, split);
    r.body = all.substr(split + 4);
    if (r.head.size() > 12) r.status = std::stoi(r.head.substr(9, 3));
    return r;
  }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
};

class ServeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir / "app/assets");
    std::filesystem::create_directories(dir / "app/sub");
    writeFile(dir / "app/index.html", "<!doctype html>app");
    writeFile(dir / "app/sub/index.html", "sub page");
    writeFile(dir / "app/assets/engine.wasm", std::string("\0asm", 4));
    writeFile(dir / "app/assets/main.js", "js");
    writeFile(dir / "app/worker.mjs", "mjs");
    writeFile(dir / "app/manifest.webmanifest", "{}");
    writeFile(dir / "secret.txt", "SECRET");
    std::filesystem::create_symlink(dir / "secret.txt", dir / "app/link.txt");
    std::filesystem::create_symlink(dir.path(), dir / "app/up");
    writeFile(dir / "message.json", R"({"title":"Hello","message":"From us"})");
  }
  TempDir dir;
};

TEST_F(ServeTest, ServesTheAppWithItsTypesAndTheHeadersWebAssemblyNeeds) {
  Server server({"--root", dir / "app"});
  ASSERT_GT(server.port(), 0);
  const Response index = server.get("/");
  EXPECT_EQ(index.status, 200);
  EXPECT_EQ(index.body, "<!doctype html>app");
  EXPECT_TRUE(index.has("Content-Type: text/html"));
  EXPECT_TRUE(index.has("Cross-Origin-Opener-Policy: same-origin"));
  EXPECT_TRUE(index.has("Cross-Origin-Embedder-Policy: require-corp"));
  EXPECT_TRUE(server.get("/assets/engine.wasm").has("Content-Type: application/wasm"));
  EXPECT_TRUE(server.get("/assets/main.js").has("Content-Type: text/javascript"));
  EXPECT_TRUE(server.get("/worker.mjs").has("Content-Type: text/javascript"));
  EXPECT_TRUE(server.get("/manifest.webmanifest").has("Content-Type: application/manifest+json"));
  EXPECT_EQ(server.get("/sub/").body, "sub page");
  EXPECT_EQ(server.get("/nothing.js").status, 404);
  EXPECT_TRUE(server.get("/nothing.js").has("Cross-Origin-Embedder-Policy: require-corp"));
}

TEST_F(ServeTest, ServesNothingFromOutsideTheAppsFolder) {
  Server server({"--root", dir / "app"});
  ASSERT_GT(server.port(), 0);
  for (const std::string target :
       {"/../secret.txt", "/assets/../../secret.txt", "/%2e%2e/secret.txt", "/%2E%2E%2Fsecret.txt",
        "/assets/..%2f..%2fsecret.txt", "/.%2e/secret.txt", "/link.txt", "/up/secret.txt",
        "/..\\secret.txt", "/%00/../secret.txt"}) {
    const Response r = server.get(target);
    EXPECT_NE(r.status, 200) << target;
    EXPECT_EQ(r.body.find("SECRET"), std::string::npos) << target;
  }
}

TEST_F(ServeTest, AnswersTheMessageDocumentForAnyQuery) {
  Server with({"--root", dir / "app", "--message", dir / "message.json"}), without({"--root", dir / "app"});
  ASSERT_TRUE(with.port() > 0 && without.port() > 0);
  for (const std::string target : {"/zorvex/messageJSON.php", "/zorvex/messageJSON.php?1234567"}) {
    const Response r = with.get(target);
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.body, R"({"title":"Hello","message":"From us"})");
    EXPECT_TRUE(r.has("Content-Type: application/json"));
  }
  const Response empty = without.get("/zorvex/messageJSON.php?3");
  EXPECT_EQ(empty.status, 200);
  EXPECT_EQ(empty.body, "");
}

TEST_F(ServeTest, TheMessageIsReadAgainWhenItChangesAndABadOneIsNotTaken) {
  Server server({"--root", dir / "app", "--message", dir / "message.json"});
  ASSERT_GT(server.port(), 0);
  writeFile(dir / "message.json", R"({"title":"Changed"})");
  EXPECT_EQ(server.get("/zorvex/messageJSON.php?1").body, R"({"title":"Changed"})");
  writeFile(dir / "message.json", R"({"title":)");  // half written: the last good one stays
  EXPECT_EQ(server.get("/zorvex/messageJSON.php?2").body, R"({"title":"Changed"})");
}

// Slow and idle connections hold nothing back: with 64 connections sending a request a line at a
// time and 20 that send nothing, the app is still answered at once (well before any of them times
// out).
TEST_F(ServeTest, SlowAndIdleConnectionsDontKeepTheAppWaiting) {
  Server server({"--root", dir / "app"});
  ASSERT_GT(server.port(), 0);
  std::vector<int> held;
  for (int i = 0; i < 84; ++i) {
    const int fd = server.connectTo();
    ASSERT_GE(fd, 0);
    if (i < 64) {
      const std::string start = "GET / HTTP/1.1\r\nHost: localhost\r\n";
      ASSERT_EQ(write(fd, start.data(), start.size()), ssize_t(start.size()));
    }
    held.push_back(fd);
  }
  for (int round = 0; round < 2; ++round) {
    for (size_t i = 0; i < 64; ++i) ASSERT_EQ(write(held[i], "X-Slow: 1\r\n", 11), 11);
    const Response r = server.get("/", 3);
    EXPECT_EQ(r.status, 200) << round;
  }
  for (int fd : held) close(fd);
}

TEST_F(ServeTest, RefusesBadOptionsAPortInUseAndABadMessage) {
  using testsupport::quote;
  Server first({"--root", dir / "app"});
  ASSERT_GT(first.port(), 0);
  writeFile(dir / "list.json", "[1, 2]");
  writeFile(dir / "big.json", "{\"a\":\"" + std::string(70 * 1024, 'x') + "\"}");
  const std::string app = " --root " + quote(dir / "app");
  for (auto [args, code, says] :
       {std::tuple{std::string("--port 70000"), 2, "--port"},
        {"--root " + quote(dir / "missing"), 1, "missing"},
        {"--port " + std::to_string(first.port()) + app, 1, "in use"},
        {app + " --message " + quote(dir / "none.json"), 1, "none.json: can't open it (No such file"},
        {app + " --message /dev/zero", 1, "/dev/zero: it is a device"},
        {app + " --message " + quote(dir / "list.json"), 1, "not a JSON object"},
        {app + " --message " + quote(dir / "big.json"), 1, "more than the 64 KiB"}}) {
    // A server that starts where it should have refused is stopped after a while.
    const auto r = testsupport::shell(dir, "timeout 5 " + quote(ZORVEX_CLI) + " serve " + args);
    EXPECT_EQ(r.code, code) << args;
    EXPECT_NE(r.err.find(says), std::string::npos) << args << "\n" << r.err;
  }
}

}  // namespace
}  // namespace zorvex
