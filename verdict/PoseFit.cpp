#include "verdict/PoseFit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "refine/FieldError.h"
#include "verdict/RobustFit.h"

namespace twintrue {
namespace {

constexpr std::size_t kMostMatches = 1500;  // enough to say what the frame fixes

// Pairs of points all over the field as the rig sees them under a pose.
std::vector<RayMatch> plain_scene(const RigState& rig, const CalibResult& pose) {
  std::vector<RayMatch> matches;
  for (const PosePair& pair : field_pairs(rig, pose)) {
    matches.push_back(match_of(rig, pair.right, pair.left));
  }
  return matches;
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
