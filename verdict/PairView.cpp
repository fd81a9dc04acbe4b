#include "verdict/PairView.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace twintrue {
namespace {

using Vec3 = std::array<double, 3>;

constexpr double kHalfPi = std::numbers::pi / 2.0;

Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
double length(const Vec3& a) { return std::sqrt(dot(a, a)); }
double angle_between(const Vec3& a, const Vec3& b) { return std::atan2(length(cross(a, b)), dot(a, b)); }

// The direction in which an eye looks, in the rig's axes.
Vec3 axis_of(const EyeModel& eye) { return {-eye.rotation_t[2], -eye.rotation_t[5], -eye.rotation_t[8]}; }

// Puts a share of the shapes into an eye that stands in the lens file as `from`.
void shape(EyeModel& eye, const EyeModel& from, const EyeShapes& shapes, double share) {
  const double scale = std::exp(share * shapes.log_scale_ratio);
  eye.magnify_v = from.magnify_v * scale;
  eye.magnify_h = from.magnify_h * scale;
  eye.shift_y = from.shift_y + share * shapes.shift_y;
}

}  // namespace

RayMatch match_of(const RigState& rig, const std::array<double, 2>& right,
                  const std::array<double, 2>& left) {
  RayMatch match;
  match.x_a = static_cast<float>(right[0]);
  match.y_a = static_cast<float>(right[1]);
  match.x_b = static_cast<float>(left[0] - rig.half_width);
  match.y_b = static_cast<float>(left[1]);
  return match;
}

double pixels_per_radian(const RigState& rig) { return rig.current.right.scale / kHalfPi; }

PairView::PairView(const RigState& rig) : rig_(rig), right_(rig.current.right), left_(rig.current.left) {}

void PairView::put(const CalibResult& pose, const EyeShapes& shapes) {
  rig_apply_pose(rig_, pose);
  shape(rig_.current.right, right_, shapes, 0.5);
  shape(rig_.current.left, left_, shapes, -0.5);
}

std::array<double, 3> PairView::right_ray(const RayMatch& match) const {
  Vec3 ray{};
  const bool seen = eye_image_to_ray(rig_.current.right, &ray[0], &ray[1], &ray[2],
                                     static_cast<double>(match.x_a), static_cast<double>(match.y_a));
  return seen ? ray : Vec3{};
}

std::array<double, 3> PairView::left_ray(const RayMatch& match) const {
  Vec3 ray{};
  const double x = static_cast<double>(rig_.half_width) + static_cast<double>(match.x_b);
  const bool seen =
      eye_image_to_ray(rig_.current.left, &ray[0], &ray[1], &ray[2], x, static_cast<double>(match.y_b));
  return seen ? ray : Vec3{};
}

std::array<double, 3> PairView::baseline() const {
  const Vec3& left = rig_.current.left.position;
  const Vec3& right = rig_.current.right.position;
  return {right[0] - left[0], right[1] - left[1], right[2] - left[2]};
}

double PairView::across(const std::array<double, 3>& left, const std::array<double, 3>& right) const {
  const Vec3 normal = cross(baseline(), left);
  const double size = std::sqrt(dot(normal, normal) * dot(right, right));
  if (size == 0.0) return 0.0;
  return pixels_per_radian(rig_) * std::asin(std::clamp(dot(normal, right) / size, -1.0, 1.0));
}

RayPair PairView::look(const RayMatch& match) const {
  RayPair pair;
  const Vec3 left = left_ray(match);
  const Vec3 right = right_ray(match);
  if (left == Vec3{} || right == Vec3{}) return pair;
  pair.seen = true;
  pair.across = across(left, right);
  const Vec3 base = baseline();
  pair.parallax = pixels_per_radian(rig_) * (angle_between(base, right) - angle_between(base, left));
  pair.off_axis = angle_between(axis_of(rig_.current.right), right) / kHalfPi;
  pair.farther = std::max(pair.off_axis, angle_between(axis_of(rig_.current.left), left) / kHalfPi);
  // Offsets move the circle; the picture's y runs downward.
  const EyeModel& eye = rig_.current.right;
  const double u = static_cast<double>(match.x_a) - eye.center_x - eye.offset_x;
  const double v = eye.center_y - eye.offset_y - static_cast<double>(match.y_a);
  pair.angle = std::atan2(v, u);
  return pair;
}

RigState with_shapes(const RigState& rig, const EyeShapes& shapes) {
  RigState changed = rig;
  for (RigModel* model : {&changed.current, &changed.reference}) {
    shape(model->right, model->right, shapes, 0.5);
    shape(model->left, model->left, shapes, -0.5);
  }
  return changed;
}

std::size_t field_of(const RayPair& pair) {
  const auto ring = static_cast<std::size_t>(pair.off_axis * static_cast<double>(kRings));
  const double turn = pair.angle / (4.0 * kHalfPi) + 0.5;
  const auto sector = static_cast<std::size_t>(turn * static_cast<double>(kSectors));
  return std::min(ring, kRings - 1) * kSectors + std::min(sector, kSectors - 1);
}

}  // namespace twintrue
