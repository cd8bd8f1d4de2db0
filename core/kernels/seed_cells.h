// The pixel work behind "VORTRON" and "GLASSDAGGER": every pixel takes the colour of the seed point it
// belongs to. Each metric has the plain loop, column by column and seed by seed as the effect was
// written, which is the reference, and a fast path that gives the same bytes; tests compare the two.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/imaging/cg.h"
#include "core/stack/controls.h"

namespace zorvex::SeedCells {

struct Seed {
  float x, y;
};

// The seed tables of the two effects for a w x h surface. Seed 0 hashes 0 whatever the controls, so
// it never moves.
std::vector<Seed> vortronSeeds(ControlFloats controls, int64_t w, int64_t h);
std::vector<Seed> glassdaggerSeeds(ControlFloats controls, int64_t w, int64_t h);

// Each fills `out`, 4 * width * height bytes with rows of 4 * width, with the four bytes of the
// source pixel under each output pixel's seed (its truncated coordinates, clamped into the source).
//
// City-block cells: the seed of least truncate(|x - sx| + |y - sy|) in single precision, the earlier
// seed on a tie. Without seeds every pixel takes the pixel at (0, 0).
void vortronCellsPlain(const PixelView& source, std::span<const Seed> seeds, uint8_t* out);
void vortronCells(const PixelView& source, std::span<const Seed> seeds, uint8_t* out);
// Splinters: per seed a = truncate(|x - sx|), b = truncate(|x - |y - sy||) and
// c = truncate(cos(atan2f(y - sy, x - sx)) * 6.28); the value is b when b < a and c otherwise, and
// the seed of least value wins, the earlier on a tie.
void glassdaggerCellsPlain(const PixelView& source, std::span<const Seed> seeds, uint8_t* out);
void glassdaggerCells(const PixelView& source, std::span<const Seed> seeds, uint8_t* out);

}  // namespace zorvex::SeedCells
