#pragma once

// Least-squares matching of one patch the plain way: pixel by pixel, in double, no sum split. Shares nothing
// with the kernels but their records.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "refine/CodedPicture.h"
#include "refine/PatchKernel.h"

namespace testing_support {

inline void plain_cut(const std::int16_t* pixel, std::ptrdiff_t pitch, twintrue::PatchWindow& window) {
  constexpr std::array<double, 5> kBinomial{1.0, 4.0, 6.0, 4.0, 1.0};
  for (int y = 0; y < twintrue::kWindowSide; ++y) {
    for (int x = 0; x < twintrue::kWindowSide; ++x) {
      double sum = 0.0;
      for (int j = 0; j < 5; ++j) {
        for (int i = 0; i < 5; ++i) {
          const std::ptrdiff_t at =
              (y + j - 2 - twintrue::kWindowMiddle) * pitch + x + i - 2 - twintrue::kWindowMiddle;
          sum += kBinomial[static_cast<std::size_t>(i)] * kBinomial[static_cast<std::size_t>(j)] * pixel[at];
        }
      }
      window.value[static_cast<std::size_t>(y * twintrue::kWindowSide + x)] =
          static_cast<float>(sum / 256.0 / twintrue::kCodeSteps);
    }
  }
}

struct PlainSample {
  double value = 0.0;
  double by_x = 0.0;
  double by_y = 0.0;
};

// A cubic B-spline over the window's pixels, by its definition. It is sheared with a line of that incline.
inline PlainSample plain_sample(const twintrue::PatchWindow& window, double x, double y,
                                double incline = 0.0) {
  const auto spline = [](double t) {
    const double a = std::abs(t);
    if (a >= 2.0) return 0.0;
    return a >= 1.0 ? std::pow(2.0 - a, 3) / 6.0 : (4.0 - 6.0 * a * a + 3.0 * a * a * a) / 6.0;
  };
  const auto slope = [](double t) {
    const double a = std::abs(t);
    if (a >= 2.0) return 0.0;
    const double d = a >= 1.0 ? -0.5 * (2.0 - a) * (2.0 - a) : a * (1.5 * a - 2.0);
    return t < 0.0 ? -d : d;
  };
  PlainSample sample;
  const int ix = static_cast<int>(std::floor(x));
  const int iy = static_cast<int>(std::floor(y));
  for (int j = std::max(iy - 3, 0); j <= std::min(iy + 4, twintrue::kWindowSide - 1); ++j) {
    for (int i = ix - 1; i <= ix + 2; ++i) {
      const auto pixel =
          static_cast<double>(window.value[static_cast<std::size_t>(j * twintrue::kWindowSide + i)]);
      const double below = y + incline * (i - x) - j;
      sample.value += pixel * spline(x - i) * spline(below);
      sample.by_x += pixel * (slope(x - i) * spline(below) - incline * spline(x - i) * slope(below));
      sample.by_y += pixel * spline(x - i) * slope(below);
    }
  }
  return sample;
}

inline void plain_take(const twintrue::PatchWindow& window, const twintrue::PatchWeights& weights,
                       twintrue::PatchTemplate& patch) {
  double mean = 0.0;
  for (int y = 0; y < twintrue::kPatchSide; ++y) {
    for (int x = 0; x < twintrue::kPatchLanes; ++x) {
      const auto at = static_cast<std::size_t>(y * twintrue::kPatchLanes + x);
      const PlainSample sample = plain_sample(window, twintrue::kWindowMiddle + x - twintrue::kPatchReach,
                                              twintrue::kWindowMiddle + y - twintrue::kPatchReach);
      patch.value.value[at] = static_cast<float>(sample.value);
      patch.by_x.value[at] = static_cast<float>(sample.by_x);
      patch.by_y.value[at] = static_cast<float>(sample.by_y);
      mean += static_cast<double>(weights.weight.value[at]) * sample.value;
    }
  }
  patch.square = 0.0;
  for (std::size_t at = 0; at < patch.value.value.size(); ++at) {
    patch.value.value[at] = static_cast<float>(static_cast<double>(patch.value.value[at]) - mean);
    const auto value = static_cast<double>(patch.value.value[at]);
    patch.square += static_cast<double>(weights.weight.value[at]) * value * value;
  }
}

inline void plain_measure(const twintrue::PatchWindow& window, const twintrue::PatchWeights& weights,
                          const twintrue::PatchTemplate& patch, const twintrue::PatchPlace& place,
                          twintrue::PatchSums& sums) {
  sums = {};
  const auto d = [](float v) { return static_cast<double>(v); };
  for (int y = 0; y < twintrue::kPatchSide; ++y) {
    for (int x = 0; x < twintrue::kPatchSide; ++x) {
      const auto at = static_cast<std::size_t>(y * twintrue::kPatchLanes + x);
      const double u = x - twintrue::kPatchReach;
      const double v = y - twintrue::kPatchReach;
      const double px = d(place.middle[0]) + u * d(place.by_column[0]) + v * d(place.by_row[0]);
      const double py = d(place.middle[1]) + u * d(place.by_column[1]) + v * d(place.by_row[1]);
      const PlainSample seen = plain_sample(window, px, py, d(place.by_column[1]) / d(place.by_column[0]));
      const double bx = d(patch.by_x.value[at]);
      const double by = d(patch.by_y.value[at]);
      const double s = 0.5 * (seen.by_x * d(place.along[0]) + seen.by_y * d(place.along[1]) +
                              bx * d(place.along_back[0]) + by * d(place.along_back[1]));
      const double t = 0.5 * (seen.by_x * d(place.across[0]) + seen.by_y * d(place.across[1]) +
                              bx * d(place.across_back[0]) + by * d(place.across_back[1]));
      const double g = d(patch.value.value[at]);
      const double r = seen.value - d(place.gain) * g - d(place.level);
      const double w = d(weights.weight.value[at]);
      const std::array<double, twintrue::kPatchUnknowns> slopes{s, u * s, v * s, t, g, 1.0};
      for (std::size_t i = 0; i < slopes.size(); ++i) {
        for (std::size_t j = 0; j <= i; ++j) sums.normal[i][j] += w * slopes[i] * slopes[j];
        sums.pull[i] += w * slopes[i] * r;
      }
      sums.square += w * r * r;
    }
  }
}

}  // namespace testing_support
