#pragma once

// What a run does behind the search: from the pose that the search found to the one that is to be written.

#include <optional>
#include <vector>

#include "lens/RigModel.h"
#include "refine/Refine.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"
#include "verdict/PairView.h"
#include "verdict/Settle.h"

namespace twintrue {

struct Polished {
  CalibResult pose{};  // to be written; score and quality numbers are the search's
  EyeShapes shapes;    // to be written, for with_shapes(); all 0 unless they were asked for
  Settled settled;
  Refinement refinement;  // taken or not

  // Standard deviations of what the eyes differ by and of what both have in common, by pan, tilt, roll,
  // offset x and y: of the pose to be written. All 0 if the search's pose stands.
  std::array<double, 5> difference_sd{};
  std::array<double, 5> common_sd{};
};

// Settles the result of a search, then refines it by the pictures. `rig` is as read from the lens file, the
// matches are those that the search had, the halves those of its frame. Where refining is not to be taken the
// settled pose stands; `refinement.reason` tells why. With `fit_shapes` the shapes of the eyes' pictures are
// fitted as well. Runs on all threads; the result does not depend on their number. Throws std::bad_alloc.
Polished polish_pose(const CodedHalves& halves, const RigState& rig, const std::vector<RayMatch>& matches,
                     const CalibResult& found, bool fit_shapes);

}  // namespace twintrue
