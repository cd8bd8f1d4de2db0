// The C API of the engine module that the web app's Worker loads: the picture view's model, the shared
// effect list and the kernels behind plain functions over the module's memory. Pictures come in and go
// out as RGBA bytes, 4 a pixel, top row first. Built by emscripten only.
#include <emscripten/emscripten.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/imaging/fatal.h"
#include "core/imaging/image_utils.h"
#include "core/imaging/platform.h"
#include "core/look/json.h"
#include "core/render/effected_image_view.h"
#include "core/stack/analytics.h"
#include "core/stack/effects_data.h"
#include "core/stack/filters.h"
#include "web/engine/look_log.h"
#include "web/engine/web_defaults.h"

using namespace zorvex;

namespace {

// Pictures smaller than this on a side, or larger than this in all, are refused as input.
constexpr int32_t kMinSide = 16;
constexpr int64_t kMaxPixels = 100'000'000;

// What a flatten ran under besides the composition: the effects in running order, the controls' seed,
// the seed of the flickering effects' draws and the size.
struct FlattenLook {
  std::vector<std::string> effects;
  uint64_t seed = 0;
  uint32_t flicker = 0;
  bool half = false;
};

struct Engine {
  web::BrowserDefaults defaults;
  web::BrowserAnalytics analytics;
  std::unique_ptr<EffectedImageView> view;
  // The last picture handed out (compose or final), as RGBA.
  std::vector<uint8_t> picture;
  int32_t pictureWidth = 0, pictureHeight = 0;
  std::string text;  // the last string handed out
  uint32_t kernelsRun = 0;  // kernels run since the start, for tests that a redraw runs none
  FlattenLook lastLook;  // of the last flatten made here
  std::string listProblem;  // why the last start put the built-in list in place of the stored one
};

Engine& engine() {
  static Engine e;
  return e;
}

EffectedImageView& view() {
  Engine& e = engine();
  if (!e.view) fatal();  // every call but zv_init needs the view
  return *e.view;
}

// A CGImage (no alpha) over a copy of RGBA bytes; the fourth byte is not read.
CGImageRef imageFromRGBA(const uint8_t* rgba, int32_t w, int32_t h) {
  const size_t bytes = size_t(w) * size_t(h) * 4;
  std::shared_ptr<uint8_t[]> owner(new uint8_t[bytes]);
  std::memcpy(owner.get(), rgba, bytes);
  PixelView pixels{owner.get(), w, h, ptrdiff_t(w) * 4, PixelFormat::RGBX};
  return std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(owner), pixels);
}

// Copies a picture into the out buffer as straight RGBA.
bool handOut(const CGImageRef& image) {
  Engine& e = engine();
  if (!image) return false;
  const PixelView& p = image->pixels();
  e.pictureWidth = p.width;
  e.pictureHeight = p.height;
  e.picture.resize(size_t(p.width) * size_t(p.height) * 4);
  uint8_t* out = e.picture.data();
  for (int32_t y = 0; y < p.height; ++y) {
    const uint8_t* row = p.row(y);
    for (int32_t x = 0; x < p.width; ++x, out += 4) {
      switch (p.format) {
        case PixelFormat::RGBX:
          out[0] = row[4 * x], out[1] = row[4 * x + 1], out[2] = row[4 * x + 2], out[3] = 255;
          break;
        case PixelFormat::RGBA:
        case PixelFormat::ARGB: {
          const bool first = p.format == PixelFormat::ARGB;
          const uint8_t* s = row + 4 * x;
          const uint32_t a = first ? s[0] : s[3];
          const uint8_t* c = first ? s + 1 : s;
          for (int i = 0; i < 3; ++i) out[i] = a == 0 ? 0 : uint8_t(std::min<uint32_t>(255, (c[i] * 255u + a / 2) / a));
          out[3] = uint8_t(a);
          break;
        }
        case PixelFormat::Gray:
          out[0] = out[1] = out[2] = row[x], out[3] = 255;
          break;
      }
    }
  }
  return true;
}

// Whether the list has a row named `name` at `row`.
bool rowIs(size_t row, const char* name) {
  const EffectList& rows = EffectsData::shared().effects;
  return row < rows.size() && rows[row]->name == name;
}

web::LookLog& lookLog() { return web::LookLog::shared(); }

const char* handOutText(std::string s) {
  engine().text = std::move(s);
  return engine().text.c_str();
}

// The effects that flicker draw from the unrepeatable source. During a flatten they draw from this
// generator instead (splitmix64 from a seed that was itself drawn from that source), so that the
// flatten can be made again to the pixel; the rest goes to the platform as it was.
class RepeatableDraws final : public Platform {
 public:
  RepeatableDraws(Platform& base, uint32_t seed) : base_(base), state_(seed) {}
  void consoleLine(std::string_view line) override { base_.consoleLine(line); }
  uint32_t random32() override {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return uint32_t((z ^ (z >> 31)) >> 32);
  }
  double now() override { return base_.now(); }

 private:
  Platform& base_;
  uint64_t state_;
};

bool flattenWithDraws(uint32_t flicker) {
  Platform& base = platform();
  RepeatableDraws draws(base, flicker);
  setPlatform(&draws);
  const bool ok = view().flatten();
  setPlatform(&base);
  return ok;
}

// The names of the effects the stack runs now: the active rows, presets opened up.
std::vector<std::string> stackNames() {
  EffectList active;
  for (const EffectRef& e : EffectsData::shared().effects)
    if (e->isActive) active.push_back(e);
  std::vector<std::string> names;
  for (const EffectRef& e : EffectsData::flattenEffects(active)) names.push_back(e->name);
  return names;
}

std::vector<std::string> splitLines(const char* text) {
  std::vector<std::string> lines;
  std::string line;
  for (const char* p = text;; ++p) {
    if (*p == '\n' || *p == 0) {
      if (!line.empty()) lines.push_back(line);
      line.clear();
      if (*p == 0) break;
    } else {
      line += *p;
    }
  }
  return lines;
}

}  // namespace

EffectedImageView& web::engineView() { return view(); }

extern "C" {

// Starts the engine: installs the stored defaults (a binary property list; none or unreadable bytes
// start empty), the analytics sink, and the picture view for a screen of `scale` pixels a point, and
// loads the effect list. Gives 0, plus 1 when the stored bytes could not be read (then they are left
// alone until something is written), plus 2 when the stored effect list could not be used and the
// built-in list takes its place (zv_list_problem says why): the page keeps the old bytes first.
// Calling it again only replaces the defaults.
EMSCRIPTEN_KEEPALIVE int zv_init(const uint8_t* defaults, int32_t length, double scale) {
  Engine& e = engine();
  const bool readable = e.defaults.load(defaults, size_t(length < 0 ? 0 : length));
  setStandardDefaults(&e.defaults);
  setAnalyticsSink(&e.analytics);
  EffectsData& data = EffectsData::shared();
  data.setDefaults(&e.defaults);
  data.onEffect = [](size_t, size_t, const Effect&) { ++engine().kernelsRun; };
  data.effects.clear();
  e.listProblem = storedListProblem(e.defaults);
  data.loadEffects();
  if (!e.view) e.view = std::make_unique<EffectedImageView>(scale > 0 ? scale : 1.0);
  return (readable ? 0 : 1) | (e.listProblem.empty() ? 0 : 2);
}

// Why the last zv_init replaced the stored effect list (empty when it didn't).
EMSCRIPTEN_KEEPALIVE const char* zv_list_problem() { return handOutText(engine().listProblem); }

// Adds one to the launch count, as the main screen does once at start.
EMSCRIPTEN_KEEPALIVE int32_t zv_count_launch() {
  LaunchCounter::incrementLaunchCount();
  return int32_t(LaunchCounter::launchCount());
}

// The base picture from RGBA bytes; with `correct`, drawn upright by its orientation tag (0 to 7, as
// the toolkit numbers them) first. Gives 0, or 1 for a picture too small or too large to work on.
EMSCRIPTEN_KEEPALIVE int zv_set_original(const uint8_t* rgba, int32_t w, int32_t h, int32_t orientation,
                                         int32_t correct) {
  if (w < kMinSide || h < kMinSide || int64_t(w) * int64_t(h) > kMaxPixels) return 1;
  CGImageRef image = imageFromRGBA(rgba, w, h);
  if (correct) {
    const int32_t o = orientation >= 0 && orientation <= 7 ? orientation : 0;
    image = KImageProcessing::correctForCameraOrientation(UIImage{image, UIImageOrientation(o)}).CGImage;
    if (!image) return 1;
  }
  view().originalImage = image;
  lookLog().baseChanged();
  return 0;
}

// Forgets the base and the effected picture, as the way back to the camera does.
EMSCRIPTEN_KEEPALIVE void zv_clear_images() {
  view().originalImage = nullptr;
  view().effectedImage = nullptr;
  lookLog().baseChanged();
}

EMSCRIPTEN_KEEPALIVE int32_t zv_original_width() { return int32_t(CGImageGetWidth(view().originalImage)); }
EMSCRIPTEN_KEEPALIVE int32_t zv_original_height() { return int32_t(CGImageGetHeight(view().originalImage)); }

// Layout with the view's size in points.
EMSCRIPTEN_KEEPALIVE void zv_layout(double width, double height) { view().layoutSubviews(CGSize{width, height}); }

// A preview render behind the frame gate; gives whether it got through the gate.
EMSCRIPTEN_KEEPALIVE int zv_render(int32_t skipEffects) {
  if (view().isDrawing) return 0;
  view().render(skipEffects != 0);
  return 1;
}

EMSCRIPTEN_KEEPALIVE uint32_t zv_kernels_run() { return engine().kernelsRun; }

EMSCRIPTEN_KEEPALIVE int zv_is_drawing() { return view().isDrawing ? 1 : 0; }

// The display pass at width x height pixels: the picture goes to the out buffer and the gate opens.
// Gives 0 when there is nothing to show yet (no layout surface).
EMSCRIPTEN_KEEPALIVE int zv_compose(int32_t width, int32_t height) {
  if (width <= 0 || height <= 0) return 0;
  return handOut(view().compose(width, height)) ? 1 : 0;
}

// The final render at the base's size (half by the save quality) into the out buffer; 0 on failure.
EMSCRIPTEN_KEEPALIVE int zv_render_final() { return handOut(view().renderFinal()) ? 1 : 0; }

EMSCRIPTEN_KEEPALIVE const uint8_t* zv_picture() { return engine().picture.data(); }
EMSCRIPTEN_KEEPALIVE int32_t zv_picture_width() { return engine().pictureWidth; }
EMSCRIPTEN_KEEPALIVE int32_t zv_picture_height() { return engine().pictureHeight; }
// Lets go of the out buffer's memory.
EMSCRIPTEN_KEEPALIVE void zv_release_picture() {
  std::vector<uint8_t>().swap(engine().picture);
  engine().pictureWidth = engine().pictureHeight = 0;
}

// The blend mode by its place in the picker's list (0 to 17); another index is ignored.
EMSCRIPTEN_KEEPALIVE void zv_set_blend_mode(int32_t index, int32_t skipDisplay) {
  if (index < 0 || index >= int32_t(allBlendModes.size())) return;
  view().setBlendMode(allBlendModes[size_t(index)], skipDisplay != 0);
}
EMSCRIPTEN_KEEPALIVE void zv_set_layer_alpha(double alpha) { view().setLayerAlpha(alpha); }
EMSCRIPTEN_KEEPALIVE void zv_set_hide_effects(int32_t hide) { view().shouldHideEffects = hide != 0; }

// New control values (logs "randomParams" and renders a preview).
EMSCRIPTEN_KEEPALIVE void zv_randomize_controls() { view().randomizeControls(); }
// The seed of the current control values, in two 32-bit halves, so that a new engine can take them up.
EMSCRIPTEN_KEEPALIVE uint32_t zv_control_seed_high() { return uint32_t(view().controlSeed >> 32); }
EMSCRIPTEN_KEEPALIVE uint32_t zv_control_seed_low() { return uint32_t(view().controlSeed); }
EMSCRIPTEN_KEEPALIVE void zv_set_control_seed(uint32_t high, uint32_t low) {
  const uint64_t seed = (uint64_t(high) << 32) | low;
  view().controlValues = rollControls(seed);
  view().controlSeed = seed;
}

// The base turned by `degrees`, mirrored left to right when `mirrored`; 0 without a base.
EMSCRIPTEN_KEEPALIVE int zv_rotate_base_image(double degrees, int32_t mirrored) {
  if (!view().rotateBaseImage(degrees, mirrored != 0)) return 0;
  lookLog().turned(degrees, mirrored != 0);
  return 1;
}

// The composed final becomes the base, and a preview is rendered; 0 (nothing changed) on failure. What
// it ran under is kept for zv_last_look_json, and the look log takes the step.
EMSCRIPTEN_KEEPALIVE int zv_flatten() {
  EffectedImageView& v = view();
  FlattenLook look{stackNames(), v.controlSeed, arc4random(), v.saveQuality() == SaveQuality::half};
  web::LookLog before = lookLog();
  lookLog().flattening(v, EffectsData::shared());
  if (!flattenWithDraws(look.flicker)) {
    lookLog() = before;
    return 0;
  }
  engine().lastLook = std::move(look);
  return 1;
}

// A flatten made again under the look it once ran under: the effects named in `names` (one a line,
// in running order) instead of the list's, the controls rolled from the seed, the flickering effects'
// draws from `flicker`, at half size when `half`. The list, the controls and the save quality of now
// are left as they were. 0 (nothing changed) on failure.
EMSCRIPTEN_KEEPALIVE int zv_flatten_under(const char* names, uint32_t seedHigh, uint32_t seedLow, uint32_t flicker,
                                          int32_t half) {
  EffectedImageView& v = view();
  EffectsData& data = EffectsData::shared();
  EffectList list;
  for (const std::string& name : splitLines(names)) list.push_back(Effect::make(name, true));
  const EffectList rows = data.effects;
  const ControlValues controls = v.controlValues;
  const uint64_t seed = v.controlSeed;
  const auto quality = v.saveQuality;
  data.effects = list;
  v.controlSeed = (uint64_t(seedHigh) << 32) | seedLow;
  v.controlValues = rollControls(v.controlSeed);
  v.saveQuality = [half] { return half ? SaveQuality::half : SaveQuality::full; };
  web::LookLog before = lookLog();
  lookLog().flattening(v, data);
  const bool ok = flattenWithDraws(flicker);
  if (!ok) lookLog() = before;
  data.effects = rows;
  v.controlValues = controls;
  v.controlSeed = seed;
  v.saveQuality = quality;
  return ok ? 1 : 0;
}

// The look of the last flatten: {"effects":[...],"seed":"N","flicker":N,"half":false}.
EMSCRIPTEN_KEEPALIVE const char* zv_last_look_json() {
  const FlattenLook& look = engine().lastLook;
  std::string out = "{\"effects\":[";
  for (size_t i = 0; i < look.effects.size(); ++i) out += (i ? "," : "") + json::quote(look.effects[i]);
  out += "],\"seed\":\"" + std::to_string(look.seed) + "\",\"flicker\":" + std::to_string(look.flicker) +
         ",\"half\":" + (look.half ? "true" : "false") + "}";
  return handOutText(out);
}

// The edits of the Arrange screen. Each names the row by its place and its name, and is refused (1)
// when the list has no such row there: the page's table may be older than the list (a new engine
// loads the stored list, which lacks a move not yet stored). 0 when done.
EMSCRIPTEN_KEEPALIVE int zv_toggle_effect(uint32_t row, const char* name) {
  if (!rowIs(row, name)) return 1;
  EffectsData::shared().toggleEffect(row);
  return 0;
}
// `to` counts in the list without the row, so it is the row's place afterwards. Not stored.
EMSCRIPTEN_KEEPALIVE int zv_move_effect(uint32_t from, const char* name, uint32_t to) {
  if (!rowIs(from, name) || to >= EffectsData::shared().effects.size()) return 1;
  EffectsData::shared().moveEffect(from, to);
  return 0;
}
EMSCRIPTEN_KEEPALIVE int zv_remove_effect(uint32_t row, const char* name) {
  if (!rowIs(row, name)) return 1;
  EffectsData::shared().removeEffect(row);
  return 0;
}
EMSCRIPTEN_KEEPALIVE void zv_save_active_as_preset(const char* name) { EffectsData::shared().saveActiveAsPreset(name); }
// A list of fewer than two rows can't be rolled (1).
EMSCRIPTEN_KEEPALIVE int zv_randomize_effects() {
  if (EffectsData::shared().effects.size() < 2) return 1;
  EffectsData::shared().randomizeEffects();
  return 0;
}

// Turns the rows named in `names` (one name a line) on and every other row off, in the list's order,
// and stores the list. Gives the number of rows turned on.
EMSCRIPTEN_KEEPALIVE int32_t zv_set_active_effects(const char* names) {
  const std::vector<std::string> wanted = splitLines(names);
  EffectsData& data = EffectsData::shared();
  int32_t on = 0;
  // The named rows move to the top, in the order given, so that they also run in that order.
  EffectList front, rest;
  for (const std::string& name : wanted)
    for (const EffectRef& row : data.effects)
      if (row->name == name && std::find(front.begin(), front.end(), row) == front.end()) {
        row->isActive = true;
        front.push_back(row);
        ++on;
        break;
      }
  for (const EffectRef& row : data.effects)
    if (std::find(front.begin(), front.end(), row) == front.end()) {
      row->isActive = false;
      rest.push_back(row);
    }
  front.insert(front.end(), rest.begin(), rest.end());
  data.effects = front;
  data.saveEffects();
  return on;
}

// The rows of the list as JSON: [{"name":..., "isActive":..., "preset":...}, ...].
EMSCRIPTEN_KEEPALIVE const char* zv_effects_json() {
  std::string out = "[";
  for (const EffectRef& row : EffectsData::shared().effects) {
    if (out.size() > 1) out += ',';
    out += "{\"name\":" + json::quote(row->name) + ",\"isActive\":" + (row->isActive ? "true" : "false") +
           ",\"preset\":" + (row->isPreset() ? "true" : "false") + "}";
  }
  return handOutText(out + "]");
}

// The names of the effects that have a kernel, one a line.
EMSCRIPTEN_KEEPALIVE const char* zv_kernel_names() {
  std::string out;
  for (const KernelEntry& e : Filters::kernelTable())
    if (!std::holds_alternative<std::monostate>(e.kernel)) out += std::string(e.name) + "\n";
  return handOutText(out);
}

// The whole defaults dictionary as a binary property list; its length goes to zv_text_length.
EMSCRIPTEN_KEEPALIVE const uint8_t* zv_defaults_bytes() {
  handOutText(engine().defaults.encoded());
  return reinterpret_cast<const uint8_t*>(engine().text.data());
}
EMSCRIPTEN_KEEPALIVE int32_t zv_text_length() { return int32_t(engine().text.size()); }
// The defaults' numbers, flags and strings as a JSON object, for the page to read synchronously.
EMSCRIPTEN_KEEPALIVE const char* zv_defaults_json() { return handOutText(engine().defaults.scalarsJson()); }
EMSCRIPTEN_KEEPALIVE void zv_set_default_integer(const char* key, double value) {
  standardDefaults().setInteger(int64_t(value), key);
}
EMSCRIPTEN_KEEPALIVE void zv_set_default_bool(const char* key, int32_t value) {
  standardDefaults().setBool(value != 0, key);
}

// Ends the module as a fatal error in the core does, so that the page's recovery can be exercised.
EMSCRIPTEN_KEEPALIVE void zv_fatal() { fatal(); }

}  // extern "C"
