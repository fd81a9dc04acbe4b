#include "refine/FieldError.h"
#include "refine/RobustPose.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::kDegree;
using testing_support::make_matches;
using testing_support::nominal_rig;

CalibResult truth() {
  return {0.3 * kDegree,
          -0.2 * kDegree,
          0.25 * kDegree,
          1.0,
          -0.8,
          -0.1 * kDegree,
          0.2 * kDegree,
          -0.15 * kDegree,
          -0.5,
          0.4,
          -1,
          -1,
          -1,
          -1};
}

std::vector<PosePair> pairs_of(const std::vector<RayMatch>& matches, double noise, double outliers,
                               unsigned seed) {
  std::mt19937 engine(seed);
  std::normal_distribution<double> normal(0.0, noise);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<PosePair> pairs;
  for (const RayMatch& match : matches) {
    PosePair pair;
    pair.right = {static_cast<double>(match.x_a), static_cast<double>(match.y_a)};
    pair.left = {static_cast<double>(match.x_b) + testing_support::kFrameWidth / 2,
                 static_cast<double>(match.y_b)};
    pair.left[1] += unit(engine) < outliers ? 4.0 * unit(engine) - 2.0 : normal(engine);
    pair.variance = 0.01;
    pairs.push_back(pair);
  }
  return pairs;
}

TEST(RobustPose, FindsTheTruthAmongOutliers) {
  const RigState rig = nominal_rig();
  auto pairs = pairs_of(make_matches(truth(), {.count = 800}), 0.01, 0.25, 5);
  const RobustPose found = robust_pose(rig, CalibResult{}, pairs, {});
  ASSERT_TRUE(found.solved);
  CalibResult pose{};
  put_vector(pose, found.pose);
  EXPECT_LT(field_difference(rig, truth(), pose), 0.005);
  // A matter of the prior alone: half of the true difference each, as the lens file says nothing else.
  EXPECT_NEAR(pose.right_tilt + pose.left_tilt, 0.0, 1e-4);
}

TEST(RobustPose, CoarseFitComesBackFromFarOff) {
  const RigState rig = nominal_rig();
  auto pairs = pairs_of(make_matches(truth(), {.count = 800}), 0.3, 0.25, 6);
  CalibResult start = truth();
  start.right_pan += 1.0 * kDegree;
  start.right_tilt -= 1.0 * kDegree;
  start.left_roll += 1.0 * kDegree;
  start.right_offset_y += 10.0;
  const RobustPose found = coarse_pose(rig, start, pairs, {});
  ASSERT_TRUE(found.solved);
  CalibResult pose{};
  put_vector(pose, found.pose);
  EXPECT_LT(field_difference(rig, truth(), pose), 0.3);
}

// Errors of many noisy draws against what each draw states.
TEST(RobustPose, StatedDeviationsAreThoseOfManyDraws) {
  constexpr unsigned kDraws = 40;
  const RigState rig = nominal_rig();
  double field_ratio = 0.0;
  std::array<double, 5> ratios{};
  for (unsigned draw = 0; draw < kDraws; ++draw) {
    auto pairs = pairs_of(make_matches(truth(), {.count = 500, .seed = draw + 1}), 0.1, 0.1, 100 + draw);
    const RobustPose found = robust_pose(rig, truth(), pairs, {});
    CalibResult pose{};
    put_vector(pose, found.pose);
    const double expected = field_error(rig, pose, found.covariance);
    const double error = field_difference(rig, truth(), pose);
    field_ratio += error * error / (expected * expected) / kDraws;
    for (std::size_t i = 0; i < ratios.size(); ++i) {
      const PoseMatrix& c = found.covariance;
      const double variance = c[i][i] - 2.0 * c[i][i + 5] + c[i + 5][i + 5];
      const double off =
          found.pose[i] - found.pose[i + 5] - vector_of(truth())[i] + vector_of(truth())[i + 5];
      ratios[i] += off * off / variance / kDraws;
    }
  }
  // Of 40 draws a mean square is good to a quarter; the pieces that deviations rest on are no more than 32.
  EXPECT_NEAR(std::sqrt(field_ratio), 1.0, 0.25);
  for (std::size_t i = 0; i < ratios.size(); ++i) EXPECT_NEAR(std::sqrt(ratios[i]), 1.0, 0.3) << i;
}

// What matches of one patch of the field have in common is found, told apart from their noise, and widens the
// expected error.
TEST(RobustPose, CommonErrorsOfNeighboursCount) {
  const RigState rig = nominal_rig();
  const auto matches = make_matches(truth(), {.count = 2000});
  auto pairs = pairs_of(matches, 0.05, 0.0, 9);
  const RobustPose plain = robust_pose(rig, truth(), pairs, {});
  auto bent = pairs_of(matches, 0.05, 0.0, 9);
  for (PosePair& pair : bent) {
    // Waves over the picture that no pose follows.
    pair.left[1] += 0.3 * std::sin(pair.right[0] / 40.0) * std::sin(pair.right[1] / 40.0);
  }
  const RobustPose found = robust_pose(rig, truth(), bent, {});
  EXPECT_LT(plain.common, 0.02);
  EXPECT_GT(found.common, 0.05);
  EXPECT_LT(found.common, 0.3);
  CalibResult pose{};
  put_vector(pose, found.pose);
  EXPECT_GT(field_error(rig, pose, found.covariance), 2.0 * field_error(rig, truth(), plain.covariance));
}

}  // namespace
}  // namespace twintrue
