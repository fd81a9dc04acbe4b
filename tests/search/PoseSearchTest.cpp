#include "search/PoseSearch.h"

#include <cmath>
#include <functional>
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
  for (auto& limits : context->limits) limits = {0.2, 0.2, 20, 20};
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

class Recorder final : public SearchObserver {
 public:
  void on_level(std::int32_t, std::int32_t level, bool skipped, std::int64_t candidates,
                const Seeds& seeds) override {
    levels.push_back({level, skipped, candidates, seeds[0].score});
  }
  void on_final(std::int32_t, double score, const MatchScoreSums& counted) override {
    finals.push_back(score);
    sums.push_back(counted);
  }

  struct Level {
    std::int32_t level;
    bool skipped;
    std::int64_t candidates;
    double best;
  };
  std::vector<Level> levels;
  std::vector<double> finals;
  std::vector<MatchScoreSums> sums;
};

double rms4_of(const MatchScoreSums& sums) { return std::sqrt(sums.sum4 / sums.count4); }
double rms16_of(const MatchScoreSums& sums) { return std::sqrt(sums.sum16 / sums.count16); }

// That search again and again, each retry like the first.
std::unique_ptr<CalibContext> repeated_search(int retries, int levels) {
  auto context = angle_search(levels);
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
}

TEST(PoseSearch, KeepsTheBestRetryAndTheLaterOfEquals) {
  const auto matches = make_matches(right_eye_truth(), {.count = 100});
  const RigState rig = nominal_rig();
  {
    auto context = repeated_search(1, 4);
    context->knn.fill(3);
    PoseCandidate found;
    Recorder seen;
    pose_search(*context, rig, matches, found, &seen);
    ASSERT_EQ(seen.finals.size(), 2u);
    EXPECT_EQ(seen.finals[0], seen.finals[1]);
    EXPECT_EQ(found.best_retry, 1);
    EXPECT_EQ(seen.levels[0].candidates, 125);
    EXPECT_EQ(seen.levels[4].candidates, 125) << "no seed is left of the retry before";
  }
  for (std::int32_t cont : {0, 1}) {
    auto context = repeated_search(2, 4);
    context->num_levels[1] = 1;  // a coarser retry is worse
    context->cont[2] = cont;     // and the last goes on from there, or from the start
    context->skip[2] = {1, 1, 1, 1};
    PoseCandidate found;
    Recorder seen;
    pose_search(*context, rig, matches, found, &seen);
    ASSERT_EQ(seen.finals.size(), 3u);
    EXPECT_LT(seen.finals[1], seen.finals[0]);
    EXPECT_EQ(seen.finals[2] == seen.finals[1], cont == 1) << "all levels skipped: the seed stands";
    EXPECT_EQ(found.best_retry, 0);
    EXPECT_EQ(found.score, seen.finals[0]);
    EXPECT_EQ(found.last_retry, 2);
    EXPECT_TRUE(seen.levels.back().skipped);
  }
}

TEST(PoseSearch, RetriesStopAtAnErrorBelowTheirThreshold) {
  const auto matches = make_matches(right_eye_truth(), {.count = 200, .noise_px = 2.5, .outliers = 0.1});
  const auto last_retry_of = [&](const std::function<void(CalibContext&)>& change, PoseCandidate& found) {
    auto context = repeated_search(1, 1);
    change(*context);
    pose_search(*context, nominal_rig(), matches, found);
    return found.last_retry;
  };
  PoseCandidate found;
  EXPECT_EQ(last_retry_of([](auto&) {}, found), 1);
  const double rms4 = rms4_of(found.sums);
  const double rms16 = rms16_of(found.sums);
  ASSERT_GT(rms16, 1.1 * rms4);
  for (double share : {1.0, 1.01}) {
    const std::int32_t last = share > 1.0 ? 0 : 1;
    PoseCandidate other;
    EXPECT_EQ(last_retry_of([&](auto& c) { c.retry_break_err_th4 = share * rms4; }, other), last) << share;
    EXPECT_EQ(last_retry_of([&](auto& c) { c.retry_break_err_th16 = share * rms16; }, other), last) << share;
    // Nothing counted is an error of 0.
    const auto without_matches = [&](double threshold) {
      return [threshold](CalibContext& c) {
        c.num_using_feat_last = 0;
        c.retry_break_err_th4 = threshold;
      };
    };
    EXPECT_EQ(last_retry_of(without_matches(share - 1.0), other), last) << share;
  }
}

TEST(PoseSearch, ARetryThatIsNotKeptStopsNothing) {
  int tried4 = 0, tried16 = 0;
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    const auto matches = make_matches(PoseCandidate(), {.count = 60, .noise_px = 2.5, .seed = seed});
    const auto search = [&](double threshold4, double threshold16, Recorder* seen) {
      auto context = repeated_search(2, 1);
      context->num_levels[1] = 0;
      context->retry_break_err_th4 = threshold4;
      context->retry_break_err_th16 = threshold16;
      PoseCandidate found;
      pose_search(*context, nominal_rig(), matches, found, seen);
      return found.last_retry;
    };
    Recorder seen;
    search(-1.0, -1.0, &seen);
    if (seen.finals[1] >= seen.finals[0]) continue;
    // The second retry is worse as a whole, and its errors are smaller.
    const double between4 = 0.5 * (rms4_of(seen.sums[0]) + rms4_of(seen.sums[1]));
    const double between16 = 0.5 * (rms16_of(seen.sums[0]) + rms16_of(seen.sums[1]));
    if (between4 < rms4_of(seen.sums[0])) {
      EXPECT_EQ(search(between4, -1.0, nullptr), 2) << seed;
      ++tried4;
    }
    if (between16 < rms16_of(seen.sums[0])) {
      EXPECT_EQ(search(-1.0, between16, nullptr), 2) << seed;
      ++tried16;
    }
  }
  EXPECT_GT(tried4, 0);
  EXPECT_GT(tried16, 0);
}

TEST(PoseSearch, ALevelThatKeepsNothingStartsOverAtTheLensFile) {
  const auto matches = make_matches(right_eye_truth(), {.count = 100});
  const RigState rig = nominal_rig();
  for (int variant = 0; variant < 3; ++variant) {
    auto context = angle_search(2);
    if (variant == 0) context->score_div_mode_last = 0;  // every score is -1
    if (variant == 1) context->limits[0].pan_max = 0.0;  // no value of pan but 0, and the grid has none
    if (variant == 1) context->right_table[0][0].pan = context->right_table[0][1].pan = {0.01, 0.02, 2, 0};
    if (variant == 2) context->knn[1] = 0;
    PoseCandidate found;
    Recorder seen;
    pose_search(*context, rig, matches, found, &seen);
    EXPECT_EQ(seen.levels[1].best, -1.0) << variant;
    for (double CalibResult::*field : kPoseFields) EXPECT_EQ(found.*field, 0.0) << variant;
  }
}

// Its settings are those named `..._last`, all told apart here from those of the levels and from each other.
TEST(PoseSearch, TheFinalPassHasSettingsOfItsOwn) {
  auto matches = make_matches(right_eye_truth(), {.count = 200, .noise_px = 1.0, .outliers = 0.1});
  for (std::size_t i = 0; i < matches.size(); ++i) matches[i].rank = static_cast<std::int32_t>(i / 50);
  for (std::int32_t weight_mode : {4, 6}) {
    auto context = angle_search(2);
    context->num_levels[0] = 2;
    context->score_weight_mode[0][0] = weight_mode == 6 ? 1 : 6;
    context->score_weight_mode[0][1] = weight_mode == 6 ? 6 : 1;  // 6 here turns the final score round
    context->fast_mode = 1;
    context->sigma_org_last = 1.7;
    context->rank_last = 2;
    // Now the number ends the walk, now the rank, after 150 matches.
    context->num_using_feat_last = weight_mode == 4 ? 130 : 180;
    context->score_weight_mode_last = weight_mode;
    context->score_div_mode_last = 1;
    context->use_mid_point_last = 1;
    PoseCandidate found;
    Recorder seen;
    pose_search(*context, nominal_rig(), matches, found, &seen);
    EXPECT_EQ(seen.finals[0], found.score);

    const RigState rig = testing_support::posed(nominal_rig(), found);
    ScorePass pass;
    pass.final = true;
    pass.sigma = 1.7;
    pass.rank_limit = 2;
    pass.count_limit = context->num_using_feat_last;
    pass.weight_mode = weight_mode;
    pass.div_mode = 1;
    pass.mid_point = 1;
    const auto score_of = [&](const ScorePass& one) {
      const double score = score_matches(*context, one, rig, matches).score_sum;
      return weight_mode == 6 ? std::sqrt(1e8 - score) : score;
    };
    EXPECT_EQ(found.score, score_of(pass));
    EXPECT_EQ(found.sums.score_sum, found.score);
    EXPECT_EQ(found.sums.sum16, score_matches(*context, pass, rig, matches).sum16);
    if (weight_mode == 6) continue;
    const std::function<void(ScorePass&)> changes[] = {
        [](auto& p) { p.final = false; },   [](auto& p) { p.sigma = 1.0; },
        [](auto& p) { p.rank_limit = 1; },  [](auto& p) { p.count_limit = 129; },
        [](auto& p) { p.weight_mode = 1; }, [](auto& p) { p.div_mode = 2; },
        [](auto& p) { p.mid_point = 0; }};
    for (const auto& change : changes) {
      ScorePass other = pass;
      change(other);
      EXPECT_NE(score_of(other), found.score) << &change - changes;
    }
  }
}

}  // namespace
}  // namespace twintrue
