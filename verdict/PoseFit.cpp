#include "verdict/PoseFit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "verdict/RobustFit.h"

namespace twintrue {
namespace {

using Vec3 = std::array<double, 3>;

constexpr double kHalfPi = std::numbers::pi / 2.0;
constexpr std::size_t kMostMatches = 1500;  // enough to say what the frame fixes

// Pairs of points evenly over the picture to 64 degrees off the axis, 0.5 to 3 metres away, as the rig sees
// them under a pose.
std::vector<RayMatch> plain_scene(const RigState& rig, const CalibResult& pose) {
  constexpr int kPoints = 300;
  constexpr double kReach = 64.0 / 90.0 * kHalfPi;
  constexpr double kNearest = 0.5;
  constexpr double kFarthest = 3.0;
  constexpr double kGoldenAngle = 2.399963229728653;
  constexpr int kDepths = 7;
  PairView view(rig);
  view.put(pose);
  const RigModel& model = view.rig().current;
  std::vector<RayMatch> pairs;
  for (int i = 0; i < kPoints; ++i) {
    const double theta = kReach * std::sqrt((i + 0.5) / kPoints);
    const double phi = kGoldenAngle * i;
    const double distance = kNearest * std::pow(kFarthest / kNearest, (i % kDepths) / (kDepths - 1.0));
    const Vec3 p{distance * std::sin(theta) * std::cos(phi), distance * std::sin(theta) * std::sin(phi),
                 -distance * std::cos(theta)};
    const Vec3& l = model.left.position;
    const Vec3& r = model.right.position;
    double xa = 0.0, ya = 0.0, xb = 0.0, yb = 0.0;
    if (!eye_ray_to_image(model.right, &xa, &ya, p[0] - r[0], p[1] - r[1], p[2] - r[2]) ||
        !eye_ray_to_image(model.left, &xb, &yb, p[0] - l[0], p[1] - l[1], p[2] - l[2])) {
      continue;
    }
    RayMatch pair;
    pair.x_a = static_cast<float>(xa);
    pair.y_a = static_cast<float>(ya);
    pair.x_b = static_cast<float>(xb - rig.half_width);
    pair.y_b = static_cast<float>(yb);
    pairs.push_back(pair);
  }
  return pairs;
}

// What lenses are off, each eye by itself.
Belief usual_errors(const RigState& rig, const EyeShapes& shape_deviations) {
  constexpr int kAngles = 3;
  Belief belief;
  for (int i = 0; i < kPoseValues; ++i) {
    const bool is_angle = i % (kPoseValues / 2) < kAngles;
    belief.add(FitVector::Unit(i), is_angle ? kPriorAngle : kPriorOffsetShare * rig.frame_width);
  }
  belief.add(FitVector::Unit(kScaleValue), shape_deviations.log_scale_ratio);
  belief.add(FitVector::Unit(kShiftValue), shape_deviations.shift_y);
  return belief;
}

RobustFit fitted(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& pose,
                 const FitNoise& noise, const EyeShapes& shape_deviations) {
  // From loose to tight: first where most matches gather, then the place itself.
  constexpr std::array<double, 5> kScales{6.0, 3.0, 1.5, 1.5, 1.5};
  const FitVector start = fit_vector_of(pose);
  RobustFit fit(rig, matches, usual_errors(rig, shape_deviations), start, start);
  for (const double scale : kScales) fit.step(scale, noise);
  return fit;
}

double rms_along(const std::vector<FitVector>& slopes, const FitVector& way) {
  double sum = 0.0;
  for (const FitVector& slope : slopes) sum += slope.dot(way) * slope.dot(way);
  return std::sqrt(sum / static_cast<double>(std::max<std::size_t>(slopes.size(), 1)));
}

}  // namespace

PoseFit fit_pose(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& pose) {
  constexpr FitNoise kLeast{0.3, 0.2};  // keypoints are whole pixels, and no lens's curve is known better
  constexpr double kNone = 1e-9;
  const std::vector<RayMatch> some = some_of(matches, kMostMatches);
  PairView view(rig);
  view.put(pose);
  const FitNoise noise = noise_of(view, matches, kLeast);
  RobustFit one_shape = fitted(rig, some, pose, noise, {kNone, kNone});
  const RobustFit fit = fitted(rig, some, pose, noise, {kPriorScaleRatio, kPriorShift});

  PoseFit result;
  for (int i = 0; i < kPoseValues / 2; ++i) {
    const auto value = static_cast<std::size_t>(i);
    result.difference_sd[value] = std::sqrt(fit.variance_along(difference_direction(i)));
    result.common_sd[value] = std::sqrt(fit.variance_along(common_direction(i)));
  }
  result.shapes = shapes_of(fit.values());
  result.shapes_sd = {std::sqrt(fit.variance_along(FitVector::Unit(kScaleValue))),
                      std::sqrt(fit.variance_along(FitVector::Unit(kShiftValue)))};

  const std::vector<FitVector> slopes = one_shape.slopes_of(plain_scene(rig, pose));
  for (const FitVector& slope : slopes) result.expected_error += one_shape.variance_along(slope);
  result.expected_error =
      std::sqrt(result.expected_error / static_cast<double>(std::max<std::size_t>(slopes.size(), 1)));
  result.gap = rms_along(slopes, one_shape.values() - fit_vector_of(pose));
  result.shape_error = rms_along(slopes, fit.values() - one_shape.values());
  return result;
}

}  // namespace twintrue
