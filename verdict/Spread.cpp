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

namespace {

// The median of a field's disparities, and the variance that noise leaves in it.
struct Bias {
  double value;
  double variance;
};

std::vector<Bias> biases_of(std::span<std::vector<double>, kFields> fields, double noise) {
  constexpr std::size_t kEnough = 8;
  constexpr double kMedianFactor = std::numbers::pi / 2.0;  // variance of a median against that of a mean
  std::vector<Bias> biases;
  for (std::vector<double>& field : fields) {
    if (field.size() < kEnough) continue;
    biases.push_back({quantile_of(field), kMedianFactor * noise * noise / static_cast<double>(field.size())});
  }
  return biases;
}

}  // namespace

double spread_of_fields(std::span<std::vector<double>, kFields> fields, double noise) {
  const std::vector<Bias> biases = biases_of(fields, noise);
  double sum = 0.0;
  for (const Bias& bias : biases) sum += bias.value * bias.value - bias.variance;
  return biases.empty() ? 0.0 : std::sqrt(std::max(sum / static_cast<double>(biases.size()), 0.0));
}

double usual_bias(std::span<std::vector<double>, kFields> fields, double noise) {
  std::vector<double> distances;
  std::vector<double> variances;
  for (const Bias& bias : biases_of(fields, noise)) {
    distances.push_back(std::abs(bias.value));
    variances.push_back(bias.variance);
  }
  if (distances.empty()) return 0.0;
  const double deviation = deviation_of_distances(distances);
  return std::sqrt(std::max(deviation * deviation - quantile_of(variances), 0.0));
}

}  // namespace twintrue
