// A small HTTP/1.1 server for `zorvex serve`: one thread and an event loop, so that slow or idle
// connections cost a file descriptor and a little memory and never keep another request waiting.
// Every connection has deadlines: the whole request (head and body) must arrive within one, a kept
// connection waits for its next request within another, and a response must make progress. GET and
// HEAD only; the handler answers each request whole, in memory.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zorvex::native {

struct HttpRequest {
  std::string method;  // "GET" or "HEAD"
  std::string path;    // percent-decoded, without the query
  std::string query;   // after "?", as sent
};

struct HttpResponse {
  int status = 200;
  std::string contentType = "text/plain; charset=utf-8";
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
};

struct HttpLimits {
  int requestTimeoutMs = 10'000;  // from a request's first byte to its last
  int idleTimeoutMs = 5'000;      // a connection waiting for its first or next request
  int writeTimeoutMs = 30'000;    // a response that takes no bytes for this long is dropped
  size_t maxHeadBytes = 16 * 1024;
  size_t maxBodyBytes = 64 * 1024;
  size_t maxConnections = 1000;   // beyond this, new connections wait in the backlog
  int maxRequestsPerConnection = 1000;
  int backlog = 511;
};

class HttpServer {
 public:
  using Handler = std::function<void(const HttpRequest&, HttpResponse&)>;

  // `headers` go on every response, the server's own error answers included.
  HttpServer(Handler handler, std::vector<std::pair<std::string, std::string>> headers = {}, HttpLimits limits = {});
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Listens on `host` (an IPv4 address) at `port`, 0 for a free one. A port that another program
  // listens on is refused, never shared. False with `error` set.
  bool listen(const std::string& host, int port, std::string& error);
  int port() const { return port_; }

  // Serves until the process ends; false with `error` if the loop itself fails.
  bool run(std::string& error);

 private:
  struct Connection;
  void accept(long long now);
  void onReadable(Connection& c, long long now);
  void onWritable(Connection& c, long long now);
  void process(Connection& c, long long now);
  void respond(Connection& c, const HttpRequest* request, HttpResponse response, bool close, long long now);

  Handler handler_;
  std::vector<std::pair<std::string, std::string>> headers_;
  HttpLimits limits_;
  int listenFd_ = -1;
  int port_ = 0;
  std::vector<std::unique_ptr<Connection>> connections_;
};

// "%2e%2E" and the like decoded; false for a malformed escape.
bool percentDecode(const std::string& in, std::string& out);

}  // namespace zorvex::native
