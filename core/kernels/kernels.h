// The kernels that exist, by family. Each changes the surface in place and reports nothing.
#pragma once

#include "core/imaging/cg.h"
#include "core/stack/controls.h"

namespace zorvex::Filters {

// Row smear and scan bars.
void agency(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void interface(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

}  // namespace zorvex::Filters
