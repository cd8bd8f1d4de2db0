// The name-to-kernel dispatch. The table is the one registry of effects: the command line, the web
// app and the tests all read it.
#pragma once

#include <span>
#include <string_view>
#include <variant>

#include "core/imaging/cg.h"
#include "core/stack/controls.h"
#include "core/stack/effect.h"

namespace zorvex {

using FullKernel = void (*)(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
using NoLayerKernel = void (*)(const CGContextRef& context, Controls controls);
using FloatKernel = void (*)(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);
using FloatNoLayerKernel = void (*)(const CGContextRef& context, ControlFloats controls);
using Kernel = std::variant<std::monostate, FullKernel, NoLayerKernel, FloatKernel, FloatNoLayerKernel>;

struct KernelEntry {
  std::string_view name;
  std::string_view alias;  // an older stored name for the same kernel, or empty
  Kernel kernel;           // monostate while the effect has no kernel
};

namespace Filters {

// The table, in the order of comparison.
std::span<const KernelEntry> kernelTable();
// The first entry whose name or alias equals `name` exactly, or null.
const KernelEntry* findKernel(std::string_view name);
// Runs the effect's kernel on the surface; a name without a kernel runs nothing.
void applyEffect(const Effect& effect, const CGContextRef& context, const CGLayerRef& layer,
                 std::span<const double> controls);

}  // namespace Filters
}  // namespace zorvex
