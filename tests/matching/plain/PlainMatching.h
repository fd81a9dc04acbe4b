#pragma once

// The search of the match stage pair by pair, as one would write it down: the reference that the fast form
// must equal, and the yardstick of its speed.

#include <cstdint>

#include "features/FeatureFrame.h"
#include "features/MatchSettings.h"
#include "matching/MatchSet.h"

namespace plain_matching {

// As fpu::match_cells, on the calling thread.
std::int32_t match_cells(const fpu::MatchingSettings& settings, const fpu::FeatureFrame& frame_a,
                         const fpu::FeatureFrame& frame_b, fpu::MatchSet& set);

}  // namespace plain_matching
