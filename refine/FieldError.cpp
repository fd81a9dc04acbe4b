#include "refine/FieldError.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace twintrue {
namespace {

using Vector = Eigen::Matrix<double, kPoseValues, 1>;
using Matrix = Eigen::Matrix<double, kPoseValues, kPoseValues>;

Matrix matrix_of(const PoseMatrix& from) {
  Matrix to;
  for (std::size_t i = 0; i < kPoseValues; ++i) {
    for (std::size_t j = 0; j < kPoseValues; ++j) {
      to(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) = from[i][j];
    }
  }
  return to;
}

// Root of the mean of `square` of the rays of the pairs that both eyes see.
template <typename Square>
double rms_over(const std::vector<PosePair>& pairs, const PairGeometry& geometry, const Square& square) {
  double sum = 0.0;
  std::size_t count = 0;
  for (const PosePair& pair : pairs) {
    const EyeRay right = geometry.right_ray(pair.right[0], pair.right[1]);
    const EyeRay left = geometry.left_ray(pair.left[0], pair.left[1]);
    if (!right.seen || !left.seen) continue;
    sum += square(left, right);
    ++count;
  }
  return count > 0 ? std::sqrt(sum / static_cast<double>(count)) : 0.0;
}

}  // namespace

std::vector<PosePair> field_pairs(const RigState& rig, const CalibResult& pose) {
  constexpr int kPoints = 300;
  constexpr double kReach = 64.0 / 180.0 * std::numbers::pi;
  constexpr double kNearest = 0.5;
  constexpr double kFarthest = 3.0;
  constexpr double kGoldenAngle = 2.399963229728653;
  constexpr int kDepths = 7;
  const PairGeometry geometry(rig, pose);
  const RigModel& model = geometry.model();
  std::vector<PosePair> pairs;
  for (int i = 0; i < kPoints; ++i) {
    const double theta = kReach * std::sqrt((i + 0.5) / kPoints);
    const double phi = kGoldenAngle * i;
    const double distance = kNearest * std::pow(kFarthest / kNearest, (i % kDepths) / (kDepths - 1.0));
    const Vec3 p{distance * std::sin(theta) * std::cos(phi), distance * std::sin(theta) * std::sin(phi),
                 -distance * std::cos(theta)};
    const Vec3& l = model.left.position;
    const Vec3& r = model.right.position;
    PosePair pair;
    if (eye_ray_to_image(model.right, &pair.right[0], &pair.right[1], p[0] - r[0], p[1] - r[1],
                         p[2] - r[2]) &&
        eye_ray_to_image(model.left, &pair.left[0], &pair.left[1], p[0] - l[0], p[1] - l[1], p[2] - l[2])) {
      pairs.push_back(pair);
    }
  }
  return pairs;
}

double field_error(const RigState& rig, const CalibResult& pose, const PoseMatrix& covariance) {
  const PairGeometry geometry(rig, pose);
  const Matrix c = matrix_of(covariance);
  return rms_over(field_pairs(rig, pose), geometry, [&](const EyeRay& left, const EyeRay& right) {
    PoseVector slopes{};
    geometry.across(left, right, slopes);
    const Eigen::Map<const Vector> slope(slopes.data());
    return std::max(slope.dot(c * slope), 0.0);
  });
}

double field_difference(const RigState& rig, const CalibResult& pose, const CalibResult& other) {
  const PairGeometry geometry(rig, other);
  return rms_over(field_pairs(rig, pose), geometry, [&](const EyeRay& left, const EyeRay& right) {
    const double across = geometry.across(left.ray, right.ray);
    return across * across;
  });
}

}  // namespace twintrue
