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

// A match at two pixels of the frame, the right eye's and the left eye's.
RayMatch match_of(const RigState& rig, const std::array<double, 2>& right, const std::array<double, 2>& left);

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

// How the shapes of the eyes' pictures differ from what the lens file says, the right eye's less the left
// one's; each eye takes half. No correction makes up for them, but a lens file can hold them.
struct EyeShapes {
  double log_scale_ratio = 0.0;  // logarithm of the ratio of scales: keys `..._magnify_v` and `..._magnify_h`
  double shift_y = 0.0;          // decentring upward, of a ray's length at the axis: keys `..._shift_y`
};

// A rig under a pose, for looking at pairs.
class PairView {
 public:
  // The rig is as read from the lens file.
  explicit PairView(const RigState& rig);
  // A copy of a rig's state starts anew from where it stands, so a copy of a view would put poses on top of a
  // pose.
  PairView(const PairView&) = delete;
  PairView& operator=(const PairView&) = delete;
  PairView(PairView&&) = default;
  PairView& operator=(PairView&&) = default;
  ~PairView() = default;

  void put(const CalibResult& pose, const EyeShapes& shapes = {});

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
  EyeModel right_;  // as in the lens file
  EyeModel left_;
};

// `rig`, as read from a lens file, as if the file held these shapes as well: the right eye's `magnify_v` and
// `magnify_h` multiplied by the root of the ratio and the left eye's divided by it, half of the shift added
// to the right eye's `shift_y` and taken from the left eye's.
RigState with_shapes(const RigState& rig, const EyeShapes& shapes);

// Fields of the picture: rings of equal width in the angle off the axis, each cut into sectors.
inline constexpr std::size_t kRings = 6;
inline constexpr std::size_t kSectors = 12;
inline constexpr std::size_t kFields = kRings * kSectors;

// The field of a pair that is seen.
std::size_t field_of(const RayPair& pair);

}  // namespace twintrue
