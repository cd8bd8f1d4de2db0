#include "native/controls_file.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace zorvex::native {
namespace {

bool isSeparator(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v' || c == ','; }

// A plain decimal number ("0.25", ".5", "1e-2"), nothing else: no sign, no hex, no "inf" or "nan".
bool parseValue(const std::string& token, double& out) {
  for (char c : token)
    if (!((c >= '0' && c <= '9') || c == '.' || c == 'e' || c == 'E' || c == '-' || c == '+')) return false;
  if (token[0] < '0' && token[0] != '.') return false;
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(token.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(v)) return false;
  out = v;
  return true;
}

}  // namespace

bool parseControls(std::string_view text, ControlValues& out, std::string& error) {
  out.clear();
  size_t i = 0;
  while (i < text.size()) {
    if (isSeparator(text[i])) {
      ++i;
      continue;
    }
    size_t end = i;
    while (end < text.size() && !isSeparator(text[end])) ++end;
    std::string token(text.substr(i, end - i));
    i = end;
    const size_t position = out.size() + 1;
    // Shown in the message as printable text, and not too long.
    if (token.size() > 40) token = token.substr(0, 40) + "...";
    for (char& c : token)
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    if (position > kControlCount) {
      error = "value " + std::to_string(position) + " (\"" + token + "\") is one too many: exactly 1000 are needed";
      return false;
    }
    double v = 0;
    if (!parseValue(token, v) || v < 0.0 || v > 0.9999) {
      error = "value " + std::to_string(position) + " is \"" + token + "\", which is not a number from 0 to 0.9999";
      return false;
    }
    out.push_back(v);
  }
  if (out.size() != kControlCount) {
    error = "it holds " + std::to_string(out.size()) + " values; exactly 1000 are needed";
    return false;
  }
  return true;
}

}  // namespace zorvex::native
