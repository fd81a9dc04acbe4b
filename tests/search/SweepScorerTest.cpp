#include "search/SweepScorer.h"

#include <omp.h>

#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <random>

#include <gtest/gtest.h>

#include "search/CandidateEvaluation.h"
#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::kDegree;
using testing_support::make_matches;
using testing_support::nominal_rig;

// The synthetic rig bent in every way that the model knows.
enum class Bend { kDistorted, kMagnified, kSheared };

RigState bent_rig(std::uint32_t kind, Bend bend) {
  RigState rig = nominal_rig();
  int sign = 1;
  for (EyeModel* eye : {&rig.current.left, &rig.current.right}) {
    eye->distortion.kind = kind;
    eye->distortion.coeff = {1.2, -0.8, 0.5, 0.3, -0.2, 0.1};
    distortion_build_table(eye->distortion);
    eye->magnify_v = 1.01;
    eye->magnify_h = bend == Bend::kDistorted ? 1.01 : 0.985;
    eye->psi = 0.01 * sign;
    eye->roll = -0.004 * sign;
    if (bend == Bend::kSheared) {
      eye->shift_x = 0.002;
      eye->shift_y = -0.001 * sign;
      eye->translate = {0.001, -0.002, 0.0015};
    }
    eye_update_rotation(*eye);
    sign = -sign;
  }
  rig_update_positions(rig.current);
  rig.reference.left = rig.current.left;
  rig.reference.right = rig.current.right;
  return rig;
}

std::vector<PoseCandidate> some_poses(int count) {
  std::mt19937 engine(5);
  std::uniform_real_distribution<double> spread(-1.0, 1.0);
  std::vector<PoseCandidate> poses(static_cast<std::size_t>(count));
  for (PoseCandidate& pose : poses) {
    for (double CalibResult::*field : kPoseFields) pose.*field = 0.5 * kDegree * spread(engine);
    pose.right_offset_x = std::round(3 * spread(engine));
    pose.left_offset_y = std::round(3 * spread(engine));
  }
  return poses;
}

TEST(SweepScorer, AgreesWithThePlainFormInEveryVariantAndOnEveryInstructionSet) {
  auto matches = make_matches(some_poses(1)[0], {.count = 301, .noise_px = 0.7, .outliers = 0.2});
  for (std::size_t i = 0; i < matches.size(); ++i) matches[i].rank = static_cast<std::int32_t>(i / 50);
  const auto poses = some_poses(4);
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
            context.score_div_mode_last = weight_mode % 5;
            context.depth_max = weight_mode % 2 == 0 ? 3.0 : 0.0;
            context.use_mid_point[0][0] = mid_point;
            context.rank[0] = 5;
            context.num_of_using_feat[0][0] = 290 - weight_mode;
            build_score_table(context, 0, 0);
            const ScorePass pass = level_pass(context, matches.size(), 0, 0);
            std::vector<double> portable;
            for (twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
              SweepScorer scorer(context, rig, matches, set);
              scorer.begin(pass);
              scorer.prepare(poses);
              for (std::size_t i = 0; i < poses.size(); ++i) {
                RigState posed = rig;
                rig_apply_pose(posed, poses[i]);
                const double plain = score_matches(context, pass, posed, matches).score_sum;
                const double fast = scorer.score(poses[i], -1e300);
                const auto near = [](double a, double b) {
                  return a == b || std::abs(a - b) <= kSweepTolerance * std::abs(b) ||
                         (std::isnan(a) && std::isnan(b));
                };
                ASSERT_TRUE(near(fast, plain)) << kind << static_cast<int>(bend) << fast_mode << mid_point
                                               << ' ' << weight_mode << ": " << fast << " for " << plain;
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

TEST(SweepScorer, AwkwardListLengths) {
  const auto poses = some_poses(1);
  const RigState rig = nominal_rig();
  const auto all = make_matches(PoseCandidate(), {.count = 400, .noise_px = 1.0});
  CalibContext context;
  context.sigma[0][0] = 2.0;
  context.score_weight_mode[0][0] = 1;
  context.rank[0] = 100;
  context.skip_num_using_feat_mode = 2;
  for (std::size_t count : {0u, 1u, 2u, 7u, 8u, 9u, 127u, 128u, 129u, 255u, 256u, 257u, 400u}) {
    const std::vector<RayMatch> matches(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
    const ScorePass pass = level_pass(context, count, 0, 0);
    SweepScorer scorer(context, rig, matches);
    scorer.begin(pass);
    scorer.prepare(poses);
    RigState posed = rig;
    rig_apply_pose(posed, poses[0]);
    const double plain = score_matches(context, pass, posed, matches).score_sum;
    EXPECT_NEAR(scorer.score(poses[0], -1.0), plain, kSweepTolerance * plain) << count;
  }
}

// A search keeps one scorer for all its levels: what a level laid out and made ready must not show in the
// next.
TEST(SweepScorer, ServesPassAfterPass) {
  const auto poses = some_poses(6);
  const auto matches = make_matches(poses[0], {.count = 5000, .noise_px = 0.6, .outliers = 0.2});
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
      context.rank[l] = 100;
      // Now the same matches as before, now more, now fewer.
      context.num_of_using_feat[0][l] = std::array{2500, 2500, 5001, 300, 5001}[l % 5];
      build_score_table(context, level, 0);
      const ScorePass pass = level_pass(context, matches.size(), level, 0);
      scorer.begin(pass);
      // Poses come and go, and with them their rays; the last one stays from level to level.
      const std::vector<PoseCandidate> batch{poses[l % 5], poses[5]};
      scorer.prepare({batch[1]});
      const std::optional<double> put = scorer.put_least_first(batch[1]);
      EXPECT_EQ(put.has_value(), pass.weight_mode != 6) << "the sums of mode 6 have no bound";
      scorer.prepare(batch);
      for (const PoseCandidate& pose : batch) {
        RigState posed = rig;
        rig_apply_pose(posed, pose);
        const double plain = score_matches(context, pass, posed, matches).score_sum;
        EXPECT_NEAR(scorer.score(pose, -1.0), plain, kSweepTolerance * plain) << fast_mode << ' ' << level;
        if (put && &pose == &batch[1]) {
          EXPECT_NEAR(*put, plain, kSweepTolerance * plain);
        }
      }
    }
  }
}

TEST(SweepScorer, LeavesOnlyHopelessPosesEarly) {
  const auto poses = some_poses(60);
  const auto matches = make_matches(poses[0], {.count = 2000, .noise_px = 0.4});
  CalibContext context;
  context.sigma[0][0] = 2.0;
  context.score_weight_mode[0][0] = 1;
  context.rank[0] = 100;
  context.num_of_using_feat[0][0] = 5000;
  const ScorePass pass = level_pass(context, matches.size(), 0, 0);
  const RigState rig = nominal_rig();
  SweepScorer scorer(context, rig, matches);
  scorer.begin(pass);
  scorer.prepare(poses);
  int left = 0;
  for (const PoseCandidate& pose : poses) {
    const double whole = scorer.score(pose, 0.0);
    for (double least : {0.5 * whole, whole, 1.001 * whole, 3 * whole, 1900.0}) {
      const double score = scorer.score(pose, least);
      if (score != whole) {
        EXPECT_LT(whole, least);
        EXPECT_LT(score, least);
        ++left;
      }
    }
  }
  EXPECT_GT(left, 50);
}

// A level as the plain form runs it: each candidate over the whole list, offered in list order.
Seeds plain_level(CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                  const Seeds& seeds, std::int32_t kept) {
  const CandidateGrid list(context.right_table[0][0], context.left_table[0][0], context.limits[0], seeds,
                           kept);
  build_score_table(context, 0, 0);
  const ScorePass pass = level_pass(context, matches.size(), 0, 0);
  TopList top(kept);
  std::vector<CandidateGrid::Cursor> places;
  CandidateGrid::Cursor cursor;
  while (list.next(cursor, 1000, places)) {
  }
  for (const auto& place : places) {
    PoseCandidate candidate;
    list.grid(place.grid).pose(place.place, &candidate);
    RigState posed = rig;
    rig_apply_pose(posed, candidate);
    candidate.sums = score_matches(context, pass, posed, matches);
    candidate.score = candidate.sums.score_sum;
    top.offer(candidate);
  }
  return top.slots();
}

TEST(LevelEvaluator, KeepsTheCandidatesThatThePlainFormKeeps) {
  const RigState rig = bent_rig(1, Bend::kDistorted);
  const auto matches = make_matches(some_poses(1)[0], {.count = 150, .noise_px = 0.7, .outliers = 0.3});
  const int before = omp_get_max_threads();
  for (std::int32_t kept : {1, 2, 3}) {
    for (std::int32_t weight_mode : {1, 2, 3, 6, 8, 10, 12}) {
      for (std::int32_t div_mode : {0, 1, 2, 3}) {
        for (std::int32_t skip_mode : {0, 1}) {
          auto context = std::make_unique<CalibContext>();
          context->sigma[0][0] = 3.0;
          context->score_weight_mode[0][0] = weight_mode;
          context->score_div_mode_last = div_mode;
          context->rank[0] = 100;
          context->skip_num_using_feat_mode = skip_mode;
          context->num_of_using_feat[0][0] = skip_mode == 0 ? 120 : 0;
          context->limits[0] = {1, 1, 0, 5, 5};
          context->right_table[0][0].pan = {-0.004, 0.004, 3, 0};
          context->right_table[0][0].roll = {-0.006, 0.006, 3, 0};
          // Two sweeps of no width: every candidate stands in the list four times, and the order decides.
          context->right_table[0][0].offset_x = {0, 0, 2, 0};
          context->left_table[0][0].offset_y = {1, 1, 2, 0};
          Seeds seeds;
          seeds[1].right_tilt = 0.003;
          seeds[2].left_roll = -0.002;
          const Seeds expected = plain_level(*context, rig, matches, seeds, kept);
          for (int threads : {1, 2, 7}) {
            omp_set_num_threads(threads);
            Seeds found = seeds;
            LevelEvaluator(*context, rig, matches).evaluate(found, kept, 0, 0);
            for (std::size_t slot = 0; slot < found.size(); ++slot) {
              for (double CalibResult::*field : kPoseFields) {
                ASSERT_EQ(found[slot].*field, expected[slot].*field)
                    << kept << ' ' << weight_mode << ' ' << div_mode << ' ' << skip_mode << " slot " << slot;
              }
              ASSERT_EQ(found[slot].score, expected[slot].score) << "to the bit";
              ASSERT_EQ(found[slot].sums.count16, expected[slot].sums.count16);
              ASSERT_EQ(found[slot].sums.sum4, expected[slot].sums.sum4);
            }
          }
        }
      }
    }
  }
  omp_set_num_threads(before);
}

TEST(LevelEvaluator, KeepsWhatThePlainFormKeepsUnderAnySettings) {
  std::mt19937_64 engine(99);
  const auto unit = [&] { return std::uniform_real_distribution<double>(0.0, 1.0)(engine); };
  const auto below = [&](std::uint64_t n) { return static_cast<std::int32_t>(engine() % n); };
  std::vector<RigState> rigs;
  for (std::uint32_t kind : {1u, 2u}) {
    for (Bend bend : {Bend::kDistorted, Bend::kMagnified, Bend::kSheared})
      rigs.push_back(bent_rig(kind, bend));
  }
  const int before = omp_get_max_threads();
  omp_set_num_threads(1);
  int filled = 0, infinite = 0;
  for (std::uint32_t trial = 0; trial < 300; ++trial) {
    const RigState& rig = rigs[trial % rigs.size()];
    auto matches = make_matches(
        some_poses(1)[0], {.count = 1 + below(100), .noise_px = unit(), .outliers = unit(), .seed = trial});
    for (std::size_t i = 0; i < matches.size(); ++i) matches[i].rank = static_cast<std::int32_t>(i / 20);
    auto context = std::make_unique<CalibContext>();
    context->sigma[0][0] = below(6) == 0 ? 0.0 : 0.5 + 4.0 * unit();
    context->score_weight_mode[0][0] = below(14);
    context->score_div_mode_last = below(5);
    context->fast_mode = below(4);
    context->dir_bias = below(2) == 0 ? 0.0 : 2.0 * unit();
    context->use_mid_point[0][0] = below(2);
    context->skip_num_using_feat_mode = below(3);
    context->num_of_using_feat[0][0] = below(120) - 2;
    context->rank[0] = below(7) - 1;
    context->score_tbl_coeff =
        below(8) == 0 ? static_cast<float>(below(2) - 1) : 0.5f + static_cast<float>(below(8));
    context->score_tbl_size = below(3000);
    context->depth_max = below(3) == 0 ? 0.0 : 2.0 + 3.0 * unit();
    context->limits[0] = {0.02, 0.02, 0, 6, 6};
    int swept = 0;
    for (EyeSweep* eye : {&context->right_table[0][0], &context->left_table[0][0]}) {
      for (SweepRange* range : {&eye->offset_x, &eye->offset_y, &eye->pan, &eye->tilt, &eye->roll}) {
        if (swept == 4 || below(2) == 0) continue;
        const bool is_offset = range == &eye->offset_x || range == &eye->offset_y;
        const double width = below(6) == 0 ? 0.0 : (is_offset ? 4.0 : 0.01) * unit();
        *range = {-width, width, 1 + below(4), 0};
        ++swept;
      }
    }
    Seeds seeds;
    for (PoseCandidate& seed : seeds) {
      for (double CalibResult::*field : kPoseFields) seed.*field = 0.002 * (unit() - 0.5);
    }
    const std::int32_t kept = 1 + below(3);
    const Seeds expected = plain_level(*context, rig, matches, seeds, kept);
    Seeds found = seeds;
    LevelEvaluator(*context, rig, matches).evaluate(found, kept, 0, 0);
    for (std::size_t slot = 0; slot < found.size(); ++slot) {
      for (double CalibResult::*field : kPoseFields) {
        ASSERT_EQ(found[slot].*field, expected[slot].*field) << trial << " slot " << slot;
      }
      if (!std::isfinite(expected[slot].score)) {
        ASSERT_EQ(found[slot].score, expected[slot].score) << trial << " slot " << slot;
      } else {
        ASSERT_NEAR(found[slot].score, expected[slot].score, kSweepTolerance * std::abs(expected[slot].score))
            << trial << " slot " << slot;
      }
      filled += expected[slot].score >= 0 ? 1 : 0;
      infinite += std::isinf(expected[slot].score) ? 1 : 0;
    }
  }
  omp_set_num_threads(before);
  EXPECT_GT(filled, 200);
  EXPECT_GT(infinite, 0) << "no width and errors below 0, by a bias above 1, make scores without bound";
}

// Turning both eyes alike about the baseline changes no match, so the grid below holds chains of poses that
// differ by rounding alone, and more than one batch of them: the seeds of the next level hang on that order.
TEST(LevelEvaluator, RoundingOfTheFastFormDecidesNothing) {
  const RigState rig = nominal_rig();
  const auto matches = make_matches(PoseCandidate(), {.count = 12, .noise_px = 0.5});
  auto context = std::make_unique<CalibContext>();
  context->sigma[0][0] = 3.0;
  context->score_weight_mode[0][0] = 1;
  context->rank[0] = 100;
  context->num_of_using_feat[0][0] = 100;
  context->limits[0] = {1, 1, 0, 5, 5};
  context->right_table[0][0].tilt = {-0.02, 0.02, 301, 0};
  context->left_table[0][0].tilt = {-0.02, 0.02, 301, 0};
  for (std::int32_t kept : {1, 2, 3}) {
    const Seeds seeds;
    const Seeds expected = plain_level(*context, rig, matches, seeds, kept);
    Seeds found = seeds;
    ASSERT_GT(LevelEvaluator(*context, rig, matches).evaluate(found, kept, 0, 0), 1 << 16);
    ASSERT_NEAR(expected[0].right_tilt, expected[0].left_tilt, 0.002);
    for (std::size_t slot = 0; slot < found.size(); ++slot) {
      EXPECT_EQ(found[slot].right_tilt, expected[slot].right_tilt) << kept << " slot " << slot;
      EXPECT_EQ(found[slot].left_tilt, expected[slot].left_tilt) << kept << " slot " << slot;
      EXPECT_EQ(found[slot].score, expected[slot].score) << kept << " slot " << slot;
    }
  }
}

// All candidates are alike then, and the last of the list stays.
TEST(LevelEvaluator, KeepsWhatThePlainFormKeepsWhereNoMatchCounts) {
  const RigState rig = nominal_rig();
  auto matches = make_matches(PoseCandidate(), {.count = 200});
  for (RayMatch& match : matches) match.x_a = -5000.0f;  // beyond the angular limit
  for (std::int32_t div_mode : {1, 2, 3}) {
    auto context = std::make_unique<CalibContext>();
    context->sigma[0][0] = 3.0;
    context->score_weight_mode[0][0] = 1;
    context->score_div_mode_last = div_mode;
    context->rank[0] = 100;
    context->num_of_using_feat[0][0] = 500;
    context->limits[0] = {1, 1, 0, 5, 5};
    context->right_table[0][0].tilt = {-0.02, 0.02, 5, 0};
    for (std::int32_t kept : {1, 3}) {
      const Seeds expected = plain_level(*context, rig, matches, Seeds(), kept);
      Seeds found;
      LevelEvaluator(*context, rig, matches).evaluate(found, kept, 0, 0);
      for (std::size_t slot = 0; slot < found.size(); ++slot) {
        EXPECT_EQ(found[slot].right_tilt, expected[slot].right_tilt) << div_mode << " slot " << slot;
        EXPECT_EQ(found[slot].score, expected[slot].score) << div_mode << " slot " << slot;
      }
    }
  }
}

TEST(LevelEvaluator, AnUnknownWeightModeMattersOnlyToAMatchWithAnError) {
  const RigState rig = nominal_rig();
  auto matches = make_matches(PoseCandidate(), {.count = 20});
  auto context = std::make_unique<CalibContext>();
  context->sigma[0][0] = 3.0;
  context->score_weight_mode[0][0] = 14;
  context->rank[0] = 100;
  context->num_of_using_feat[0][0] = 100;
  Seeds seeds;
  // A process that is forked off has none of the threads that other tests have started.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(LevelEvaluator(*context, rig, matches).evaluate(seeds, 1, 0, 0), "");
  EXPECT_EQ(LevelEvaluator(*context, rig, matches).evaluate(seeds, 0, 0, 0), 0) << "no candidates";
  for (RayMatch& match : matches) match.x_a = -5000.0f;  // beyond the angular limit
  EXPECT_EQ(LevelEvaluator(*context, rig, matches).evaluate(seeds, 1, 0, 0), 1);
}

}  // namespace
}  // namespace twintrue
