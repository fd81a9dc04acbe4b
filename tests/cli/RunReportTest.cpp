#include "apps/cli/RunReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>

#include "apps/cli/RunTrace.h"

namespace twintrue::cli {
namespace {

using testing::HasSubstr;

// A run over 100 cells whose first two ranks are to be filled to 40 %, that is 80 places.
RunReport report_of(std::int32_t status) {
  RunReport report;
  report.status = status;
  report.settings = {0.05, 0.4, 3.0, 1, 100};
  report.result = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1.0, -1.0, -1.0, -1.0};
  return report;
}

TEST(RunReport, TellsWhatThereWasTooLittleOf) {
  using Few = RunCounts::Few;
  const std::vector<std::pair<RunCounts, std::string>> cases{
      {{Few::kLeftHalf, 12, {}, {}, {}, {}}, "left half (right eye): 12 where 80 are wanted"},
      {{Few::kRightHalf, 90, 79, {}, {}, {}}, "right half (left eye): 79 where 80 are wanted"},
      {{Few::kRecords, 90, 91, 0, {}, {}}, "Too few matches between the two halves: 0 where 80"},
      {{Few::kNone, 90, 91, 92, 30, {}}, "they fill 25 % of the wanted places, and 40 % are needed"},
  };
  for (const auto& [counts, words] : cases) {
    RunReport report = report_of(TWINTRUE_TOO_FEW_MATCHES);
    report.result.detection_ratio = 0.25;
    report.counts = counts;
    EXPECT_THAT(advice_for(report), HasSubstr(words));
    EXPECT_EQ(exit_code_of(report), ExitCode::kTooFewMatches);
  }
}

// They come from the run itself.
TEST(RunTrace, KeepsWhatTheRunCounts) {
  StepLog silent(false);
  RunTrace trace(silent, true, false);
  trace.on_keypoints(true, 90, true);
  trace.on_keypoints(false, 79, true);
  EXPECT_EQ(trace.counts().left_half_keypoints, 90);
  EXPECT_EQ(trace.counts().right_half_keypoints, 79);
  EXPECT_EQ(trace.counts().few, RunCounts::Few::kNone);
  trace.on_records(5, false);
  EXPECT_EQ(trace.counts().records, 5);
  EXPECT_EQ(trace.counts().few, RunCounts::Few::kRecords);
  EXPECT_EQ(trace.counts().accepted, std::nullopt);
  RunTrace other(silent, true, false);
  other.on_keypoints(true, 90, true);
  other.on_keypoints(false, 7, false);
  EXPECT_EQ(other.counts().few, RunCounts::Few::kRightHalf);
}

// A perfect fit has an infinite quality. It passes, and JSON, which has no infinity, holds null.
TEST(RunReport, TakesAnInfiniteQualityAsPassed) {
  RunReport report = report_of(TWINTRUE_CALIBRATED);
  report.result.quality = std::numeric_limits<double>::infinity();
  report.result.detection_ratio = 0.4;
  report.result.error16 = 0.0;
  report.result.score = 1.0;
  EXPECT_THAT(format_table(report), HasSubstr("inf"));
  const auto measures = nlohmann::json::parse(format_json(report)).at("measures");
  EXPECT_TRUE(measures.at("quality").at("value").is_null());
  EXPECT_EQ(measures.at("quality").at("passed"), true);
  EXPECT_EQ(measures.at("detection_ratio").at("passed"), true);  // at least: the threshold itself is enough
  EXPECT_EQ(measures.at("error16").at("below"), 3.0);
}

// No two of the numbers are alike, so each has to come from its own place.
RunReport report_of_many_numbers() {
  RunReport report = report_of(TWINTRUE_CALIBRATED);
  report.frame_path = "frame.png";
  report.frame_width = 2048;
  report.frame_height = 1024;
  report.lens_path = "maker.lens";
  report.settings_name = "mine.yaml";
  report.notes = {"A note on the frame."};
  report.counts = {RunCounts::Few::kNone, 501, 502, 503, 504, 505};
  const double degree = std::numbers::pi / 180.0;
  report.result = {0.11 * degree, 0.12 * degree, 0.13 * degree, 1.4,  1.5,  0.21 * degree, 0.22 * degree,
                   0.23 * degree, 2.4,           2.5,           99.0, 0.06, 0.41,          3.0};
  Evidence evidence;
  evidence.matches = 505;
  evidence.within = {0.91, 0.97, 0.98};
  evidence.before = 0.31;
  evidence.noise = 0.32;
  evidence.unmoved = 0.033;
  evidence.behind = 0.034;
  evidence.exchanged = 0.035;
  evidence.parallax_spread = 36.0;
  evidence.coverage = 0.37;
  evidence.systematic = 0.038;
  for (std::size_t i = 0; i < 3; ++i) evidence.rings[i] = {601 + static_cast<int>(i), 0.61, 0.62};
  for (std::size_t i = 0; i < 4; ++i) evidence.quadrants[i] = {701 + static_cast<int>(i), 0.71, 0.72};
  evidence.fit.difference_sd = {0.001 * degree, 0.002 * degree, 0.003 * degree, 0.004, 0.005};
  evidence.fit.common_sd = {0.006 * degree, 0.007 * degree, 0.008 * degree, 0.009, 0.01};
  evidence.fit.expected_error = 0.041;
  evidence.fit.gap = 0.042;
  evidence.change = 1.043;
  evidence.graphics = 44;
  evidence.graphics_at = {45.0, 46.0};
  evidence.left_at_limit = {"roll"};
  report.evidence = evidence;
  return report;
}

TEST(RunReport, TableShowsEachNumberInItsPlace) {
  EXPECT_EQ(format_table(report_of_many_numbers()), R"(frame     frame.png (2048 x 1024)
lens      maker.lens
settings  mine.yaml
note      A note on the frame.

correction            right eye          left eye     difference +-    in common +-
  pan               +0.1100 deg       +0.2100 deg         0.001 deg       0.006 deg
  tilt              +0.1200 deg       +0.2200 deg         0.002 deg       0.007 deg
  roll              +0.1300 deg       +0.2300 deg         0.003 deg       0.008 deg
  offset x           +1.400 px         +2.400 px          0.004 px        0.009 px
  offset y           +1.500 px         +2.500 px          0.005 px         0.01 px
  +-: one standard deviation, of the right eye against the left one and of what both have in common

measure                   found   wanted            test
  detection ratio          0.41   at least 0.4      ok
  quality                  0.06   at least 0.05     ok
  error16                  3 px   below 3 px        FAILED
  score                      99   no threshold

matches   505 in the search; within 2 px: 31 % before, 97 % now
picture   expected error 0.041 px over the field; the corrections move it by 1 px
left out  44 matches on graphics burned into both halves near (45, 46) of a half

verdict   calibrated, but ...
  - What turns or moves both eyes alike ended at the limit of the search (roll). Trust
    the right eye against the left one only, or take a frame with more texture and
    depth.

Calibrated, with the reservations above. Give -o OUT_LENS to have the corrected lens
file written.
)");
}

// What is written is the polished pose; the search's stands beside it in JSON alone.
TEST(RunReport, TellsThePolishedPoseAndWhatWasKept) {
  RunReport report = report_of_many_numbers();
  EXPECT_TRUE(nlohmann::json::parse(format_json(report)).at("polished").is_null());
  Polished& polished = report.polished.emplace();
  polished.pose = report.result;
  polished.pose.right_offset_x = 7.25;
  polished.pose.left_offset_x = 8.25;
  polished.settled.moved = true;
  polished.settled.pose = report.result;
  polished.settled.pose.right_offset_x = 6.5;
  polished.settled.common_kept[1] = true;
  polished.settled.difference_kept[3] = true;
  polished.refinement.reason = "Too blurred.";
  polished.refinement.covariance[2][7] = 0.125;
  const std::string table = format_table(report);
  EXPECT_THAT(table,
              testing::HasSubstr(
                  "tilt              +0.1200 deg       +0.2200 deg         0.002 deg            kept\n"));
  EXPECT_THAT(table,
              testing::HasSubstr(
                  "offset x           +7.250 px         +8.250 px               kept       0.009 px\n"));
  EXPECT_THAT(table, testing::HasSubstr("kept: the frame hardly tells"));
  const auto json = nlohmann::json::parse(format_json(report));
  EXPECT_EQ(json.at("corrections").at("right_eye").at("offset_x_px"), 7.25);
  EXPECT_EQ(json.at("corrections").at("left_eye").at("offset_x_px"), 8.25);
  const auto& told = json.at("polished");
  EXPECT_EQ(told.at("moved"), true);
  EXPECT_EQ(told.at("search").at("right_eye").at("offset_x_px"), 1.4);
  EXPECT_EQ(told.at("search").at("left_eye").at("offset_x_px"), 2.4);
  EXPECT_EQ(told.at("settled").at("right_eye").at("offset_x_px"), 6.5);
  EXPECT_EQ(told.at("common_kept"), nlohmann::json({"tilt"}));
  EXPECT_EQ(told.at("difference_kept"), nlohmann::json({"offset_x"}));
  EXPECT_TRUE(told.at("shapes").is_null());
  EXPECT_EQ(told.at("refining").at("taken"), false);
  EXPECT_EQ(told.at("refining").at("reason"), "Too blurred.");
  EXPECT_EQ(told.at("refining").at("covariance")[2][7], 0.125);
  EXPECT_THAT(table, testing::HasSubstr("refined   no: Too blurred."));

  polished.refinement.taken = true;
  polished.refinement.kept = 77;
  polished.refinement.tried = 88;
  polished.refinement.scatter = 0.055;
  EXPECT_THAT(format_table(report), testing::HasSubstr("refined   by 77 of 88 matches, good to 0.055 px\n"));
  // Refined values have deviations of their own.
  EXPECT_THAT(format_table(report), testing::Not(testing::HasSubstr("kept")));
  report.fits_shapes = true;
  polished.settled.shapes = {0.002, -0.003};
  const auto shapes = nlohmann::json::parse(format_json(report)).at("polished").at("shapes");
  EXPECT_NEAR(shapes.at("scale_ratio").get<double>(), 1.002002, 1e-6);
  EXPECT_EQ(shapes.at("shift_y"), -0.003);
  EXPECT_THAT(format_table(report), testing::HasSubstr("scale 1.00200 (+- 0.00000), centring -0.00300"));
}

// A change that the frame can't tell from none is no reason for another lens file.
TEST(RunReport, TellsToKeepALensFileThatWasRight) {
  RunReport report = report_of_many_numbers();
  report.result.error16 = 1.0;
  report.evidence->change = 0.083;  // twice the expected error and a little
  EXPECT_THAT(advice_for(report), testing::Not(testing::HasSubstr("keep it")));
  report.evidence->change = 0.081;
  EXPECT_THAT(advice_for(report), testing::HasSubstr("keep it"));
  report.out_lens = "new.lens";
  EXPECT_THAT(advice_for(report), testing::HasSubstr("new.lens was written all the same"));
  report.fits_shapes = true;
  EXPECT_THAT(advice_for(report), testing::Not(testing::HasSubstr("keep it")));
}

// calib()'s own refusal names what fell short.
TEST(RunReport, NamesTheMeasureThatFailed) {
  RunReport report = report_of_many_numbers();
  report.status = TWINTRUE_QUALITY_FAILED;
  EXPECT_THAT(verdict_of(report).reasons.front().found,
              testing::HasSubstr("error16 is 3 px where below 3 px is wanted"));
  EXPECT_EQ(exit_code_of(report), ExitCode::kQualityFailed);
  // The test is of the search's pose: another one that was refined is judged by the evidence.
  report.polished.emplace().refinement.taken = true;
  EXPECT_EQ(exit_code_of(report), ExitCode::kCalibrated);
  EXPECT_EQ(verdict_of(report).outcome, Verdict::Outcome::kCalibratedBut);
  EXPECT_EQ(verdict_of(report).reasons.back().key, "search_quality");
  report.evidence->behind = 1.0;
  EXPECT_EQ(exit_code_of(report), ExitCode::kQualityFailed);
}

TEST(RunReport, JsonHoldsEachNumberInItsPlace) {
  const auto json = nlohmann::json::parse(format_json(report_of_many_numbers()));
  const auto expect_near = [](const nlohmann::json& of, const nlohmann::json& values) {
    for (const auto& [key, value] : values.items()) {
      EXPECT_NEAR(of.at(key).get<double>(), value.get<double>(), 1e-12) << key;
    }
  };
  expect_near(json.at("corrections").at("right_eye"), {{"pan_deg", 0.11},
                                                       {"tilt_deg", 0.12},
                                                       {"roll_deg", 0.13},
                                                       {"offset_x_px", 1.4},
                                                       {"offset_y_px", 1.5}});
  expect_near(json.at("corrections").at("left_eye"), {{"pan_deg", 0.21},
                                                      {"tilt_deg", 0.22},
                                                      {"roll_deg", 0.23},
                                                      {"offset_x_px", 2.4},
                                                      {"offset_y_px", 2.5}});
  const auto& evidence = json.at("verdict").at("evidence");
  expect_near(evidence, {{"matches", 505},
                         {"noise_px", 0.32},
                         {"systematic_px", 0.038},
                         {"coverage", 0.37},
                         {"unmoved_share", 0.033},
                         {"behind_share", 0.034},
                         {"exchanged_share", 0.035},
                         {"parallax_spread_px", 36},
                         {"expected_error_px", 0.041},
                         {"search_gap_px", 0.042}});
  expect_near(
      evidence.at("fitting_share"),
      {{"within_1_px", 0.91}, {"within_2_px", 0.97}, {"within_4_px", 0.98}, {"within_2_px_before", 0.31}});
  expect_near(evidence.at("difference_deviation"), {{"pan_deg", 0.001},
                                                    {"tilt_deg", 0.002},
                                                    {"roll_deg", 0.003},
                                                    {"offset_x_px", 0.004},
                                                    {"offset_y_px", 0.005}});
  expect_near(evidence.at("common_deviation"), {{"pan_deg", 0.006},
                                                {"tilt_deg", 0.007},
                                                {"roll_deg", 0.008},
                                                {"offset_x_px", 0.009},
                                                {"offset_y_px", 0.01}});
  ASSERT_EQ(evidence.at("rings").size(), 3u);
  expect_near(evidence.at("rings").at(2), {{"matches", 603}, {"fitting_share", 0.61}, {"bias_px", 0.62}});
  ASSERT_EQ(evidence.at("quadrants").size(), 4u);
  expect_near(evidence.at("quadrants").at(3), {{"matches", 704}, {"fitting_share", 0.71}, {"bias_px", 0.72}});
  EXPECT_EQ(evidence.at("at_limit"), nlohmann::json::parse(R"({"right_eye": [], "left_eye": ["roll"]})"));
  EXPECT_EQ(json.at("counts"),
            nlohmann::json::parse(R"({"left_half_keypoints": 501, "right_half_keypoints": 502,
                                  "matches": 503, "accepted": 504, "searched": 505})"));
  EXPECT_EQ(json.at("measures").at("quality"),
            nlohmann::json::parse(R"({"value": 0.06, "at_least": 0.05, "passed": true})"));
  EXPECT_EQ(json.at("measures").at("error16"),
            nlohmann::json::parse(R"({"value": 3.0, "below": 3.0, "passed": false})"));
  EXPECT_EQ(json.at("notes"), nlohmann::json({"A note on the frame."}));
}

// A result that calib() passes and the matches do not.
TEST(RunReport, EndsWithTheVerdictOfTheMatches) {
  RunReport report = report_of(TWINTRUE_CALIBRATED);
  report.frame_width = 2048;
  report.result.error16 = 0.5;
  report.out_lens = "corrected.lens";
  Evidence evidence;
  evidence.within = {0.9, 0.97, 0.98};
  evidence.parallax_spread = 10.0;
  const double angle = prior_of(1, report.frame_width);
  evidence.fit.common_sd = {0.1 * angle, angle, 0.1 * angle, 0.0, 0.0};
  report.evidence = evidence;
  EXPECT_EQ(verdict_of(report).outcome, Verdict::Outcome::kCalibrated);
  EXPECT_EQ(exit_code_of(report), ExitCode::kCalibrated);
  const std::string good = format_table(report);
  EXPECT_THAT(good, HasSubstr("verdict   calibrated\n"));
  EXPECT_THAT(good, testing::ContainsRegex("tilt[^\n]*not fixed\n"));
  EXPECT_THAT(good, testing::Not(testing::ContainsRegex("pan[^\n]*not fixed")));

  report.evidence->systematic = 3.0;
  report.evidence->within[1] = 0.6;
  EXPECT_EQ(exit_code_of(report), ExitCode::kQualityFailed);
  const std::string bad = format_table(report);
  EXPECT_THAT(bad, HasSubstr("verdict   not calibrated\n"));
  EXPECT_THAT(bad, HasSubstr("  - Only 60 % of the matches fit"));
  EXPECT_THAT(bad, HasSubstr("off by 3.00 pixels"));
  EXPECT_THAT(bad, HasSubstr("do not rely on it"));
  const auto json = nlohmann::json::parse(format_json(report));
  EXPECT_EQ(json.at("exit_code"), 6);
  EXPECT_EQ(json.at("calib_status"), 0);
  EXPECT_EQ(json.at("verdict").at("outcome"), "not_calibrated");
  EXPECT_EQ(json.at("verdict").at("reasons").at(1).at("key"), "systematic");
  EXPECT_EQ(json.at("verdict").at("evidence").at("systematic_px"), 3.0);

  // One cause stands alone, also before what the status says.
  report.evidence->exchanged = 0.9;
  report.status = TWINTRUE_QUALITY_FAILED;
  ASSERT_EQ(verdict_of(report).reasons.size(), 1U);
  EXPECT_EQ(verdict_of(report).reasons[0].key, kExchangedHalves);
  EXPECT_THAT(advice_for(report), HasSubstr("Swap the halves"));
  EXPECT_EQ(exit_code_of(report), ExitCode::kQualityFailed);

  // What the status says leads, and needs no evidence.
  report.status = TWINTRUE_TOO_FEW_MATCHES;
  report.evidence.reset();
  EXPECT_EQ(verdict_of(report).outcome, Verdict::Outcome::kNotCalibrated);
  ASSERT_EQ(verdict_of(report).reasons.size(), 1U);
  EXPECT_EQ(verdict_of(report).reasons[0].key, "too_few_matches");
  EXPECT_TRUE(nlohmann::json::parse(format_json(report)).at("verdict").at("evidence").is_null());
}

}  // namespace
}  // namespace twintrue::cli
