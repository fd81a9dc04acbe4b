#pragma once

// A separable filter, row after row: the rows of the first pass that the second one reads stay in cache, and
// no image of them is ever made.

#include <algorithm>
#include <cstddef>
#include <vector>

#include "base/InstructionSet.h"
#include "base/ParallelEach.h"
#include "imaging/Filters.h"
#include "imaging/TapSums.h"

namespace cve {

// Rows that one thread filters in one go: many beside those that two neighbours both make.
inline constexpr int kBandRows = 128;

// Calls body(begin, end) for bands of the rows below `rows`, which run in parallel.
template <class Body>
void parallel_bands(int rows, const Body& body) {
  twintrue::parallel_rows(0, (rows + kBandRows - 1) / kBandRows,
                          [&](int band) { body(band * kBandRows, std::min((band + 1) * kBandRows, rows)); });
}

class BandFilter {
 public:
  // For images of that size. Horizontally, with `borders`, reads beyond a row take its nearest pixel;
  // without, they read on into the memory beside it, kernel.radius pixels that must be valid. Vertically
  // reads beyond the image always take the nearest row.
  BandFilter(const FilterKernel& kernel, int cols, int rows, bool borders, twintrue::InstructionSet set);

  // Row y of the filtered image into `out`. source_row(y) names the pixels of a source row, which must hold
  // until the next one is named. Going through a band downward, each source row is named once.
  template <class SourceRow>
  void make_row(int y, SourceRow&& source_row, float* out) {
    const int first = std::max(y - radius_, 0);
    const int last = std::min(y + radius_, rows_ - 1);
    if (next_ > last + 1 || next_ < first) next_ = first;
    for (; next_ <= last; ++next_) pass_along(source_row(next_), slot(next_));
    pass_down(y, out);
  }

 private:
  float* slot(int y) { return ring_.data() + static_cast<std::size_t>(y % (2 * radius_ + 1)) * pitch_; }
  void pass_along(const float* source, float* out);
  void pass_along_rim(const float* source, int begin, int end, float* out);
  void pass_down(int y, float* out);
  void sum(const float* const* taps, float* out, int count) const;

  FilterKernel kernel_;
  int radius_;
  int cols_;
  int rows_;
  bool borders_;
  TapSums sums_;
  std::size_t pitch_;
  std::vector<float> ring_;  // row y of the first pass at y modulo the number of slots
  std::vector<float> rim_;
  std::vector<const float*> taps_;
  int next_ = 0;  // first row that has not gone through the first pass
};

}  // namespace cve
