// The JSON form of a look:
//
//   {
//     "zorvexLook": 1,
//     "effects": ["VETH", "AGENCY"],
//     "seed": "8051913385926145613",        (or "controls": [0.1234, ...], 1000 of them)
//     "blend": "Normal",
//     "opacity": 1,
//     "size": "full",                       ("half", or "preview" with "previewWidth": 360)
//     "edits": ["rotate left", "mirror h", "flatten", {"flatten": {...}}]
//   }
//
// A flatten done under another stack or save quality is an object whose "flatten" holds them: the
// stack's keys as above (all of "effects" and "seed" or "controls", or none) and "size" ("full" or
// "half"). The seed is a string, since JSON numbers can't hold every 64-bit integer; a whole number
// is taken too.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "core/look/json.h"
#include "core/look/look.h"

namespace zorvex::look {
namespace {

const char* editName(Edit e) {
  switch (e) {
    case Edit::rotateLeft: return "rotate left";
    case Edit::rotateRight: return "rotate right";
    case Edit::mirrorH: return "mirror h";
    case Edit::mirrorV: return "mirror v";
    case Edit::flatten: return "flatten";
  }
  return "flatten";
}

// The shortest decimal that reads back as the same double.
std::string shortest(double v) {
  char buffer[32];
  for (int precision = 1; precision <= 17; ++precision) {
    std::snprintf(buffer, sizeof buffer, "%.*g", precision, v);
    if (std::strtod(buffer, nullptr) == v) break;
  }
  return buffer;
}

// k / 10000 written out: "0", "0.5", "0.1234".
std::string controlText(double v) {
  int k = tenThousandths(v).value_or(0);
  if (k == 0) return "0";
  std::string digits = std::to_string(k);
  digits.insert(0, 4 - digits.size(), '0');
  while (digits.back() == '0') digits.pop_back();
  return "0." + digits;
}

const char* qualityName(SaveQuality q) { return q == SaveQuality::half ? "half" : "full"; }

void writeStack(const Stack& s, std::string& out, const std::string& sep) {
  out += "\"effects\": [";
  for (size_t i = 0; i < s.effects.size(); ++i) {
    if (i) out += ", ";
    out += json::quote(s.effects[i]);
  }
  out += "]" + sep;
  if (s.seed) {
    out += "\"seed\": \"" + std::to_string(*s.seed) + "\"" + sep;
  } else {
    out += "\"controls\": [";
    for (size_t i = 0; i < s.controls.size(); ++i) {
      if (i) out += ",";
      out += controlText(s.controls[i]);
    }
    out += "]" + sep;
  }
  out += "\"blend\": " + json::quote(rawValue(s.blend)) + sep;
  out += "\"opacity\": " + shortest(s.opacity);
}

// --- Reading ---

using json::Value;
using Kind = Value::Kind;

struct Reader {
  std::string& error;

  bool fail(std::string message) {
    error = std::move(message);
    return false;
  }

  bool onlyKeys(const Value& object, std::initializer_list<std::string_view> keys, const std::string& where) {
    for (const json::Member& m : object.members) {
      bool known = false;
      for (std::string_view k : keys) known = known || k == m.key;
      if (!known) return fail(where + "has an unknown key \"" + m.key + "\"");
    }
    return true;
  }

  bool seed(const Value& v, uint64_t& out, const std::string& where) {
    const std::string& text = v.text;
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if ((v.kind != Kind::string && v.kind != Kind::number) || !digits)
      return fail(where + "has a \"seed\" that is not a whole number from 0 to 18446744073709551615");
    errno = 0;
    out = std::strtoull(text.c_str(), nullptr, 10);
    if (errno == ERANGE) return fail(where + "has a \"seed\" larger than 18446744073709551615");
    return true;
  }

  bool stack(const Value& o, Stack& s, const std::string& where) {
    const Value* effects = o.find("effects");
    if (!effects || effects->kind != Kind::array) return fail(where + "needs \"effects\", a list of effect names");
    if (effects->items.size() > kMaxEffects)
      return fail(where + "has " + std::to_string(effects->items.size()) + " effects; at most " +
                  std::to_string(kMaxEffects) + " are taken");
    s.effects.clear();
    for (const Value& name : effects->items) {
      if (name.kind != Kind::string) return fail(where + "has an effect that is not a name in quotes");
      const auto known = effectName(name.text);
      if (!known) return fail(where + "names an effect this version doesn't have: \"" + name.text + "\"");
      s.effects.push_back(*known);
    }
    const Value* seedValue = o.find("seed");
    const Value* controls = o.find("controls");
    if (seedValue && controls) return fail(where + "has both \"seed\" and \"controls\"; give one");
    if (seedValue) {
      uint64_t n;
      if (!seed(*seedValue, n, where)) return false;
      s.seed = n;
      s.controls = rollControls(n);
    } else if (controls) {
      if (controls->kind != Kind::array || controls->items.size() != kControlCount)
        return fail(where + "needs \"controls\" to be a list of exactly 1000 numbers");
      s.seed.reset();
      for (size_t i = 0; i < kControlCount; ++i) {
        const Value& c = controls->items[i];
        const auto k = c.kind == Kind::number ? tenThousandths(c.number) : std::nullopt;
        if (!k)
          return fail(where + "has control value " + std::to_string(i + 1) + " (" +
                      (c.kind == Kind::number ? c.text : std::string("not a number")) +
                      "), which is not a multiple of 0.0001 from 0 to 0.9999");
        s.controls[i] = double(*k) / 10000.0;
      }
    } else {
      return fail(where + "needs \"seed\" or \"controls\"");
    }
    if (const Value* blend = o.find("blend")) {
      const auto mode = blend->kind == Kind::string ? blendModeFromLabel(blend->text) : std::nullopt;
      if (!mode) return fail(where + "has a \"blend\" that is no blend mode's label (such as \"Color Burn\")");
      s.blend = *mode;
    }
    if (const Value* opacity = o.find("opacity")) {
      if (opacity->kind != Kind::number || !(opacity->number >= 0.0 && opacity->number <= 1.0))
        return fail(where + "has an \"opacity\" that is not a number from 0 to 1");
      s.opacity = opacity->number;
    }
    return true;
  }

  bool quality(const Value& v, SaveQuality& q, const std::string& where) {
    if (v.kind == Kind::string && (v.text == "full" || v.text == "half")) {
      q = v.text == "half" ? SaveQuality::half : SaveQuality::full;
      return true;
    }
    return fail(where + "has a \"size\" that is neither \"full\" nor \"half\"");
  }

  bool edit(const Value& v, EditStep& step, const std::string& where) {
    if (v.kind == Kind::string) {
      for (Edit e : {Edit::rotateLeft, Edit::rotateRight, Edit::mirrorH, Edit::mirrorV, Edit::flatten}) {
        if (v.text == editName(e)) {
          step.edit = e;
          return true;
        }
      }
      return fail(where + "is \"" + v.text +
                  "\", which is none of \"rotate left\", \"rotate right\", \"mirror h\", \"mirror v\", \"flatten\"");
    }
    const Value* inner = v.kind == Kind::object && v.members.size() == 1 ? v.find("flatten") : nullptr;
    if (!inner || inner->kind != Kind::object)
      return fail(where + "is neither the name of an edit nor {\"flatten\": {...}}");
    step.edit = Edit::flatten;
    if (!onlyKeys(*inner, {"effects", "seed", "controls", "blend", "opacity", "size"}, where)) return false;
    if (inner->find("effects") || inner->find("seed") || inner->find("controls") || inner->find("blend") ||
        inner->find("opacity")) {
      Stack s;
      if (!stack(*inner, s, where)) return false;
      step.stack = std::move(s);
    }
    if (const Value* size = inner->find("size")) {
      SaveQuality q;
      if (!quality(*size, q, where)) return false;
      step.quality = q;
    }
    return true;
  }

  bool look(const Value& root, Look& out) {
    if (root.kind != Kind::object) return fail("a look is a JSON object");
    const Value* version = root.find("zorvexLook");
    if (!version) return fail("not a Zorvex look: it has no \"zorvexLook\" key");
    if (version->kind != Kind::number || version->text != std::to_string(kVersion))
      return fail("the look is of version " + (version->kind == Kind::number ? version->text : std::string("?")) +
                  "; this Zorvex reads version " + std::to_string(kVersion));
    if (!onlyKeys(root, {"zorvexLook", "effects", "seed", "controls", "blend", "opacity", "size", "previewWidth", "edits"},
                  "the look "))
      return false;
    Look look;
    if (!stack(root, look.stack, "the look ")) return false;
    const Value* size = root.find("size");
    const Value* width = root.find("previewWidth");
    if (size && size->kind == Kind::string && size->text == "preview") {
      if (!width || width->kind != Kind::number || width->text.find_first_not_of("0123456789") != std::string::npos ||
          width->number < 1 || width->number > (1 << 20))
        return fail("the look's \"previewWidth\" must be a whole number from 1 to 1048576 for a preview");
      look.size.previewWidth = int64_t(width->number);
    } else {
      if (width) return fail("the look has a \"previewWidth\" but its \"size\" is not \"preview\"");
      if (size && !quality(*size, look.size.quality, "the look ")) return false;
    }
    if (const Value* edits = root.find("edits")) {
      if (edits->kind != Kind::array) return fail("the look's \"edits\" must be a list");
      if (edits->items.size() > kMaxEdits)
        return fail("the look has " + std::to_string(edits->items.size()) + " edit steps; at most " +
                    std::to_string(kMaxEdits) + " are taken");
      for (size_t i = 0; i < edits->items.size(); ++i) {
        EditStep step;
        if (!edit(edits->items[i], step, "edit step " + std::to_string(i + 1) + " ")) return false;
        look.edits.push_back(std::move(step));
      }
    }
    if (!validate(look, error)) return false;
    normalize(look);
    out = std::move(look);
    return true;
  }
};

}  // namespace

std::string toJson(const Look& look, bool pretty) {
  const std::string sep = pretty ? ",\n  " : ", ";
  std::string out = pretty ? "{\n  " : "{";
  out += "\"zorvexLook\": " + std::to_string(kVersion) + sep;
  writeStack(look.stack, out, sep);
  out += sep;
  if (look.size.previewWidth) {
    out += "\"size\": \"preview\"" + sep + "\"previewWidth\": " + std::to_string(look.size.previewWidth);
  } else {
    out += std::string("\"size\": \"") + qualityName(look.size.quality) + "\"";
  }
  out += sep + "\"edits\": [";
  for (size_t i = 0; i < look.edits.size(); ++i) {
    const EditStep& step = look.edits[i];
    out += i ? ", " : "";
    if (!step.stack && !step.quality) {
      out += std::string("\"") + editName(step.edit) + "\"";
      continue;
    }
    out += "{\"flatten\": {";
    if (step.stack) writeStack(*step.stack, out, ", ");
    if (step.quality) out += std::string(step.stack ? ", " : "") + "\"size\": \"" + qualityName(*step.quality) + "\"";
    out += "}}";
  }
  out += pretty ? "]\n}\n" : "]}";
  return out;
}

bool fromJson(std::string_view text, Look& out, std::string& error) {
  json::Value root;
  std::string why;
  if (!json::parse(text, root, why)) {
    error = "the look is not valid JSON: " + why;
    return false;
  }
  return Reader{error}.look(root, out);
}

}  // namespace zorvex::look
