#pragma once

// A rig and matches of known truth: equidistant fisheyes without distortion, seen through the plain model of
// the lens, which shares no code with the library.

#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/PoseCandidate.h"
#include "search/RayMatch.h"
#include "support/PlainLens.h"

namespace testing_support {

inline constexpr double kHalfPi = 1.57079632679489661923;
inline constexpr double kDegree = kHalfPi / 90.0;

inline constexpr std::int32_t kFrameWidth = 2048;
inline constexpr std::int32_t kFrameHeight = 1024;
inline constexpr double kScale = 497.0;  // pixels for 90 degrees
inline constexpr double kCircleX = 525.0;
inline constexpr double kBaseline = 0.06;

inline void set_up_eye(twintrue::EyeModel& eye, bool left) {
  eye.view_width = kFrameWidth / 2;
  eye.view_height = kFrameHeight;
  eye.scale = kScale;
  eye.center_x = kFrameWidth / 2.0 + (left ? kCircleX : -kCircleX);
  eye.center_y = kFrameHeight / 2.0;
  eye.valid_x_begin = left ? kFrameWidth / 2 : 0;
  eye.valid_x_end = left ? kFrameWidth : kFrameWidth / 2;
  eye.distortion.kind = 1;
  twintrue::distortion_build_table(eye.distortion);
  twintrue::eye_update_rotation(eye);
}

// The rig as a lens file without errors would give it.
inline twintrue::RigState nominal_rig() {
  twintrue::RigState rig;
  set_up_eye(rig.current.left, true);
  set_up_eye(rig.current.right, false);
  rig.current.baseline = kBaseline;
  rig.current.sensor_pitch = 0.0176;
  rig.current.circle_radius = 0.0176 * kScale;
  rig.current.input_width = kFrameWidth;
  rig.current.input_height = kFrameHeight;
  twintrue::rig_update_positions(rig.current);
  rig.half_width = kFrameWidth / 2;
  rig.frame_width = kFrameWidth;
  rig.frame_height = kFrameHeight;
  rig.circle_radius_px = kScale;
  rig.reference.left = rig.current.left;
  rig.reference.right = rig.current.right;
  return rig;
}

inline twintrue::RigState posed(twintrue::RigState rig, const CalibResult& pose) {
  rig_apply_pose(rig, pose);
  return rig;
}

using Point = std::array<double, 3>;

// The same lens for the plain model.
inline twintrue::accuracy::PlainLens plain_rig() {
  twintrue::accuracy::PlainLens lens;
  lens.width = kFrameWidth;
  lens.height = kFrameHeight;
  lens.scale = kScale;
  lens.centre_x = {kFrameWidth / 2.0 - kCircleX, kFrameWidth / 2.0 + kCircleX};
  lens.centre_y = {kFrameHeight / 2.0, kFrameHeight / 2.0};
  lens.limit = 2.0;
  lens.baseline = kBaseline;
  return lens;
}

// Where an eye with those corrections sees a point, in frame pixels.
inline std::array<double, 2> see(bool left, double pan, double tilt, double roll, double offset_x,
                                 double offset_y, Point p) {
  const auto side = left ? twintrue::accuracy::kLeft : twintrue::accuracy::kRight;
  const std::array eye{pan, tilt, roll, offset_x, offset_y};
  p[0] -= (left ? -0.5 : 0.5) * kBaseline;
  std::array<double, 2> pixel{};
  twintrue::accuracy::ray_to_pixel(plain_rig(), side, eye.data(), p, pixel[0], pixel[1]);
  return pixel;
}

// The match of a point that both eyes see without corrections, with its place in the frame's right half.
inline twintrue::RayMatch match_of(const Point& p) {
  const auto a = see(false, 0, 0, 0, 0, 0, p);
  const auto b = see(true, 0, 0, 0, 0, 0, p);
  twintrue::RayMatch match;
  match.x_a = static_cast<float>(a[0]);
  match.y_a = static_cast<float>(a[1]);
  match.x_b = static_cast<float>(b[0] - kFrameWidth / 2);
  match.y_b = static_cast<float>(b[1]);
  match.accepted = 1;
  return match;
}

struct MatchSource {
  int count = 300;
  double noise_px = 0.0;
  double outliers = 0.0;  // share
  std::uint32_t seed = 1;
};

// Matches of random points 0.5 to 4.5 m away within 70 degrees of the axis, as eyes with the corrections of
// `truth` see them. All are accepted and have rank 0 and 1 by turns.
inline std::vector<twintrue::RayMatch> make_matches(const CalibResult& truth, const MatchSource& source) {
  std::mt19937 engine(source.seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> normal(0.0, 1.0);
  std::vector<twintrue::RayMatch> matches;
  for (int i = 0; i < source.count; ++i) {
    const double theta = 70.0 * kDegree * std::sqrt(unit(engine));
    const double phi = 4.0 * kHalfPi * unit(engine);
    const double distance = 0.5 + 4.0 * unit(engine);
    const Point p{distance * std::sin(theta) * std::cos(phi), distance * std::sin(theta) * std::sin(phi),
                  -distance * std::cos(theta)};
    auto a = see(false, truth.right_pan, truth.right_tilt, truth.right_roll, truth.right_offset_x,
                 truth.right_offset_y, p);
    auto b = see(true, truth.left_pan, truth.left_tilt, truth.left_roll, truth.left_offset_x,
                 truth.left_offset_y, p);
    if (unit(engine) < source.outliers)
      b = {kFrameWidth * (0.6 + 0.3 * unit(engine)), 300 + 400 * unit(engine)};
    twintrue::RayMatch match;
    match.x_a = static_cast<float>(a[0] + source.noise_px * normal(engine));
    match.y_a = static_cast<float>(a[1] + source.noise_px * normal(engine));
    match.x_b = static_cast<float>(b[0] - kFrameWidth / 2 + source.noise_px * normal(engine));
    match.y_b = static_cast<float>(b[1] + source.noise_px * normal(engine));
    match.rank = i % 2;
    match.accepted = 1;
    matches.push_back(match);
  }
  return matches;
}

// The first level of the first retry: a normal curve of that width over matches of every rank.
inline void set_level(twintrue::CalibContext& context, double sigma) {
  context.sigma[0][0] = sigma;
  context.score_weight_mode[0][0] = 1;
  context.rank[0] = 100;
  context.num_of_using_feat[0][0] = 20000;
}

}  // namespace testing_support
