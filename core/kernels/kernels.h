// The kernels that exist, by family. Each changes the surface in place and reports nothing.
#pragma once

#include "core/imaging/cg.h"
#include "core/stack/controls.h"

namespace zorvex::Filters {

// Row smear and scan bars.
void agency(const CGContextRef& context, const CGLayerRef& layer, Controls controls);
void interface(const CGContextRef& context, const CGLayerRef& layer, Controls controls);

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

}  // namespace zorvex::KCGContextProcessing
