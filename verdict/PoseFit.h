#pragma once

// What the matches themselves say about the ten values: where the best pose lies near a given one, how far
// each value is fixed.
//
// The measure is the disparity across the plane of a match's rays and the baseline, in pixels: how far one
// ray leaves the plane that the baseline and the other ray span. Depth plays no part in it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "lens/RigModel.h"
#include "search/PoseCandidate.h"
#include "search/RayMatch.h"

namespace twintrue {

// The two rays of a match under a pose, as pixels.
struct RayPair {
  bool seen = false;      // both pixels have a ray
  double across = 0.0;    // signed disparity across the plane
  double parallax = 0.0;  // along it; 0 at infinity, negative for rays that meet behind the rig
  double radius = 0.0;    // distance of the right eye's pixel from its circle's middle; 1: 90 degrees
  double angle = 0.0;     // round that middle, radians from the right, counterclockwise
};

// A rig under a pose, for looking at pairs.
class PairView {
 public:
  // The rig is as read from the lens file.
  explicit PairView(const RigState& rig) : rig_(rig) {}
  void put(const CalibResult& pose) { rig_apply_pose(rig_, pose); }

  RayPair look(const RayMatch& match) const;

  // The parts of a look, for when one eye alone has moved: the rays, all zeros for a pixel that has none, and
  // the disparity across, 0 without both.
  std::array<double, 3> right_ray(const RayMatch& match) const;
  std::array<double, 3> left_ray(const RayMatch& match) const;
  double across(const std::array<double, 3>& left, const std::array<double, 3>& right) const;
  const RigState& rig() const { return rig_; }

 private:
  std::array<double, 3> baseline() const;

  RigState rig_;
};

// Fields of the picture: rings of equal width in the angle off the axis, each cut into sectors.
inline constexpr std::size_t kRings = 6;
inline constexpr std::size_t kSectors = 12;
inline constexpr std::size_t kFields = kRings * kSectors;

// The field of a pair that is seen.
std::size_t field_of(const RayPair& pair);

struct PoseFit {
  // Standard deviations by which the matches fix pan, tilt, roll, offset x and offset y: of the right eye
  // against the left one, and of what both have in common. Radians and pixels. A value that they do not fix
  // has about the deviation that was taken for granted beforehand: see kPriorAngle and kPriorOffset.
  std::array<double, 5> difference_sd{};
  std::array<double, 5> common_sd{};
  // Over points all over the field, 0.5 to 3 m away: rms disparity across, in pixels, ...
  double expected_error = 0.0;  // ... that the noise of the matches leaves in the pose
  double gap = 0.0;             // ... between the pose that was looked at and the best one near it
};

// What is known of a value before any match: about what a lens is off, so that a value counts as fixed if the
// matches know it better.
inline constexpr double kPriorAngle = 0.035;          // radians: 2 degrees
inline constexpr double kPriorOffsetShare = 0.00122;  // of the frame's width: 10 pixels of 8192

// Fits near `pose`, matches that are far off counting little. `noise` is the disparity's, in pixels. Looks at
// some thousands of the matches, spread over the list.
PoseFit fit_pose(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& pose,
                 double noise);

}  // namespace twintrue
