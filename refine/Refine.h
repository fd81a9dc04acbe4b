#pragma once

// Refining: what a search found from matches on whole pixels becomes a pose good to hundredths of a pixel,
// with its covariance.
//
// In: both halves of the frame as code_picture() makes them, the rig as read from the lens file, the pose
// that a search found, and the matches that it had (filter_and_search() leaves them). Out: a Refinement.
//
// Steps: the matches are thinned to the best of each small cell (Thinning.h); each one's patch is matched by
// least squares under the map that the lens model gives (PatchMatching.h); the pose is fitted robustly to
// where they lie (RobustPose.h); guards decide whether the result is to be taken.
//
// All ten values are unknowns. What the matches leave open, the common tilt above all, stays where the lens
// file has it and shows in the covariance with the deviation that was taken for granted beforehand.
//
// Safe on any number of threads; runs on all of them itself, and the result does not depend on how many they
// are or on the vector instructions of the machine. Throws std::bad_alloc.

#include <array>
#include <cstddef>
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
};

// Why a refined pose is not to be taken.
enum class RefineRefusal {
  kNone,
  kFewPatches,   // too few fit
  kFewConverge,  // too many patches come to no end
  kFewFit,       // too many contradict the pose
  kFewFields,    // they cover too little of the picture
  kScatter,      // they lie too far apart
  kMisfit,       // the search's own matches fit worse than under its pose
  kSystematic,   // whole parts of the picture are off: the frame is not as the lens file says
  kNoBetter,     // it foresees matches hardly better than the search's pose
  kNoSolution,   // the equations have none
};

struct RefinedMatch {
  Vec2 right{};                  // frame pixels, in the left half; whole, as the keypoint was
  Vec2 left{};                   // frame pixels, in the right half
  double variance_across = 0.0;  // of the disparity across, squared pixels
  double residual = 0.0;         // disparity across under the refined pose, pixels
  double weight = 0.0;           // that it had in the fit, 0 to 1
};

struct Refinement {
  CalibResult pose{};        // refined; score and quality numbers are those of the start
  PoseMatrix covariance{};   // radians and pixels, in the order of CalibResult
  PoseMatrix correlation{};  // of the values, -1 to 1: what trades against each other is near an end
  // Standard deviations of pan, tilt, roll, offset x and y: of the right eye's against the left eye's, and of
  // what both have in common.
  std::array<double, 5> difference_sd{};
  std::array<double, 5> common_sd{};
  double expected_error = 0.0;  // rms disparity across over the field that the covariance means, pixels
  double moved = 0.0;           // the same between the start and the refined pose

  std::size_t tried = 0;      // patches
  std::size_t converged = 0;  // of them
  std::size_t kept = 0;       // of those, with a weight in the fit
  std::size_t fields = 0;     // pieces of the picture that hold kept ones, of the 32 of RobustPoseSettings
  double scatter = 0.0;       // robust standard deviation of their disparity across, pixels
  double common = 0.0;        // of it, what neighbours have in common: errors of the lens model
  double foresight = 1.0;     // see RobustPose
  std::vector<RefinedMatch> matches;  // that converged

  bool taken = false;
  RefineRefusal refusal = RefineRefusal::kNone;
  std::string reason;  // a sentence, or empty
};

// `start` is the search's result. The halves are of the rig's frame.
Refinement refine(const CodedHalves& halves, const RigState& rig, const std::vector<RayMatch>& matches,
                  const CalibResult& start, const RefineSettings& settings = {});

}  // namespace twintrue
