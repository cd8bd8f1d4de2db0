// zorvex effects: lists the stored effect list and changes it row by row.
#include <cstdio>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/store_session.h"
#include "core/stack/effects_data.h"
#include "core/stack/plist.h"
#include "native/analytics_log.h"
#include "native/platform_linux.h"

namespace zorvex::cli {
namespace {

constexpr const char* kEffectsUsage =
    "usage: zorvex effects [toggle ROW | move FROM TO | remove ROW | preset NAME | randomize | reset] "
    "[--defaults PATH]; see zorvex effects --help";

int usageError(const std::string& message) {
  complain(message);
  std::fprintf(stderr, "%s\n", kEffectsUsage);
  return kExitUsage;
}

void printMembers(const EffectList& members, int depth) {
  for (const EffectRef& e : members) {
    std::printf("%*s%s %s\n", 2 * depth, "", e->isActive ? "on" : "off", e->name.c_str());
    if (e->subEffects) printMembers(*e->subEffects, depth + 1);
  }
}

void printRows(const EffectList& rows) {
  for (size_t i = 0; i < rows.size(); ++i) {
    std::printf("%zu %s %s\n", i, rows[i]->isActive ? "on" : "off", rows[i]->name.c_str());
    if (rows[i]->subEffects) printMembers(*rows[i]->subEffects, 1);
  }
  std::fflush(stdout);
}

// A row number of the list: from 0 to count - 1.
bool parseRow(const std::string& what, const std::string& text, size_t count, size_t& row, std::string& error) {
  if (count == 0) {
    error = what + " " + text + ": the list has no rows";
    return false;
  }
  int64_t v;
  if (!parseInt(what, text, 0, int64_t(count) - 1, v, error)) return false;
  row = size_t(v);
  return true;
}

// C0 and C1 control characters and DEL, which would break the listing's lines.
bool hasControlCharacter(const std::string& utf8) {
  for (size_t i = 0; i < utf8.size(); ++i) {
    const auto c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x20 || c == 0x7F) return true;
    if (c == 0xC2 && i + 1 < utf8.size() && static_cast<unsigned char>(utf8[i + 1]) < 0xA0) return true;  // U+0080..U+009F
  }
  return false;
}

bool isBuiltinName(const std::string& name) {
  for (std::string_view builtin : EffectsData::builtinEffectNames)
    if (builtin == name) return true;
  return false;
}

}  // namespace

int effectsCommand(int argc, char** argv) {
  native::installLinuxPlatform();
  native::installAnalyticsFromEnvironment();
  Args args(argc, argv, 2, {"--defaults"}, {"--quiet"}, {{"-q", "--quiet"}});
  if (args.wantsHelp()) return commandHelp("effects");
  if (!args.error().empty()) return usageError(args.error());
  const std::vector<std::string>& p = args.positional();
  const std::string action = p.empty() ? "" : p[0];
  const size_t operands = p.empty() ? 0 : p.size() - 1;
  const auto expect = [&](size_t n, const char* form) -> int {
    if (operands == n) return -1;
    return usageError("effects " + action + " takes " + form + ", not " + std::to_string(operands) +
                      (operands == 1 ? " argument" : " arguments"));
  };
  int code = -1;
  if (action.empty()) {
  } else if (action == "toggle" || action == "remove") {
    code = expect(1, "one row number");
  } else if (action == "move") {
    code = expect(2, "two row numbers, FROM and TO");
  } else if (action == "preset") {
    code = expect(1, "one name (quote a name with spaces)");
    if (code < 0 && p[1].empty()) return usageError("effects preset: the name is empty");
    if (code < 0 && !plist::isValidUtf8(p[1])) return usageError("effects preset: the name is not UTF-8 text");
    if (code < 0 && hasControlCharacter(p[1]))
      return usageError("effects preset: the name holds a control character (a line break, a tab...); use plain text");
  } else if (action == "randomize" || action == "reset") {
    code = expect(0, "no arguments");
  } else {
    return usageError("unknown effects action \"" + action + "\"");
  }
  if (code >= 0) return code;
  applyVerbosity(args);

  StoreSession session;
  if (int failed = session.open(args.value("--defaults")); failed >= 0) return failed;
  EffectsData& data = EffectsData::shared();
  std::string error;
  if (action == "toggle" || action == "remove") {
    size_t row;
    if (!parseRow("ROW", p[1], data.effects.size(), row, error)) return usageError(error);
    if (action == "toggle") {
      data.toggleEffect(row);
    } else {
      const EffectRef removed = data.effects[row];
      data.removeEffect(row);
      if (!removed->subEffects && isBuiltinName(removed->name))
        complain(removed->name + " is a built-in effect: it comes back, off and last, the next time the list is "
                 "loaded");
    }
  } else if (action == "move") {
    size_t from, to;
    if (!parseRow("FROM", p[1], data.effects.size(), from, error) ||
        !parseRow("TO", p[2], data.effects.size(), to, error))
      return usageError(error);
    data.moveEffect(from, to);
    // Moving doesn't store the list by itself; here nothing else would.
    data.saveEffects();
  } else if (action == "preset") {
    data.saveActiveAsPreset(p[1]);
  } else if (action == "randomize") {
    if (data.effects.size() < 2)
      return usageError("effects randomize needs at least two rows; the list has " +
                        std::to_string(data.effects.size()));
    data.randomizeEffects();
  } else if (action == "reset") {
    data.effects.clear();
    data.resetToDefaults();
  }
  printRows(data.effects);
  return session.finish(kExitOk);
}

}  // namespace zorvex::cli
