#include "matching/PackedKeypoints.h"

#include <algorithm>
#include <cstring>

#include "matching/Matching.h"
#include "matching/Rounding.h"

namespace fpu {

PackedKeypoints::PackedKeypoints(const FeatureFrame& frame) {
  const KeyPointStore& store = frame.store;
  const std::int32_t cells = store.grid->numCells();
  const auto live = [&store](std::int32_t c) {
    return std::clamp(store.cellCounts[static_cast<std::size_t>(c)], 0, store.capacityPerCell);
  };
  cell_begin.reserve(static_cast<std::size_t>(cells) + 1);
  cell_begin.push_back(0);
  for (std::int32_t c = 0; c < cells; ++c) cell_begin.push_back(cell_begin.back() + live(c));

  const auto count = static_cast<std::size_t>(cell_begin.back());
  for (auto* column : {&cell, &x, &y, &score, &octave, &index}) column->reserve(count);
  const cve::XMat_<unsigned char>& rows = frame.descriptors;
  const std::size_t row_bytes = descriptor_span(rows.cols);
  words_per_row = (row_bytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t);
  descriptor_words.resize(count * words_per_row);
  const std::size_t stride = static_cast<std::size_t>(rows.stride);
  const std::size_t end =
      rows.rows < 1 ? 0
                    : static_cast<std::size_t>(rows.rows - 1) * stride + static_cast<std::size_t>(rows.cols);

  std::uint64_t* row = descriptor_words.data();
  for (std::int32_t c = 0; c < cells; ++c) {
    const KeyPointRecord* const first =
        store.records.data() + static_cast<std::size_t>(c) * static_cast<std::size_t>(store.capacityPerCell);
    for (const KeyPointRecord* keypoint = first; keypoint != first + live(c); ++keypoint) {
      cell.push_back(c);
      x.push_back(round_coordinate(keypoint->x));
      y.push_back(round_coordinate(keypoint->y));
      score.push_back(keypoint->score);
      octave.push_back(keypoint->octave);
      index.push_back(keypoint->index);
      // The odd words at the end of a row reach into the rows behind it; behind the last one they are zero.
      const std::size_t start = static_cast<std::size_t>(keypoint->index) * stride;
      std::memcpy(row, rows.row(keypoint->index), std::min(row_bytes, end - start));
      row += words_per_row;
    }
  }
}

}  // namespace fpu
