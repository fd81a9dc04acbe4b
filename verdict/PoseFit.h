#pragma once

// What the matches themselves say about the ten values: where the best pose lies near a given one, how far
// each value is fixed, and whether the two eyes' pictures are of one shape.

#include <array>
#include <vector>

#include "lens/RigModel.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"
#include "verdict/PairView.h"

namespace twintrue {

struct PoseFit {
  // Standard deviations by which the matches fix pan, tilt, roll, offset x and offset y: of the right eye
  // against the left one, and of what both have in common. Radians and pixels. A value that they do not fix
  // has about the deviation that was taken for granted beforehand: see kPriorAngle and kPriorOffset.
  std::array<double, 5> difference_sd{};
  std::array<double, 5> common_sd{};
  // Over points all over the field, 0.5 to 3 m away: rms disparity across, in pixels, ...
  double expected_error = 0.0;  // ... that the errors of the matches leave in the pose
  double gap = 0.0;             // ... between the pose that was looked at and the best one near it
  // The shapes of the eyes' pictures, found together with the pose, and their standard deviations. And the
  // rms disparity across, as above, between the best rig of these shapes and the best one of the lens file's.
  EyeShapes shapes;
  EyeShapes shapes_sd;
  double shape_error = 0.0;
};

// What is known of a value before any match: about what a lens is off, so that a value counts as fixed if the
// matches know it better.
inline constexpr double kPriorAngle = 0.035;          // radians: 2 degrees
inline constexpr double kPriorOffsetShare = 0.00122;  // of the frame's width: 10 pixels of 8192
inline constexpr double kPriorScaleRatio = 0.005;     // eyes of one make differ by 0.0005 to 0.012
inline constexpr double kPriorShift = 0.003;          // and by up to 0.004 in how far they are decentred

// Fits near `pose`, matches that are far off counting little. Looks at some thousands of the matches, spread
// over the list. A pure function.
PoseFit fit_pose(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& pose);

}  // namespace twintrue
