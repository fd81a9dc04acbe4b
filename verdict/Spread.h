#pragma once

// Robust statistics of disparities.

#include <array>
#include <span>
#include <vector>

#include "verdict/PairView.h"

namespace twintrue {

// Pixels of disparity across at which a match counts as fitting: six times the noise of whole-pixel
// keypoints, a fortieth of the height in which partners are sought.
inline constexpr double kFitting = 2.0;
// And up to which it tells where a part's matches lie.
inline constexpr double kNearPixels = 2.0 * kFitting;

// Standard deviations of disparities across, pixels.
struct FitNoise {
  double match = 0.0;  // of a match by itself
  double field = 0.0;  // of what all matches of a field have in common
};

// The value at `place`, 0 to 1, of the values in order; the lower one of two. The values are not empty, and
// change their order.
double quantile_of(std::vector<double>& values, double place = 0.5);

// Standard deviation of a normal distribution about 0 whose absolute values are these; 0 for none.
double deviation_of_distances(std::vector<double>& distances);

// Rms of the medians of fields with enough disparities, less what noise of that standard deviation explains.
double spread_of_fields(std::span<std::vector<double>, kFields> fields, double noise);

// The same from the median of those medians: what is usual for a field, however far off some are.
double usual_bias(std::span<std::vector<double>, kFields> fields, double noise);

}  // namespace twintrue
