// zorvex render IN -o OUT: runs the effect stack on a photo and writes the composed picture.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/look_file.h"
#include "cli/store_session.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/platform.h"
#include "core/look/look_apply.h"
#include "core/look/xmp.h"
#include "core/render/compose.h"
#include "core/render/effected_image_view.h"
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
  std::optional<uint64_t> seed;  // the seed the controls were rolled from
  bool controlsGiven = false;    // by --controls or --seed
  bool blendGiven = false, alphaGiven = false;
  BlendMode blend = BlendMode::normal;
  double alpha = 1.0;
  bool half = false;
  bool full = false;
  int64_t width = 0;  // 0: the final render
  bool effectedOnly = false;
  double rotate = 0;    // degrees: -90 for left, 90 for right
  int mirror = 0;       // 0 none, 'h' left to right, 'v' top to bottom
  int64_t flatten = 0;  // times, before the final render
  std::optional<std::string> lookFile;  // --look: the look to render with
  bool lookJson = false;                // --look-json: print the look of what was rendered
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
            {"--output", "--effects", "--controls", "--seed", "--blend", "--alpha", "--width", "--defaults", "--rotate",
             "--mirror", "--flatten", "--look"},
            {"--half", "--full", "--effected-only", "--sample", "--quiet", "--look-json"},
            {{"-o", "--output"}, {"-q", "--quiet"}});
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
  o.lookFile = args.value("--look");
  o.lookJson = args.has("--look-json");
  o.controlsGiven = args.has("--controls") || args.has("--seed");
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
      o.seed = seed;
    } else if (!o.lookFile) {
      RolledControls rolled = randomizeControls();
      std::fprintf(stderr, "seed %llu\n", static_cast<unsigned long long>(rolled.seed));
      o.controls = std::move(rolled.values);
      o.seed = rolled.seed;
    }
  }
  o.blendGiven = args.has("--blend");
  o.alphaGiven = args.has("--alpha");
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
  // The look goes to standard output alone.
  if (args.has("--quiet") || o.lookJson) native::installLinuxPlatform().setQuiet(true);
  return -1;
}

// The look to render: the one of --look, if given, with the parts that the options name replaced by
// them; else the options' own, with the stored list's effects unless --effects names them. Returns an
// exit code, or -1 to go on.
int makeLook(RenderOptions& o, const EffectsData& data, look::Look& recipe) {
  const bool fromFile = o.lookFile.has_value();
  if (fromFile) {
    std::string error;
    switch (readLookFile(*o.lookFile, recipe, error)) {
      case look::Found::none: complain("--look " + *o.lookFile + ": it carries no look"); return kExitFailure;
      case look::Found::error: complain("--look " + error); return kExitFailure;
      case look::Found::look: break;
    }
  }
  look::Stack& stack = recipe.stack;
  if (o.effects || !fromFile) {
    const EffectList rows = o.effects ? *o.effects : data.effects;
    stack.effects = look::currentStack(rows, {}, std::nullopt, BlendMode::normal, 1.0).effects;
  }
  if (o.controlsGiven || !fromFile) {
    stack.controls = o.controls;
    stack.seed = o.seed;
  }
  if (o.blendGiven || !fromFile) stack.blend = o.blend;
  if (o.alphaGiven || !fromFile) stack.opacity = o.alpha;
  if (o.half || o.full || o.width || !fromFile) recipe.size = look::RenderSize{o.half ? SaveQuality::half : SaveQuality::full, o.width};
  if (o.rotate != 0 || o.mirror || o.flatten || !fromFile) {
    auto step = [](look::Edit e) {
      look::EditStep s;
      s.edit = e;
      return s;
    };
    recipe.edits.clear();
    if (o.rotate != 0) recipe.edits.push_back(step(o.rotate < 0 ? look::Edit::rotateLeft : look::Edit::rotateRight));
    if (o.mirror) recipe.edits.push_back(step(o.mirror == 'h' ? look::Edit::mirrorH : look::Edit::mirrorV));
    for (int64_t i = 0; i < o.flatten; ++i) recipe.edits.push_back(step(look::Edit::flatten));
  }
  look::normalize(recipe);
  for (const look::EditStep& step : recipe.edits) {
    if (recipe.size.previewWidth && step.edit == look::Edit::flatten) {
      complain("the look flattens, which works on the full picture; it can't go with --width");
      return kExitUsage;
    }
  }
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
  if (!o.half && !o.full && !o.width && !o.lookFile) {
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

  EffectsData& data = EffectsData::shared();
  look::Look recipe;
  if (int code = makeLook(o, data, recipe); code >= 0) return code;
  // A look's vector is written as multiples of 0.0001; other values (from --controls) make no look.
  std::string lookError;
  const bool hasLook = look::validate(recipe, lookError);
  if (!hasLook) complain("the picture is written without its look: " + lookError);

  data.effects = look::rowsFor(recipe.stack.effects);
  EffectedImageView view(1.0, data);
  view.originalImage = base;
  look::applyStack(view, recipe.stack);
  const SaveQuality quality = recipe.size.quality;
  view.saveQuality = [quality] { return quality; };
  o.width = recipe.size.previewWidth;
  o.half = !o.width && quality == SaveQuality::half;

  // The edit steps, on the base before the stack, in their order: the turns and mirrors before the
  // first flatten now, the rest with the final render, where progress shows their passes.
  size_t firstFlatten = 0;
  while (firstFlatten < recipe.edits.size() && recipe.edits[firstFlatten].edit != look::Edit::flatten) ++firstFlatten;
  look::Look turns = recipe, flattens = recipe;
  turns.edits.resize(firstFlatten);
  flattens.edits.erase(flattens.edits.begin(), flattens.edits.begin() + ptrdiff_t(firstFlatten));
  if (std::string error; !look::replayEdits(view, data, turns, error)) {
    complain(error);
    return kExitFailure;
  }

  const int64_t baseW = int64_t(CGImageGetWidth(view.originalImage)), baseH = int64_t(CGImageGetHeight(view.originalImage));
  const CGSize preview = previewSize(baseW, baseH, o.width);
  int64_t w = o.width ? int64_t(preview.width) : baseW, h = o.width ? int64_t(preview.height) : baseH;
  if (!o.width && o.half) {
    w /= 2;
    h /= 2;
  }
  if (w < 1 || h < 1) {
    complain("the render size " + std::to_string(w) + "x" + std::to_string(h) + " has no pixels");
    return kExitFailure;
  }
  const bool showProgress = isatty(STDERR_FILENO) && w * h >= 4'000'000;
  int64_t pass = 0;
  int64_t passes = 1;
  for (const look::EditStep& step : flattens.edits) passes += step.edit == look::Edit::flatten;
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
    std::string error;
    if (!look::replayEdits(view, data, flattens, error, [&](const look::EditStep& s) { pass += s.edit == look::Edit::flatten; })) {
      endProgress();
      complain(error == "not enough memory to flatten the picture"
                   ? "not enough memory to flatten a " + std::to_string(w) + "x" + std::to_string(h) + " picture"
                   : error);
      return kExitFailure;
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
  if (!native::writeImage(result, o.output, error, 92, hasLook ? look::xmpPacket(recipe) : std::string())) {
    complain(o.output + ": " + error);
    return kExitFailure;
  }
  if (o.lookJson && hasLook) std::fputs(look::toJson(recipe).c_str(), stdout);
  return kExitOk;
}

}  // namespace zorvex::cli
