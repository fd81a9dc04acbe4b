#pragma once

// Photographs without truth: calibrated on one shot of a rig, judged by pairs of points of its other shots.

#include <cstdio>
#include <string>
#include <vector>

namespace twintrue::refine_bench {

// `shots`: stems of one rig's shots; each has STEM.jpg and STEM.csv, the latter pairs of frame pixels, right
// eye first. Prints the median disparity across over the other shots' pairs under the search's pose and under
// the one that is written, and returns both.
struct CrossShots {
  double searched = 0.0;  // means over the shots, pixels
  double written = 0.0;
};
CrossShots cross_shots(std::FILE* out, const std::vector<std::string>& shots, const std::string& lens,
                       const std::string& params, const std::string& memory, bool fit_shapes);

}  // namespace twintrue::refine_bench
