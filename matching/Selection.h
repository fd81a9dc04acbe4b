#pragma once

// What a cell keeps of its scored vectors: filter by keypoint response, sort, cut, number.

#include <cstdint>

#include "features/FeatureFrame.h"
#include "features/MatchSettings.h"
#include "matching/MatchSet.h"

namespace fpu {

// Vectors of a cell that are scored, and so can survive. Those behind them are dropped.
inline constexpr std::int32_t kMaxScoredInCell = 128;

// Works on the first `count` of `vectors`, at most kMaxScoredInCell, in place: those whose keypoints respond
// too weakly go, the others are sorted by sort_mode, at most `limit` of them stay, and their `rank` becomes
// their place. Returns how many stay. All vectors must have both keypoints. Does not allocate.
std::int32_t select_cell(const CorrectionSettings& settings, const FeatureFrame& frame_a,
                         const FeatureFrame& frame_b, MatchVector* vectors, std::int32_t count,
                         std::int32_t limit);

}  // namespace fpu
