#include "search/SweepScorer.h"

#include <array>
#include <cmath>
#include <optional>

#include <gtest/gtest.h>

#include "search/BentRig.h"
#include "search/CandidateEvaluation.h"
#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::Bend;
using testing_support::bent_rig;
using testing_support::make_matches;
using testing_support::nominal_rig;
using testing_support::posed;
using testing_support::set_level;
using testing_support::some_poses;

TEST(SweepScorer, AgreesWithThePlainFormInEveryVariantAndOnEveryInstructionSet) {
  auto matches = make_matches(some_poses(1)[0], {.count = 150, .noise_px = 0.7, .outliers = 0.2});
  for (std::size_t i = 0; i < matches.size(); ++i) {
    matches[i].rank = static_cast<std::int32_t>(i / 25);
    // Some out to the rim, where a point that one eye sees is out of the other's view.
    if (i % 10 == 3) matches[i].x_a = static_cast<float>(7 * i);
    if (i % 20 == 3) matches[i].y_a = 20.0f;
    if (i % 10 == 5) matches[i].x_b = static_cast<float>(7 * i);
  }
  const auto poses = some_poses(2);
  int compared = 0;
  for (std::uint32_t kind : {1u, 2u}) {
    for (Bend bend : {Bend::kDistorted, Bend::kMagnified, Bend::kSheared}) {
      const RigState rig = bent_rig(kind, bend);
      for (std::int32_t fast_mode : {0, 1, 2}) {
        for (std::int32_t mid_point : {0, 1}) {
          for (std::int32_t weight_mode = 0; weight_mode < 14; ++weight_mode) {
            CalibContext context;
            context.fast_mode = fast_mode;
            context.dir_bias = 0.3;
            context.sigma[0][0] = 2.5;
            context.score_weight_mode[0][0] = weight_mode;
            context.score_tbl_coeff = 8.0f;
            context.score_div_mode_last = weight_mode == 9 ? 2 : (3 * weight_mode + 3) % 5;
            // One that no match passes, a usual one, or none.
            context.depth_max = weight_mode == 9 ? 0.11 : weight_mode % 2 == 0 ? 3.0 : 0.0;
            context.use_mid_point[0][0] = mid_point;
            context.rank[0] = 5;
            context.num_of_using_feat[0][0] = 145 - weight_mode;
            build_score_table(context, 0, 0);
            const ScorePass pass = level_pass(context, matches.size(), 0, 0);
            std::vector<double> plain;
            for (const PoseCandidate& pose : poses) {
              plain.push_back(score_matches(context, pass, posed(rig, pose), matches).score_sum);
            }
            std::vector<double> portable;
            for (twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
              SweepScorer scorer(context, rig, matches, set);
              scorer.begin(pass);
              scorer.prepare(poses);
              for (std::size_t i = 0; i < poses.size(); ++i) {
                const double fast = scorer.score(poses[i], -1e300);
                const auto near = [](double a, double b) {
                  return a == b || std::abs(a - b) <= kSweepTolerance * std::abs(b) ||
                         (std::isnan(a) && std::isnan(b));
                };
                ASSERT_TRUE(near(fast, plain[i]))
                    << kind << static_cast<int>(bend) << fast_mode << mid_point << ' ' << weight_mode << ": "
                    << fast << " for " << plain[i];
                ++compared;
                if (set == twintrue::InstructionSet::kPortable) {
                  portable.push_back(fast);
                } else if (!std::isnan(portable[i])) {
                  ASSERT_EQ(fast, portable[i]) << "instruction sets must agree to the bit";
                }
              }
            }
          }
        }
      }
    }
  }
  EXPECT_GE(compared, 1000);
}

// A search keeps one scorer for all its levels: what a level laid out and made ready must not show in the
// next.
TEST(SweepScorer, ServesPassAfterPass) {
  const auto poses = some_poses(6);
  auto matches = make_matches(poses[0], {.count = 5000, .noise_px = 0.6, .outliers = 0.2});
  for (std::size_t i = 0; i < matches.size(); ++i) matches[i].rank = static_cast<std::int32_t>(i / 1000);
  const RigState rig = nominal_rig();
  for (std::int32_t fast_mode : {0, 1}) {
    CalibContext context;
    context.fast_mode = fast_mode;
    context.score_tbl_coeff = 8.0f;
    SweepScorer scorer(context, rig, matches);
    for (std::int32_t level = 0; level < 10; ++level) {
      const auto l = static_cast<std::size_t>(level);
      context.sigma[0][l] = 3.0 - 0.2 * level;
      context.score_weight_mode[0][l] = std::array{1, 5, 1, 6, 0}[l % 5];
      context.use_mid_point[0][l] = level / 5;
      context.rank[l] = level == 1 ? 1 : 100;
      // Now the same matches as before, now more, now fewer, and numbers that no vector or block divides.
      context.num_of_using_feat[0][l] = std::array{2500, 2500, 5001, 130, 129, 257, 2, 1, 8, 10}[l];
      build_score_table(context, level, 0);
      const ScorePass pass = level_pass(context, matches.size(), level, 0);
      scorer.begin(pass);
      // Poses come and go, and with them their rays; the last one stays from level to level.
      const std::vector<PoseCandidate> batch{poses[l % 5], poses[5]};
      scorer.prepare({batch[1]});
      const std::optional<double> put = scorer.put_least_first(batch[1]);
      // The sums of mode 6 have no bound, and short lists aren't worth it.
      EXPECT_EQ(put.has_value(), pass.weight_mode != 6 && pass.count_limit > 129);
      scorer.prepare(batch);
      for (const PoseCandidate& pose : batch) {
        const double plain = score_matches(context, pass, posed(rig, pose), matches).score_sum;
        EXPECT_NEAR(scorer.score(pose, -1.0), plain, kSweepTolerance * plain) << fast_mode << ' ' << level;
        if (put && &pose == &batch[1]) {
          EXPECT_NEAR(*put, plain, kSweepTolerance * plain);
        }
      }
    }
  }
}

// The lean form leaves out what keeps a point off its axis, which counts for points that lie almost in the
// eyes' plane: those of keypoints on the middle row.
TEST(SweepScorer, AgreesWithThePlainFormNextToTheMiddleRow) {
  const RigState rig = nominal_rig();
  const std::vector<PoseCandidate> pose(1);
  CalibContext context;
  set_level(context, 1.0);
  for (double distance : {0.2, 0.4, 1.0}) {
    for (double row : {0.001, 0.01, 0.03, 0.06, 0.1, 0.3, 1.0}) {
      std::vector<RayMatch> matches;
      for (int i = 0; i < 100; ++i) {
        RayMatch match = testing_support::match_of({0.01 * (i - 50) * distance, 0.0, -distance});
        match.y_a = static_cast<float>(512 + row);
        match.y_b = static_cast<float>(514 + row);
        if (i % 2 == 0) std::swap(match.y_a, match.y_b);
        matches.push_back(match);
      }
      const ScorePass pass = level_pass(context, matches.size(), 0, 0);
      SweepScorer scorer(context, rig, matches);
      scorer.begin(pass);
      scorer.prepare(pose);
      const double plain = score_matches(context, pass, rig, matches).score_sum;
      ASSERT_GT(plain, 1.0);
      EXPECT_NEAR(scorer.score(pose[0], 0.0), plain, kSweepTolerance * plain) << distance << ' ' << row;
    }
  }
}

TEST(SweepScorer, LeavesOnlyHopelessPosesEarly) {
  const auto poses = some_poses(60);
  const auto matches = make_matches(poses[0], {.count = 2000, .noise_px = 0.4});
  CalibContext context;
  set_level(context, 2.0);
  const ScorePass pass = level_pass(context, matches.size(), 0, 0);
  const RigState rig = nominal_rig();
  SweepScorer scorer(context, rig, matches);
  scorer.begin(pass);
  scorer.prepare(poses);
  int left = 0;
  for (const PoseCandidate& pose : poses) {
    const double whole = scorer.score(pose, 0.0);
    // Just below what may be kept, just above it, and far from it.
    for (double share : {0.5, 1.0, 1.0 + 1.9e-9, 1.0 + 2.1e-9, 1.001, 3.0, 1900.0 / whole}) {
      const double least = share * whole;
      const double score = scorer.score(pose, least);
      EXPECT_LE(least_to_keep(least), least);
      if (score != whole) {
        EXPECT_LT(whole, least_to_keep(least)) << share;
        EXPECT_LT(score, least_to_keep(least)) << share;
        ++left;
      }
    }
  }
  EXPECT_GT(left, 50);
}

}  // namespace
}  // namespace twintrue
