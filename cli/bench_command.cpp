// zorvex bench: times each kernel at the sizes the app renders at, on the sample picture.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>

#include "cli/args.h"
#include "cli/commands.h"
#include "core/render/compose.h"
#include "core/render/sample_picture.h"
#include "core/stack/filters.h"
#include "native/platform_linux.h"

namespace zorvex::cli {
namespace {

struct Size {
  int64_t w, h;
  const char* what;
};
// The live preview at normal frame quality, an edit preview, a 12-megapixel final.
const Size kSizes[] = {{360, 480, "preview"}, {1170, 1560, "edit"}, {3024, 4032, "final"}};

double millisecondsOf(const KernelEntry& entry, const Size& size, const CGImageRef& picture,
                      const ControlValues& controls, int repeats) {
  std::vector<double> times;
  const Effect effect{std::string(entry.name), true, std::nullopt};
  for (int i = 0; i < repeats; ++i) {
    // A fresh surface and layer each time, as a render makes them; not timed.
    const Surface s = makeSurface(size.w, size.h);
    CGContextDrawImage(s.context, CGRectMake(0, 0, double(size.w), double(size.h)), picture);
    const auto start = std::chrono::steady_clock::now();
    Filters::applyEffect(effect, s.context, s.layer, controls);
    times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

}  // namespace

int benchCommand(int argc, char** argv) {
  native::installLinuxPlatform();
  Args args(argc, argv, 2, {"--effects", "--repeat", "--seed"}, {});
  if (args.wantsHelp()) return commandHelp("bench");
  applyVerbosity(args);
  std::string error = args.error();
  int64_t repeats = 3;
  uint64_t seed = 2026;
  if (error.empty() && !args.positional().empty()) error = "bench takes no arguments, only options";
  if (auto r = args.value("--repeat"); error.empty() && r) parseInt("--repeat", *r, 1, 1000, repeats, error);
  if (auto s = args.value("--seed"); error.empty() && s) parseUint64("--seed", *s, seed, error);
  std::vector<const KernelEntry*> entries;
  if (error.empty()) {
    if (auto list = args.value("--effects")) {
      std::stringstream in(*list);
      std::string name;
      while (error.empty() && std::getline(in, name, ',')) {
        const KernelEntry* e = Filters::findKernel(name);
        if (!e) error = "--effects: unknown effect \"" + name + "\"";
        else entries.push_back(e);
      }
    } else {
      for (const KernelEntry& e : Filters::kernelTable()) entries.push_back(&e);
    }
  }
  if (!error.empty()) {
    complain(error);
    std::fprintf(stderr, "usage: zorvex bench [--effects \"A,B\"] [--repeat N] [--seed N]\n");
    return kExitUsage;
  }

  const ControlValues controls = rollControls(seed);
  std::vector<CGImageRef> pictures;
  for (const Size& s : kSizes) pictures.push_back(drawSamplePicture(int32_t(s.w), int32_t(s.h)));

  std::printf("kernel times in ms (median of %lld; controls of seed %llu)\n", static_cast<long long>(repeats),
              static_cast<unsigned long long>(seed));
  std::printf("%-16s", "effect");
  for (const Size& s : kSizes) std::printf(" %12s", (std::to_string(s.w) + "x" + std::to_string(s.h)).c_str());
  std::printf(" %14s\n", "ns/pixel final");
  for (const KernelEntry* e : entries) {
    if (std::holds_alternative<std::monostate>(e->kernel)) continue;
    // Padded by characters, not bytes: some names hold letters of several bytes.
    const std::string name(e->name);
    const size_t shown = size_t(std::count_if(name.begin(), name.end(), [](char c) { return (c & 0xC0) != 0x80; }));
    std::printf("%s%*s", name.c_str(), int(16 - std::min<size_t>(16, shown)), "");
    std::fflush(stdout);
    double last = 0;
    for (size_t i = 0; i < std::size(kSizes); ++i) {
      last = millisecondsOf(*e, kSizes[i], pictures[i], controls, int(repeats));
      std::printf(" %12.2f", last);
      std::fflush(stdout);
    }
    std::printf(" %14.1f\n", last * 1e6 / double(kSizes[2].w * kSizes[2].h));
  }
  return kExitOk;
}

}  // namespace zorvex::cli
