#pragma once

#include <cstdint>
#include <vector>

namespace fpu {

// Displacements along one axis, counted in bins whose width is a power of 2, with displacement 0 at the lower
// edge of the middle bin. All values are eighths of a pixel.
struct DisplacementHistogram {
  // `bin_width` in pixels, 1 to 2^29 - 1, cut to the power of 2 below. Bins reach from -range to range.
  DisplacementHistogram(std::int32_t bin_width, std::int64_t range);

  // Counts a displacement; one outside the bins goes into `total` alone.
  void add(std::int32_t displacement);

  // Each inner bin becomes a quarter of itself twice and its neighbours; the two end bins stay.
  void smooth();

  // Lower edge of the fullest bin, of several the lowest one's.
  std::int32_t peak() const;

  std::int32_t shift;   // log2 of the bin width
  float scale;          // 1 / bin width
  std::int32_t center;  // bin of displacement 0
  std::int32_t total = 0;
  std::vector<std::int32_t> bins;
};

}  // namespace fpu
