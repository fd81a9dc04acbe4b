#include "verdict/PoseFit.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

namespace twintrue {
namespace {

using Vec3 = std::array<double, 3>;

constexpr double kHalfPi = std::numbers::pi / 2.0;

Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
double pixels_per_radian(const RigState& rig) { return rig.current.right.scale / kHalfPi; }
double length(const Vec3& a) { return std::sqrt(dot(a, a)); }

constexpr int kUnknowns = kPoseValues;
using Vector = Eigen::Matrix<double, kUnknowns, 1>;
using Matrix = Eigen::Matrix<double, kUnknowns, kUnknowns>;

double variance_along(const Matrix& covariance, const Vector& direction) {
  return std::max(direction.dot(covariance * direction), 0.0);
}

bool is_offset(int i) { return i % 5 >= 3; }

double CalibResult::*field_of_pose(int i) { return kPoseFields[static_cast<std::size_t>(i)]; }

class Fit {
 public:
  Fit(const RigState& rig, const CalibResult& pose, double noise)
      : view_(rig), start_(pose), state_(pose), noise_(noise) {
    for (int i = 0; i < kUnknowns; ++i) {
      prior_[i] = is_offset(i) ? kPriorOffsetShare * rig.frame_width : kPriorAngle;
    }
  }

  // One Gauss-Newton step. Errors beyond some `scale` pixels count little.
  void step(std::span<const RayMatch> matches, double scale) {
    const std::vector<Vector> slopes = slopes_of(matches);
    view_.put(state_);
    std::vector<double> weight(matches.size());
    std::vector<double> error(matches.size());
    std::array<double, kFields> crowd{};
    std::vector<std::size_t> field(matches.size());
    for (std::size_t m = 0; m < matches.size(); ++m) {
      const RayPair pair = view_.look(matches[m]);
      if (!pair.seen) continue;
      error[m] = pair.across;
      const double share = pair.across / scale;
      weight[m] = 1.0 / ((1.0 + share * share) * (1.0 + share * share));
      field[m] = field_of(pair);
      crowd[field[m]] += weight[m];
    }
    // What is wrong with one thing is wrong with all matches on it: a field counts as some matches at most.
    constexpr double kMostPerField = 6.0;
    Matrix information = prior_.cwiseAbs2().cwiseInverse().asDiagonal();
    Vector pull = -information.diagonal().cwiseProduct(moved());
    for (std::size_t m = 0; m < matches.size(); ++m) {
      if (weight[m] == 0.0) continue;
      const double w = weight[m] * std::min(1.0, kMostPerField / crowd[field[m]]) / (noise_ * noise_);
      pull -= w * error[m] * slopes[m];
      information += w * slopes[m] * slopes[m].transpose();
    }
    covariance_ = information.llt().solve(Matrix::Identity());
    const Vector change = covariance_ * pull;
    for (int i = 0; i < kUnknowns; ++i) state_.*field_of_pose(i) += change[i];
  }

  // Derivatives of the disparity across by the unknowns, about the state.
  std::vector<Vector> slopes_of(std::span<const RayMatch> matches) {
    constexpr double kAngleStep = 1e-4;
    constexpr double kOffsetStep = 0.05;
    const std::size_t count = matches.size();
    std::vector<Vec3> left(count);
    std::vector<Vec3> right(count);
    view_.put(state_);
    for (std::size_t m = 0; m < count; ++m) {
      left[m] = view_.left_ray(matches[m]);
      right[m] = view_.right_ray(matches[m]);
    }
    std::vector<Vector> slopes(count, Vector::Zero());
    std::vector<bool> seen(count, true);
    for (int i = 0; i < kUnknowns; ++i) {
      const bool of_right_eye = i < kUnknowns / 2;
      const double h = is_offset(i) ? kOffsetStep : kAngleStep;
      for (const double side : {1.0, -1.0}) {
        CalibResult pose = state_;
        pose.*field_of_pose(i) += side * h;
        view_.put(pose);
        for (std::size_t m = 0; m < count; ++m) {
          const Vec3 ray = of_right_eye ? view_.right_ray(matches[m]) : view_.left_ray(matches[m]);
          const double across = of_right_eye ? view_.across(left[m], ray) : view_.across(ray, right[m]);
          slopes[m][i] += side * across / (2.0 * h);
          seen[m] = seen[m] && ray != Vec3{};
        }
      }
    }
    // At the very edge of the field one of the poses may not see the pair.
    for (std::size_t m = 0; m < count; ++m) {
      if (!seen[m]) slopes[m] = Vector::Zero();
    }
    return slopes;
  }

  const Matrix& covariance() const { return covariance_; }
  // How far a value has come from the start.
  Vector moved() const {
    Vector way;
    for (int i = 0; i < kUnknowns; ++i) way[i] = state_.*field_of_pose(i) - start_.*field_of_pose(i);
    return way;
  }

 private:
  PairView view_;
  CalibResult start_;
  CalibResult state_;
  double noise_;
  Vector prior_;
  Matrix covariance_ = Matrix::Identity();
};

// Every so manyth match: enough to say what the frame fixes.
std::vector<RayMatch> some_of(const std::vector<RayMatch>& matches) {
  constexpr std::size_t kMost = 1500;
  const std::size_t stride = matches.size() / kMost + 1;
  std::vector<RayMatch> some;
  for (std::size_t m = 0; m < matches.size(); m += stride) some.push_back(matches[m]);
  return some;
}

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

}  // namespace

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
  const auto from_base = [&base](const Vec3& ray) {
    return std::atan2(length(cross(base, ray)), dot(base, ray));
  };
  pair.parallax = pixels_per_radian(rig_) * (from_base(right) - from_base(left));
  // Offsets move the circle; the picture's y runs downward.
  const EyeModel& eye = rig_.current.right;
  const double u = static_cast<double>(match.x_a) - eye.center_x - eye.offset_x;
  const double v = eye.center_y - eye.offset_y - static_cast<double>(match.y_a);
  pair.radius = std::hypot(u, v) / eye.scale;
  pair.angle = std::atan2(v, u);
  return pair;
}

std::size_t field_of(const RayPair& pair) {
  const auto ring = static_cast<std::size_t>(pair.radius * static_cast<double>(kRings));
  const double turn = pair.angle / (4.0 * kHalfPi) + 0.5;
  const auto sector = static_cast<std::size_t>(turn * static_cast<double>(kSectors));
  return std::min(ring, kRings - 1) * kSectors + std::min(sector, kSectors - 1);
}

PoseFit fit_pose(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& pose,
                 double noise) {
  const std::vector<RayMatch> some = some_of(matches);
  // From loose to tight: first where most matches gather, then the place itself.
  constexpr std::array<double, 5> kScales{6.0, 3.0, 1.5, 1.5, 1.5};
  PoseFit result;

  Fit fit(rig, pose, noise);
  for (const double scale : kScales) fit.step(some, scale);
  for (int i = 0; i < kUnknowns / 2; ++i) {
    const Vector right = Vector::Unit(i);
    const Vector left = Vector::Unit(i + kUnknowns / 2);
    const auto value = static_cast<std::size_t>(i);
    result.difference_sd[value] = std::sqrt(variance_along(fit.covariance(), right - left));
    result.common_sd[value] = std::sqrt(variance_along(fit.covariance(), (right + left) / 2.0));
  }
  const std::vector<RayMatch> scene = plain_scene(rig, pose);
  const std::vector<Vector> slopes = fit.slopes_of(scene);
  const Vector moved = fit.moved();
  for (const Vector& slope : slopes) {
    result.expected_error += variance_along(fit.covariance(), slope);
    const double change = slope.dot(moved);
    result.gap += change * change;
  }
  const auto count = static_cast<double>(std::max<std::size_t>(slopes.size(), 1));
  result.expected_error = std::sqrt(result.expected_error / count);
  result.gap = std::sqrt(result.gap / count);

  return result;
}

}  // namespace twintrue
