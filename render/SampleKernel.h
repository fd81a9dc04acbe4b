#pragma once

// Bicubic sampling of rows.

#include "base/InstructionSet.h"
#include "render/EyePicture.h"

namespace twintrue::render {

// Samples the picture at `count` points, given in pixels of the frame as ViewMap gives them, into pixels of
// four floats (the last one 0) with 1 for white.
//
// The interpolation is the cubic convolution of R. Keys (1981) with a = -1/2, over 4 x 4 pixels. Where one of
// them lies outside the eye's circle, those inside among the 2 x 2 nearest are weighted by their distances
// instead. With none of them inside, or a point that is no number, the pixel is black.
using SampleRow = void (*)(const EyePicture& picture, const double* x, const double* y, int count,
                           float* out);

SampleRow sample_row(InstructionSet set = best_instruction_set());

}  // namespace twintrue::render
