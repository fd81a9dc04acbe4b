#include "search/PoseSearch.h"

#include <omp.h>

#include <cmath>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "search/CandidateEvaluation.h"
#include "search/MatchScore.h"
#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::kDegree;
using testing_support::make_matches;
using testing_support::nominal_rig;

// Halves the step of the right eye's three angles from level to level.
std::unique_ptr<CalibContext> angle_search(int levels) {
  auto context = std::make_unique<CalibContext>();
  context->mode = kSearchMode;
  context->num_levels[0] = levels;
  context->num_using_feat_last = 100000;
  context->rank_last = 1;
  for (auto& limits : context->limits) limits = {0.2, 0.2, 0, 20, 20};
  double reach = 1.0 * kDegree;
  for (std::size_t l = 0; l < kMaxLevels; ++l) {
    context->knn[l] = 1;
    context->rank[l] = 10000;
    context->sigma[0][l] = std::max(0.5, 20.0 * reach / kDegree);
    context->score_weight_mode[0][l] = 1;
    context->num_of_using_feat[0][l] = 100000;
    EyeSweep& sweep = context->right_table[0][l];
    for (SweepRange* range : {&sweep.pan, &sweep.tilt, &sweep.roll}) *range = {-reach, reach, 5, 0};
    reach *= 0.5;
  }
  return context;
}

PoseCandidate right_eye_truth() {
  PoseCandidate truth;
  truth.right_pan = 0.6 * kDegree;
  truth.right_tilt = -0.35 * kDegree;
  truth.right_roll = 0.8 * kDegree;
  return truth;
}

TEST(PoseSearch, FindsAPlantedPoseAmongOutliers) {
  const auto matches = make_matches(right_eye_truth(), {.count = 400, .noise_px = 0.2, .outliers = 0.3});
  const auto context = angle_search(9);
  PoseCandidate found;
  pose_search(*context, nominal_rig(), matches, found);
  EXPECT_NEAR(found.right_pan, 0.6 * kDegree, 0.03 * kDegree);
  EXPECT_NEAR(found.right_tilt, -0.35 * kDegree, 0.03 * kDegree);
  EXPECT_NEAR(found.right_roll, 0.8 * kDegree, 0.03 * kDegree);
  EXPECT_EQ(found.left_pan, 0.0);
  EXPECT_GT(found.sums.count4, 250);
  EXPECT_EQ(found.best_retry, 0);
}

class Recorder final : public SearchObserver {
 public:
  void on_level(std::int32_t, std::int32_t level, bool skipped, std::int64_t candidates,
                const Seeds& seeds) override {
    levels.push_back({level, skipped, candidates, seeds[0].score});
  }
  void on_final(std::int32_t, double score, const MatchScoreSums&) override { finals.push_back(score); }

  struct Level {
    std::int32_t level;
    bool skipped;
    std::int64_t candidates;
    double best;
  };
  std::vector<Level> levels;
  std::vector<double> finals;
};

TEST(PoseSearch, RetriesStopAndKeepTheLaterOfEquals) {
  const auto matches = make_matches(right_eye_truth(), {.count = 100});
  const RigState rig = nominal_rig();
  const auto prepare = [](int retries) {
    auto context = angle_search(4);
    context->retry_count = retries;
    for (std::size_t r = 1; r < kMaxRetries; ++r) {
      context->num_levels[r] = context->num_levels[0];
      context->sigma[r] = context->sigma[0];
      context->score_weight_mode[r] = context->score_weight_mode[0];
      context->num_of_using_feat[r] = context->num_of_using_feat[0];
      context->right_table[r] = context->right_table[0];
      context->left_table[r] = context->left_table[0];
    }
    return context;
  };
  {
    auto context = prepare(1);
    PoseCandidate found;
    Recorder seen;
    pose_search(*context, rig, matches, found, &seen);
    ASSERT_EQ(seen.finals.size(), 2u);
    EXPECT_EQ(seen.finals[0], seen.finals[1]);
    EXPECT_EQ(found.best_retry, 1);
    EXPECT_EQ(seen.levels[0].candidates, 125);
  }
  {
    auto context = prepare(2);
    context->num_levels[1] = 1;  // a coarser retry is worse
    context->cont[2] = 1;        // and the last goes on from there
    context->skip[2] = {1, 1, 1, 1};
    PoseCandidate found;
    Recorder seen;
    pose_search(*context, rig, matches, found, &seen);
    ASSERT_EQ(seen.finals.size(), 3u);
    EXPECT_LT(seen.finals[1], seen.finals[0]);
    EXPECT_EQ(seen.finals[2], seen.finals[1]) << "all levels skipped: the seed stands";
    EXPECT_EQ(found.best_retry, 0);
    EXPECT_EQ(found.last_retry, 2);
    EXPECT_TRUE(seen.levels.back().skipped);
  }
  {
    auto context = prepare(5);
    context->retry_break_err_th16 = 100.0;
    PoseCandidate found;
    pose_search(*context, rig, matches, found);
    EXPECT_EQ(found.last_retry, 0);
  }
  {
    auto context = prepare(5);
    context->retry_break_err_th4 = 1e-9;
    context->num_using_feat_last = 0;  // nothing counted: an rms of 0
    PoseCandidate found;
    pose_search(*context, rig, matches, found);
    EXPECT_EQ(found.last_retry, 0);
  }
}

TEST(PoseSearch, ALevelThatKeepsNothingStartsOverAtTheLensFile) {
  const auto matches = make_matches(right_eye_truth(), {.count = 100});
  const RigState rig = nominal_rig();
  for (int variant = 0; variant < 3; ++variant) {
    auto context = angle_search(2);
    if (variant == 0) context->score_div_mode_last = 0;  // every score is -1
    if (variant == 1) context->limits[0].pan_max = 0.0;  // no value of pan but 0, and the grid has none
    if (variant == 1) context->right_table[0][0].pan = context->right_table[0][1].pan = {0.01, 0.02, 2, 0};
    if (variant == 2) context->knn.fill(0);
    PoseCandidate found;
    Recorder seen;
    pose_search(*context, rig, matches, found, &seen);
    EXPECT_EQ(seen.levels[1].best, -1.0) << variant;
    for (double CalibResult::*field : kPoseFields) EXPECT_EQ(found.*field, 0.0) << variant;
  }
}

TEST(PoseSearch, CeilingModesEndInARootMeanSquare) {
  const auto matches = make_matches(right_eye_truth(), {.count = 100, .noise_px = 0.3});
  auto context = angle_search(1);
  context->score_weight_mode[0][0] = 6;
  context->score_weight_mode_last = 6;
  context->score_div_mode_last = 1;
  PoseCandidate found;
  Recorder seen;
  pose_search(*context, nominal_rig(), matches, found, &seen);
  RigState rig = nominal_rig();
  rig_apply_pose(rig, found);
  ScorePass pass;
  pass.final = true;
  pass.rank_limit = 1;
  pass.count_limit = 100;
  pass.weight_mode = 6;
  pass.div_mode = 1;
  const double mean_error = 1e8 - score_matches(*context, pass, rig, matches).score_sum;
  EXPECT_NEAR(found.score, std::sqrt(mean_error), 1e-6);
}

TEST(PoseSearch, SameBytesForEveryThreadCount) {
  const int before = omp_get_max_threads();
  for (std::uint32_t seed : {1u, 2u, 3u}) {
    // Half of the matches fit nothing; counting them, with mode 8, makes ties that the list's order decides.
    const auto matches =
        make_matches(right_eye_truth(), {.count = 200, .noise_px = 0.5, .outliers = 0.5, .seed = seed});
    for (std::int32_t weight_mode : {1, 5, 8}) {
      std::vector<PoseCandidate> results;
      for (int threads : {1, 2, 7}) {
        omp_set_num_threads(threads);
        auto context = angle_search(6);
        context->knn.fill(static_cast<std::int32_t>(seed));
        context->retry_count = 1;
        context->num_levels[1] = 6;
        context->cont[1] = 1;
        context->fast_mode = static_cast<std::int32_t>(seed) - 1;
        for (std::size_t r : {0u, 1u}) {
          context->sigma[r] = context->sigma[0];
          context->num_of_using_feat[r] = context->num_of_using_feat[0];
          context->right_table[r] = context->right_table[0];
          context->score_weight_mode[r].fill(weight_mode);
        }
        PoseCandidate found;
        pose_search(*context, nominal_rig(), matches, found);
        results.push_back(found);
      }
      for (const PoseCandidate& result : results) {
        const CalibResult& values = result;
        const CalibResult& first = results[0];
        EXPECT_EQ(std::memcmp(&values, &first, sizeof values), 0) << seed << ' ' << weight_mode;
        EXPECT_EQ(result.sums.sum16, results[0].sums.sum16);
        EXPECT_EQ(result.best_retry, results[0].best_retry);
      }
      EXPECT_NE(results[0].right_pan, 0.0);
    }
  }
  omp_set_num_threads(before);
}

}  // namespace
}  // namespace twintrue
