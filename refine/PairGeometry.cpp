#include "refine/PairGeometry.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace twintrue {
namespace {

using Matrix3 = std::array<double, 9>;

constexpr double kHalfPi = std::numbers::pi / 2.0;

Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec3 times(const Matrix3& m, const Vec3& v) {
  return {m[0] * v[0] + m[1] * v[1] + m[2] * v[2], m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
          m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
}

RigModel model_under(const RigState& rig, const CalibResult& pose) {
  RigState moved(rig);
  rig_apply_pose(moved, pose);
  return std::move(moved.current);
}

bool ray_of(const EyeModel& eye, double x, double y, Vec3& ray) {
  return eye_image_to_ray(eye, &ray[0], &ray[1], &ray[2], x, y);
}

}  // namespace

PoseVector vector_of(const CalibResult& pose) {
  PoseVector values{};
  for (std::size_t i = 0; i < kPoseValues; ++i) values[i] = pose.*kPoseFields[i];
  return values;
}

void put_vector(CalibResult& pose, const PoseVector& values) {
  for (std::size_t i = 0; i < kPoseValues; ++i) pose.*kPoseFields[i] = values[i];
}

PairGeometry::PairGeometry(const RigState& rig, const CalibResult& pose)
    : model_(model_under(rig, pose)),
      right_(make_eye(model_.right)),
      left_(make_eye(model_.left)),
      pixels_per_radian_(model_.right.scale / kHalfPi) {
  for (std::size_t i = 0; i < 3; ++i) baseline_[i] = model_.right.position[i] - model_.left.position[i];
}

PairGeometry::Eye PairGeometry::make_eye(const EyeModel& eye) {
  Eye made{eye, eye.rotation_t, {}};
  made.flat.lambda = made.flat.psi = made.flat.roll = 0.0;
  eye_update_rotation(made.flat);
  // A matrix of sines and cosines: the step's error is of the order of its square.
  constexpr double kStep = 1e-5;
  for (std::size_t i = 0; i < 3; ++i) {
    for (const double side : {1.0, -1.0}) {
      EyeModel turned = eye;
      (i == 0 ? turned.lambda : i == 1 ? turned.psi : turned.roll) += side * kStep;
      eye_update_rotation(turned);
      for (std::size_t k = 0; k < 9; ++k) made.by_angle[i][k] += side * turned.rotation_t[k] / (2.0 * kStep);
    }
  }
  return made;
}

EyeRay PairGeometry::eye_ray(const Eye& eye, double x, double y) {
  constexpr double kStep = 0.5;  // pixels
  EyeRay result;
  Vec3 right{}, left{}, below{}, above{};
  result.seen = ray_of(eye.flat, x, y, result.ray) && ray_of(eye.flat, x + kStep, y, right) &&
                ray_of(eye.flat, x - kStep, y, left) && ray_of(eye.flat, x, y + kStep, below) &&
                ray_of(eye.flat, x, y - kStep, above);
  for (std::size_t i = 0; i < 3; ++i) {
    result.by_x[i] = (right[i] - left[i]) / (2.0 * kStep);
    result.by_y[i] = (below[i] - above[i]) / (2.0 * kStep);
  }
  return result;
}

bool PairGeometry::right_in_rig(double x, double y, Vec3& ray) const {
  return ray_of(model_.right, x, y, ray);
}
bool PairGeometry::left_in_rig(double x, double y, Vec3& ray) const { return ray_of(model_.left, x, y, ray); }

double PairGeometry::across(const Vec3& left, const Vec3& right) const {
  return across_in_rig(times(left_.rig_from_eye, left), times(right_.rig_from_eye, right));
}

double PairGeometry::across_in_rig(const Vec3& left, const Vec3& ray) const {
  const Vec3 normal = cross(baseline_, left);
  const double size = std::sqrt(dot(normal, normal) * dot(ray, ray));
  if (size == 0.0) return 0.0;
  return pixels_per_radian_ * std::asin(std::clamp(dot(normal, ray) / size, -1.0, 1.0));
}

double PairGeometry::across(const EyeRay& left, const EyeRay& right, PoseVector& slopes) const {
  const Vec3 l = times(left_.rig_from_eye, left.ray);
  const Vec3 r = times(right_.rig_from_eye, right.ray);
  const Vec3 normal = cross(baseline_, l);
  const double nn = dot(normal, normal);
  const double rr = dot(r, r);
  const double size = std::sqrt(nn * rr);
  slopes = {};
  if (size == 0.0) return 0.0;
  const double sine = std::clamp(dot(normal, r) / size, -1.0, 1.0);
  const double outer = pixels_per_radian_ / std::sqrt(std::max(1.0 - sine * sine, 1e-12));
  // Derivatives by the right ray, and by the left one through the normal.
  Vec3 by_right{}, by_normal{};
  for (std::size_t i = 0; i < 3; ++i) {
    by_right[i] = outer * (normal[i] / size - sine * r[i] / rr);
    by_normal[i] = outer * (r[i] / size - sine * normal[i] / nn);
  }
  const Vec3 by_left = cross(by_normal, baseline_);
  const auto fill = [&slopes](std::size_t first, const Eye& eye, const EyeRay& ray, const Vec3& by_ray) {
    for (std::size_t i = 0; i < 3; ++i) slopes[first + i] = dot(by_ray, times(eye.by_angle[i], ray.ray));
    // An offset moves the picture's middle: to the right as the pixel to the left, and upward as it downward.
    slopes[first + 3] = -dot(by_ray, times(eye.rig_from_eye, ray.by_x));
    slopes[first + 4] = dot(by_ray, times(eye.rig_from_eye, ray.by_y));
  };
  fill(0, right_, right, by_right);
  fill(5, left_, left, by_left);
  return pixels_per_radian_ * std::asin(sine);
}

double PairGeometry::inverse_distance(const Vec3& left, const Vec3& right) const {
  // What of the baseline is square to the left ray; along it the right ray's end has to come to nothing.
  const double share = dot(baseline_, left) / dot(left, left);
  const Vec3 square{baseline_[0] - share * left[0], baseline_[1] - share * left[1],
                    baseline_[2] - share * left[2]};
  const double reach = dot(baseline_, square);
  return reach > 0.0 ? -dot(right, square) / (std::sqrt(dot(right, right)) * reach) : 0.0;
}

bool PairGeometry::left_pixel(const Vec3& right, double inverse_distance, Vec2& pixel) const {
  const double size = std::sqrt(dot(right, right));
  Vec3 ray{};
  for (std::size_t i = 0; i < 3; ++i) ray[i] = right[i] / size + inverse_distance * baseline_[i];
  return eye_ray_to_image(model_.left, &pixel[0], &pixel[1], ray[0], ray[1], ray[2]);
}

Vec2 PairGeometry::right_along(const Vec3& right) const {
  // Farther along the baseline the same point shows so much farther along its curve: a few pixels.
  constexpr double kStep = 0.01;
  const double size = std::sqrt(dot(right, right) / dot(baseline_, baseline_));
  Vec3 ahead{};
  for (std::size_t i = 0; i < 3; ++i) ahead[i] = right[i] + kStep * size * baseline_[i];
  Vec2 here{}, there{};
  if (!eye_ray_to_image(model_.right, &here[0], &here[1], right[0], right[1], right[2]) ||
      !eye_ray_to_image(model_.right, &there[0], &there[1], ahead[0], ahead[1], ahead[2])) {
    return {};
  }
  const double length = std::hypot(there[0] - here[0], there[1] - here[1]);
  return length > 0.0 ? Vec2{(there[0] - here[0]) / length, (there[1] - here[1]) / length} : Vec2{};
}

double PairGeometry::cosine(const Eye& eye, const Vec3& ray) {
  // The axis is the eye's -z.
  const Matrix3& m = eye.rig_from_eye;
  return -(m[2] * ray[0] + m[5] * ray[1] + m[8] * ray[2]) / std::sqrt(dot(ray, ray));
}

double PairGeometry::rim(bool of_left) const {
  constexpr double kHalfDegree = std::numbers::pi / 360.0;
  return (of_left ? model_.left : model_.right).fov_degrees * kHalfDegree;
}

}  // namespace twintrue
