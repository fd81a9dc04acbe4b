#pragma once

// Graphics burned into both halves at the same place: a logo, a timecode, the camera's own mark.

#include <vector>

#include "search/RayMatch.h"
#include "verdict/PairView.h"

namespace twintrue {

struct SplitMatches {
  std::vector<RayMatch> scene;  // in their order
  std::vector<RayMatch> graphics;
};

// Takes out the matches that lie on such graphics: at the very same pixel of both halves, many in one place
// with next to none there that moved a little, as things do that are only far away; and not what the pose of
// `view` lets a far thing look like. Where most of the frame stands still it takes none out, since that is
// one picture in both halves and another fault.
SplitMatches split_graphics(const PairView& view, const std::vector<RayMatch>& matches);

}  // namespace twintrue
