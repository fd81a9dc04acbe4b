#pragma once

// What a cell keeps of its scored vectors: filter by keypoint response, sort, cut, number.

#include <cstddef>
#include <cstdint>
#include <span>

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

// Whether `a` goes before `b` under sort_mode 1 to 12; under any other nothing goes before anything. Modes 5
// and 6 are no strict order: two vectors of the same dist_ratio from 24 on go before each other.
bool goes_before(const CorrectionSettings& settings, const MatchVector& a, const MatchVector& b);

// Sorts by goes_before. Up to 32 vectors an insertion sort, above a merge sort; under a strict order both
// are stable, and neither leaves the array under the others. `scratch` holds at least as many.
void sort_vectors(const CorrectionSettings& settings, std::span<MatchVector> vectors,
                  std::span<MatchVector> scratch);

}  // namespace fpu
