#pragma once

// Which matches are worth refining: spread over the picture, and such that their patch fixes the direction
// across the epipolar curve.

#include <vector>

#include "refine/PairGeometry.h"
#include "refine/PatchMatching.h"
#include "search/RayMatch.h"

namespace twintrue {

struct ThinningSettings {
  double cell_share = 1.0 / 256.0;     // of the frame's width: side of the cells that keep one match each
  double across_share = 3.0 / 4096.0;  // of the frame's width: farther off the epipolar plane is wrong
  double rim_degrees = 1.0;            // left free at the edge of the field of view
};

// The best match of each cell of the right eye's picture, by the least variance across that its patch
// promises; in the order of the cells. `geometry` under the pose to start from.
std::vector<RayMatch> thin_matches(const CodedHalves& halves, const PairGeometry& geometry,
                                   const std::vector<RayMatch>& matches, const ThinningSettings& settings);

}  // namespace twintrue
