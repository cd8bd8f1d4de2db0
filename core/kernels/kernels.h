// The kernels that exist, by family. Each changes the surface in place and reports nothing.
#pragma once

#include "core/imaging/cg.h"
#include "core/stack/controls.h"

namespace zorvex::Filters {

// Row smear and scan bars.
void agency(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void interface(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

}  // namespace zorvex::Filters

namespace zorvex::KCGContextProcessing {

// JPEG byte corruption ("2600++", "SIGSTOP").
// Encodes the context as JPEG at `compression`, overwrites `glitchCount` runs of `glitchSize` bytes
// with 7s at random places behind the first 600 bytes, decodes the rest into the layer at the
// context's size and draws the layer into the context.
void JPEGCompressAndGlitchContext(const CGContextRef& context, const CGLayerRef& layer, int32_t glitchCount,
                                  int32_t glitchSize, float compression);
void _2600(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);
void sigStop(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);

}  // namespace zorvex::KCGContextProcessing
