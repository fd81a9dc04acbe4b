#pragma once

// Which records count: strong ones, and weaker ones that move with the gmv.

#include <cstdint>

#include "features/FeatureFrame.h"
#include "features/MatchSettings.h"
#include "matching/MatchSet.h"

namespace fpu {

// Sets `accepted` of every record of the set and returns how many it set to 1. The records must be those of
// the set's live vectors, in order of the cells. `gmv_x` and `gmv_y` are whole pixels. A record whose
// position in frame A, moved by the gmv, lies within 16 pixels of the border of the grid's frame is not
// accepted, nor a long vector far from the gmv. Limits that have no 32-bit value become the smallest integer.
std::int32_t flag_records(const CheckSettings& settings, const FeatureFrame& frame_a,
                          const FeatureFrame& frame_b, MatchSet& match_set, std::int32_t gmv_x,
                          std::int32_t gmv_y);

// Whether a vector counts on its own strength. `resp_a` and `resp_b` are the scores of its keypoints, `mv2`
// its squared length in pixels, `brightness` that of the picture, 0 to 256.
bool foreground_test(const CheckSettings& settings, const MatchVector& vector, std::int32_t resp_a,
                     std::int32_t resp_b, std::int32_t brightness, std::int64_t mv2);

}  // namespace fpu
