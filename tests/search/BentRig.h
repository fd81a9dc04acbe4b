#pragma once

// Rigs and poses that leave no part of the model at rest.

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "search/SyntheticRig.h"

namespace testing_support {

// The synthetic rig bent in every way that the model knows.
enum class Bend { kDistorted, kMagnified, kSheared, kMirrored, kShiftedX, kShiftedY, kMoved };

inline twintrue::RigState bent_rig(std::uint32_t kind, Bend bend) {
  twintrue::RigState rig = nominal_rig();
  int sign = 1;
  for (twintrue::EyeModel* eye : {&rig.current.left, &rig.current.right}) {
    eye->distortion.kind = kind;
    eye->distortion.coeff = {1.2, -0.8, 0.5, 0.3, -0.2, 0.1};
    twintrue::distortion_build_table(eye->distortion);
    eye->magnify_v = 1.01;
    eye->magnify_h = bend == Bend::kMagnified || bend == Bend::kSheared ? 0.985 : 1.01;
    eye->psi = 0.01 * sign;
    eye->roll = -0.004 * sign;
    if (bend == Bend::kMirrored) eye->magnify_v = eye->magnify_h = -1.01;
    if (bend == Bend::kSheared || bend == Bend::kShiftedX) eye->shift_x = 0.002;
    if (bend == Bend::kSheared || bend == Bend::kShiftedY) eye->shift_y = -0.001 * sign;
    if (bend == Bend::kSheared || bend == Bend::kMoved) eye->translate = {0.001, -0.002, 0.0015};
    twintrue::eye_update_rotation(*eye);
    sign = -sign;
  }
  twintrue::rig_update_positions(rig.current);
  rig.reference.left = rig.current.left;
  rig.reference.right = rig.current.right;
  return rig;
}

// The first is always the same.
inline std::vector<twintrue::PoseCandidate> some_poses(int count) {
  std::mt19937 engine(5);
  std::uniform_real_distribution<double> spread(-1.0, 1.0);
  std::vector<twintrue::PoseCandidate> poses(static_cast<std::size_t>(count));
  for (twintrue::PoseCandidate& pose : poses) {
    for (double CalibResult::*field : twintrue::kPoseFields) pose.*field = 0.5 * kDegree * spread(engine);
    pose.right_offset_x = std::round(3 * spread(engine));
    pose.left_offset_y = std::round(3 * spread(engine));
  }
  return poses;
}

}  // namespace testing_support
