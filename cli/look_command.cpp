// zorvex look FILE: prints the look that a picture carries.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/look_file.h"
#include "native/image_io.h"
#include "native/input_file.h"

namespace zorvex::cli {

look::Found readLookFile(const std::string& path, look::Look& out, std::string& error) {
  std::string bytes, why;
  if (!native::readInputFile(path, native::kMaxImageFileBytes, bytes, why)) {
    error = path + ": " + why;
    return look::Found::error;
  }
  const std::span<const uint8_t> file(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
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
  if (args.wantsHelp()) return commandHelp("look");
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
