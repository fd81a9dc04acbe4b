#pragma once

// Moves keypoints to the extremum of a parabola through the determinant image.

#include <cstddef>

#include "features/FeatureFrame.h"
#include "imaging/XMat.h"

namespace fpu {

// Kernel of one point, (x, y) relative to the image. True, with x and y moved by less than half a pixel, if
// the parabola has such an extremum; else both stay. `pitch` is the step from one row of samples to the next.
bool refine_point(const float* det, std::ptrdiff_t pitch, float& x, float& y);

// Refines the live records of a store; `det` as computeResponse makes it, its corner at the corner of the
// grid's area. With `drop`, points that can't be refined leave their cell and the others close up; indices
// and `count` stay. Cells run in parallel.
//
// The samples are taken with the pitch `cols`, though rows of a determinant image with its margin are two
// longer, so they drift by two columns a row. All settings in use are tuned to the responses that this gives.
void refineKeypoints(const cve::XMat_<float>& det, bool drop, KeyPointStore& store);

}  // namespace fpu
