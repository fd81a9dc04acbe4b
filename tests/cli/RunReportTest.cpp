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
  const std::vector<std::pair<std::string, std::string>> cases{
      {"Left image detection is failed(12)\n", "left half (right eye): 12 where 80 are wanted"},
      {"\nRight image detection is failed(79)\n", "right half (left eye): 79 where 80 are wanted"},
      {"format_version: 1.0\nMatching is failed(0)\n", "Too few matches between the two halves: 0 where 80"},
      {"format_version: 1.0\n", "they fill 25 % of the wanted places, and 40 % are needed"},
  };
  for (const auto& [chatter, words] : cases) {
    RunReport report = report_of(TWINTRUE_TOO_FEW_MATCHES);
    report.result.detection_ratio = 0.25;
    read_counts(chatter, report);
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

}  // namespace
}  // namespace twintrue::cli
