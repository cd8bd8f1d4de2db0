#include "cli/args.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace zorvex::cli {

Args::Args(int argc, char** argv, int first, const std::set<std::string>& valued, const std::set<std::string>& flags,
           const std::map<std::string, std::string>& givenShortForms) {
  std::map<std::string, std::string> shortForms = givenShortForms;
  shortForms.emplace("-h", "--help");
  shortForms.emplace("-v", "--verbose");
  const auto isHelp = [](const std::string& arg) { return arg == "--help" || arg == "-h"; };
  bool onlyPositional = false;
  int i = first;
  for (; i < argc && error_.empty(); ++i) {
    std::string arg = argv[i];
    if (onlyPositional || arg.empty() || arg[0] != '-' || arg == "-") {
      positional_.push_back(arg);
      continue;
    }
    if (arg == "--") {
      onlyPositional = true;
      continue;
    }
    if (isHelp(arg)) {
      values_["--help"] = "";
      return;
    }
    std::string name = arg, value;
    bool hasValue = false;
    if (auto eq = arg.find('='); arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      name = arg.substr(0, eq);
      value = arg.substr(eq + 1);
      hasValue = true;
    }
    if (auto s = shortForms.find(name); s != shortForms.end()) name = s->second;
    if (flags.count(name) || name == "--verbose" || name == "--help") {
      if (hasValue) error_ = name + " takes no value";
      else values_[name] = "";
    } else if (valued.count(name)) {
      if (!hasValue) {
        if (i + 1 >= argc) {
          error_ = name + " needs a value";
          break;
        }
        value = argv[++i];
      }
      if (values_.count(name)) error_ = name + " is given twice";
      else values_[name] = value;
    } else {
      error_ = "unknown option " + arg;
    }
  }
  // Help is given even after a mistake earlier on the line.
  for (; i < argc && !error_.empty(); ++i) {
    if (!onlyPositional && isHelp(argv[i])) {
      error_.clear();
      values_["--help"] = "";
    }
    if (std::string(argv[i]) == "--") onlyPositional = true;
  }
}

std::optional<std::string> Args::value(const std::string& name) const {
  auto it = values_.find(name);
  if (it == values_.end()) return std::nullopt;
  return it->second;
}

bool parseDouble(const std::string& option, const std::string& text, double lo, double hi, double& out,
                 std::string& error) {
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || errno == ERANGE || !std::isfinite(v) || v < lo || v > hi) {
    char range[64];
    std::snprintf(range, sizeof range, "%g to %g", lo, hi);
    error = option + " must be a number from " + range + ", not \"" + text + "\"";
    return false;
  }
  out = v;
  return true;
}

bool parseInt(const std::string& option, const std::string& text, int64_t lo, int64_t hi, int64_t& out,
              std::string& error) {
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno == ERANGE || v < lo || v > hi) {
    error = option + " must be a whole number from " + std::to_string(lo) + " to " + std::to_string(hi) + ", not \"" +
            text + "\"";
    return false;
  }
  out = v;
  return true;
}

bool parseUint64(const std::string& option, const std::string& text, uint64_t& out, std::string& error) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = std::strtoull(text.c_str(), &end, 10);
  // Digits only: strtoull would take leading blanks and a minus sign, and turn " -1" into 2^64 - 1.
  const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  if (!digits || *end != '\0' || errno == ERANGE) {
    error = option + " must be a whole number from 0 to 18446744073709551615, not \"" + text + "\"";
    return false;
  }
  out = v;
  return true;
}

void complain(const std::string& message) { std::fprintf(stderr, "zorvex: %s\n", message.c_str()); }

}  // namespace zorvex::cli
