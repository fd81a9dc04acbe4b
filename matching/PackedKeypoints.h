#pragma once

// What the search reads of a frame, packed cell by cell: a run of cells in a raster row is one run of
// keypoints. Positions and descriptors stand in blocks of keypoints, a vector's lane for each.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "features/FeatureFrame.h"

namespace fpu {

inline constexpr std::size_t kLanes = 16;

// One 32-bit value of each keypoint of a block.
template <class T>
struct alignas(64) Lanes {
  std::array<T, kLanes> v{};
};

// The words of a descriptor in the order of what their bits count: first those that count `fold` fold, then
// those that count once. A word of the descriptor that counts in two ways is there twice, cut to the bits in
// question, so the weighted Hamming distance of two rows is fold times the differing bits of the first part
// plus those of the second.
struct DescriptorWords {
  // Bits before `split_bit` count `weight` fold, unless the weight is 0. The 64-bit word that begins at the
  // split bit counts weight + 1 fold: scores and thresholds in use are tuned to that. The words of the rest,
  // where the width is no multiple of 8, count once.
  DescriptorWords(std::int32_t bytes, std::int32_t split_bit, std::int32_t weight);

  std::size_t count() const { return folded + plain; }

  // Lays out the descriptor_span(bytes) bytes at `row`: word w at out[w * stride].
  void lay_out(const unsigned char* row, std::uint32_t* out, std::size_t stride) const;

  std::int32_t width;  // of a descriptor, bytes
  std::int32_t split;  // -1 without weight
  std::uint32_t fold;
  std::size_t folded;
  std::size_t plain;
};

// Live keypoints in order of cell and slot. The lanes behind the last one hold zeros. Thread-safety: read
// only once made.
struct PackedKeypoints {
  // Every live keypoint's index must be a row of the frame's descriptors, and those as wide as `words` says.
  PackedKeypoints(const FeatureFrame& frame, const DescriptorWords& words);

  std::int32_t x_of(std::int32_t place) const { return lane(x, place); }
  std::int32_t y_of(std::int32_t place) const { return lane(y, place); }

  std::vector<std::int32_t> cell_begin;  // cells + 1: keypoints of cell c are cell_begin[c] up to the next
  std::vector<std::int32_t> cell;
  std::vector<std::int32_t> score;
  std::vector<std::int32_t> octave;
  std::vector<std::int32_t> index;     // number in the frame
  std::vector<Lanes<std::int32_t>> x;  // whole pixels; a block each
  std::vector<Lanes<std::int32_t>> y;
  std::vector<Lanes<std::uint32_t>> words;  // word w of block b is words[b * words_per_row + w]
  std::size_t words_per_row;

 private:
  static std::int32_t lane(const std::vector<Lanes<std::int32_t>>& column, std::int32_t place) {
    const auto at = static_cast<std::size_t>(place);
    return column[at / kLanes].v[at % kLanes];
  }
};

}  // namespace fpu
