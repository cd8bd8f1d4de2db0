// The engine's C API for looks: a look read from a picture's bytes or from text, applied to the view and
// the list, the look of the current picture, and a JPEG given its XMP. Texts go out through one buffer
// (a NUL-terminated string), bytes through another.
#include <emscripten/emscripten.h>

#include <cstdio>
#include <string>

#include "core/look/look_apply.h"
#include "core/look/xmp.h"
#include "web/engine/look_log.h"
#include "web/engine/web_defaults.h"

using namespace zorvex;

namespace zorvex::web {

LookLog& LookLog::shared() {
  static LookLog log;
  return log;
}

void LookLog::turned(double degrees, bool mirrored) {
  look::EditStep step;
  if (degrees == -90 && !mirrored) step.edit = look::Edit::rotateLeft;
  else if (degrees == 90 && !mirrored) step.edit = look::Edit::rotateRight;
  else if (degrees == 0 && mirrored) step.edit = look::Edit::mirrorH;
  else if (degrees == 180 && mirrored) step.edit = look::Edit::mirrorV;
  else return;  // no tool turns so
  edits_.push_back(step);
}

namespace {
std::optional<uint64_t> seedOf(const EffectedImageView& view) {
  if (rollControls(view.controlSeed) == view.controlValues) return view.controlSeed;
  return std::nullopt;
}
}  // namespace

void LookLog::flattening(const EffectedImageView& view, const EffectsData& data) {
  look::EditStep step;
  step.stack = look::currentStack(data.effects, view.controlValues, seedOf(view), view.blendMode, view.layerAlpha());
  step.quality = view.saveQuality();
  edits_.push_back(std::move(step));
}

look::Look LookLog::current(const EffectedImageView& view, const EffectsData& data) const {
  look::Look out;
  out.stack = look::currentStack(data.effects, view.controlValues, seedOf(view), view.blendMode, view.layerAlpha());
  out.size.quality = view.saveQuality();
  out.edits = edits_;
  look::normalize(out);
  return out;
}

}  // namespace zorvex::web

namespace {

std::string text;
std::vector<uint8_t> bytes;

const char* handOut(std::string s) {
  text = std::move(s);
  return text.c_str();
}

}  // namespace

extern "C" {

// The look a JPEG or PNG carries: 0 with its JSON (zv_look_text), 1 when it has none, 2 with a message
// when the picture or its look is damaged.
EMSCRIPTEN_KEEPALIVE int zv_look_from_picture(const uint8_t* file, int32_t length) {
  look::Look found;
  std::string error;
  const std::span<const uint8_t> span(file, size_t(length < 0 ? 0 : length));
  switch (look::lookInPicture(span, found, error)) {
    case look::Found::look: handOut(look::toJson(found, false)); return 0;
    case look::Found::none: handOut(""); return 1;
    case look::Found::error: handOut(error); return 2;
  }
  return 2;
}

// A look's JSON or compact text, checked: 0 with its JSON, 2 with a message.
EMSCRIPTEN_KEEPALIVE int zv_parse_look(const char* given) {
  look::Look found;
  std::string error;
  if (!look::fromText(given, found, error)) {
    handOut(error);
    return 2;
  }
  handOut(look::toJson(found, false));
  return 0;
}

// Applies a look (JSON or compact text): the list's rows run its effects (a "FROM PHOTO" preset is
// added when no rows do), and the view takes its vector, blend mode and opacity. With `withEdits`, its
// edit steps are also done on the base. 0 with {"blendIndex", "opacity", "seed", "presetAdded"} as
// JSON; 2 with a message, and nothing changed, for a look that can't be read or edits without a base.
EMSCRIPTEN_KEEPALIVE int zv_apply_look(const char* given, int32_t withEdits) {
  look::Look found;
  std::string error;
  if (!look::fromText(given, found, error)) {
    handOut(error);
    return 2;
  }
  EffectedImageView& view = web::engineView();
  if (withEdits && !found.edits.empty() && !view.originalImage) {
    handOut("there is no picture to edit");
    return 2;
  }
  EffectsData& data = EffectsData::shared();
  const bool added = look::useEffects(data, found.stack.effects);
  look::applyStack(view, found.stack);
  if (withEdits) {
    web::LookLog& log = web::LookLog::shared();
    if (!look::replayEdits(view, data, found, error, [&log](const look::EditStep& step) { log.add(step); })) {
      handOut(error);
      return 2;
    }
  }
  const std::string seed = found.stack.seed ? "\"" + std::to_string(*found.stack.seed) + "\"" : "null";
  char opacity[32];
  std::snprintf(opacity, sizeof opacity, "%.17g", found.stack.opacity);
  handOut("{\"blendIndex\":" + std::to_string(int32_t(found.stack.blend)) + ",\"opacity\":" + opacity +
          ",\"seed\":" + seed + ",\"presetAdded\":" + (added ? "true" : "false") +
          "}");
  return 0;
}

// The look of the current picture: its JSON, or with `compact` the text for a link.
EMSCRIPTEN_KEEPALIVE const char* zv_current_look(int32_t compact) {
  const look::Look now = web::LookLog::shared().current(web::engineView(), EffectsData::shared());
  return handOut(compact ? look::toCompact(now) : look::toJson(now, false));
}

// The XMP packet of the current picture's look.
EMSCRIPTEN_KEEPALIVE const char* zv_current_look_xmp() {
  return handOut(look::xmpPacket(web::LookLog::shared().current(web::engineView(), EffectsData::shared())));
}

EMSCRIPTEN_KEEPALIVE const char* zv_look_text() { return text.c_str(); }

// The JPEG or PNG with `packet` as its XMP (and no other metadata) into the bytes buffer; its length
// goes to zv_look_bytes_length. Null, with a message in zv_look_text, on failure.
EMSCRIPTEN_KEEPALIVE const uint8_t* zv_embed_xmp(const uint8_t* file, int32_t length, const char* packet) {
  std::string error;
  if (!look::embedXmp(std::span<const uint8_t>(file, size_t(length < 0 ? 0 : length)), packet, bytes, error)) {
    handOut(error);
    bytes.clear();
    return nullptr;
  }
  return bytes.data();
}
EMSCRIPTEN_KEEPALIVE int32_t zv_look_bytes_length() { return int32_t(bytes.size()); }
EMSCRIPTEN_KEEPALIVE void zv_release_look_bytes() { std::vector<uint8_t>().swap(bytes); }

}  // extern "C"
