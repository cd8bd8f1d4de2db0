#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli/args.h"
#include "cli/commands.h"
#include "core/stack/filters.h"
#include "native/platform_linux.h"
#include "native/video_io.h"

namespace zorvex::cli {

namespace {

constexpr const char* kOverview = R"(zorvex: a glitch-art camera's effect stack on the command line

usage:
  zorvex render IN... -o OUT [options]  run the effect stack on pictures, GIFs
                                        and videos
  zorvex look FILE [--compact]          print the look a picture carries
  zorvex effects [ACTION]               list or change the stored effect list
  zorvex settings [ACTION]              show or change the stored settings
  zorvex bench [--effects "A,B"] [--repeat N] [--seed N]
                                        time each kernel at preview, edit and
                                        12-megapixel sizes
  zorvex serve [--port 8080] [--message FILE]
                                        serve the web app on localhost
  zorvex help [COMMAND]                 this text, or one command's
  zorvex --version                      the version

Every command takes -h (--help) for its own usage. man zorvex tells more.
)";

constexpr const char* kStoreOptions = R"(
render, effects and settings load the stored effect list first and take these
options anywhere after their name:
  --defaults PATH         the defaults file (default: $ZORVEX_DEFAULTS, else
                          $XDG_CONFIG_HOME/zorvex/defaults.plist, else
                          ~/.config/zorvex/defaults.plist)
  -v, --verbose           the core's diagnostic lines (for the developer of a
                          kernel) on standard error
  -q, --quiet             nothing on standard error but errors
A defaults file that can't be read is moved aside to PATH.unreadable-TIME and
the command starts from empty defaults. With ZORVEX_ANALYTICS_LOG=FILE set,
analytics events are appended to FILE as JSON lines.
)";

constexpr const char* kRenderUsage = R"(
usage: zorvex render IN -o OUT [options]
       zorvex render IN... -o FOLDER|PATTERN [options]
Runs the effect stack on the picture IN and writes the composed picture OUT.
  -o, --output OUT        the picture to write: .png, .jpg or .jpeg; for moving
                          pictures .gif, .mp4, .m4v, .mov or .mkv
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
IN is a PNG or JPEG file, or - for standard input; a JPEG's orientation tag is
honoured. Pictures must be at least 16 pixels on each side. OUT is replaced
atomically: a reader sees the old file or the whole new one.
  --look FILE             render with the look of FILE: a picture that carries
                          one, or a look's JSON or link text; the options above
                          replace the parts of it that they name (--rotate,
                          --mirror and --flatten replace all its edit steps)
  --look-json             print the look of the picture written (as JSON, on
                          standard output)
Every picture render writes carries its look as XMP (GIFs and videos do not).

Moving pictures: IN may be a GIF or a video (MP4, MOV, Matroska, WebM, AVI).
Every frame goes through the stack; the frame times, and a video's sound, are
kept. A still becomes a GIF or a video with --loop.
  --loop N                a still made a loop of N frames (2 to 10000) in which
                          the controls travel a closed path round their own, so
                          that the end leads into the start; with a GIF or a
                          video, the controls go round every N frames
  --fps R                 frames a second of a loop made from a still (default
                          12)
  --roll-every K          new controls every K frames, rolled from the seed
                          plus 1, plus 2, ... (the first K frames keep the
                          look's own); not with --controls
  --max-size SIZE         make the GIF or video fit in SIZE: 8M (MiB), 500K
                          (KiB), 2MB (10^6 bytes) or bytes; the frames are made
                          smaller, the colours fewer, the bit rate lower or the
                          frames fewer, as far as it takes

A batch: several inputs, or a folder (its pictures and videos, by name), all
rendered with the same look, each written into FOLDER (made if missing; one
that exists, or a name ending in /) under its own name, or to PATTERN, in which
{name} is the input's name without its extension, {ext} its extension and {n}
its number from 1. A bad file is told at the end and the others are written (exit status 1 if
any failed); Ctrl-C leaves no half-written file.
  -j, --jobs N            pictures rendered at once (default: the cores)
  --seed-each             each file its own roll of the controls (from --seed N:
                          N, N+1, ...; else fresh), printed as "IN: seed N"
)";

constexpr const char* kEffectsUsage = R"(
usage: zorvex effects [ACTION]
Lists the stored effect list, or changes it, stores it and lists it:
  (none)                  list the rows: number from 0, on or off, name; a
                          preset's members follow, indented by two spaces
  toggle ROW              turn a row on or off
  move FROM TO            take a row out and put it at TO
  remove ROW              remove a row (a built-in effect comes back, off and
                          last, the next time the list is loaded)
  preset NAME             add a preset, off, of the rows that are on
  randomize               shuffle the rows and turn on the first two only
  reset                   the built-in list, VETH and AGENCY on
)";

constexpr const char* kSettingsUsage = R"(
usage: zorvex settings [ACTION]
Shows the stored settings, or changes one and shows them:
  (none)                  show the frame and save quality, the tutorial flags
                          and the launch count
  set frame-quality normal|low
  set save-quality full|half
  reset-tutorials         clear the three tutorial flags
)";

constexpr const char* kBenchUsage = R"(
usage: zorvex bench [--effects "A,B"] [--repeat N] [--seed N]
Times each kernel on the sample picture at the live preview size (360x480), an
edit preview (1170x1560) and a 12-megapixel final (3024x4032).
  --effects "A,B,..."     only these effects (default: all)
  --repeat N              runs of each, the median is shown (default 3)
  --seed N                the control values rolled from seed N (default 2026)
)";

constexpr const char* kServeUsage = R"(
usage: zorvex serve [--port 8080] [--message FILE] [--root DIR]
Serves the web app on localhost until Ctrl-C.
  --port N                the port on localhost (default 8080; 0 picks a free
                          one); the address to open is printed
  --message FILE          the JSON document answered at
                          /zorvex/messageJSON.php (default: an empty answer)
  --root DIR              the built app (default: web/dist beside the build
                          folder that holds this program, else the installed
                          share/zorvex/web beside its bin folder)
)";

constexpr const char* kLookUsage = R"(
usage: zorvex look FILE [--compact]
Prints the look that the picture FILE carries (its effects, controls, blend,
opacity, size and edit steps), as JSON.
  --compact               as the text for a link's fragment (#look=TEXT)
A picture without a look exits 1.
)";

constexpr const char* kExitStatus = R"(
Exit status: 0 on success, 2 for a usage error (a row number outside the list
included), 1 when a file can't be read, decoded or written.
)";

struct CommandHelp {
  const char* name;
  const char* text;
  bool store;  // takes the stored state's options
};
constexpr CommandHelp kCommands[] = {
    {"render", kRenderUsage, true},    {"effects", kEffectsUsage, true}, {"settings", kSettingsUsage, true},
    {"look", kLookUsage, false},       {"bench", kBenchUsage, false},    {"serve", kServeUsage, false},
};

const CommandHelp* findCommand(const std::string& name) {
  for (const CommandHelp& c : kCommands)
    if (name == c.name) return &c;
  return nullptr;
}

}  // namespace

int commandHelp(const std::string& command) {
  const CommandHelp* c = findCommand(command);
  if (!c) return kExitUsage;
  std::fputs(c->text + 1, stdout);  // without the leading blank line
  if (c->store) std::fputs(kStoreOptions, stdout);
  std::fputs(kExitStatus, stdout);
  return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

void applyVerbosity(const Args& args) {
  const bool verbose = args.has("--verbose") && !args.has("--quiet");
  native::installLinuxPlatform().setVerbose(verbose);
  native::setLibraryMessages(verbose);
}

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

namespace {

// The command's own output must reach standard output whole: a failed write there (a full disk, a
// closed pipe) is a failure of the command.
int checkedOutput(int code) {
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    zorvex::cli::complain(std::string("can't write to standard output (") + std::strerror(errno) + ")");
    return code == zorvex::cli::kExitOk ? zorvex::cli::kExitFailure : code;
  }
  return code;
}

int run(int argc, char** argv) {
  using namespace zorvex::cli;
  if (argc < 2) {
    std::fputs(kOverview, stderr);
    return kExitUsage;
  }
  const std::string command = argv[1];
  if (command == "--version" || command == "-V") {
    std::printf("zorvex %s\n", ZORVEX_VERSION);
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
  }
  if (command == "help" && argc >= 3) {
    if (argc > 3 || !findCommand(argv[2])) {
      complain("help takes one command name: render, effects, settings, look, bench or serve");
      return kExitUsage;
    }
    return commandHelp(argv[2]);
  }
  if (command == "help" || command == "--help" || command == "-h") {
    std::fputs(kOverview, stdout);
    for (const CommandHelp& c : kCommands) std::fputs(c.text, stdout);
    std::fputs(kStoreOptions, stdout);
    std::fputs(kExitStatus, stdout);
    std::fputs("\n", stdout);
    printEffects();
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
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

}  // namespace

int main(int argc, char** argv) { return checkedOutput(run(argc, argv)); }
