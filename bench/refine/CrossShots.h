#pragma once

// Photographs without truth: calibrated on one shot of a rig, judged by pairs of points of its other shots.

#include <cstdio>
#include <string>
#include <vector>

#include "refine/Refine.h"

namespace twintrue::refine_bench {

// `shots`: stems of one rig's shots; each has STEM.jpg and STEM.csv, the latter pairs of frame pixels, right
// eye first. Prints the median disparity across over the other shots' pairs, before and after, and returns
// both.
struct CrossShots {
  double searched = 0.0;  // means over the shots, pixels
  double refined = 0.0;
};
CrossShots cross_shots(std::FILE* out, const std::vector<std::string>& shots, const std::string& lens,
                       const std::string& params, const std::string& memory, const RefineSettings& settings);

}  // namespace twintrue::refine_bench
