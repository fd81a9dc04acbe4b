#pragma once

// Pairs of rays of a rig: the disparity across their plane, its slopes, and how a small patch of one eye's
// picture shows in the other's. Speaks of rays and pixels alone.
//
// The disparity across is the measure of all that judges a pose: how far, in pixels of the picture's middle,
// the right eye's ray leaves the plane that the baseline and the left eye's ray span. Depth plays no part in
// it.

#include <array>
#include <cstddef>

#include "lens/RigModel.h"
#include "search/PoseCandidate.h"

namespace twintrue {

using Vec3 = std::array<double, 3>;
using Vec2 = std::array<double, 2>;
using PoseVector = std::array<double, kPoseValues>;  // in the order of CalibResult

PoseVector vector_of(const CalibResult& pose);
void put_vector(CalibResult& pose, const PoseVector& values);

inline bool is_offset(std::size_t value) { return value % 5 >= 3; }

// A pixel's ray in the axes of its eye, and how it changes with the pixel.
struct EyeRay {
  Vec3 ray{};
  Vec3 by_x{};  // per pixel to the right
  Vec3 by_y{};  // per pixel downward
  bool seen = false;
};

// A rig under a pose. Everything is const after construction: any number of threads may look.
class PairGeometry {
 public:
  // `rig` as read from the lens file.
  PairGeometry(const RigState& rig, const CalibResult& pose);

  // Left eye's pixels count from the start of the frame here.
  EyeRay right_ray(double x, double y) const { return eye_ray(right_, x, y); }
  EyeRay left_ray(double x, double y) const { return eye_ray(left_, x, y); }
  // The ray alone, in the rig's axes; false for a pixel without one.
  bool right_in_rig(double x, double y, Vec3& ray) const;
  bool left_in_rig(double x, double y, Vec3& ray) const;

  // Disparity across of two rays in the axes of their eyes, pixels.
  double across(const Vec3& left, const Vec3& right) const;
  // Also its derivatives by the ten values of the pose, per radian and pixel.
  double across(const EyeRay& left, const EyeRay& right, PoseVector& slopes) const;

  // Inverse distance from the right eye, 1 / metre, at which the left eye's ray passes the right one's. Both
  // in the rig's axes. Negative for rays that meet behind the rig.
  double inverse_distance(const Vec3& left, const Vec3& right) const;
  // Where the left eye sees what lies on the right eye's ray so far away; false if it does not.
  bool left_pixel(const Vec3& right, double inverse_distance, Vec2& pixel) const;

  double pixels_per_radian() const { return pixels_per_radian_; }
  // Direction in the right eye's picture of the epipolar curve through a ray in the rig's axes; of unit
  // length, or zero.
  Vec2 right_along(const Vec3& right) const;
  double rim(bool of_left) const;  // largest angle off the axis, radians
  // Cosine of the angle between a ray in the rig's axes and the axis of an eye.
  double right_cosine(const Vec3& ray) const { return cosine(right_, ray); }
  double left_cosine(const Vec3& ray) const { return cosine(left_, ray); }
  // Disparity across of two rays in the rig's axes, pixels.
  double across_in_rig(const Vec3& left, const Vec3& right) const;
  const RigModel& model() const { return model_; }

 private:
  struct Eye {
    EyeModel flat;                                    // the eye with its rotation left out
    std::array<double, 9> rig_from_eye{};             // row by row
    std::array<std::array<double, 9>, 3> by_angle{};  // its derivatives by pan, tilt and roll
  };
  static Eye make_eye(const EyeModel& eye);
  static double cosine(const Eye& eye, const Vec3& ray);
  static EyeRay eye_ray(const Eye& eye, double x, double y);

  RigModel model_;
  Eye right_;
  Eye left_;
  Vec3 baseline_{};  // from the left eye to the right one
  double pixels_per_radian_ = 0.0;
};

}  // namespace twintrue
