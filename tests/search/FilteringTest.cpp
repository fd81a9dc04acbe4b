#include <cmath>
#include <memory>

#include <gtest/gtest.h>

#include "search/MatchFiltering.h"
#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::make_matches;
using testing_support::nominal_rig;

std::unique_ptr<CalibContext> still_search() {
  auto context = std::make_unique<CalibContext>();
  context->mode = kSearchMode;
  context->score_weight_mode[0].fill(1);
  context->sigma[0].fill(1.0);
  return context;
}

TEST(Filtering, DropsCountsAndSorts) {
  auto matches = make_matches(PoseCandidate(), {.count = 300});
  for (std::size_t i = 0; i < matches.size(); ++i) matches[i].rank = static_cast<std::int32_t>(i % 13) - 1;
  for (std::size_t i = 0; i < matches.size(); i += 5) matches[i].accepted = -static_cast<std::int32_t>(i % 2);
  auto context = still_search();
  context->removing_outer_feat_rratio = 0.6;
  context->rank_last = 2;
  const auto given = matches;
  PoseCandidate result;
  filter_and_search(*context, nominal_rig(), matches, result, 5, true);

  int expected_count = 0, expected_ranked = 0, expected_counted = 0;
  for (const RayMatch& m : given) {
    const double rratio = std::hypot(m.x_a - 512.0, m.y_a - 512.0) / testing_support::kScale;
    if (rratio > 0.6 || m.accepted < 1) continue;
    ++expected_count;
    expected_ranked += m.rank >= 0 && m.rank <= 2 ? 1 : 0;
    expected_counted += m.rank >= 0 && m.rank <= 9 ? 1 : 0;
  }
  ASSERT_GT(expected_count, 20);
  EXPECT_EQ(matches.size(), static_cast<std::size_t>(expected_count)) << "ranks above 9 stay";
  EXPECT_EQ(context->rank_histogram[2], expected_ranked);
  EXPECT_EQ(context->rank_histogram[9], expected_counted);
  EXPECT_DOUBLE_EQ(result.detection_ratio, expected_ranked / 15.0);
  for (std::size_t i = 1; i < matches.size(); ++i) {
    const RayMatch& a = matches[i - 1];
    const RayMatch& b = matches[i];
    EXPECT_TRUE(a.rank < b.rank || (a.rank == b.rank && a.rratio >= b.rratio)) << i;
  }
}

TEST(Filtering, KeepsAMatchExactlyAtTheBound) {
  auto matches = make_matches(PoseCandidate(), {.count = 1});
  matches[0].x_a = 512.0f + 100.0f;
  matches[0].y_a = 512.0f;
  auto context = still_search();
  context->removing_outer_feat_rratio = 100.0 / testing_support::kScale;
  PoseCandidate result;
  filter_and_search(*context, nominal_rig(), matches, result, 1, true);
  EXPECT_EQ(matches.size(), 1u);
}

TEST(Filtering, StatusAndQuality) {
  const RigState rig = nominal_rig();
  {
    auto matches = make_matches(PoseCandidate(), {.count = 60});
    auto context = still_search();
    PoseCandidate result;
    EXPECT_EQ(filter_and_search(*context, rig, matches, result, 100, false), TWINTRUE_TOO_FEW_MATCHES);
    EXPECT_DOUBLE_EQ(result.detection_ratio, 0.3);
    EXPECT_EQ(result.quality, -1.0);
    EXPECT_EQ(result.score, -1.0);
    context->detection_ratio_th = result.detection_ratio;
    EXPECT_EQ(filter_and_search(*context, rig, matches, result, 100, false), TWINTRUE_CALIBRATED);
  }
  {
    // A lens that needs no correction passes with pose zero.
    auto matches = make_matches(PoseCandidate(), {.count = 200, .noise_px = 1.6});
    auto context = still_search();
    PoseCandidate result;
    EXPECT_EQ(filter_and_search(*context, rig, matches, result, 100, false), TWINTRUE_CALIBRATED);
    const MatchScoreSums& sums = result.sums;
    ASSERT_GT(sums.count16, sums.count4 + 5);
    EXPECT_NEAR(result.quality, sums.count4 / (200 * std::sqrt(sums.sum4 / sums.count4)), 1e-12);
    EXPECT_NEAR(result.error16, std::sqrt(sums.sum16 / sums.count16), 1e-12);
    context->error16_th = result.error16;
    EXPECT_EQ(filter_and_search(*context, rig, matches, result, 100, false), TWINTRUE_QUALITY_FAILED);
    context->error16_th = 3.0;
    context->failure_score_th = result.quality;
    EXPECT_EQ(filter_and_search(*context, rig, matches, result, 100, false), TWINTRUE_CALIBRATED);
  }
  {
    std::vector<RayMatch> none;
    auto context = still_search();
    PoseCandidate result;
    EXPECT_EQ(filter_and_search(*context, rig, none, result, 100, true), TWINTRUE_QUALITY_FAILED);
    EXPECT_TRUE(std::isnan(result.quality));
    EXPECT_EQ(result.detection_ratio, 0.0);
    EXPECT_EQ(result.error16, 0.0);
  }
}

TEST(Filtering, OtherModesOfSearchEndTheProcess) {
  auto context = still_search();
  context->mode = 4;
  std::vector<RayMatch> none;
  PoseCandidate result;
  const RigState rig = nominal_rig();
  EXPECT_EQ(filter_and_search(*context, rig, none, result, 1, false), TWINTRUE_TOO_FEW_MATCHES)
      << "a run that fails earlier says so";
  EXPECT_DEATH(filter_and_search(*context, rig, none, result, 1, true), "");
}

TEST(Filtering, ReportsWhenVerbose) {
  auto context = still_search();
  auto matches = make_matches(PoseCandidate(), {.count = 20});
  PoseCandidate result;
  testing::internal::CaptureStdout();
  filter_and_search(*context, nominal_rig(), matches, result, 10, true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  context->verbose = true;
  testing::internal::CaptureStdout();
  filter_and_search(*context, nominal_rig(), matches, result, 10, true);
  const std::string text = testing::internal::GetCapturedStdout();
  const std::string stars = "***********************\n***********************\n";
  EXPECT_EQ(text.rfind("sigma:1 lv:0 retry:0\nparam candidate count[0]:1\n" + stars + "-1    ", 0), 0u)
      << text;
  EXPECT_NE(text.find("right pan:0.00deg  tilt:0.00deg  roll:0.00deg  offset_x:0pix  offset_y:0pix\n"
                      "left  pan:0.00deg  tilt:0.00deg  roll:0.00deg  offset_x:0pix  offset_y:0pix "),
            std::string::npos)
      << text;
}

}  // namespace
}  // namespace twintrue
