#include "base/ThreadTeam.h"
#include "search/CandidateEvaluation.h"

#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "search/BentRig.h"
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

TEST(TopList, KeepsTheBestAndDecidesTiesByOrder) {
  struct Case {
    int kept;
    std::vector<double> offered;  // each with its number as right_pan
    std::vector<double> slots;    // numbers expected in the slots; -1: never filled
  };
  const double nan = std::nan("");
  const Case cases[] = {
      {0, {5}, {-1, -1, -1}},
      {1, {5, 5, 4}, {1, -1, -1}},
      {1, {-0.5, nan, -0.5}, {-1, -1, -1}},
      {1, {0.0}, {0, -1, -1}},
      {2, {5, 5}, {1, 0, -1}},
      {2, {5, 3, 3}, {0, 1, -1}},  // the second slot wants more than it has
      {2, {5, -0.5}, {0, 1, -1}},  // the entry fell to -1 with the first insertion
      {3, {5, 3, 3, 1}, {0, 2, 1}},
      {3, {5, 3, 1, 1}, {0, 1, 3}},
      {3, {1, 2, 3, nan, 4}, {4, 2, 1}},
      {4, {5}, {-1, -1, -1}},
  };
  for (const Case& one : cases) {
    TopList list(one.kept);
    for (std::size_t i = 0; i < one.offered.size(); ++i) {
      PoseCandidate candidate;
      candidate.score = one.offered[i];
      candidate.right_pan = static_cast<double>(i);
      list.offer(candidate);
    }
    for (std::size_t i = 0; i < one.slots.size(); ++i) {
      const PoseCandidate& slot = list.slots()[i];
      if (one.slots[i] < 0) {
        EXPECT_EQ(slot.score, -1.0) << one.kept << " slot " << i;
      } else {
        EXPECT_EQ(slot.right_pan, one.slots[i]) << one.kept << " slot " << i;
      }
    }
  }
}

TEST(LevelPass, TakesItsLevelOfItsRetry) {
  auto context = std::make_unique<CalibContext>();
  // Every value says what it is of which level of which retry.
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t l = 0; l < 3; ++l) {
      const auto place = static_cast<std::int32_t>(10 * r + l);
      context->sigma[r][l] = 100 + place;
      context->num_of_using_feat[r][l] = 200 + place;
      context->score_weight_mode[r][l] = 300 + place;
      context->use_mid_point[r][l] = 400 + place;
      context->score_div_mode[r][l] = 500 + place;
      context->rank[l] = 600 + static_cast<std::int32_t>(l);
    }
  }
  context->score_div_mode_last = 3;
  const ScorePass pass = level_pass(*context, 1000, 2, 1);
  EXPECT_FALSE(pass.final);
  EXPECT_EQ(pass.sigma, 112);
  EXPECT_EQ(pass.rank_limit, 602);
  EXPECT_EQ(pass.count_limit, 212);
  EXPECT_EQ(pass.weight_mode, 312);
  EXPECT_EQ(pass.div_mode, 3);
  EXPECT_EQ(pass.mid_point, 412);
  EXPECT_EQ(level_pass(*context, 150, 2, 1).count_limit, 150);
}

// A level as the plain form runs it: each candidate over the whole list, offered in list order.
Seeds plain_level(CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                  const Seeds& seeds, std::int32_t kept, std::int32_t l = 0, std::int32_t r = 0) {
  const auto level = static_cast<std::size_t>(l);
  const auto retry = static_cast<std::size_t>(r);
  const CandidateGrid list(context.right_table[retry][level], context.left_table[retry][level],
                           context.limits[retry], seeds, kept);
  build_score_table(context, l, r);
  const ScorePass pass = level_pass(context, matches.size(), l, r);
  TopList top(kept);
  std::vector<CandidateGrid::Cursor> places;
  CandidateGrid::Cursor cursor;
  while (list.next(cursor, 1000, places)) {
  }
  for (const auto& place : places) {
    PoseCandidate candidate;
    list.grid(place.grid).pose(place.place, &candidate);
    candidate.sums = score_matches(context, pass, posed(rig, candidate), matches);
    candidate.score = candidate.sums.score_sum;
    top.offer(candidate);
  }
  return top.slots();
}

TEST(LevelEvaluator, KeepsWhatThePlainFormKeepsUnderAnySettings) {
  std::mt19937_64 engine(99);
  const auto unit = [&] { return std::uniform_real_distribution<double>(0.0, 1.0)(engine); };
  const auto below = [&](std::uint64_t n) { return static_cast<std::int32_t>(engine() % n); };
  std::vector<RigState> rigs;
  for (std::uint32_t kind : {1u, 2u}) {
    for (Bend bend : {Bend::kDistorted, Bend::kMagnified, Bend::kSheared, Bend::kMirrored})
      rigs.push_back(bent_rig(kind, bend));
  }
  // One crooked eye is enough to forbid the lean form.
  for (Bend bend : {Bend::kMagnified, Bend::kShiftedX, Bend::kShiftedY, Bend::kMoved}) {
    for (auto eye : {&RigModel::left, &RigModel::right}) {
      RigState& rig = rigs.emplace_back(bent_rig(1, Bend::kDistorted));
      rig.current.*eye = bent_rig(1, bend).current.*eye;
      rig.reference.*eye = rig.current.*eye;
    }
  }
  constexpr std::int32_t kLevel = 2;
  constexpr std::int32_t kRetry = 1;
  int filled = 0, infinite = 0;
  for (std::uint32_t trial = 0; trial < 400; ++trial) {
    const ThreadTeam team(trial % 10 == 0 ? 7 : 1);
    const RigState& rig = rigs[trial % rigs.size()];
    auto matches = make_matches(some_poses(1)[0], {.count = 1 + below(below(4) == 0 ? 400 : 100),
                                                   .noise_px = unit(),
                                                   .outliers = unit(),
                                                   .seed = trial});
    for (std::size_t i = 0; i < matches.size(); ++i) {
      matches[i].rank = static_cast<std::int32_t>(i / 50);
      // Where none counts, all candidates are alike.
      if (trial % 16 == 3) matches[i].x_a = -5000.0f;
      if (rig.current.left.magnify_v > 0.0) continue;
      // Turned round about the middles of both pictures.
      matches[i].x_a = 998.0f - matches[i].x_a;
      matches[i].x_b = 1050.0f - matches[i].x_b;
      matches[i].y_a = 1024.0f - matches[i].y_a;
      matches[i].y_b = 1024.0f - matches[i].y_b;
    }
    auto context = std::make_unique<CalibContext>();
    context->sigma[kRetry][kLevel] = below(6) == 0 ? 0.0 : 0.5 + 4.0 * unit();
    context->score_weight_mode[kRetry][kLevel] = below(14);
    context->score_div_mode_last = below(5);
    context->fast_mode = below(4);
    context->dir_bias = below(2) == 0 ? 0.0 : 2.0 * unit();
    context->use_mid_point[kRetry][kLevel] = below(2);
    context->skip_num_using_feat_mode = below(3);
    context->num_of_using_feat[kRetry][kLevel] = below(4) == 0 ? 0 : below(2) == 0 ? 1000 : below(120) - 2;
    context->rank[kLevel] = below(7) - 1;
    context->score_tbl_coeff =
        below(8) == 0 ? static_cast<float>(below(2) - 1) : 0.5f + static_cast<float>(below(8));
    context->score_tbl_size = below(3000);
    context->depth_max = below(3) == 0 ? 0.0 : 2.0 + 3.0 * unit();
    context->limits[kRetry] = {0.02, 0.02, 6, 6};
    int swept = 0;
    for (EyeSweep* eye : {&context->right_table[kRetry][kLevel], &context->left_table[kRetry][kLevel]}) {
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
    const Seeds expected = plain_level(*context, rig, matches, seeds, kept, kLevel, kRetry);
    Seeds found = seeds;
    LevelEvaluator(*context, rig, matches).evaluate(found, kept, kLevel, kRetry);
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
      EXPECT_EQ(found[slot].sigma, expected[slot].score == -1.0 ? 0.0 : context->sigma[kRetry][kLevel]);
      filled += expected[slot].score >= 0 ? 1 : 0;
      infinite += std::isinf(expected[slot].score) ? 1 : 0;
    }
  }
  EXPECT_GT(filled, 200);
  EXPECT_GT(infinite, 0) << "no width and errors below 0, by a bias above 1, make scores without bound";
}

// Turning both eyes alike about the baseline changes no match, so the grid below holds chains of poses that
// differ by rounding alone, and more than one batch of them: the seeds of the next level hang on that order.
TEST(LevelEvaluator, RoundingOfTheFastFormDecidesNothing) {
  const RigState rig = nominal_rig();
  const auto matches = make_matches(PoseCandidate(), {.count = 12, .noise_px = 0.5});
  auto context = std::make_unique<CalibContext>();
  set_level(*context, 3.0);
  context->limits[0] = {1, 1, 5, 5};
  context->right_table[0][0].tilt = {-0.02, 0.02, 257, 0};
  context->left_table[0][0].tilt = {-0.02, 0.02, 257, 0};
  for (std::int32_t kept : {1, 3}) {
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

// Two candidates, the worse one by little more than the fast form's tolerance: whether it is left before its
// last match, which hangs on the one that is scored first, must not show in the score of the better one.
TEST(LevelEvaluator, AScoreDoesNotHangOnWhichCandidateComesFirst) {
  const RigState rig = nominal_rig();
  const auto matches = make_matches(PoseCandidate(), {.count = 300, .noise_px = 0.5});
  auto context = std::make_unique<CalibContext>();
  set_level(*context, 3.0);
  const ScorePass pass = level_pass(*context, matches.size(), 0, 0);
  const auto plain_score = [&](double roll) {
    PoseCandidate pose;
    pose.right_roll = roll;
    return score_matches(*context, pass, posed(rig, pose), matches).score_sum;
  };
  const double good = 0.002;
  const double loss = (plain_score(good) - plain_score(good + 1e-7)) / 1e-7;
  ASSERT_GT(loss, 0.0);
  for (double gap : {0.5, 1.2, 1.5, 1.8, 2.5}) {
    const double bad = good + gap * kSweepTolerance * plain_score(good) / loss;
    double scores[2];
    for (int order : {0, 1}) {
      context->right_table[0][0].roll = {order == 0 ? good : bad, order == 0 ? bad : good, 2, 0};
      Seeds found;
      LevelEvaluator(*context, rig, matches).evaluate(found, 1, 0, 0);
      EXPECT_EQ(found[0].right_roll, good) << gap;
      if (gap < 2.0) {
        EXPECT_EQ(found[0].score, plain_score(good)) << "the plain form decides where the fast one can't";
      }
      scores[order] = found[0].score;
    }
    EXPECT_EQ(scores[0], scores[1]) << gap;
  }
}

// A sigma far too small for a lens far off: every term is almost nothing. Under the one pose a single term is
// just large enough for the fast form, under the other many are just too small, which are more together.
TEST(LevelEvaluator, KeepsWhatThePlainFormKeepsWhereTermsAlmostVanish) {
  const RigState rig = nominal_rig();
  std::vector<RayMatch> matches(60, make_matches(PoseCandidate(), {.count = 1})[0]);
  const float y = matches[0].y_a;
  for (RayMatch& match : matches) match.y_a = y - 8.0f;
  const auto error_at = [&](double offset_y, const RayMatch& match) {
    PoseCandidate pose;
    pose.right_offset_y = offset_y;
    return score_one_match(CalibContext(), 0, posed(rig, pose), match, 1.0, 8, 0, 0).error;
  };
  for (double offset_y : {0.0, 2.0}) {
    const double high = error_at(offset_y, matches[0]);
    double low = 0.0;
    for (float away = 4.0f; low < 0.999 * high; away += 0.001f) {
      matches[7].y_a = y + away;
      low = error_at(-offset_y, matches[7]);
    }
    ASSERT_TRUE(0.0 < low && low < high) << low << ' ' << high;
    auto context = std::make_unique<CalibContext>();
    set_level(*context, std::sqrt(0.5 * (0.5 * (low + high)) / 700.0));
    context->limits[0] = {1, 1, 50, 50};
    context->right_table[0][0].offset_y = {-offset_y, offset_y, offset_y == 0.0 ? 1 : 2, 0};
    const Seeds expected = plain_level(*context, rig, matches, Seeds(), 1);
    ASSERT_EQ(expected[0].right_offset_y, offset_y);
    ASSERT_GT(expected[0].score, 0.0);
    Seeds found;
    LevelEvaluator(*context, rig, matches).evaluate(found, 1, 0, 0);
    EXPECT_EQ(found[0].right_offset_y, offset_y);
    EXPECT_EQ(found[0].score, expected[0].score) << offset_y;
  }
}

// The rays of so many offsets are made in parts. Nothing may be lost or come twice where one ends.
TEST(LevelEvaluator, EvaluatesALevelInParts) {
  const RigState rig = nominal_rig();
  PoseCandidate truth;
  const auto walk = [&](std::size_t best_place) {
    truth.right_offset_x = 0.01 * static_cast<double>(best_place);
    const auto matches = make_matches(truth, {.count = 10001});
    auto context = std::make_unique<CalibContext>();
    set_level(*context, 0.3);
    context->limits[0] = {1, 1, 50, 50};
    context->right_table[0][0].offset_x = {0.0, 3.99, 400, 0};
    Seeds found;
    EXPECT_EQ(LevelEvaluator(*context, rig, matches).evaluate(found, 3, 0, 0), 400);
    EXPECT_NEAR(found[0].right_offset_x, truth.right_offset_x, 0.005);
    EXPECT_NEAR(std::abs(found[1].right_offset_x - truth.right_offset_x), 0.01, 1e-6);
    EXPECT_NEAR(std::abs(found[2].right_offset_x - truth.right_offset_x), 0.01, 1e-6);
  };
  // One pair of offsets goes with the left eye.
  const std::size_t places = kMostRayBytes / (3 * sizeof(double) * 10000) - 1;
  ASSERT_LT(places, 390u);
  walk(places - 1);
  walk(places);
}

TEST(LevelEvaluator, AnUnknownWeightModeMattersOnlyToAMatchWithAnError) {
  const RigState rig = nominal_rig();
  auto matches = make_matches(PoseCandidate(), {.count = 20});
  auto context = std::make_unique<CalibContext>();
  set_level(*context, 3.0);
  context->score_weight_mode[0][0] = 14;
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
