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
  zorvex look FILE [--compact]          print the look a picture carries
  zorvex effects [ACTION]               list or change the stored effect list
  zorvex settings [ACTION]              show or change the stored settings
  zorvex bench [--effects "A,B"] [--repeat N] [--seed N]
                                        time each kernel at preview, edit and
                                        12-megapixel sizes
  zorvex serve [--port 8080] [--message FILE]
                                        serve the web app on localhost
  zorvex help                           this text

render, effects and settings load the stored effect list first (its diagnostic
lines go to standard output) and take these options anywhere after their name:
  --defaults PATH         the defaults file (default: $ZORVEX_DEFAULTS, else
                          $XDG_CONFIG_HOME/zorvex/defaults.plist, else
                          ~/.config/zorvex/defaults.plist)
  -q, --quiet             no diagnostic lines on standard output
A defaults file that can't be read is moved aside to PATH.unreadable-TIME and
the command starts from empty defaults. With ZORVEX_ANALYTICS_LOG=FILE set,
analytics events are appended to FILE as JSON lines.

render options:
  -o, --output OUT        the picture to write: .png, .jpg or .jpeg
  --effects "A,B,..."     effect names in running order (default: the stored
                          list's rows that are on, presets opened up)
  --controls FILE         the 1000 control values, each 0 to 0.9999, separated by
                          white space or commas
  --seed N                the control values rolled from seed N (0 to 2^64-1);
                          without --controls or --seed a fresh seed is rolled and
                          printed as "seed N" on standard error
  --blend LABEL           blend mode of the effected picture over the original,
                          e.g. "Color Burn" (default "Normal")
  --alpha A               opacity of the effected picture, 0 to 1 (default 1)
  --half                  render at half the width and height (the default when
                          the stored save quality is half)
  --full                  render at full size whatever the save quality
  --width N               render as the live preview for a view N pixels wide
  --effected-only         write the stack's picture alone, not composed
  --rotate left|right     turn the picture a quarter first, as the edit tool does
  --mirror h|v            mirror it left to right (h) or top to bottom (v) first
  --flatten N             flatten N times (the composed result becomes the
                          base each time, with the same controls) before the
                          final render
  --sample                use the built-in sample picture instead of IN
  --look FILE             render with the look of FILE: a picture that carries
                          one, or a look's JSON or link text; the options above
                          replace the parts of it that they name (--rotate,
                          --mirror and --flatten replace all its edit steps)
  --look-json             print the look of the picture written (as JSON, on
                          standard output, with no diagnostic lines)
Every picture render writes carries its look as XMP.

look prints the look of FILE as JSON (--compact: as the text for a link's
fragment, #look=TEXT); a picture without one exits 1.

effects actions (each changes the list and stores it, then lists it):
  (none)                  list the rows: number from 0, on or off, name; a
                          preset's members follow, indented by two spaces
  toggle ROW              turn a row on or off
  move FROM TO            take a row out and put it at TO
  remove ROW              remove a row (a built-in effect comes back, off and
                          last, the next time the list is loaded)
  preset NAME             add a preset, off, of the rows that are on
  randomize               shuffle the rows and turn on the first two only
  reset                   the built-in list, VETH and AGENCY on

serve options:
  --port N                the port on localhost (default 8080; 0 picks a free
                          one); the address to open is printed
  --message FILE          the JSON document answered at
                          /zorvex/messageJSON.php (default: an empty answer)
  --root DIR              the built app (default: web/dist beside the build
                          folder that holds this program)

settings actions:
  (none)                  show the frame and save quality, the tutorial flags
                          and the launch count
  set frame-quality normal|low
  set save-quality full|half
  reset-tutorials         clear the three tutorial flags

IN is a PNG or JPEG; a JPEG's orientation tag is honoured. Pictures must be at
least 16 pixels on each side.
Exit status: 0 on success, 2 for a usage error (a row number outside the list
included), 1 when a file can't be read, decoded or written.
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
  if (command == "effects") return effectsCommand(argc, argv);
  if (command == "settings") return settingsCommand(argc, argv);
  if (command == "bench") return benchCommand(argc, argv);
  if (command == "serve") return serveCommand(argc, argv);
  if (command == "look") return lookCommand(argc, argv);
  complain("unknown command \"" + command + "\"; see zorvex help");
  return kExitUsage;
}
