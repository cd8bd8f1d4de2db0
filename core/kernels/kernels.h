// The kernels that exist, by family. Each changes the surface in place and reports nothing.
#pragma once

#include <string_view>

#include "core/imaging/cg.h"
#include "core/kernels/image_filters.h"
#include "core/stack/controls.h"

namespace zorvex::Filters {

// Row smear and scan bars.
void agency(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void interface(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Band and pixel sorting.
void vonstroke(const CGContextRef& context, Controls controls);
void yubari(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Triangle mesh (hexagons and crystals go through the image filters).
void tribomb(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Scan-line smear and echoes.
void beamRider(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void doctorocular(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void brainfeed3r(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

}  // namespace zorvex::Filters

namespace zorvex::VideoEffectsCI {

// Runs the named image filter on a snapshot of the surface, its defaults first and then
// `parameters`, and draws the result into the surface and the layer, then the layer into the
// surface, under the modes in force. An unknown name changes nothing. A key the filter doesn't know,
// or a value of the wrong kind, is fatal.
void applyCIFilter(std::string_view name, const CIParameters& parameters, const CGContextRef& context,
                   const CGLayerRef& layer);

void kal1d0(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
// Called by tribomb only.
void hexagonalPixellate(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void crystallize(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

}  // namespace zorvex::VideoEffectsCI
