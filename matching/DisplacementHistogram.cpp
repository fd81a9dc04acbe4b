#include "matching/DisplacementHistogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <utility>

#include "base/Saturate.h"
#include "matching/Rounding.h"

namespace fpu {

DisplacementHistogram::DisplacementHistogram(std::int32_t bin_width, std::int64_t range)
    : shift(static_cast<std::int32_t>(std::bit_width(static_cast<std::uint32_t>(bin_width))) - 1 + 3),
      scale(std::ldexp(1.0f, -shift)),
      center(round_coordinate(scale * static_cast<float>(range))),
      bins(2 * static_cast<std::size_t>(center) + 1) {}

void DisplacementHistogram::add(std::int32_t displacement) {
  ++total;
  const std::int64_t bin = std::int64_t{displacement >> shift} + center;
  if (bin >= 0 && bin < static_cast<std::int64_t>(bins.size())) ++bins[static_cast<std::size_t>(bin)];
}

void DisplacementHistogram::smooth() {
  if (bins.size() < 3) return;
  std::vector<std::int32_t> smoothed = bins;
  for (std::size_t i = 1; i + 1 < bins.size(); ++i) {
    smoothed[i] =
        static_cast<std::int32_t>((std::int64_t{bins[i - 1]} + 2 * std::int64_t{bins[i]} + bins[i + 1]) / 4);
  }
  bins = std::move(smoothed);
}

std::int32_t DisplacementHistogram::peak() const {
  const auto fullest = static_cast<std::int32_t>(std::max_element(bins.begin(), bins.end()) - bins.begin());
  return twintrue::truncate_to_int32(static_cast<float>(fullest - center) / scale);
}

}  // namespace fpu
