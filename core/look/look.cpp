#include "core/look/look.h"

#include <cmath>

#include "core/stack/filters.h"

namespace zorvex::look {

std::optional<std::string> effectName(std::string_view name) {
  const KernelEntry* entry = Filters::findKernel(name);
  if (!entry) return std::nullopt;
  return std::string(entry->name);
}

Stack seededStack(std::vector<std::string> effects, uint64_t seed, BlendMode blend, double opacity) {
  return Stack{std::move(effects), seed, rollControls(seed), blend, opacity};
}

std::optional<int> tenThousandths(double value) {
  if (!(value >= 0.0 && value <= 0.9999)) return std::nullopt;
  const double scaled = value * 10000.0;
  const double k = std::round(scaled);
  // A value read from decimal text is the double nearest to k / 10000, whose product with 10000 lies
  // within a few ulps of k.
  if (std::fabs(scaled - k) > 1e-6) return std::nullopt;
  return int(k);
}

namespace {

bool validateStack(const Stack& s, const std::string& where, std::string& error) {
  if (s.effects.size() > kMaxEffects) {
    error = where + "has " + std::to_string(s.effects.size()) + " effects; at most " + std::to_string(kMaxEffects) +
            " are taken";
    return false;
  }
  for (const std::string& name : s.effects) {
    const auto known = effectName(name);
    if (!known || *known != name) {
      error = where + "names an effect this version doesn't have: \"" + name + "\"";
      return false;
    }
  }
  if (s.controls.size() != kControlCount) {
    error = where + "has " + std::to_string(s.controls.size()) + " control values; exactly 1000 are needed";
    return false;
  }
  for (size_t i = 0; i < s.controls.size(); ++i) {
    const auto k = tenThousandths(s.controls[i]);
    if (!k || s.controls[i] != double(*k) / 10000.0) {
      error = where + "has a control value (number " + std::to_string(i + 1) +
              ") that is not a multiple of 0.0001 from 0 to 0.9999";
      return false;
    }
  }
  if (s.seed && s.controls != rollControls(*s.seed)) {
    error = where + "has control values that are not those of its seed";
    return false;
  }
  if (!(s.opacity >= 0.0 && s.opacity <= 1.0)) {
    error = where + "has an opacity outside 0 to 1";
    return false;
  }
  if (int32_t(s.blend) < 0 || size_t(s.blend) >= allBlendModes.size()) {
    error = where + "has an unknown blend mode";
    return false;
  }
  return true;
}

}  // namespace

bool validate(const Look& look, std::string& error) {
  if (!validateStack(look.stack, "the look ", error)) return false;
  if (look.size.previewWidth < 0 || look.size.previewWidth > (1 << 20)) {
    error = "the look's preview width is outside 1 to 1048576";
    return false;
  }
  if (look.edits.size() > kMaxEdits) {
    error = "the look has " + std::to_string(look.edits.size()) + " edit steps; at most " + std::to_string(kMaxEdits) +
            " are taken";
    return false;
  }
  for (size_t i = 0; i < look.edits.size(); ++i) {
    const EditStep& step = look.edits[i];
    const std::string where = "edit step " + std::to_string(i + 1) + " ";
    if (step.edit > Edit::flatten) {
      error = where + "is of an unknown kind";
      return false;
    }
    if (step.edit != Edit::flatten) {
      if (step.stack || step.quality) {
        error = where + "turns or mirrors, and so carries no stack";
        return false;
      }
      continue;
    }
    if (look.size.previewWidth) {
      error = "the look is a preview, which can't have a flatten: flattening works on the full picture";
      return false;
    }
    if (step.stack && !validateStack(*step.stack, where, error)) return false;
  }
  return true;
}

void normalize(Look& look) {
  for (EditStep& step : look.edits) {
    if (step.stack && *step.stack == look.stack) step.stack.reset();
    if (step.quality && *step.quality == look.size.quality) step.quality.reset();
  }
}

bool fromText(std::string_view text, Look& out, std::string& error) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\n' || text[i] == '\r' || text[i] == '\t')) ++i;
  if (i < text.size() && text[i] == '{') return fromJson(text, out, error);
  return fromCompact(text, out, error);
}

}  // namespace zorvex::look
