#include "native/analytics_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

namespace zorvex::native {
namespace {

std::string jsonString(std::string_view s) {
  std::string out = "\"";
  for (char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (u < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", u);
      out += buf;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string utcNow() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  tm t{};
  gmtime_r(&ts.tv_sec, &t);
  char buf[40];
  const size_t n = strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &t);
  std::snprintf(buf + n, sizeof buf - n, ".%03ldZ", ts.tv_nsec / 1000000);
  return buf;
}

}  // namespace

std::string JsonLinesAnalytics::line(const std::string& utcTime, std::string_view name,
                                     const AnalyticsParameters* parameters) {
  std::string out = "{\"time\":" + jsonString(utcTime) + ",\"event\":" + jsonString(name) + ",\"parameters\":";
  if (!parameters) return out + "null}";
  out += '{';
  bool first = true;
  for (const auto& [key, value] : *parameters) {
    if (!first) out += ',';
    out += jsonString(key);
    out += ':';
    out += jsonString(value);
    first = false;
  }
  return out + "}}";
}

void JsonLinesAnalytics::logEvent(std::string_view name, const AnalyticsParameters* parameters) {
  const std::string text = line(utcNow(), name, parameters) + "\n";
  // One write of the whole line to a file opened for appending, so lines of two processes never mix.
  const int fd = open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  bool ok = fd >= 0 && write(fd, text.data(), text.size()) == ssize_t(text.size());
  const int savedErrno = errno;
  if (fd >= 0) ok = close(fd) == 0 && ok;
  if (!ok && !complained_) {
    complained_ = true;
    std::fprintf(stderr, "zorvex: %s: can't write the analytics log: %s\n", path_.c_str(), std::strerror(savedErrno));
  }
}

void installAnalyticsFromEnvironment() {
  const char* path = std::getenv("ZORVEX_ANALYTICS_LOG");
  if (!path || !*path) return;
  static std::unique_ptr<JsonLinesAnalytics> sink;
  sink = std::make_unique<JsonLinesAnalytics>(path);
  setAnalyticsSink(sink.get());
}

}  // namespace zorvex::native
