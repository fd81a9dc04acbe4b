#pragma once

// The search: for each keypoint of frame A, the cheapest and the second cheapest keypoint of frame B in the
// area of cells around its own cell.

#include <cstddef>
#include <cstdint>

#include "base/InstructionSet.h"
#include "features/FeatureFrame.h"
#include "features/MatchSettings.h"
#include "matching/MatchSet.h"

namespace fpu {

// Matches frame A against frame B into the cells of `cells`, whose records are the previous pair's, and
// returns the number of vectors, which is also the set's new total. All fields of the vectors are then set
// but for scores and rank.
//
// The frames must come from the set's unit, and the settings from their loader. Nothing is matched if frame A
// has no more than k descriptor rows, or if the raster has more cells, or a cell more slots, than kMaxPlaces.
// Aborts on an unknown penalty_mode, at the first pair of keypoints.
//
// Cells are shared among the members of the thread team; the result is the same for every number of them.
// With penalty_mode 7, whose draws must come in a fixed order, one thread does it all.
std::int32_t match_cells(const MatchingSettings& settings, const FeatureFrame& frame_a,
                         const FeatureFrame& frame_b, MatchSet& cells);

// The same with the vectors of one instruction set, which the machine must have. The result is the same for
// every set.
std::int32_t match_cells(const MatchingSettings& settings, const FeatureFrame& frame_a,
                         const FeatureFrame& frame_b, MatchSet& cells, twintrue::InstructionSet set);

// Bits up to which a descriptor of that many bytes counts `weightDist` fold: its half, but no more points
// than the central square of the patch gives. 0 without weight.
std::int32_t descriptor_split_bit(std::int32_t bytes, std::int32_t patchSize, std::int32_t weightDist);

// Bytes that are compared of descriptors of that width: whole 64-bit words, then a 32-bit word
// for each byte of the rest. More than the width unless that is a multiple of 8.
constexpr std::size_t descriptor_span(std::int32_t bytes) {
  const auto width = static_cast<std::size_t>(bytes < 0 ? 0 : bytes);
  return width / 8 * 8 + width % 8 * 4;
}

// Stores `other_cost`, and the ratio of that cost to the vector's own as dist_ratio, 0 to 255 with `shift`
// fraction bits (0 to 31). `offset` is added to both costs, or, unless sat_offset is 0 or 1, is the least
// value of both; it keeps small costs from large ratios. A divisor of 0 gives 255. sat_offset 1 puts a tie of
// two very good candidates just below one.
void cost_ratio(MatchVector& vector, std::int32_t other_cost, std::int32_t offset, std::int32_t shift,
                std::int32_t sat_offset);

}  // namespace fpu
