// A small parser for the command line's options: "--name value", "--name=value", flags, and
// positional arguments. Problems are usage errors, reported with the offending argument.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zorvex::cli {

class Args {
 public:
  // `valued` names the options that take a value, `flags` those that don't. Short forms map to long
  // ones ("-o" to "--output"). Every command also takes --help (-h) and --verbose (-v); parsing stops
  // at --help, so that help is given whatever else is on the line. On a problem, error() says what it
  // is.
  Args(int argc, char** argv, int first, const std::set<std::string>& valued, const std::set<std::string>& flags,
       const std::map<std::string, std::string>& shortForms = {});

  const std::string& error() const { return error_; }
  const std::vector<std::string>& positional() const { return positional_; }
  bool has(const std::string& name) const { return values_.count(name) > 0; }
  bool wantsHelp() const { return has("--help"); }
  std::optional<std::string> value(const std::string& name) const;

 private:
  std::map<std::string, std::string> values_;
  std::vector<std::string> positional_;
  std::string error_;
};

// Parsers that fill `error` with a message naming the option and the value.
bool parseDouble(const std::string& option, const std::string& text, double lo, double hi, double& out,
                 std::string& error);
bool parseInt(const std::string& option, const std::string& text, int64_t lo, int64_t hi, int64_t& out,
              std::string& error);
bool parseUint64(const std::string& option, const std::string& text, uint64_t& out, std::string& error);

// Exit codes.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// Prints "zorvex: message" on standard error.
void complain(const std::string& message);

}  // namespace zorvex::cli
