#include "core/look/look_apply.h"

namespace zorvex::look {
namespace {

// The kernels a row runs, by their look names.
std::vector<std::string> runs(const EffectRef& row) {
  std::vector<std::string> out;
  for (const EffectRef& e : EffectsData::flattenEffects({row}))
    if (auto name = effectName(e->name)) out.push_back(*name);
  return out;
}

}  // namespace

Stack currentStack(const EffectList& rows, const ControlValues& controls, std::optional<uint64_t> seed,
                   BlendMode blend, double opacity) {
  Stack s;
  for (const EffectRef& row : rows) {
    if (!row->isActive) continue;
    for (std::string& name : runs(row)) s.effects.push_back(std::move(name));
  }
  s.seed = seed;
  s.controls = controls;
  s.blend = blend;
  s.opacity = opacity;
  return s;
}

EffectList rowsFor(const std::vector<std::string>& effects) {
  EffectList rows;
  for (const std::string& name : effects) rows.push_back(Effect::make(name, true));
  return rows;
}

bool useEffects(EffectsData& data, const std::vector<std::string>& effects) {
  const EffectList& rows = data.effects;
  const size_t n = rows.size(), m = effects.size();
  std::vector<std::vector<std::string>> ran(n);
  for (size_t j = 0; j < n; ++j) ran[j] = runs(rows[j]);
  auto fits = [&](size_t j, size_t p) {
    const auto& r = ran[j];
    if (r.empty() || r.size() > m - p) return false;
    for (size_t k = 0; k < r.size(); ++k)
      if (r[k] != effects[p + k]) return false;
    return true;
  };
  // can[j][p]: rows j.. can run effects p.. in order, each row taken whole or not at all.
  std::vector<std::vector<char>> can(n + 1, std::vector<char>(m + 1, 0));
  can[n][m] = 1;
  for (size_t j = n; j-- > 0;)
    for (size_t p = 0; p <= m; ++p) can[j][p] = can[j + 1][p] || (fits(j, p) && can[j + 1][p + ran[j].size()]);

  bool added = false;
  if (can[0][0]) {
    size_t p = 0;
    for (size_t j = 0; j < n; ++j) {
      const bool take = fits(j, p) && can[j + 1][p + ran[j].size()];
      rows[j]->isActive = take;
      if (take) p += ran[j].size();
    }
  } else {
    for (const EffectRef& row : rows) row->isActive = false;
    data.effects.push_back(Effect::make(std::string(kLookPresetName), true, rowsFor(effects)));
    added = true;
  }
  data.saveEffects();
  return added;
}

void applyStack(EffectedImageView& view, const Stack& stack) {
  view.controlValues = stack.controls;
  view.controlSeed = stack.seed.value_or(0);
  view.setBlendMode(stack.blend, true);
  view.setLayerAlpha(stack.opacity);
}

bool replayEdits(EffectedImageView& view, EffectsData& data, const Look& look, std::string& error,
                 const std::function<void(const EditStep&)>& done) {
  for (const EditStep& step : look.edits) {
    if (!view.originalImage) {
      error = "there is no picture to edit";
      return false;
    }
    bool ok = true;
    switch (step.edit) {
      case Edit::rotateLeft: ok = view.rotateBaseImage(-90, false); break;
      case Edit::rotateRight: ok = view.rotateBaseImage(90, false); break;
      case Edit::mirrorH: ok = view.rotateBaseImage(0, true); break;
      case Edit::mirrorV: ok = view.rotateBaseImage(180, true); break;
      case Edit::flatten: {
        // The flatten's own stack and quality, for this render only.
        const EffectList rows = data.effects;
        const ControlValues controls = view.controlValues;
        const BlendMode blend = view.blendMode;
        const double alpha = view.layerAlpha();
        const auto quality = view.saveQuality;
        const Stack& s = look.stackFor(step);
        const SaveQuality q = look.qualityFor(step);
        data.effects = rowsFor(s.effects);
        view.controlValues = s.controls;
        view.blendMode = s.blend;
        view.setLayerAlpha(s.opacity);
        view.saveQuality = [q] { return q; };
        const CGImageRef flat = view.renderFinal();
        data.effects = rows;
        view.controlValues = controls;
        view.blendMode = blend;
        view.setLayerAlpha(alpha);
        view.saveQuality = quality;
        if (!flat) {
          error = "not enough memory to flatten the picture";
          return false;
        }
        // As the view's flatten does, without the preview that a screen would show.
        view.originalImage = flat;
        view.effectedImage = nullptr;
        break;
      }
    }
    if (!ok) {
      error = "not enough memory to turn the picture";
      return false;
    }
    if (done) done(step);
  }
  return true;
}

}  // namespace zorvex::look
