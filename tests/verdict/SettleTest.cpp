// Poses settled on matches of known truth.

#include "verdict/Settle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "search/SyntheticRig.h"
#include "verdict/PairView.h"
#include "verdict/PoseFit.h"

namespace twintrue {
namespace {

using testing_support::kDegree;
using testing_support::kFrameHeight;
using testing_support::kFrameWidth;
using testing_support::make_matches;
using testing_support::nominal_rig;

using Matches = std::vector<RayMatch>;

double mean_distance(const RigState& rig, const Matches& matches, const CalibResult& pose) {
  PairView view(rig);
  view.put(pose);
  double sum = 0.0;
  for (const RayMatch& match : matches) sum += std::min(std::abs(view.look(match).across), 4.0);
  return sum / static_cast<double>(matches.size());
}

// The same points as eyes with other shapes see them under a pose.
Matches seen_with(const EyeShapes& shapes, const CalibResult& pose, const Matches& matches) {
  RigState plain = nominal_rig();
  RigState shaped = with_shapes(plain, shapes);
  rig_apply_pose(plain, pose);
  rig_apply_pose(shaped, pose);
  Matches seen;
  for (RayMatch match : matches) {
    double x = 0.0, y = 0.0, z = 0.0, px = 0.0, py = 0.0;
    if (!eye_image_to_ray(plain.current.right, &x, &y, &z, static_cast<double>(match.x_a),
                          static_cast<double>(match.y_a)) ||
        !eye_ray_to_image(shaped.current.right, &px, &py, x, y, z)) {
      continue;
    }
    match.x_a = static_cast<float>(px);
    match.y_a = static_cast<float>(py);
    if (!eye_image_to_ray(plain.current.left, &x, &y, &z, static_cast<double>(match.x_b) + kFrameWidth / 2,
                          static_cast<double>(match.y_b)) ||
        !eye_ray_to_image(shaped.current.left, &px, &py, x, y, z)) {
      continue;
    }
    match.x_b = static_cast<float>(px - kFrameWidth / 2);
    match.y_b = static_cast<float>(py);
    seen.push_back(match);
  }
  return seen;
}

// What the eyes differ by is found wherever the search left it, and shared out; what both have in common and
// no match shows is the lens file's.
TEST(Settle, FindsWhatMatchesFixAndKeepsTheRest) {
  CalibResult truth{};
  truth.right_pan = 0.4 * kDegree;
  truth.right_tilt = -0.5 * kDegree;
  truth.right_roll = 0.3 * kDegree;
  truth.right_offset_y = 1.0;
  const Matches matches = make_matches(truth, {.count = 4000, .noise_px = 0.3, .outliers = 0.1});
  CalibResult near_truth = truth;
  near_truth.right_tilt += 0.05 * kDegree;
  CalibResult both_tilted = truth;
  both_tilted.right_tilt += 3.0 * kDegree;
  both_tilted.left_tilt += 3.0 * kDegree;
  CalibResult both_moved = truth;
  both_moved.right_offset_x += 6.0;
  both_moved.left_offset_x += 6.0;
  for (CalibResult start : {truth, near_truth, both_tilted, both_moved}) {
    start.score = 77.0;
    const Settled settled = settle_pose(nominal_rig(), matches, start);
    const CalibResult& pose = settled.pose;
    EXPECT_TRUE(settled.moved);
    EXPECT_EQ(pose.score, 77.0);
    EXPECT_EQ(settled.shapes.log_scale_ratio, 0.0);
    EXPECT_EQ(settled.shapes.shift_y, 0.0);
    EXPECT_NEAR(pose.right_roll - pose.left_roll, 0.3 * kDegree, 3.0 * settled.difference_sd[2]);
    EXPECT_NEAR(pose.right_pan - pose.left_pan, 0.4 * kDegree, 3.0 * settled.difference_sd[0]);
    EXPECT_NEAR(pose.right_tilt - pose.left_tilt, -0.5 * kDegree, 3.0 * settled.difference_sd[1]);
    EXPECT_LT(settled.difference_sd[2], 0.05 * kDegree);
    // The horizon: half of the tilt each, and offsets likewise.
    EXPECT_NEAR(pose.right_tilt + pose.left_tilt, 0.0, 0.1 * kDegree);
    EXPECT_NEAR(pose.right_offset_x + pose.left_offset_x, 0.0, 0.5);
    EXPECT_TRUE(settled.common_kept[1]);
    EXPECT_FALSE(settled.difference_kept[1]);
    EXPECT_LE(mean_distance(nominal_rig(), matches, pose),
              mean_distance(nominal_rig(), matches, start) + 0.005);
  }
}

// Where matches and lens file contradict each other the matches win.
TEST(Settle, FitsAsWellAsTheSearchWhatTheLensFileWouldNotExpect) {
  CalibResult truth{};
  truth.right_roll = 4.0 * kDegree;
  truth.left_roll = 3.8 * kDegree;
  truth.left_pan = -2.0 * kDegree;
  const Matches matches = make_matches(truth, {.count = 1000, .noise_px = 0.3});
  const Settled settled = settle_pose(nominal_rig(), matches, truth);
  EXPECT_NEAR(settled.pose.left_roll, 3.8 * kDegree, 0.4 * kDegree);
  EXPECT_LE(mean_distance(nominal_rig(), matches, settled.pose),
            mean_distance(nominal_rig(), matches, truth) + 0.01);
}

// The shapes of the eyes' pictures are found with the pose, and put into the rig they explain the matches.
TEST(Settle, FindsTheShapesOfTheEyesPictures) {
  CalibResult truth{};
  truth.right_tilt = 0.4 * kDegree;
  for (const EyeShapes wanted : {EyeShapes{0.004, 0.0}, EyeShapes{-0.003, 0.0}, EyeShapes{0.001, 0.004}}) {
    const Matches matches = seen_with(wanted, truth, make_matches(truth, {.count = 3000, .noise_px = 0.3}));
    const Settled settled = settle_pose(nominal_rig(), matches, truth, true);
    EXPECT_NEAR(settled.shapes.log_scale_ratio, wanted.log_scale_ratio,
                3.0 * settled.shapes_sd.log_scale_ratio);
    EXPECT_NEAR(settled.shapes.shift_y, wanted.shift_y, 3.0 * settled.shapes_sd.shift_y);
    EXPECT_LT(settled.shapes_sd.log_scale_ratio, 0.001);
    EXPECT_LT(settled.shapes_sd.shift_y, 0.001);
    const RigState shaped = with_shapes(nominal_rig(), settled.shapes);
    EXPECT_LT(mean_distance(shaped, matches, settled.pose),
              0.8 * mean_distance(nominal_rig(), matches, truth));
    const PoseFit fit = fit_pose(nominal_rig(), matches, truth);
    EXPECT_NEAR(fit.shapes.log_scale_ratio, wanted.log_scale_ratio, 4.0 * fit.shapes_sd.log_scale_ratio);
    EXPECT_NEAR(fit.shapes.shift_y, wanted.shift_y, 4.0 * fit.shapes_sd.shift_y);
    EXPECT_GT(fit.shape_error, 0.1);
    EXPECT_LT(fit_pose(shaped, matches, settled.pose).shape_error, 0.05);
  }
}

// Where the search chose the larger part of a scene that moved, a fit does not go half-way to the other.
TEST(Settle, IsNotPulledByWhatMoved) {
  CalibResult truth{};
  truth.right_tilt = 0.4 * kDegree;
  Matches matches = make_matches(truth, {.count = 3000, .noise_px = 0.3});
  for (RayMatch& match : matches) {
    if (std::hypot(match.x_a - 499.0f, match.y_a - 512.0f) < 230.0f) match.y_b += 4.0f;
  }
  const Settled settled = settle_pose(nominal_rig(), matches, truth);
  EXPECT_NEAR(settled.pose.right_tilt - settled.pose.left_tilt, 0.4 * kDegree, 0.1 * kDegree);
}

TEST(Settle, KeepsTheLensFileWithoutMatches) {
  CalibResult found{};
  found.right_pan = 1.0;
  const Settled settled = settle_pose(nominal_rig(), {}, found, true);
  EXPECT_NEAR(settled.pose.right_pan, 0.0, 1e-12);
  EXPECT_NEAR(settled.shapes.log_scale_ratio, 0.0, 1e-12);
  EXPECT_NEAR(settled.shapes.shift_y, 0.0, 1e-12);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_TRUE(settled.difference_kept[i] && settled.common_kept[i]) << i;
}

// A caption pulls at no value.
TEST(Settle, LeavesBurnedInGraphicsOut) {
  CalibResult truth{};
  truth.right_tilt = 0.3 * kDegree;
  Matches matches = make_matches(truth, {.count = 1000, .noise_px = 0.3});
  const Settled without = settle_pose(nominal_rig(), matches, truth);
  for (int i = 0; i < 60; ++i) {
    RayMatch match;
    match.x_a = match.x_b = 470.0f + static_cast<float>(i % 10) * 4.0f;
    match.y_a = match.y_b = 860.0f + static_cast<float>(i / 10) * 4.0f;
    matches.push_back(match);
  }
  const Settled with = settle_pose(nominal_rig(), matches, truth);
  EXPECT_EQ(with.pose.right_tilt, without.pose.right_tilt);
}

}  // namespace
}  // namespace twintrue
