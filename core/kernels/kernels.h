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

// Rectangle copies and mirrored strips.
void graboid(const CGContextRef& context, Controls controls);
void veth(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void fold4rap5(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Tile grids.
void bunker(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void fingerblib(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void kompliance(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Band and column stretching.
void motor(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void xex0x(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Wave warps.
void precog1(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void l225(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
// Where the wave warps get their scratch block, which they neither clear nor write before laying it
// over the picture: std::malloc, unless a test installs its own (nullptr puts std::malloc back). The
// block is given back with std::free.
using ScratchAllocator = void* (*)(size_t bytes);
void setWarpScratchAllocator(ScratchAllocator allocator);

// Blended pixel blocks.
void chip13h(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void blitbomb(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Band and pixel sorting.
void vonstroke(const CGContextRef& context, Controls controls);
void yubari(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Triangle mesh (hexagons and crystals go through the image filters).
void tribomb(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Scan-line smear and echoes.
void beamRider(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void doctorocular(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void brainfeed3r(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

// Column, palette and mask effects.
void isam(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void oirectine(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void arecibo(const CGContextRef& context, Controls controls);

// Displaced pieces and echoes.
void mxlhxllx(const CGContextRef& context, Controls controls);
void dropframe(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void spdif(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void shroom(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

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

namespace zorvex::KCGContextProcessing {

// Ordered dither and character cells.
void grayDitherContext(const CGContextRef& context, ControlFloats controls);
void TI994B(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);
// Fills the inked squares of a 4 x 4 glyph (16 bytes, row j column i at j * 4 + i, row 0 at the
// bottom) into a cell of `W` by `H` at `point`.
void draw4x4Char(const uint8_t* glyph, CGPoint point, float W, float H, const CGContextRef& context);

// Nearest-seed cells.
void vortron(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);
void glassdagger(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);

// JPEG byte corruption ("2600++", "SIGSTOP").
// Encodes the context as JPEG at `compression`, overwrites `glitchCount` runs of `glitchSize` bytes
// with 7s at random places behind the first 600 bytes, decodes the rest into the layer at the
// context's size and draws the layer into the context.
void JPEGCompressAndGlitchContext(const CGContextRef& context, const CGLayerRef& layer, int32_t glitchCount,
                                  int32_t glitchSize, float compression);
void _2600(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);
void sigStop(const CGContextRef& context, const CGLayerRef& layer, ControlFloats controls);

}  // namespace zorvex::KCGContextProcessing
