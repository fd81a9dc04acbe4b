#include "Optimum.h"

#include <cmath>
#include <limits>
#include <memory>

#include <ceres/ceres.h>

namespace twintrue::accuracy {
namespace {

// Minus the sum of exp(-e / (2 sigma^2)) up to a factor and a constant.
class GaussianLoss final : public ceres::LossFunction {
 public:
  explicit GaussianLoss(double sigma) : square_(sigma * sigma) {}
  void Evaluate(double e, double out[3]) const override {
    const double weight = std::exp(-0.5 * e / square_);
    out[0] = 2.0 * square_ * (1.0 - weight);
    out[1] = weight;
    out[2] = -0.5 / square_ * weight;
  }

 private:
  double square_;
};

struct PairResidual {
  const PlainLens& lens;
  const PixelPair& pair;
  const OptimumSettings& settings;

  template <typename T>
  bool operator()(const T* pose, T* residual) const {
    constexpr double kFarOff = 1e3;  // pixels: weighs nothing and pulls nowhere
    const double root_half = std::sqrt(0.5);
    std::array<T, 4> d;
    const bool valid = reprojection(lens, pose, pair, settings.depth_min, settings.depth_max, d);
    for (std::size_t i = 0; i < 4; ++i) residual[i] = valid ? T(root_half) * d[i] : T(kFarOff);
    return true;
  }
};

struct PullResidual {
  const Pose& home;
  double offset_unit;

  template <typename T>
  bool operator()(const T* pose, T* residual) const {
    // Pixels for as much as a lens may be off: below the noise of whatever a few hundred matches fix.
    constexpr double kPull = 0.05;
    constexpr double kAngleUnit = 1.5 * kDegree;
    for (std::size_t i = 0; i < kPoseSize; ++i) {
      const double unit = i % kEyeValues < 3 ? kAngleUnit : offset_unit;
      residual[i] = T(kPull / unit) * (pose[i] - T(home[i]));
    }
    return true;
  }
};

}  // namespace

Pose find_optimum(const PlainLens& lens, const std::vector<PixelPair>& pairs, const std::vector<Pose>& starts,
                  const OptimumSettings& settings) {
  GaussianLoss loss(settings.sigma);
  Pose pose{};
  ceres::Problem::Options ownership;
  ownership.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  ceres::Problem problem(ownership);
  for (const PixelPair& pair : pairs) {
    problem.AddResidualBlock(
        new ceres::AutoDiffCostFunction<PairResidual, 4, kPoseSize>(new PairResidual{lens, pair, settings}),
        &loss, pose.data());
  }
  constexpr double kOffsetUnit = 10.0 / 8192.0;  // in frame widths
  problem.AddResidualBlock(new ceres::AutoDiffCostFunction<PullResidual, kPoseSize, kPoseSize>(
                               new PullResidual{lens.pose, kOffsetUnit * lens.width}),
                           nullptr, pose.data());
  ceres::Solver::Options options;
  options.linear_solver_type = ceres::DENSE_NORMAL_CHOLESKY;
  options.num_threads = settings.threads;
  options.max_num_iterations = 300;
  options.function_tolerance = 1e-12;
  options.logging_type = ceres::SILENT;

  Pose best{};
  double best_cost = std::numeric_limits<double>::infinity();
  for (const Pose& start : starts) {
    pose = start;
    ceres::Solver::Summary summary;
    ceres::Solve(options, &problem, &summary);
    if (summary.final_cost < best_cost) {
      best_cost = summary.final_cost;
      best = pose;
    }
  }
  return best;
}

}  // namespace twintrue::accuracy
