#include "core/stack/filters.h"

#include <array>

#include "core/kernels/kernels.h"

namespace zorvex::Filters {
namespace {

// In the order of comparison; the first match runs.
const std::array<KernelEntry, 34> kTable = {{
    {"AGENCY", "", agency},
    {"GRABOID", "", {}},
    {"VETH", "", {}},
    {"BUNKER", "", {}},
    {"FINGERBLIB", "", {}},
    {"M0T0R", "", {}},
    {"PRECOG1", "", {}},
    {"L225", "", {}},
    {"FOLD4RAP5", "", {}},
    {"CHIP13h", "", {}},
    {"BLITBOMB", "", {}},
    {"VORTRON", "VORTRON(REDUX)", {}},
    {"XEXOX", "", {}},
    {"INTERFACE", "", interface},
    {"KOMPLIANCE", "", {}},
    {"POLYBOMB", "TRIBOMB", tribomb},
    {"B∑AMRID∑R", "", beamRider},
    {"VAN STROKE", "", vonstroke},
    {"DOCTOR OCULAR", "", doctorocular},
    {"BRAINFEED3R", "", brainfeed3r},
    {"ISAM", "", {}},
    {"01RECTINE", "", {}},
    {"2600++", "", {}},
    {"SIGSTOP", "", {}},
    {"ARECIBO", "", {}},
    {"YUBARI", "", yubari},
    {"MXLHXLLXND", "", {}},
    {"BITBOY", "", {}},
    {"TI994X", "TI994X(SHA5 Mix)", {}},
    {"DROPFRAME", "59.94", {}},
    {"§P∆Iƒ", "", {}},
    {"GLASSDAGGER", "", {}},
    {"5HR00M", "", {}},
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
