#pragma once

// Keypoints straight from a working image: response and selection of the same cells, one after the other, so
// that the response is never stored.

#include "base/InstructionSet.h"
#include "features/FeatureFrame.h"
#include "features/Region.h"
#include "imaging/XMat.h"

namespace fpu {

// Fills the store with what CellRow selects from the response of computeResponse; `area` is the grid's, at
// least kResponseReach pixels inside the image, and threshold 0 or above. With `det`, the determinant image
// of computeResponse goes there; its memory is used again where it has the right size and no other header.
// Cell rows run in parallel; the result depends neither on the number of threads nor on the set. Ends the
// process with exit code -1 and a line on standard output where scratch memory is short.
void scanKeypoints(const cve::XMat_<unsigned char>& working, const Region& area, float threshold,
                   cve::XMat_<float>* det, KeyPointStore& store, twintrue::InstructionSet set);

}  // namespace fpu
