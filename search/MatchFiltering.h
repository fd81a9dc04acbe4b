#pragma once

#include <cstdint>
#include <vector>

#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/PoseCandidate.h"
#include "search/PoseSearch.h"
#include "search/RayMatch.h"

namespace twintrue {

// Drops matches that lie too far out or weren't accepted, tests whether enough of good rank are left, orders
// the rest (best rank first, within a rank from the rim inward), runs the search and judges its result.
//
// matches            in: the accepted matches; out: the filtered, sorted ones
// result             receives pose, score and quality numbers
// cells              cells of the grid
// ignore_thresholds  goes on past a failed ratio test
// observer           may be null
//
// Returns 0, TWINTRUE_QUALITY_FAILED (the result is filled all the same) or TWINTRUE_TOO_FEW_MATCHES (only
// detection_ratio is set). Aborts if the context's mode is not kSearchMode.
std::int32_t filter_and_search(CalibContext& context, const RigState& rig, std::vector<RayMatch>& matches,
                               PoseCandidate& result, std::int32_t cells, bool ignore_thresholds,
                               SearchObserver* observer = nullptr);

}  // namespace twintrue
