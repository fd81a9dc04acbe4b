#include "verdict/Spread.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace twintrue {

double quantile_of(std::vector<double>& values, double place) {
  const auto at = static_cast<std::ptrdiff_t>(place * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<std::size_t>(at)];
}

double deviation_of_distances(std::vector<double>& distances) {
  constexpr double kDeviationPerMedian = 1.4826;  // of a normal distribution
  return distances.empty() ? 0.0 : kDeviationPerMedian * quantile_of(distances);
}

double spread_of_fields(std::span<std::vector<double>, kFields> fields, double noise) {
  constexpr std::size_t kEnough = 8;
  constexpr double kMedianFactor = std::numbers::pi / 2.0;  // variance of a median against that of a mean
  double sum = 0.0;
  int count = 0;
  for (std::vector<double>& field : fields) {
    if (field.size() < kEnough) continue;
    const double bias = quantile_of(field);
    sum += bias * bias - kMedianFactor * noise * noise / static_cast<double>(field.size());
    ++count;
  }
  return count == 0 ? 0.0 : std::sqrt(std::max(sum / count, 0.0));
}

}  // namespace twintrue
