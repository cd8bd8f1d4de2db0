// zorvex look FILE: prints the look that a picture carries.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/look_file.h"

namespace zorvex::cli {

namespace {
constexpr std::streamoff kMaxLookFile = std::streamoff(1) << 30;
}

look::Found readLookFile(const std::string& path, look::Look& out, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = path + ": can't open it (" + std::strerror(errno) + ")";
    return look::Found::error;
  }
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  if (size < 0 || size > kMaxLookFile) {
    error = path + (size < 0 ? ": can't read it" : ": too large to hold a look");
    return look::Found::error;
  }
  in.seekg(0);
  std::string bytes(size_t(size), '\0');
  if (size > 0 && !in.read(bytes.data(), size)) {
    error = path + ": can't read it";
    return look::Found::error;
  }
  const std::span<const uint8_t> file(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  std::string why;
  look::Found found = look::lookInPicture(file, out, why);
  if (found == look::Found::error && why == "not a PNG or JPEG picture") {
    // Not a picture: a look's own text.
    found = look::fromText(bytes, out, why) ? look::Found::look : look::Found::error;
    if (found == look::Found::error)
      why = "neither a picture nor a look (" + why + ")";
  }
  if (found == look::Found::error) error = path + ": " + why;
  return found;
}

int lookCommand(int argc, char** argv) {
  Args args(argc, argv, 2, {}, {"--compact"});
  auto usage = [](const std::string& message) {
    complain(message);
    std::fprintf(stderr, "usage: zorvex look FILE [--compact]; see zorvex help\n");
    return kExitUsage;
  };
  if (!args.error().empty()) return usage(args.error());
  if (args.positional().size() != 1) return usage("look needs one picture (or look file)");
  const std::string& path = args.positional()[0];
  look::Look found;
  std::string error;
  switch (readLookFile(path, found, error)) {
    case look::Found::none:
      complain(path + " carries no look");
      return kExitFailure;
    case look::Found::error:
      complain(error);
      return kExitFailure;
    case look::Found::look:
      break;
  }
  if (args.has("--compact")) std::printf("%s\n", look::toCompact(found).c_str());
  else std::fputs(look::toJson(found).c_str(), stdout);
  return kExitOk;
}

}  // namespace zorvex::cli
