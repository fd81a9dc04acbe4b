#include "verdict/RobustFit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "base/ParallelEach.h"

namespace twintrue {
namespace {

using Vec3 = std::array<double, 3>;

constexpr int kValuesOfAnEye = kPoseValues / 2;

bool is_offset(int i) { return i < kPoseValues && i % kValuesOfAnEye >= 3; }

// By which a derivative is taken: small beside what the disparity bends over, large beside rounding.
double step_of(int i) {
  constexpr double kRadians = 1e-4;
  constexpr double kPixels = 0.05;
  return is_offset(i) ? kPixels : kRadians;
}

// Runs over the indices 0 to count - 1 on all threads.
template <typename Do>
void each_block(std::size_t count, const Do& task) {
  constexpr std::size_t kBlock = 256;
  parallel_each((count + kBlock - 1) / kBlock, [&](std::size_t block) {
    const std::size_t end = std::min(count, (block + 1) * kBlock);
    for (std::size_t i = block * kBlock; i < end; ++i) task(i);
  });
}

void put(PairView& view, const FitVector& values) {
  view.put(pose_of(values, CalibResult{}), shapes_of(values));
}

}  // namespace

FitVector fit_vector_of(const CalibResult& pose) {
  FitVector values = FitVector::Zero();
  for (std::size_t i = 0; i < kPoseFields.size(); ++i) values[static_cast<int>(i)] = pose.*kPoseFields[i];
  return values;
}

EyeShapes shapes_of(const FitVector& values) { return {values[kScaleValue], values[kShiftValue]}; }

CalibResult pose_of(const FitVector& values, const CalibResult& base) {
  CalibResult pose = base;
  for (std::size_t i = 0; i < kPoseFields.size(); ++i) pose.*kPoseFields[i] = values[static_cast<int>(i)];
  return pose;
}

FitVector difference_direction(int value) {
  return FitVector::Unit(value) - FitVector::Unit(value + kValuesOfAnEye);
}
FitVector common_direction(int value) {
  return (FitVector::Unit(value) + FitVector::Unit(value + kValuesOfAnEye)) / 2.0;
}

void Belief::add(const FitVector& direction, double deviation) {
  information_ += direction * direction.transpose() / (deviation * deviation);
}

double Belief::deviation_along(const FitVector& direction) const {
  return std::sqrt(direction.dot(information_.llt().solve(direction)));
}

double robust_weight(double error, double scale) {
  const double share = error / scale;
  return 1.0 / ((1.0 + share * share) * (1.0 + share * share));
}

RobustFit::RobustFit(const RigState& rig, std::span<const RayMatch> matches, const Belief& belief,
                     const FitVector& centre, const FitVector& start)
    : view_(rig), matches_(matches), belief_(belief.information()), centre_(centre), values_(start) {}

double RobustFit::variance_along(const FitVector& direction) const {
  return std::max(direction.dot(covariance_ * direction), 0.0);
}

// Slopes bend little: over half a degree or some pixels by less than a hundredth.
bool RobustFit::slopes_serve() const {
  constexpr double kFar = 100.0;  // steps of a derivative
  if (slopes_.size() != matches_.size()) return false;
  for (int i = 0; i < kFitValues; ++i) {
    if (!(std::abs(values_[i] - slopes_at_[i]) <= kFar * step_of(i))) return false;
  }
  return true;
}

void RobustFit::step(double scale, const FitNoise& noise) {
  if (!slopes_serve()) {
    slopes_ = slopes_of(matches_);
    slopes_at_ = values_;
  }
  put(view_, values_);
  std::vector<double> weight(matches_.size());
  std::vector<double> error(matches_.size());
  std::array<double, kFields> crowd{};
  std::vector<std::size_t> field(matches_.size());
  for (std::size_t m = 0; m < matches_.size(); ++m) {
    const RayPair pair = view_.look(matches_[m]);
    if (!pair.seen || pair.farther > kRim) continue;
    error[m] = pair.across;
    weight[m] = robust_weight(pair.across, scale);
    field[m] = field_of(pair);
    crowd[field[m]] += 1.0;
  }
  FitMatrix information = belief_;
  FitVector pull = belief_ * (centre_ - values_);
  for (std::size_t m = 0; m < matches_.size(); ++m) {
    if (weight[m] == 0.0) continue;
    // n matches with an error of their own and one in common tell a mean as well as this weight does.
    const double w = weight[m] / (noise.match * noise.match + crowd[field[m]] * noise.field * noise.field);
    pull -= w * error[m] * slopes_[m];
    information += w * slopes_[m] * slopes_[m].transpose();
  }
  covariance_ = information.llt().solve(FitMatrix::Identity());
  values_ += covariance_ * pull;
}

std::vector<FitVector> RobustFit::slopes_of(std::span<const RayMatch> matches) {
  const std::size_t count = matches.size();
  std::vector<Vec3> left(count);
  std::vector<Vec3> right(count);
  put(view_, values_);
  each_block(count, [&](std::size_t m) {
    left[m] = view_.left_ray(matches[m]);
    right[m] = view_.right_ray(matches[m]);
  });
  std::vector<FitVector> slopes(count, FitVector::Zero());
  std::vector<char> seen(count, 1);
  for (int i = 0; i < kFitValues; ++i) {
    const bool moves_right = i < kValuesOfAnEye || i >= kPoseValues;
    const bool moves_left = i >= kValuesOfAnEye;
    const double h = step_of(i);
    for (const double side : {1.0, -1.0}) {
      FitVector values = values_;
      values[i] += side * h;
      put(view_, values);
      each_block(count, [&](std::size_t m) {
        const Vec3 right_ray = moves_right ? view_.right_ray(matches[m]) : right[m];
        const Vec3 left_ray = moves_left ? view_.left_ray(matches[m]) : left[m];
        slopes[m][i] += side * view_.across(left_ray, right_ray) / (2.0 * h);
        if (right_ray == Vec3{} || left_ray == Vec3{}) seen[m] = 0;
      });
    }
  }
  // At the very edge of the field one of the poses may not see the pair.
  for (std::size_t m = 0; m < count; ++m) {
    if (seen[m] == 0) slopes[m] = FitVector::Zero();
  }
  return slopes;
}

namespace {

using FieldErrors = std::array<std::vector<double>, kFields>;

FieldErrors errors_by_field(const PairView& view, std::span<const RayMatch> matches) {
  FieldErrors fields;
  for (const RayMatch& match : matches) {
    const RayPair pair = view.look(match);
    if (!pair.seen || pair.farther > kRim || std::abs(pair.across) >= kNearPixels) continue;
    fields[field_of(pair)].push_back(pair.across);
  }
  return fields;
}

}  // namespace

FitNoise noise_of(const PairView& view, std::span<const RayMatch> matches, const FitNoise& least) {
  FieldErrors fields = errors_by_field(view, matches);
  std::vector<double> distances;
  for (const std::vector<double>& field : fields) {
    for (const double error : field) distances.push_back(std::abs(error));
  }
  FitNoise noise;
  noise.match = std::max(deviation_of_distances(distances), least.match);
  noise.field = std::max(usual_bias(fields, noise.match), least.field);
  return noise;
}

double rms_bias_of(const PairView& view, std::span<const RayMatch> matches, double match_noise) {
  FieldErrors fields = errors_by_field(view, matches);
  return spread_of_fields(fields, match_noise);
}

std::vector<RayMatch> some_of(const std::vector<RayMatch>& matches, std::size_t most) {
  const std::size_t stride = (matches.size() + most - 1) / std::max<std::size_t>(most, 1);
  std::vector<RayMatch> some;
  for (std::size_t m = 0; m < matches.size(); m += std::max<std::size_t>(stride, 1)) {
    some.push_back(matches[m]);
  }
  return some;
}

}  // namespace twintrue
