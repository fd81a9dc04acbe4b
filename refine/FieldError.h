#pragma once

// What a pose, or the error of one, means over the whole field.

#include <vector>

#include "refine/RobustPose.h"

namespace twintrue {

// Pairs of points all over the field to 64 degrees off the axis, 0.5 to 3 metres away, as the rig sees them
// under a pose.
std::vector<PosePair> field_pairs(const RigState& rig, const CalibResult& pose);

// Rms disparity across over the field that a covariance of the pose means, pixels.
double field_error(const RigState& rig, const CalibResult& pose, const PoseMatrix& covariance);
// The same between two poses.
double field_difference(const RigState& rig, const CalibResult& pose, const CalibResult& other);

}  // namespace twintrue
