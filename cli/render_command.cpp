// zorvex render: runs the effect stack on a photo and writes the composed picture; on many files at
// once (a batch), and on every frame of a GIF or a video, or of a loop made from a still.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "cli/animate.h"
#include "cli/args.h"
#include "cli/batch.h"
#include "cli/commands.h"
#include "cli/look_file.h"
#include "cli/progress.h"
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
#include "native/controls_file.h"
#include "native/image_io.h"
#include "native/input_file.h"
#include "native/interruptible_output.h"
#include "native/platform_linux.h"
#include "native/video_io.h"

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
  bool controlsGiven = false;           // by --controls or --seed
  bool blendGiven = false, alphaGiven = false;
  std::optional<std::string> lookFile;  // --look: the look to render with
  bool lookJson = false;                // --look-json: print the look of what was rendered
  look::Look recipe;                    // the look every file is rendered with (its controls aside)
  bool quiet = false;   // nothing on standard error but errors
  // A batch: several inputs, or -o a folder or a pattern; each input and its output.
  bool batch = false;
  std::vector<std::string> inputs, outputs;
  int64_t jobs = 1;
  bool seedEach = false;                // each file rolls its own controls
  std::optional<uint64_t> seed;         // the seed of the controls, when they came from one
  // Moving pictures.
  int64_t loop = 0;                     // frames of a loop round the controls
  int64_t rollEvery = 0;                // new controls every this many frames
  int64_t maxSize = 0;                  // bytes a GIF or video may take
  native::Ratio fps{12, 1};             // of a loop made from a still
};

constexpr const char* kMovingTypes = ".gif, .mp4, .m4v, .mov or .mkv";

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
             "--mirror", "--flatten", "--jobs", "--loop", "--roll-every", "--max-size", "--fps", "--look"},
            {"--half", "--full", "--effected-only", "--sample", "--quiet", "--seed-each", "--look-json"},
            {{"-o", "--output"}, {"-q", "--quiet"}, {"-j", "--jobs"}});
  if (args.wantsHelp()) return commandHelp("render");
  std::string error = args.error();
  auto usage = [&](const std::string& message) {
    complain(message);
    std::fprintf(stderr, "usage: zorvex render IN -o OUT [options]; see zorvex render --help\n");
    return kExitUsage;
  };
  if (!error.empty()) return usage(error);
  o.sample = args.has("--sample");
  if (args.positional().empty() && !o.sample) return usage("render needs an input picture (or --sample)");
  if (!args.positional().empty() && o.sample) return usage("give an input picture or --sample, not both");
  if (!args.has("--output")) return usage("render needs -o OUT");
  o.output = *args.value("--output");
  o.batch = !o.sample && (args.positional().size() > 1 || isOutputPlan(o.output) ||
                          std::any_of(args.positional().begin(), args.positional().end(),
                                      [](const std::string& p) { return std::filesystem::is_directory(p); }));
  if (o.batch) {
    o.inputs = collectInputs(args.positional(), error);
    if (o.inputs.empty()) {
      complain(error);
      return kExitFailure;
    }
    o.outputs = planOutputs(o.inputs, o.output, error);
    if (o.outputs.empty()) return usage(error);
  } else {
    if (!o.sample) o.input = args.positional()[0];
    if (!native::isWritableImagePath(o.output) && !native::isAnimationPath(o.output))
      return usage("-o " + o.output + ": the name must end in .png, .jpg or .jpeg, or " + kMovingTypes +
                   " for moving pictures");
  }
  if (auto n = args.value("--loop"); n && !parseInt("--loop", *n, 2, 10000, o.loop, error)) return usage(error);
  if (auto k = args.value("--roll-every"); k && !parseInt("--roll-every", *k, 1, INT32_MAX, o.rollEvery, error))
    return usage(error);
  if (o.loop && o.rollEvery) return usage("--loop moves the controls round a loop; it can't go with --roll-every");
  if (o.rollEvery && args.has("--controls"))
    return usage("--roll-every rolls controls from the seed; it can't go with --controls");
  if (auto m = args.value("--max-size"); m && !parseByteSize(*m, o.maxSize))
    return usage("--max-size must be a size such as 8M, 500K or 2MB, not \"" + *m + "\"");
  if (auto f = args.value("--fps")) {
    double fps = 0;
    if (!parseDouble("--fps", *f, 0.5, 120, fps, error)) return usage(error);
    o.fps = {int(std::lround(fps * 1000)), 1000};
    if (!o.loop) return usage("--fps is the rate of a loop made with --loop; a GIF or a video keeps its own");
  }
  // One file: moving pictures in and out must agree, so that nothing is rendered in vain.
  if (!o.batch) {
    const bool movingIn = !o.sample && native::isAnimationFile(o.input), movingOut = native::isAnimationPath(o.output);
    if (movingIn && !movingOut)
      return usage(o.input + " is a GIF or a video: write it to " + kMovingTypes + ", not " + o.output);
    if (movingOut && !movingIn && !o.loop)
      return usage("a still becomes a GIF or a video with --loop N (the frames of the loop)");
    if (!movingOut && o.loop) return usage("--loop makes a GIF or a video: -o must end in " + std::string(kMovingTypes));
    if (!movingOut && (o.rollEvery || o.maxSize))
      return usage(std::string(o.rollEvery ? "--roll-every" : "--max-size") + " is for GIF and video outputs");
  }
  o.jobs = availableCores();
  if (auto j = args.value("--jobs"); j && !parseInt("--jobs", *j, 1, 1024, o.jobs, error)) return usage(error);
  o.seedEach = args.has("--seed-each");
  if (o.seedEach && args.has("--controls")) return usage("--seed-each rolls the controls of each file; it can't go with --controls");

  if (auto names = args.value("--effects")) {
    o.effects.emplace();
    if (!parseEffects(*names, *o.effects, error)) return usage(error);
  }
  o.defaults = args.value("--defaults");

  if (args.has("--controls") && args.has("--seed")) return usage("give --controls or --seed, not both");
  o.lookFile = args.value("--look");
  o.lookJson = args.has("--look-json");
  if (o.lookJson && (o.batch || native::isAnimationPath(o.output)))
    return usage("--look-json prints the look of one picture written; it can't go with a batch or a GIF or video");
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
    } else if (!o.seedEach && !o.lookFile) {
      RolledControls rolled = randomizeControls();
      if (!args.has("--quiet")) std::fprintf(stderr, "seed %llu\n", static_cast<unsigned long long>(rolled.seed));
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
  applyVerbosity(args);
  o.quiet = args.has("--quiet");
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
  if (o.controlsGiven || o.seedEach || !fromFile) {
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
  // From here on the options say what the look says.
  o.controls = stack.controls;
  o.seed = stack.seed;
  o.blend = stack.blend;
  o.alpha = stack.opacity;
  o.width = recipe.size.previewWidth;
  o.half = !o.width && recipe.size.quality == SaveQuality::half;
  return -1;
}

// The look of the options with `controls` (from `seed`, when they came from one).
look::Look lookWith(const RenderOptions& o, const ControlValues& controls, std::optional<uint64_t> seed) {
  look::Look recipe = o.recipe;
  recipe.stack.controls = controls;
  recipe.stack.seed = seed;
  return recipe;
}

// The stack on one picture with `recipe`'s look, edit steps and size; nil with `error` set, naming
// `name`, on failure. With `showProgress` a large render tells its kernels as they run.
CGImageRef renderPicture(const RenderOptions& o, const UIImage& picture, const look::Look& recipe,
                         const std::string& name, bool showProgress, std::string& error) {
  const CGImageRef base = KImageProcessing::correctForCameraOrientation(picture).CGImage;
  if (!base) {
    error = name + ": not enough memory to turn the picture upright";
    return nullptr;
  }
  const int64_t W = int64_t(CGImageGetWidth(base)), H = int64_t(CGImageGetHeight(base));
  if (W < kMinSide || H < kMinSide) {
    error = name + ": the picture is " + std::to_string(W) + "x" + std::to_string(H) +
            " pixels; it must be at least 16 pixels on each side";
    return nullptr;
  }

  EffectsData& data = EffectsData::shared();
  EffectedImageView view(1.0, data);
  view.originalImage = base;
  look::applyStack(view, recipe.stack);
  const SaveQuality quality = recipe.size.quality;
  view.saveQuality = [quality] { return quality; };
  const int64_t width = recipe.size.previewWidth;

  // The edit steps, on the base before the stack, in their order: the turns and mirrors before the
  // first flatten now, the rest with the final render, where progress shows their passes.
  size_t firstFlatten = 0;
  while (firstFlatten < recipe.edits.size() && recipe.edits[firstFlatten].edit != look::Edit::flatten) ++firstFlatten;
  look::Look turns = recipe, flattens = recipe;
  turns.edits.resize(firstFlatten);
  flattens.edits.erase(flattens.edits.begin(), flattens.edits.begin() + ptrdiff_t(firstFlatten));
  if (std::string why; !look::replayEdits(view, data, turns, why)) {
    error = name + ": " + why;
    return nullptr;
  }

  const int64_t baseW = int64_t(CGImageGetWidth(view.originalImage)), baseH = int64_t(CGImageGetHeight(view.originalImage));
  const CGSize preview = previewSize(baseW, baseH, width);
  int64_t w = width ? int64_t(preview.width) : baseW, h = width ? int64_t(preview.height) : baseH;
  if (!width && quality == SaveQuality::half) {
    w /= 2;
    h /= 2;
  }
  if (w < 1 || h < 1) {
    // Only --width can ask for so small a render of a picture of 16 pixels a side or more.
    error = name + ": --width " + std::to_string(width) + " leaves a render of " + std::to_string(w) + "x" +
            std::to_string(h) + " pixels for this " + std::to_string(baseW) + "x" + std::to_string(baseH) +
            " picture; give a larger width";
    return nullptr;
  }
  showProgress = showProgress && w * h >= 4'000'000;
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
    data.onEffect = nullptr;
    if (showProgress) std::fprintf(stderr, "\r%79s\r", "");
  };

  CGImageRef result;
  if (width) {
    // As the live preview: a render for a view `width` pixels wide, composed at the preview's size.
    view.layoutSubviews(CGSize{double(width), double(h)});
    view.render(false);
    endProgress();
    if (!view.effectedImage) {
      error = name + ": the effect stack gave no picture";
      return nullptr;
    }
    result = o.effectedOnly ? view.effectedImage : view.compose(w, h);
  } else {
    // No screen here: the preview render that flattening asks for is not wanted, so the gate stays shut.
    view.isDrawing = true;
    std::string why;
    if (!look::replayEdits(view, data, flattens, why, [&](const look::EditStep& s) { pass += s.edit == look::Edit::flatten; })) {
      endProgress();
      error = name + ": " +
              (why == "not enough memory to flatten the picture"
                   ? "not enough memory to flatten a " + std::to_string(w) + "x" + std::to_string(h) + " picture"
                   : why);
      return nullptr;
    }
    const auto final = view.renderFinalParts();
    endProgress();
    if (!final) {
      error = name + ": not enough memory for a " + std::to_string(w) + "x" + std::to_string(h) + " render";
      return nullptr;
    }
    result = o.effectedOnly ? final->effected : final->composed;
  }
  return result;
}

// A GIF, a video or a loop: every frame through the stack.
bool renderMoving(const RenderOptions& o, const std::string& in, const std::string& out, const ControlValues& controls,
                  std::optional<uint64_t> seed, bool showProgress, std::string& message) {
  const bool movingIn = !o.sample && native::isAnimationFile(in);
  if (!native::isAnimationPath(out)) {
    message = in + ": a GIF or a video is written to " + kMovingTypes + ", not " + out;
    return false;
  }
  if (!movingIn && !o.loop) {
    message = in + ": a still becomes a GIF or a video with --loop N";
    return false;
  }
  AnimationJob job;
  job.input = o.sample ? "the sample" : in;
  job.output = out;
  job.still = !movingIn;
  if (o.sample) job.picture = UIImage{drawSamplePicture(1080, 1440), UIImageOrientationUp};
  job.loop = o.loop;
  job.rollEvery = o.rollEvery;
  job.maxSize = o.maxSize;
  job.fps = o.fps;
  job.controls = controls;
  job.seed = seed.value_or(0);
  const auto renderer = [&](const UIImage& frame, const ControlValues& values, int64_t index, std::string& error) {
    return renderPicture(o, frame, lookWith(o, values, std::nullopt), job.input + ", frame " + std::to_string(index + 1),
                         false, error);
  };
  ProgressBar bar("frames", 0, showProgress);
  return renderAnimation(job, renderer, showProgress ? &bar : nullptr, message, message);
}

// One input to one output; false with `error` naming the file concerned. On success `error` may hold
// a note. A picture carries its look as XMP; `written`, when given, receives it (nothing when the
// look can't be written down).
bool renderFile(const RenderOptions& o, const std::string& in, const std::string& out, const ControlValues& controls,
                std::optional<uint64_t> seed, bool showProgress, std::string& error,
                std::optional<look::Look>* written = nullptr) {
  if (o.loop || native::isAnimationPath(out) || (!o.sample && native::isAnimationFile(in)))
    return renderMoving(o, in, out, controls, seed, showProgress, error);
  UIImage picture;
  std::string note;
  if (o.sample) {
    picture = UIImage{drawSamplePicture(1080, 1440), UIImageOrientationUp};
  } else {
    std::string warning;
    picture = native::readImage(in, error, &warning);
    if (!picture) {
      error = inputName(in) + ": " + error;
      return false;
    }
    if (!warning.empty()) note = "warning: " + inputName(in) + ": " + warning;
  }
  const look::Look recipe = lookWith(o, controls, seed);
  const CGImageRef result = renderPicture(o, picture, recipe, o.sample ? "the sample" : inputName(in), showProgress, error);
  if (!result) return false;
  // A look's vector is written as multiples of 0.0001; other values (from --controls) make no look.
  std::string lookError;
  const bool hasLook = look::validate(recipe, lookError);
  if (!hasLook) note += (note.empty() ? "" : "\n") + out + " is written without its look: " + lookError;
  // The picture is written under a temporary name beside OUT and renamed over it when whole.
  if (!native::writeImage(result, out, error, 92, hasLook ? look::xmpPacket(recipe) : std::string())) {
    error = out + ": " + error;
    return false;
  }
  if (written && hasLook) *written = recipe;
  error = note;
  return true;
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
  if (!o.half && !o.full && !o.width && !o.lookFile) {
    if (auto quality = SettingsController::saveQualityIfValid()) {
      o.half = *quality == SaveQuality::half;
    } else {
      complain("the stored save quality is " +
               std::to_string(SettingsController::integerSetting(SettingKey::saveSettingKey)) +
               ", neither full (0) nor half (1): rendering at full size (zorvex settings set save-quality sets it)");
    }
  }
  EffectsData& data = EffectsData::shared();
  if (int code = makeLook(o, data, o.recipe); code >= 0) return code;
  data.effects = look::rowsFor(o.recipe.stack.effects);

  if (o.batch) {
    std::string error;
    if (!makeOutputFolders(o.outputs, error)) {
      complain(error);
      return kExitFailure;
    }
    std::vector<BatchItem> items;
    for (size_t i = 0; i < o.inputs.size(); ++i) {
      BatchItem item{o.inputs[i], o.outputs[i], std::nullopt};
      // Each file its own roll: one after another from --seed, else fresh.
      if (o.seedEach) item.seed = o.seed ? *o.seed + uint64_t(i) : randomizeControls().seed;
      items.push_back(std::move(item));
    }
    return runBatch(items, int(o.jobs), o.quiet, o.seedEach, [&o](const BatchItem& item, std::string& message) {
      return renderFile(o, item.input, item.output, item.seed ? rollControls(*item.seed) : o.controls,
                        item.seed ? item.seed : o.seed, false, message);
    });
  }
  native::installInterruptCleanup();
  std::string message;
  std::optional<look::Look> written;
  if (!renderFile(o, o.input, o.output, o.controls, o.seed, ProgressBar::wanted(o.quiet), message, &written)) {
    complain(message);
    return kExitFailure;
  }
  if (!message.empty() && !o.quiet) std::fprintf(stderr, "%s\n", message.c_str());
  if (o.lookJson && written) std::fputs(look::toJson(*written).c_str(), stdout);
  return kExitOk;
}

}  // namespace zorvex::cli
