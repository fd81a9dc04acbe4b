#pragma once

// The pose that the matches themselves ask for: the search's score climbed to its top by a solver, which is
// not bound to steps. What the search leaves above it is its own; what the optimum leaves is the matches'.

#include <vector>

#include "support/PlainLens.h"

namespace twintrue::accuracy {

struct OptimumSettings {
  double sigma = 0.5;      // pixels, of the search's Gaussian
  double depth_min = 0.1;  // metres; pairs outside count nothing, as in the search
  double depth_max = 100.0;
  int threads = 1;
};

// Climbs from each of the starts and returns the pose of the best score. A very weak pull to the lens file's
// pose holds what no match fixes, such as the common tilt.
Pose find_optimum(const PlainLens& lens, const std::vector<PixelPair>& pairs, const std::vector<Pose>& starts,
                  const OptimumSettings& settings);

}  // namespace twintrue::accuracy
