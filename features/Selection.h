#pragma once

// Keypoints of a response image: candidates above a threshold, the best of each cell, their numbers.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "features/FeatureFrame.h"
#include "features/Region.h"
#include "imaging/XMat.h"

namespace fpu {

// Scratch keypoints, one vector a thread, each with room for a full cell, so that nothing is allocated while
// cells are scanned. Ends the process with exit code -1 and a line on standard output where memory is short.
class FastBuf {
 public:
  FastBuf(std::size_t threads, std::size_t room);
  KeyPointRecord* of_thread(std::size_t thread) { return vectors_[thread].data(); }

 private:
  std::array<std::vector<KeyPointRecord>, 128> local_;
  std::unique_ptr<std::vector<KeyPointRecord>[]> heap_;  // for more threads than that
  std::vector<KeyPointRecord>* vectors_;
};

// One cell as a kernel sees it.
struct CellScan {
  const float* response = nullptr;  // pixel at the cell's corner
  std::ptrdiff_t pitch = 0;         // elements from row to row
  Region cell;                      // in the frame
  std::int32_t index = 0;           // cell number
  float threshold = 0.0f;           // of the whole part of 100 times the response
};

// Appends the candidates of a cell in raster order to `out`, which has room for all its pixels; returns their
// number.
std::size_t collect_candidates(const CellScan& scan, KeyPointRecord* out);

// Brings the `capacity` best of more than `capacity` records to the front: by score descending, equal scores
// in raster order.
void keep_best(KeyPointRecord* records, std::size_t count, std::size_t capacity);

// Fills the store from a response image whose corner is the corner of the grid's area; threshold 0 or above.
// Cells with no more candidates than the capacity keep them in raster order. Numbers the keypoints over cells
// in order and sets `count`. Cells run in parallel; the result doesn't depend on the number of threads.
void selectKeypoints(const cve::XMat_<float>& response, float threshold, KeyPointStore& store);

}  // namespace fpu
