// zorvex render IN -o OUT: runs the effect stack on a photo and writes the composed picture.
#include <unistd.h>

#include <cstdio>
#include <sstream>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/store_session.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/platform.h"
#include "core/render/compose.h"
#include "core/render/effected_image_view.h"
#include "core/render/sample_picture.h"
#include "core/stack/filters.h"
#include "core/stack/randomize_controls.h"
#include "core/stack/settings.h"
#include "native/analytics_log.h"
#include "native/controls_file.h"
#include "native/image_io.h"
#include "native/input_file.h"
#include "native/platform_linux.h"

namespace zorvex::cli {
namespace {

constexpr int32_t kMinSide = 16;

struct RenderOptions {
  std::string input, output;
  bool sample = false;
  std::optional<EffectList> effects;  // absent: the stored list
  std::optional<std::string> defaults;
  ControlValues controls;
  BlendMode blend = BlendMode::normal;
  double alpha = 1.0;
  bool half = false;
  bool full = false;
  int64_t width = 0;  // 0: the final render
  bool effectedOnly = false;
  double rotate = 0;    // degrees: -90 for left, 90 for right
  int mirror = 0;       // 0 none, 'h' left to right, 'v' top to bottom
  int64_t flatten = 0;  // times, before the final render
};

std::string trim(const std::string& s) {
  const auto a = s.find_first_not_of(" \t"), b = s.find_last_not_of(" \t");
  return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

bool parseEffects(const std::string& text, EffectList& out, std::string& error) {
  out.clear();
  if (trim(text).empty()) return true;
  std::stringstream in(text);
  std::string name;
  while (std::getline(in, name, ',')) {
    name = trim(name);
    if (!Filters::findKernel(name)) {
      error = "--effects: unknown effect \"" + name + "\" (zorvex help lists the names)";
      return false;
    }
    out.push_back(Effect::make(name, true));
  }
  return true;
}

// Exactly 1000 numbers, each from 0 to 0.9999, separated by white space or commas. `usage` tells a
// bad content (a usage error) from a file that can't be read.
bool readControls(const std::string& path, ControlValues& out, std::string& error, bool& usage) {
  std::string text, why;
  if (!native::readInputFile(path, native::kMaxControlsFileBytes, text, why)) {
    error = "--controls " + path + ": " + why;
    usage = false;
    return false;
  }
  usage = true;
  if (!native::parseControls(text, out, why)) {
    error = "--controls " + path + ": " + why;
    return false;
  }
  return true;
}

// The input as messages name it.
std::string inputName(const std::string& input) { return input == "-" ? std::string("standard input") : input; }

// Returns an exit code, or -1 to go on.
int parse(int argc, char** argv, RenderOptions& o) {
  Args args(argc, argv, 2,
            {"--output", "--effects", "--controls", "--seed", "--blend", "--alpha", "--width", "--defaults", "--rotate",
             "--mirror", "--flatten"},
            {"--half", "--full", "--effected-only", "--sample", "--quiet"}, {{"-o", "--output"}, {"-q", "--quiet"}});
  std::string error = args.error();
  auto usage = [&](const std::string& message) {
    complain(message);
    std::fprintf(stderr, "usage: zorvex render IN -o OUT [options]; see zorvex help\n");
    return kExitUsage;
  };
  if (!error.empty()) return usage(error);
  o.sample = args.has("--sample");
  if (args.positional().size() > 1) return usage("one input picture at most, not " + args.positional()[1]);
  if (args.positional().empty() && !o.sample) return usage("render needs an input picture (or --sample)");
  if (!args.positional().empty() && o.sample) return usage("give an input picture or --sample, not both");
  if (!o.sample) o.input = args.positional()[0];
  if (!args.has("--output")) return usage("render needs -o OUT");
  o.output = *args.value("--output");
  if (!native::isWritableImagePath(o.output)) return usage("-o " + o.output + ": the name must end in .png, .jpg or .jpeg");

  if (auto names = args.value("--effects")) {
    o.effects.emplace();
    if (!parseEffects(*names, *o.effects, error)) return usage(error);
  }
  o.defaults = args.value("--defaults");

  if (args.has("--controls") && args.has("--seed")) return usage("give --controls or --seed, not both");
  if (auto file = args.value("--controls")) {
    bool isUsage = true;
    if (!readControls(*file, o.controls, error, isUsage)) {
      if (isUsage) return usage(error);
      complain(error);
      return kExitFailure;
    }
  } else {
    uint64_t seed;
    if (auto text = args.value("--seed")) {
      if (!parseUint64("--seed", *text, seed, error)) return usage(error);
      o.controls = rollControls(seed);
    } else {
      RolledControls rolled = randomizeControls();
      std::fprintf(stderr, "seed %llu\n", static_cast<unsigned long long>(rolled.seed));
      o.controls = std::move(rolled.values);
    }
  }
  if (auto label = args.value("--blend")) {
    auto mode = blendModeFromLabel(*label);
    if (!mode) {
      std::string labels;
      for (BlendMode m : allBlendModes) labels += (labels.empty() ? "\"" : ", \"") + std::string(rawValue(m)) + "\"";
      return usage("--blend: \"" + *label + "\" is not a blend mode; use one of " + labels);
    }
    o.blend = *mode;
  }
  if (auto a = args.value("--alpha"); a && !parseDouble("--alpha", *a, 0.0, 1.0, o.alpha, error)) return usage(error);
  if (auto wtext = args.value("--width"); wtext && !parseInt("--width", *wtext, 1, 1 << 20, o.width, error))
    return usage(error);
  o.half = args.has("--half");
  o.full = args.has("--full");
  if (o.half && o.full) return usage("give --half or --full, not both");
  if (o.half && o.width) return usage("--half is for the final render; it can't go with --width");
  o.effectedOnly = args.has("--effected-only");
  if (auto r = args.value("--rotate")) {
    if (*r != "left" && *r != "right") return usage("--rotate must be left or right, not \"" + *r + "\"");
    o.rotate = *r == "left" ? -90 : 90;
  }
  if (auto m = args.value("--mirror")) {
    if (*m != "h" && *m != "v") return usage("--mirror must be h (left to right) or v (top to bottom), not \"" + *m + "\"");
    o.mirror = (*m)[0];
  }
  if (auto f = args.value("--flatten"); f && !parseInt("--flatten", *f, 0, 100, o.flatten, error)) return usage(error);
  if (o.flatten && o.width) return usage("--flatten works on the full picture; it can't go with --width");
  if (args.has("--quiet")) native::installLinuxPlatform().setQuiet(true);
  return -1;
}

}  // namespace

int renderCommand(int argc, char** argv) {
  native::installLinuxPlatform();
  native::installAnalyticsFromEnvironment();
  RenderOptions o;
  if (int code = parse(argc, argv, o); code >= 0) return code;
  StoreSession store;
  if (int code = store.open(o.defaults); code >= 0) return code;
  // Loading writes the list back; a failed write is reported, but the picture is what this command
  // is for.
  store.finish(kExitOk, false);
  store.release();
  if (!o.half && !o.full && !o.width) {
    if (auto quality = SettingsController::saveQualityIfValid()) {
      o.half = *quality == SaveQuality::half;
    } else {
      complain("the stored save quality is " +
               std::to_string(SettingsController::integerSetting(SettingKey::saveSettingKey)) +
               ", neither full (0) nor half (1): rendering at full size (zorvex settings set save-quality sets it)");
    }
  }

  UIImage picture;
  if (o.sample) {
    picture = UIImage{drawSamplePicture(1080, 1440), UIImageOrientationUp};
  } else {
    std::string error, warning;
    picture = native::readImage(o.input, error, &warning);
    if (!picture) {
      complain(inputName(o.input) + ": " + error);
      return kExitFailure;
    }
    if (!warning.empty()) complain("warning: " + inputName(o.input) + ": " + warning);
  }
  const CGImageRef base = KImageProcessing::correctForCameraOrientation(picture).CGImage;
  if (!base) {
    complain(inputName(o.input) + ": not enough memory to turn the picture upright");
    return kExitFailure;
  }
  const int64_t W = int64_t(CGImageGetWidth(base)), H = int64_t(CGImageGetHeight(base));
  if (W < kMinSide || H < kMinSide) {
    complain(inputName(o.input) + ": the picture is " + std::to_string(W) + "x" + std::to_string(H) +
             " pixels; it must be at least 16 pixels on each side");
    return kExitFailure;
  }

  EffectsData& data = EffectsData::shared();
  if (o.effects) data.effects = *o.effects;
  EffectedImageView view(1.0, data);
  view.originalImage = base;
  view.controlValues = o.controls;
  view.blendMode = o.blend;
  view.setLayerAlpha(o.alpha);
  const SaveQuality quality = o.half ? SaveQuality::half : SaveQuality::full;
  view.saveQuality = [quality] { return quality; };

  // The edit tools, on the base before the stack: turn, mirror, then flatten.
  if (o.rotate != 0) view.rotateBaseImage(o.rotate, false);
  if (o.mirror == 'h') view.rotateBaseImage(0, true);
  if (o.mirror == 'v') view.rotateBaseImage(180, true);

  const int64_t baseW = int64_t(CGImageGetWidth(view.originalImage)), baseH = int64_t(CGImageGetHeight(view.originalImage));
  const CGSize preview = previewSize(baseW, baseH, o.width);
  int64_t w = o.width ? int64_t(preview.width) : baseW, h = o.width ? int64_t(preview.height) : baseH;
  if (!o.width && o.half) {
    w /= 2;
    h /= 2;
  }
  if (w < 1 || h < 1) {
    // Only --width can ask for so small a render of a picture of 16 pixels a side or more.
    complain("--width " + std::to_string(o.width) + " leaves a render of " + std::to_string(w) + "x" +
             std::to_string(h) + " pixels for this " + std::to_string(baseW) + "x" + std::to_string(baseH) +
             " picture; give a larger width");
    return kExitUsage;
  }
  const bool showProgress = isatty(STDERR_FILENO) && w * h >= 4'000'000;
  int64_t pass = 0;
  const int64_t passes = o.flatten + 1;
  if (showProgress) {
    data.onEffect = [&](size_t i, size_t n, const Effect& e) {
      std::fprintf(stderr, "\rrendering %lldx%lld", static_cast<long long>(w), static_cast<long long>(h));
      if (passes > 1) std::fprintf(stderr, " (pass %lld of %lld)", static_cast<long long>(pass + 1), static_cast<long long>(passes));
      std::fprintf(stderr, ": %zu/%zu %-20s", i + 1, n, e.name.c_str());
      std::fflush(stderr);
    };
  }
  auto endProgress = [&] {
    if (showProgress) std::fprintf(stderr, "\r%79s\r", "");
  };

  CGImageRef result;
  if (o.width) {
    // As the live preview: a render for a view o.width pixels wide, composed at the preview's size.
    view.layoutSubviews(CGSize{double(o.width), double(h)});
    view.render(false);
    endProgress();
    if (!view.effectedImage) {
      complain("the effect stack gave no picture");
      return kExitFailure;
    }
    result = o.effectedOnly ? view.effectedImage : view.compose(w, h);
  } else {
    // No screen here: the preview render that flattening asks for is not wanted, so the gate stays shut.
    view.isDrawing = true;
    for (; pass < o.flatten; ++pass) {
      if (!view.flatten()) {
        endProgress();
        complain("not enough memory to flatten a " + std::to_string(w) + "x" + std::to_string(h) + " picture");
        return kExitFailure;
      }
    }
    const auto final = view.renderFinalParts();
    endProgress();
    if (!final) {
      complain("not enough memory for a " + std::to_string(w) + "x" + std::to_string(h) + " render");
      return kExitFailure;
    }
    result = o.effectedOnly ? final->effected : final->composed;
  }
  std::string error;
  if (!native::writeImage(result, o.output, error)) {
    complain(o.output + ": " + error);
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace zorvex::cli
