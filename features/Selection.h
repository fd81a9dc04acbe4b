#pragma once

// Keypoints of a response: candidates above a threshold, the best of each cell, their numbers.

#include <cstdint>
#include <vector>

#include "features/FeatureFrame.h"

namespace fpu {

// A row of cells while it is scanned. Cells with no more candidates than the store's capacity keep them in
// raster order; the others keep their best, by score descending, equal scores in raster order.
//
// A score is the whole part of 100 times the response, cut to 65535; a candidate's uncut score lies above the
// threshold. What a candidate is worth and where it stands is one number, so choosing the best sorts
// integers.
class CellRow {
 public:
  // Threshold 0 or above. The store must outlive this.
  CellRow(float threshold, KeyPointStore& store);

  // A pixel is a candidate if 100 times its response is at least this.
  float least() const { return least_; }

  // Takes the candidates of row y of the cells, top to bottom: `columns`, in order, names those pixels of
  // `response` that reach least().
  void add(std::int32_t y, const float* response, const std::int32_t* columns, std::int32_t count);

  // Moves the best of each cell to the store, as cells of that row, and makes room for the next row.
  void finish(std::int32_t cell_row);

 private:
  using Candidate = std::uint64_t;  // the smaller, the better

  std::int32_t width_;
  float least_;
  KeyPointStore& store_;
  std::vector<std::vector<Candidate>> candidates_;  // by cell column
};

// Numbers the keypoints over cells in order and sets `count`.
void number_keypoints(KeyPointStore& store);

// Ends the process with exit code -1 and a line on standard output.
[[noreturn]] void end_for_lack_of_scratch();

}  // namespace fpu
