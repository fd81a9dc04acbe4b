#pragma once

// What the search reads of a frame, packed cell by cell: a run of cells in a raster row is one run of
// keypoints, with rounded positions and descriptors side by side.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "features/FeatureFrame.h"

namespace fpu {

// Live keypoints in order of cell and slot. Thread-safety: read only once made.
struct PackedKeypoints {
  // Every live keypoint's index must be a row of the frame's descriptors.
  explicit PackedKeypoints(const FeatureFrame& frame);

  const unsigned char* descriptor(std::int32_t i) const {
    return reinterpret_cast<const unsigned char*>(descriptor_words.data() +
                                                  static_cast<std::size_t>(i) * words_per_row);
  }

  std::vector<std::int32_t> cell_begin;  // cells + 1: keypoints of cell c are cell_begin[c] up to the next
  std::vector<std::int32_t> cell;
  std::vector<std::int32_t> x;  // whole pixels
  std::vector<std::int32_t> y;
  std::vector<std::int32_t> score;
  std::vector<std::int32_t> octave;
  std::vector<std::int32_t> index;              // number in the frame
  std::vector<std::uint64_t> descriptor_words;  // rows of what descriptor_distance reads
  std::size_t words_per_row = 0;
};

}  // namespace fpu
