#pragma once

// The search of the match stage pair by pair, as one would write it down: the reference that the fast form
// must equal, and the yardstick of its speed.

#include <cstdint>

#include "features/FeatureFrame.h"
#include "features/MatchSettings.h"
#include "matching/MatchSet.h"

namespace plain_matching {

// Weighted Hamming distance of descriptors of so many bytes, of which descriptor_span(bytes) are readable;
// see fpu::DescriptorWords for what counts how often.
std::uint32_t descriptor_distance(const unsigned char* a, const unsigned char* b, std::int32_t bytes,
                                  std::int32_t split_bit, std::int32_t weight);

// As fpu::match_cells, on the calling thread.
std::int32_t match_cells(const fpu::MatchingSettings& settings, const fpu::FeatureFrame& frame_a,
                         const fpu::FeatureFrame& frame_b, fpu::MatchSet& set);

}  // namespace plain_matching
