#include "base/ThreadTeam.h"
#include "search/MatchScore.h"

#include <cmath>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "search/CandidateEvaluation.h"
#include "search/SweepScorer.h"
#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::kDegree;
using testing_support::make_matches;
using testing_support::nominal_rig;
using testing_support::posed;

PoseCandidate some_truth() {
  PoseCandidate truth;
  truth.right_pan = 0.4 * kDegree;
  truth.right_tilt = -0.3 * kDegree;
  truth.right_roll = 0.5 * kDegree;
  truth.right_offset_x = 1.5;
  truth.right_offset_y = -2.0;
  truth.left_pan = -0.2 * kDegree;
  truth.left_tilt = 0.1 * kDegree;
  truth.left_roll = -0.6 * kDegree;
  truth.left_offset_x = -1.0;
  truth.left_offset_y = 0.75;
  return truth;
}

ScorePass plain_pass(std::size_t count) {
  ScorePass pass;
  pass.sigma = 2.0;
  pass.rank_limit = 10000;
  pass.count_limit = static_cast<std::int32_t>(count) + 1;
  pass.weight_mode = 8;
  pass.div_mode = 2;
  return pass;
}

TEST(MatchScore, TheTruePoseExplainsEveryMatch) {
  const CalibContext context;
  const auto matches = make_matches(some_truth(), {});
  const ScorePass pass = plain_pass(matches.size());
  const MatchScoreSums at_truth = score_matches(context, pass, posed(nominal_rig(), some_truth()), matches);
  EXPECT_EQ(at_truth.count4, static_cast<std::int32_t>(matches.size()));
  EXPECT_EQ(at_truth.score_sum, static_cast<double>(matches.size()));
  // What is left is the rounding of the keypoints to 32-bit floats.
  EXPECT_LT(std::sqrt(at_truth.sum4 / at_truth.count4), 1e-3);
  const MatchScoreSums nominal = score_matches(context, pass, nominal_rig(), matches);
  EXPECT_LT(nominal.score_sum, 0.3 * static_cast<double>(matches.size()));
}

TEST(MatchScore, SumsTakeErrorsWithinFourAndSixteenPixels) {
  const CalibContext context;
  const RigState rig = nominal_rig();
  const auto matches = make_matches(PoseCandidate(), {.noise_px = 4.0, .outliers = 0.2});
  MatchScoreSums expected;
  for (const RayMatch& match : matches) {
    const MatchValue one = score_one_match(context, 0, rig, match, 1.0, 8, 0, 0);
    if (one.value == kInvalid) continue;
    const double pixels = std::sqrt(one.error);
    expected.count4 += pixels < 4.0 ? 1 : 0;
    expected.sum4 += pixels < 4.0 ? one.error : 0.0;
    expected.count16 += pixels < 16.0 ? 1 : 0;
    expected.sum16 += pixels < 16.0 ? one.error : 0.0;
  }
  const MatchScoreSums sums = score_matches(context, plain_pass(matches.size()), rig, matches);
  ASSERT_GT(sums.count16, sums.count4 + 20);
  EXPECT_EQ(sums.count4, expected.count4);
  EXPECT_EQ(sums.count16, expected.count16);
  EXPECT_DOUBLE_EQ(sums.sum4, expected.sum4);
  EXPECT_DOUBLE_EQ(sums.sum16, expected.sum16);
}

TEST(MatchScore, TheMidPointIsTestedAWholeBaselineAside) {
  // The common point lies between the eyes and is shifted as if it were seen from the other eye, so each eye
  // is tested with a point that stands half a baseline too far out.
  const testing_support::Point p{0.27, 0.2, -1.0};
  const RayMatch match = testing_support::match_of(p);
  const auto seen_a = testing_support::see(false, 0, 0, 0, 0, 0, p);
  const auto seen_b = testing_support::see(true, 0, 0, 0, 0, 0, p);
  const double half = testing_support::kBaseline / 2;
  const auto tested_a = testing_support::see(false, 0, 0, 0, 0, 0, {p[0] - half, p[1], p[2]});
  const auto tested_b = testing_support::see(true, 0, 0, 0, 0, 0, {p[0] + half, p[1], p[2]});
  const double expected = 0.5 * (std::pow(seen_a[0] - tested_a[0], 2) + std::pow(seen_a[1] - tested_a[1], 2) +
                                 std::pow(seen_b[0] - tested_b[0], 2) + std::pow(seen_b[1] - tested_b[1], 2));
  ASSERT_GT(expected, 10.0);
  EXPECT_NEAR(score_one_match(CalibContext(), 0, nominal_rig(), match, 1.0, 8, 0, 1).error, expected, 0.05);
}

TEST(MatchScore, ErrorIsHalfTheSumOfTheSquaredDisplacements) {
  const CalibContext context;
  const RigState rig = nominal_rig();
  RayMatch match = testing_support::match_of({0.27, 0.2, -1.0});
  const Vec3 p1{0.3, 0.2, -1.0};
  const Vec3 p2{0.24, 0.2, -1.0};  // the same point, seen from an eye that stands a baseline further right
  const double depth = 1.0;
  // Put the keypoints at known distances from where the points land.
  match.x_a += 3.0f;
  match.y_a -= 4.0f;
  match.x_b += 1.0f;
  match.y_b += 1.5f;
  EXPECT_NEAR(full_reprojection_error(rig, match, depth, p1, p2), 0.5 * (9 + 16 + 1 + 2.25), 0.01);
  EXPECT_NEAR(single_side_error(rig, true, match, depth, p1, p2, 0), 25, 0.01);
  EXPECT_NEAR(single_side_error(rig, false, match, depth, p1, p2, 0), 3.25, 0.01);
  // The bias weighs the vertical part by its direction: the two sides mirror each other.
  EXPECT_NEAR(single_side_error(rig, true, match, depth, p1, p2, 0.25), 16 * 1.25 + 9, 0.01);
  EXPECT_NEAR(single_side_error(rig, false, match, depth, p1, p2, 0.25), 2.25 * 0.75 + 1, 0.01);
  match.y_a += 8.0f;
  match.y_b += 8.0f;
  EXPECT_NEAR(single_side_error(rig, true, match, depth, p1, p2, 0.25), 16 * 0.75 + 9, 0.01);
  EXPECT_NEAR(single_side_error(rig, false, match, depth, p1, p2, 0.25), 9.5 * 9.5 * 1.25 + 1, 0.01);
  EXPECT_EQ(full_reprojection_error(rig, match, -1.0, p1, p2), kInvalid) << "behind the rig";
}

TEST(MatchScore, SweepsMayTestOneEyeAlone) {
  const auto matches = make_matches(some_truth(), {.count = 40, .noise_px = 0.5});
  const RigState rig = posed(nominal_rig(), some_truth());
  for (std::int32_t i = 0; i < 40; ++i) {
    const RayMatch& match = matches[static_cast<std::size_t>(i)];
    const auto error = [&](std::int32_t fast_mode) {
      return score_one_match(CalibContext(), i, rig, match, 1.0, 8, fast_mode, 0).error;
    };
    // Both one-eye errors together are twice the full one, so the other eye's is what is left.
    const double full = error(0);
    const double by_index = error(2);
    const double by_column = error(1);
    EXPECT_EQ(error(3), full);
    const bool same_side = (i % 2 == 0) == (static_cast<int>(match.x_a) % 2 == 0);
    EXPECT_NEAR(same_side ? by_column : by_index + by_column, same_side ? by_index : 2 * full, 1e-9);
  }
}

TEST(MatchScore, DepthOutsideTheBoundsDoesNotCount) {
  const PoseCandidate none;
  auto matches = make_matches(none, {.count = 200});
  const auto counted = [&](double least, double most) {
    CalibContext context;
    context.depth_min = least;
    context.depth_max = most;
    const RigState rig = nominal_rig();
    const ScorePass pass = plain_pass(matches.size());
    const MatchScoreSums sums = score_matches(context, pass, rig, matches);
    SweepScorer scorer(context, rig, matches);
    scorer.begin(pass);
    scorer.prepare({PoseCandidate()});
    EXPECT_EQ(scorer.score(PoseCandidate(), -1.0), sums.score_sum);
    return sums.count16;
  };
  EXPECT_EQ(counted(0.1, 5.1), 200);
  EXPECT_LT(counted(1.0, 5.1), 170);
  EXPECT_EQ(counted(1.0, 5.1) + counted(0.1, 1.0), 200);
  EXPECT_EQ(counted(1.0, 1.0), 0);
  EXPECT_EQ(counted(9.0, 1.0), 200) << "a far end before the near one switches the test off";
  // It must lie a tenth of a millimetre inside.
  matches = {testing_support::match_of({0.1, 0.2, -1.0})};
  for (double inside : {0.00005, 0.00015}) {
    EXPECT_EQ(counted(0.1, 1.0 + inside), inside > 0.0001 ? 1 : 0);
    EXPECT_EQ(counted(1.0 - inside, 5.1), inside > 0.0001 ? 1 : 0);
  }
}

TEST(MatchScore, ThreadsShareAPassWithoutATrace) {
  const RigState rig = nominal_rig();
  auto matches = make_matches(PoseCandidate(), {.count = 700, .noise_px = 1.5});
  for (std::size_t i = 0; i < matches.size(); ++i) matches[i].rank = static_cast<std::int32_t>(i / 100);
  for (std::int32_t skip_mode : {0, 1, 2}) {
    for (std::int32_t div_mode : {0, 1, 2, 3}) {
      for (std::int32_t limit : {0, 1, 300, 700}) {
        CalibContext context;
        context.skip_num_using_feat_mode = skip_mode;
        ScorePass pass = plain_pass(matches.size());
        pass.count_limit = limit;
        pass.rank_limit = 5;
        pass.weight_mode = 6;  // every match counts
        pass.div_mode = div_mode;
        const MatchScoreSums plain = score_matches(context, pass, rig, matches);
        for (int threads : {1, 2, 7}) {
          const ThreadTeam team(threads);
          const MatchScoreSums shared = score_matches_in_parallel(context, pass, rig, matches);
          const bool both_undefined = std::isnan(shared.score_sum) && std::isnan(plain.score_sum);
          EXPECT_TRUE(both_undefined || shared.score_sum == plain.score_sum)
              << skip_mode << div_mode << limit;
          EXPECT_EQ(shared.sum4, plain.sum4);
          EXPECT_EQ(shared.count4, plain.count4);
          EXPECT_EQ(shared.sum16, plain.sum16);
          EXPECT_EQ(shared.count16, plain.count16);
        }
      }
    }
  }
}

TEST(MatchScore, LimitsOfTheWalk) {
  const PoseCandidate none;
  auto matches = make_matches(none, {.count = 10});
  for (std::size_t i = 0; i < matches.size(); ++i) matches[i].rank = static_cast<std::int32_t>(i / 4);
  struct Case {
    std::int32_t rank_limit;
    std::int32_t count_limit;
    std::int32_t skip_mode;
    double used;
  };
  const Case cases[] = {
      {9, 11, 0, 10}, {9, 10, 0, 9}, {9, 5, 0, 4},  {9, 1, 0, 0},   {9, 0, 0, 0},
      {9, -4, 0, 0},  {0, 10, 0, 4}, {1, 10, 0, 8}, {-1, 10, 0, 0}, {9, 5, 1, 10},
      {9, 1, 1, 10},  {9, 0, 1, 1},  {9, -1, 1, 1}, {9, 0, 2, 10},  {9, 3, -1, 10},
  };
  for (const Case& one : cases) {
    CalibContext context;
    context.skip_num_using_feat_mode = one.skip_mode;
    ScorePass pass = plain_pass(matches.size());
    pass.rank_limit = one.rank_limit;
    pass.count_limit = one.count_limit;
    const MatchScoreSums sums = score_matches(context, pass, nominal_rig(), matches);
    EXPECT_EQ(sums.score_sum, one.used) << one.rank_limit << ' ' << one.count_limit << ' ' << one.skip_mode;
  }
}

TEST(MatchScore, WeightModes) {
  CalibContext context;
  context.score_tbl_coeff = 2.0f;
  context.score_table.resize(40);
  for (std::size_t i = 0; i < context.score_table.size(); ++i) {
    context.score_table[i] = 1.0f / static_cast<float>(1 + i);
  }
  const double s2 = 4.0;
  const auto table = [&](int i) {
    return static_cast<double>(context.score_table[static_cast<std::size_t>(i)]);
  };
  const std::function<double(double)> expected[] = {
      [&](double e) { return std::exp(-e / 16); },
      [&](double e) { return std::exp(-e / 8); },
      [&](double e) { return e >= 36 ? 0 : std::pow(1 - e / 36, 2); },
      [&](double e) { return e >= 4 ? 0 : std::pow(1 - e / 4, 2); },
      [&](double e) { return std::exp(-e / 4); },
      [&](double e) { return e >= 20 ? 0 : table(static_cast<int>(2 * e)); },
      [&](double e) { return 1e8 - e; },
      [&](double e) { return e >= 19.75 ? 0 : table(static_cast<int>(2 * e + 0.5)); },
      [&](double e) { return e >= 4 ? 0 : 1; },
      [&](double e) { return std::exp(-e / 4); },
      [&](double e) { return e >= 4 ? kInvalid : 1e8 - e; },
      [&](double e) { return e >= 20 ? std::exp(-e / 8) : table(static_cast<int>(2 * e)); },
      [&](double e) { return e >= 20 ? 0 : table(static_cast<int>(2 * e)); },
      [&](double e) { return e >= 20 ? 0 : table(static_cast<int>(2 * e)); },
  };
  for (std::int32_t mode = 0; mode < 14; ++mode) {
    for (double e : {0.0, 0.2, 0.6, 3.999, 4.0, 7.3, 19.7, 19.8, 20.0, 36.0, 5e9, 1e300}) {
      const double value = weight_match_error(context, e, s2, mode);
      EXPECT_NEAR(value, expected[mode](e), 1e-12 * std::abs(expected[mode](e))) << mode << ' ' << e;
    }
    EXPECT_EQ(uses_score_table(mode),
              weight_match_error(context, 0.0, s2, mode) == 1.0 && mode >= 5 && mode != 8 && mode != 9);
  }
  EXPECT_DEATH(weight_match_error(context, 1.0, s2, 14), "");
  EXPECT_DEATH(weight_match_error(context, 1.0, s2, -1), "");
}

TEST(MatchScore, ScoreTableFollowsTheCurveAndItsFlatTop) {
  CalibContext context;
  context.score_tbl_size = 100;
  context.score_tbl_coeff = 4.0f;
  for (std::int32_t mode : {5, 7, 11, 12, 13}) {
    context.score_weight_mode[1][2] = mode;
    context.sigma[1][2] = 3.0;
    build_score_table(context, 2, 1);
    ASSERT_EQ(context.score_table.size(), 100u);
    const double least = mode == 12 ? 1.0 : mode == 13 ? 0.25 : 0.0;
    for (std::size_t i = 0; i < 100; ++i) {
      const double x = std::max(static_cast<double>(i) / 4, least);
      ASSERT_NEAR(context.score_table[i], std::exp(-x / 18), 1e-7) << mode << ' ' << i;
    }
  }
  // A scale or a sigma of 0 leaves the top of the curve alone.
  for (std::int32_t mode : {5, 7, 11, 12, 13}) {
    for (bool without_scale : {true, false}) {
      context.score_weight_mode[1][2] = mode;
      context.score_tbl_coeff = without_scale ? 0.0f : 4.0f;
      context.sigma[1][2] = without_scale ? 3.0 : 0.0;
      build_score_table(context, 2, 1);
      EXPECT_EQ(context.score_table[0], without_scale || mode < 12 ? 1.0f : 0.0f) << mode;
      EXPECT_EQ(context.score_table[1], 0.0f) << mode;
      EXPECT_EQ(context.score_table[99], 0.0f) << mode;
    }
  }
  context.score_weight_mode[1][3] = 1;
  build_score_table(context, 3, 1);
  EXPECT_EQ(context.score_table.size(), 100u) << "a level without a table leaves it";
}

TEST(MatchScore, Dividers) {
  EXPECT_EQ(divide_score(12, 4, 0), -1.0);
  EXPECT_EQ(divide_score(12, 4, 1), 3.0);
  EXPECT_EQ(divide_score(12, 4, 2), 12.0);
  EXPECT_EQ(divide_score(12, 4, 3), 36.0);
  EXPECT_EQ(divide_score(12, 4, 7), 12.0);
  EXPECT_TRUE(std::isnan(divide_score(0, 0, 1)));
}

TEST(IntersectRays, MeetsMidwayBetweenSkewLines) {
  std::mt19937 engine(3);
  std::normal_distribution<double> normal;
  const auto random = [&] { return Vec3{normal(engine), normal(engine), normal(engine)}; };
  for (int i = 0; i < 100; ++i) {
    const Vec3 p0 = random(), d0 = random(), p1 = random(), d1 = random();
    Vec3 m{};
    ASSERT_TRUE(intersect_rays(p0, d0, p1, d1, &m));
    const Vec3 n{d0[1] * d1[2] - d0[2] * d1[1], d0[2] * d1[0] - d0[0] * d1[2], d0[0] * d1[1] - d0[1] * d1[0]};
    const double gap = std::abs((p1[0] - p0[0]) * n[0] + (p1[1] - p0[1]) * n[1] + (p1[2] - p0[2]) * n[2]) /
                       std::hypot(n[0], n[1], n[2]);
    // Only the point midway is half the lines' distance away from both.
    for (const auto& [p, d] : {std::pair{p0, d0}, std::pair{p1, d1}}) {
      const double dd = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
      const double t = ((m[0] - p[0]) * d[0] + (m[1] - p[1]) * d[1] + (m[2] - p[2]) * d[2]) / dd;
      const double distance =
          std::hypot(p[0] + t * d[0] - m[0], p[1] + t * d[1] - m[1], p[2] + t * d[2] - m[2]);
      EXPECT_NEAR(distance, gap / 2, 1e-9 * (1 + gap));
    }
  }
  Vec3 m{};
  EXPECT_FALSE(intersect_rays({0, 0, 0}, {1, 2, 4}, {1, 0, 0}, {-2, -4, -8}, &m));
}

}  // namespace
}  // namespace twintrue
