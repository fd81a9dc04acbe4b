#pragma once

#include <string>
#include <vector>

#include "refine/PatchMatching.h"
#include "refine/RobustPose.h"
#include "refine/Thinning.h"

namespace twintrue {

struct RefineSettings {
  ThinningSettings thinning;
  PatchSettings patch;
  RobustPoseSettings pose;
  int passes = 1;
};

struct Refinement {
  CalibResult pose{};
  PoseMatrix covariance{};
  double expected_error = 0.0;
  std::size_t tried = 0;
  std::size_t converged = 0;
  std::size_t kept = 0;
  double scatter = 0.0;
  double moved = 0.0;
  RobustPose fit;
  std::vector<PatchMatch> patches;
  std::vector<PosePair> pairs;
  bool taken = false;
  std::string reason;
};

Refinement refine(const CodedHalves& halves, const RigState& rig, const std::vector<RayMatch>& matches,
                  const CalibResult& start, const RefineSettings& settings);

}  // namespace twintrue
