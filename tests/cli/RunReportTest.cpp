#include "apps/cli/RunReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

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
