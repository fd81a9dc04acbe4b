#pragma once

// A match as a rig sees it: how far its two rays miss each other, and where in the picture it lies.
//
// The measure is the disparity across the plane of a match's rays and the baseline, in pixels: how far one
// ray leaves the plane that the baseline and the other ray span. Depth plays no part in it.

#include <array>
#include <cstddef>

#include "lens/RigModel.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"

namespace twintrue {

// Pixels that a small turn moves the middle of the right eye's picture by, for each radian: what an error
// in pixels has to be held against, however wide the frame is and however much of it the circles fill.
double pixels_per_radian(const RigState& rig);

// The two rays of a match under a pose, as pixels.
struct RayPair {
  bool seen = false;      // both pixels have a ray
  double across = 0.0;    // signed disparity across the plane
  double parallax = 0.0;  // along it; 0 at infinity, negative for rays that meet behind the rig
  double off_axis = 0.0;  // of the right eye's ray; 1: 90 degrees
  double farther = 0.0;   // of that eye's which sees the match farther off its axis; 1: 90 degrees
  double angle = 0.0;     // round the right eye's axis, radians from the right, counterclockwise
};

// How far off the axis a match says something about the pose, as RayPair counts it: 80 degrees. Nearer to the
// rim lies what belongs to the lens, and its curve is known least there.
inline constexpr double kRim = 80.0 / 90.0;

// A rig under a pose, for looking at pairs.
class PairView {
 public:
  // The rig is as read from the lens file.
  explicit PairView(const RigState& rig);

  // `log_scale_ratio`: logarithm of the right eye's scale over the left one's, beside what the lens file says
  // of both. Each eye takes half of it.
  void put(const CalibResult& pose, double log_scale_ratio = 0.0);

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
  std::array<double, 4> magnify_;  // of the lens file: right v, h, left v, h
};

// `rig`, as read from a lens file, with the eyes' scales changed against each other: the right one's by the
// root of `ratio`, the left one's by its inverse. So a lens file does that has the right eye's `magnify_v`
// and `magnify_h` multiplied, and the left eye's divided by the root.
RigState with_scale_ratio(const RigState& rig, double ratio);

// Fields of the picture: rings of equal width in the angle off the axis, each cut into sectors.
inline constexpr std::size_t kRings = 6;
inline constexpr std::size_t kSectors = 12;
inline constexpr std::size_t kFields = kRings * kSectors;

// The field of a pair that is seen.
std::size_t field_of(const RayPair& pair);

}  // namespace twintrue
