#include <cstdio>
#include <cstring>
#include <string>

#include "cli/args.h"
#include "cli/commands.h"
#include "core/stack/filters.h"

namespace zorvex::cli {

const char* const kUsage = R"(zorvex: a glitch-art camera's effect stack on the command line

usage:
  zorvex render IN -o OUT [options]     run the effect stack on a picture
  zorvex bench [--effects "A,B"] [--repeat N] [--seed N]
                                        time each kernel at preview, edit and
                                        12-megapixel sizes
  zorvex help                           this text

render options:
  -o, --output OUT        the picture to write: .png, .jpg or .jpeg
  --effects "A,B,..."     effect names in running order (default "VETH,AGENCY")
  --controls FILE         the 1000 control values, each 0 to 0.9999, separated by
                          white space or commas
  --seed N                the control values rolled from seed N (0 to 2^64-1);
                          without --controls or --seed a fresh seed is rolled and
                          printed as "seed N" on standard error
  --blend LABEL           blend mode of the effected picture over the original,
                          e.g. "Color Burn" (default "Normal")
  --alpha A               opacity of the effected picture, 0 to 1 (default 1)
  --half                  render at half the width and height
  --width N               render as the live preview for a view N pixels wide
  --effected-only         write the stack's picture alone, not composed
  --sample                use the built-in sample picture instead of IN
  -q, --quiet             no diagnostic lines on standard output

IN is a PNG or JPEG; a JPEG's orientation tag is honoured. Pictures must be at
least 16 pixels on each side.
Exit status: 0 on success, 2 for a usage error, 1 when a file can't be read,
decoded or written.
)";

namespace {
void printEffects() {
  std::printf("effects:\n");
  for (const KernelEntry& e : Filters::kernelTable()) {
    std::printf("  %s", std::string(e.name).c_str());
    if (!e.alias.empty()) std::printf(" (also %s)", std::string(e.alias).c_str());
    if (std::holds_alternative<std::monostate>(e.kernel)) std::printf("  [not built yet: runs nothing]");
    std::printf("\n");
  }
}
}  // namespace

}  // namespace zorvex::cli

int main(int argc, char** argv) {
  using namespace zorvex::cli;
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  const std::string command = argv[1];
  if (command == "help" || command == "--help" || command == "-h") {
    std::fputs(kUsage, stdout);
    printEffects();
    return kExitOk;
  }
  if (command == "render") return renderCommand(argc, argv);
  if (command == "bench") return benchCommand(argc, argv);
  complain("unknown command \"" + command + "\"; see zorvex help");
  return kExitUsage;
}
