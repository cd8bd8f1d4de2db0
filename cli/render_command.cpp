// zorvex render IN -o OUT: runs the effect stack on a photo and writes the composed picture.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/store_session.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/platform.h"
#include "core/render/compose.h"
#include "core/render/sample_picture.h"
#include "core/stack/filters.h"
#include "core/stack/randomize_controls.h"
#include "core/stack/settings.h"
#include "native/analytics_log.h"
#include "native/image_io.h"
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

// Exactly 1000 numbers, each from 0 to 0.9999, separated by white space or commas.
bool readControls(const std::string& path, ControlValues& out, std::string& error, bool& usage) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = path + ": can't open it";
    usage = false;
    return false;
  }
  std::stringstream buffer;
  buffer << in.rdbuf();
  std::string text = buffer.str();
  for (char& c : text)
    if (c == ',') c = ' ';
  std::stringstream tokens(text);
  std::string token;
  out.clear();
  usage = true;
  while (tokens >> token) {
    const size_t position = out.size() + 1;
    if (position > kControlCount) {
      error = "--controls " + path + ": value " + std::to_string(position) + " (\"" + token +
              "\") is one too many: exactly 1000 are needed";
      return false;
    }
    double v;
    std::string why;
    if (!parseDouble("value", token, 0.0, 0.9999, v, why)) {
      error = "--controls " + path + ": value " + std::to_string(position) + " is \"" + token +
              "\", which is not a number from 0 to 0.9999";
      return false;
    }
    out.push_back(v);
  }
  if (out.size() != kControlCount) {
    error = "--controls " + path + ": it holds " + std::to_string(out.size()) + " values; exactly 1000 are needed";
    return false;
  }
  return true;
}

// Returns an exit code, or -1 to go on.
int parse(int argc, char** argv, RenderOptions& o) {
  Args args(argc, argv, 2,
            {"--output", "--effects", "--controls", "--seed", "--blend", "--alpha", "--width", "--defaults"},
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
    std::string error;
    picture = native::readImage(o.input, error);
    if (!picture) {
      complain(o.input + ": " + error);
      return kExitFailure;
    }
  }
  const CGImageRef base = KImageProcessing::correctForCameraOrientation(picture).CGImage;
  if (!base) {
    complain(o.input + ": not enough memory to turn the picture upright");
    return kExitFailure;
  }
  const int64_t W = int64_t(CGImageGetWidth(base)), H = int64_t(CGImageGetHeight(base));
  if (W < kMinSide || H < kMinSide) {
    complain(o.input + ": the picture is " + std::to_string(W) + "x" + std::to_string(H) +
             " pixels; it must be at least 16 pixels on each side");
    return kExitFailure;
  }

  int64_t w = W, h = H;
  if (o.width) {
    const CGSize s = previewSize(W, H, o.width);
    w = int64_t(s.width);
    h = int64_t(s.height);
  } else if (o.half) {
    w = W / 2;
    h = H / 2;
  }
  if (w < 1 || h < 1) {
    complain("the render size " + std::to_string(w) + "x" + std::to_string(h) + " has no pixels");
    return kExitFailure;
  }

  EffectsData& data = EffectsData::shared();
  if (o.effects) data.effects = *o.effects;
  const bool showProgress = isatty(STDERR_FILENO) && w * h >= 4'000'000;
  if (showProgress) {
    data.onEffect = [&](size_t i, size_t n, const Effect& e) {
      std::fprintf(stderr, "\rrendering %lldx%lld: %zu/%zu %-20s", static_cast<long long>(w),
                   static_cast<long long>(h), i + 1, n, e.name.c_str());
      std::fflush(stderr);
    };
  }
  const Surface surface = makeSurface(w, h);
  if (!surface.context || !surface.layer) {
    complain("not enough memory for a " + std::to_string(w) + "x" + std::to_string(h) + " render");
    return kExitFailure;
  }
  const CGImageRef effected = data.renderStack(surface.layer, surface.context, o.controls, base, double(w), double(h));
  if (showProgress) std::fprintf(stderr, "\r%60s\r", "");
  if (!effected) {
    complain("the effect stack gave no picture");
    return kExitFailure;
  }

  CGImageRef result;
  if (o.effectedOnly) {
    result = effected;
  } else if (o.width) {
    result = composeForDisplay(base, effected, w, h, o.blend, o.alpha, false);
  } else {
    result = composeFinal(base, effected, w, h, o.blend, o.alpha);
  }
  std::string error;
  if (!native::writeImage(result, o.output, error)) {
    complain(o.output + ": " + error);
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace zorvex::cli
