#include "native/http_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zorvex::native {

struct HttpServer::Connection {
  int fd = -1;
  std::string in, out;
  size_t sent = 0;
  bool writing = false;
  bool closeAfterWrite = false;
  bool requestStarted = false;  // bytes of a request have come in
  bool peerClosed = false;      // the other side sends nothing more
  long long deadline = 0;
  int requests = 0;
  ~Connection() {
    if (fd >= 0) close(fd);
  }
};

namespace {

long long nowMs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1'000'000;
}

const char* reasonPhrase(int status) {
  switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 413: return "Content Too Large";
    case 431: return "Request Header Fields Too Large";
    case 500: return "Internal Server Error";
    case 501: return "Not Implemented";
    default: return "Status";
  }
}

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string trim(const std::string& s) {
  const size_t a = s.find_first_not_of(" \t"), b = s.find_last_not_of(" \t");
  return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

HttpResponse errorResponse(int status, const std::string& text) {
  HttpResponse r;
  r.status = status;
  r.body = text + "\n";
  return r;
}

}  // namespace

bool percentDecode(const std::string& in, std::string& out) {
  out.clear();
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '%') {
      out += in[i];
      continue;
    }
    if (i + 2 >= in.size()) return false;
    const int hi = hexDigit(in[i + 1]), lo = hexDigit(in[i + 2]);
    if (hi < 0 || lo < 0) return false;
    out += char(hi * 16 + lo);
    i += 2;
  }
  return true;
}

HttpServer::HttpServer(Handler handler, std::vector<std::pair<std::string, std::string>> headers, HttpLimits limits)
    : handler_(std::move(handler)), headers_(std::move(headers)), limits_(limits) {}

HttpServer::~HttpServer() {
  connections_.clear();
  if (listenFd_ >= 0) close(listenFd_);
}

bool HttpServer::listen(const std::string& host, int port, std::string& error) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(uint16_t(port));
  if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
    error = host + " is not an IPv4 address";
    return false;
  }
  listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0) {
    error = std::string("can't make a socket (") + std::strerror(errno) + ")";
    return false;
  }
  // SO_REUSEADDR lets a restarted server take the port while old connections linger in TIME_WAIT; it
  // never lets two servers listen on one port (SO_REUSEPORT would, and is not set).
  const int yes = 1;
  setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listenFd_, limits_.backlog) != 0) {
    error = errno == EADDRINUSE ? "port " + std::to_string(port) + " is in use by another program"
                                : "can't listen on port " + std::to_string(port) + " (" + std::strerror(errno) + ")";
    close(listenFd_);
    listenFd_ = -1;
    return false;
  }
  socklen_t length = sizeof address;
  getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  return true;
}

void HttpServer::accept(long long now) {
  while (connections_.size() < limits_.maxConnections) {
    const int fd = accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;  // EAGAIN, or a connection that went away meanwhile
    auto c = std::make_unique<Connection>();
    c->fd = fd;
    c->deadline = now + limits_.idleTimeoutMs;
    connections_.push_back(std::move(c));
  }
}

void HttpServer::onReadable(Connection& c, long long now) {
  char buffer[16384];
  for (;;) {
    const ssize_t n = recv(c.fd, buffer, sizeof buffer, MSG_DONTWAIT);
    if (n > 0) {
      if (!c.requestStarted) {
        c.requestStarted = true;
        c.deadline = now + limits_.requestTimeoutMs;
      }
      c.in.append(buffer, size_t(n));
      if (c.in.size() > limits_.maxHeadBytes + limits_.maxBodyBytes) break;
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    // The peer has finished sending (or is gone): what it sent is still answered, then it is closed.
    c.peerClosed = true;
    break;
  }
  process(c, now);
}

void HttpServer::process(Connection& c, long long now) {
  if (c.writing || c.in.empty()) return;
  size_t headEnd = c.in.find("\r\n\r\n");
  size_t separator = 4;
  if (const size_t bare = c.in.find("\n\n"); bare != std::string::npos && (headEnd == std::string::npos || bare < headEnd)) {
    headEnd = bare;
    separator = 2;
  }
  if (headEnd == std::string::npos) {
    if (c.in.size() > limits_.maxHeadBytes) respond(c, nullptr, errorResponse(431, "Request head too large"), true, now);
    return;
  }
  if (headEnd > limits_.maxHeadBytes) {
    respond(c, nullptr, errorResponse(431, "Request head too large"), true, now);
    return;
  }
  const std::string head = c.in.substr(0, headEnd);
  std::vector<std::string> lines;
  for (size_t start = 0;;) {
    size_t nl = head.find('\n', start);
    std::string line = head.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    if (nl == std::string::npos) break;
    start = nl + 1;
  }
  // The request line: METHOD TARGET HTTP/1.x
  const std::string& first = lines[0];
  const size_t s1 = first.find(' '), s2 = first.rfind(' ');
  if (s1 == std::string::npos || s2 == s1) {
    respond(c, nullptr, errorResponse(400, "Bad request"), true, now);
    return;
  }
  HttpRequest request;
  request.method = first.substr(0, s1);
  const std::string target = first.substr(s1 + 1, s2 - s1 - 1), version = first.substr(s2 + 1);
  if (version != "HTTP/1.1" && version != "HTTP/1.0") {
    respond(c, nullptr, errorResponse(400, "Bad request"), true, now);
    return;
  }
  bool keepAlive = version == "HTTP/1.1";
  size_t bodyLength = 0;
  for (size_t i = 1; i < lines.size(); ++i) {
    const size_t colon = lines[i].find(':');
    if (colon == std::string::npos) continue;
    const std::string name = lower(trim(lines[i].substr(0, colon))), value = lower(trim(lines[i].substr(colon + 1)));
    if (name == "connection") {
      if (value.find("close") != std::string::npos) keepAlive = false;
      if (value.find("keep-alive") != std::string::npos) keepAlive = true;
    } else if (name == "content-length") {
      if (value.empty() || value.size() > 12 || value.find_first_not_of("0123456789") != std::string::npos) {
        respond(c, nullptr, errorResponse(400, "Bad Content-Length"), true, now);
        return;
      }
      bodyLength = size_t(std::stoull(value));
    } else if (name == "transfer-encoding") {
      respond(c, nullptr, errorResponse(501, "Transfer-Encoding is not supported"), true, now);
      return;
    }
  }
  if (bodyLength > limits_.maxBodyBytes) {
    respond(c, nullptr, errorResponse(413, "Request body too large"), true, now);
    return;
  }
  const size_t total = headEnd + separator + bodyLength;
  if (c.in.size() < total) return;  // the body is still coming
  c.in.erase(0, total);
  ++c.requests;
  const bool close = !keepAlive || c.requests >= limits_.maxRequestsPerConnection;

  if (request.method != "GET" && request.method != "HEAD") {
    HttpResponse r = errorResponse(405, "Only GET and HEAD are served");
    r.headers.emplace_back("Allow", "GET, HEAD");
    respond(c, nullptr, std::move(r), true, now);
    return;
  }
  const size_t question = target.find('?');
  const std::string rawPath = target.substr(0, question);
  if (question != std::string::npos) request.query = target.substr(question + 1);
  if (rawPath.empty() || rawPath[0] != '/' || !percentDecode(rawPath, request.path)) {
    respond(c, &request, errorResponse(400, "Bad request target"), true, now);
    return;
  }
  HttpResponse response;
  handler_(request, response);
  respond(c, &request, std::move(response), close, now);
}

void HttpServer::respond(Connection& c, const HttpRequest* request, HttpResponse response, bool close, long long now) {
  std::string out = "HTTP/1.1 " + std::to_string(response.status) + " " + reasonPhrase(response.status) + "\r\n";
  out += "Content-Type: " + response.contentType + "\r\n";
  out += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
  out += close ? "Connection: close\r\n" : "Connection: keep-alive\r\n";
  for (const auto& [name, value] : headers_) out += name + ": " + value + "\r\n";
  for (const auto& [name, value] : response.headers) out += name + ": " + value + "\r\n";
  out += "\r\n";
  if (!request || request->method != "HEAD") out += response.body;
  c.out = std::move(out);
  c.sent = 0;
  c.writing = true;
  c.closeAfterWrite = close || c.peerClosed;
  c.deadline = now + limits_.writeTimeoutMs;
  if (close) c.in.clear();
  onWritable(c, now);
}

void HttpServer::onWritable(Connection& c, long long now) {
  while (c.sent < c.out.size()) {
    const ssize_t n = send(c.fd, c.out.data() + c.sent, c.out.size() - c.sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n > 0) {
      c.sent += size_t(n);
      c.deadline = now + limits_.writeTimeoutMs;
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    c.closeAfterWrite = true;  // the peer is gone
    c.out.clear();
    c.sent = 0;
    break;
  }
  c.writing = false;
  c.out.clear();
  c.out.shrink_to_fit();
  c.sent = 0;
  if (c.closeAfterWrite) {
    c.deadline = now;  // closed by the loop
    return;
  }
  c.requestStarted = !c.in.empty();
  c.deadline = now + (c.requestStarted ? limits_.requestTimeoutMs : limits_.idleTimeoutMs);
  process(c, now);  // a request sent before this answer went out
}

bool HttpServer::run(std::string& error) {
  std::vector<pollfd> fds;
  for (;;) {
    const long long now = nowMs();
    // Drop the connections that are done or past their deadline.
    std::erase_if(connections_, [&](const std::unique_ptr<Connection>& c) {
      return ((c->closeAfterWrite || c->peerClosed) && !c->writing) || c->deadline <= now;
    });
    fds.clear();
    const bool accepting = connections_.size() < limits_.maxConnections;
    fds.push_back({listenFd_, short(accepting ? POLLIN : 0), 0});
    long long next = -1;
    for (const auto& c : connections_) {
      fds.push_back({c->fd, short(c->writing ? POLLOUT : POLLIN), 0});
      next = next < 0 ? c->deadline : std::min(next, c->deadline);
    }
    const int timeout = next < 0 ? -1 : int(std::clamp<long long>(next - now, 0, 60'000));
    if (poll(fds.data(), fds.size(), timeout) < 0) {
      if (errno == EINTR) continue;
      error = std::string("can't wait for connections (") + std::strerror(errno) + ")";
      return false;
    }
    const long long then = nowMs();
    // Connections first: accepting may add to the list that `fds` mirrors.
    for (size_t i = 1; i < fds.size(); ++i) {
      Connection& c = *connections_[i - 1];
      if (!fds[i].revents) continue;
      if (c.writing && (fds[i].revents & POLLOUT)) {
        onWritable(c, then);
      } else if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) {
        if (c.writing) {
          c.closeAfterWrite = true;
          c.writing = false;
        } else {
          onReadable(c, then);
        }
      }
    }
    if (fds[0].revents & POLLIN) accept(then);
  }
}

}  // namespace zorvex::native
