// A picture the program draws itself, for trying the stack without a photo: a sunset over hills
// and a grid, with colour bars, rich in edges, gradients and flat areas alike.
#pragma once

#include "core/imaging/cg.h"

namespace zorvex {

CGImageRef drawSamplePicture(int32_t width, int32_t height);

}  // namespace zorvex
