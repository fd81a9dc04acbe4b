#pragma once

// The pose that refined matches ask for, and how well they fix it.

#include <cstddef>
#include <vector>

#include "refine/PairGeometry.h"

namespace twintrue {

using PoseMatrix = std::array<PoseVector, kPoseValues>;

// A match for the fit: pixels of the frame.
struct PosePair {
  Vec2 right{};
  Vec2 left{};
  double variance = 0.0;   // predicted, of the disparity across; squared pixels
  double weight = 0.0;     // out: of the last step, 0 to 1; 0 for a match that does not fit
  double residual = 0.0;   // out: disparity across under the pose found, pixels
  double deviation = 0.0;  // out: that the match counted with, pixels
};

// How well the lens file's values are believed: standard deviations of pan, tilt, roll (radians), offset x
// and y (shares of the frame's width).
struct PosePrior {
  std::array<double, 5> difference{0.05, 0.05, 0.05, 28.0 / 4096.0, 28.0 / 4096.0};  // right less left
  std::array<double, 5> common{0.025, 0.025, 0.025, 14.0 / 4096.0, 14.0 / 4096.0};   // mean of both eyes
};

struct RobustPoseSettings {
  PosePrior prior;
  int rings = 4;  // of the field, whose pieces count as one thing each
  int sectors = 8;
  bool common = true;  // allow for errors that the matches of one patch of the field have in common
};

struct RobustPose {
  PoseVector pose{};
  PoseMatrix covariance{};
  double scatter = 0.0;          // robust deviation of the residuals, pixels
  double variance_factor = 0.0;  // of the predicted variances
  double variance_floor = 0.0;   // added, squared pixels
  double common = 0.0;           // deviation of what matches of one patch of the field have in common, pixels
  double foresight =
      1.0;  // disparity across where no match was used, against that under the start; below 1: better
  std::size_t fitting = 0;  // matches with a weight
  std::size_t fields = 0;   // pieces of the field that hold some
  int steps = 0;
  bool solved = false;
};

// Coarse: pairs of whole pixels with many wrong ones among them, from a start that may be off by tens of
// pixels. No covariance.
RobustPose coarse_pose(const RigState& rig, const CalibResult& start, std::vector<PosePair>& pairs,
                       const RobustPoseSettings& settings);
RobustPose robust_pose(const RigState& rig, const CalibResult& start, std::vector<PosePair>& pairs,
                       const RobustPoseSettings& settings);

}  // namespace twintrue
