#include "core/stack/filters.h"

#include <array>

#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

// In the order of comparison; the first match runs.
const std::array<KernelEntry, 34> kTable = {{
    {"AGENCY", "", agency},
    {"GRABOID", "", graboid},
    {"VETH", "", veth},
    {"BUNKER", "", bunker},
    {"FINGERBLIB", "", fingerblib},
    {"M0T0R", "", motor},
    {"PRECOG1", "", precog1},
    {"L225", "", l225},
    {"FOLD4RAP5", "", fold4rap5},
    {"CHIP13h", "", chip13h},
    {"BLITBOMB", "", blitbomb},
    {"VORTRON", "VORTRON(REDUX)", KCGContextProcessing::vortron},
    {"XEXOX", "", xex0x},
    {"INTERFACE", "", interface},
    {"KOMPLIANCE", "", kompliance},
    {"POLYBOMB", "TRIBOMB", tribomb},
    {"B∑AMRID∑R", "", beamRider},
    {"VAN STROKE", "", vonstroke},
    {"DOCTOR OCULAR", "", doctorocular},
    {"BRAINFEED3R", "", brainfeed3r},
    {"ISAM", "", isam},
    {"01RECTINE", "", oirectine},
    {"2600++", "", KCGContextProcessing::_2600},
    {"SIGSTOP", "", KCGContextProcessing::sigStop},
    {"ARECIBO", "", arecibo},
    {"YUBARI", "", yubari},
    {"MXLHXLLXND", "", mxlhxllx},
    {"BITBOY", "", KCGContextProcessing::grayDitherContext},
    {"TI994X", "TI994X(SHA5 Mix)", KCGContextProcessing::TI994B},
    {"DROPFRAME", "59.94", dropframe},
    {"§P∆Iƒ", "", spdif},
    {"GLASSDAGGER", "", KCGContextProcessing::glassdagger},
    {"5HR00M", "", shroom},
    {"KAL1D0", "", VideoEffectsCI::kal1d0},
}};

}  // namespace

std::span<const KernelEntry> kernelTable() { return kTable; }

const KernelEntry* findKernel(std::string_view name) {
  for (const KernelEntry& e : kTable)
    if (e.name == name || (!e.alias.empty() && e.alias == name)) return &e;
  return nullptr;
}

void applyEffect(const Effect& effect, const CGContextRef& context, const CGLayerRef& layer,
                 std::span<const double> controls) {
  // The float copy is made for every effect, before the name is looked at.
  const std::vector<float> controlFloats = makeControlFloats(controls);
  const KernelEntry* entry = findKernel(effect.name);
  if (!entry) return;
  struct Call {
    const CGContextRef& context;
    const CGLayerRef& layer;
    Controls controls;
    ControlFloats floats;
    void operator()(std::monostate) const {}
    void operator()(FullKernel k) const { k(context, layer, controls); }
    void operator()(NoLayerKernel k) const { k(context, controls); }
    void operator()(FloatKernel k) const { k(context, layer, floats); }
    void operator()(FloatNoLayerKernel k) const { k(context, floats); }
  };
  std::visit(Call{context, layer, Controls(controls), ControlFloats(controlFloats)}, entry->kernel);
}

}  // namespace zorvex::Filters
