#include "apps/cli/RunReport.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <numbers>
#include <string_view>

#include "apps/TwinTrue/RunDriver.h"

namespace twintrue::cli {
namespace {

constexpr double kDegreesPerRadian = 180.0 / std::numbers::pi;
constexpr double kNotReached = -1.0;  // what calib() leaves in a number that it did not work out

// The number that the library put into the message's place for it, if it printed the message.
std::optional<std::int64_t> count_in(std::string_view chatter, std::string_view message) {
  const std::string_view words = message.substr(0, message.find('{'));
  const std::size_t start = chatter.find(words);
  if (start == std::string_view::npos) return std::nullopt;
  const char* const first = chatter.data() + start + words.size();
  std::int64_t count = 0;
  const auto [end, error] = std::from_chars(first, chatter.data() + chatter.size(), count);
  if (error != std::errc{}) return std::nullopt;
  return count;
}

std::optional<double> reached(double value) {
  return value == kNotReached ? std::nullopt : std::optional<double>(value);
}

std::string few(std::int64_t count, const RunReport& report) {
  const double wanted =
      std::ceil(report.settings.detection_ratio_th * static_cast<double>(report.settings.places()));
  return fmt::format("{} where {:.0f} are wanted", count, wanted);
}

std::string too_few_advice(const RunReport& report) {
  constexpr std::string_view kRemedy =
      "Take a frame of a well-lit scene with texture all over both pictures, in focus and unscaled, or go on "
      "regardless with --ignore-thresholds.";
  if (report.few_left_keypoints) {
    return fmt::format("Too few keypoints in the left half (right eye): {}. {}",
                       few(*report.few_left_keypoints, report), kRemedy);
  }
  if (report.few_right_keypoints) {
    return fmt::format("Too few keypoints in the right half (left eye): {}. {}",
                       few(*report.few_right_keypoints, report), kRemedy);
  }
  if (report.few_matches) {
    return fmt::format("Too few matches between the two halves: {}. {}", few(*report.few_matches, report),
                       kRemedy);
  }
  return fmt::format(
      "Too few good matches: they fill {:.0f} % of the wanted places, and {:.0f} % are needed. {}",
      100.0 * report.result.detection_ratio, 100.0 * report.settings.detection_ratio_th, kRemedy);
}

std::string quality_advice(const RunReport& report) {
  const std::string_view file =
      report.out_lens ? " The corrected lens file was written all the same; do not rely on it." : "";
  return fmt::format(
      "The matches fit no pose of the two eyes well enough. Check that the lens file belongs to this lens "
      "and "
      "frame, and take a frame with texture at several distances.{}",
      file);
}

std::string verdict_of(const Measure& measure) {
  const std::optional<bool> passed = measure.passed();
  if (!measure.value) return "not reached";
  if (!passed) return "";
  return *passed ? "ok" : "FAILED";
}

std::string number_of(const Measure& measure) {
  return measure.value ? fmt::format("{:.4g}{}", *measure.value, measure.unit) : "-";
}

std::string wanted_of(const Measure& measure) {
  switch (measure.rule) {
    case Measure::Rule::kAtLeast:
      return fmt::format("at least {:g}{}", measure.threshold, measure.unit);
    case Measure::Rule::kBelow:
      return fmt::format("below {:g}{}", measure.threshold, measure.unit);
    case Measure::Rule::kNone:
      break;
  }
  return "no threshold";
}

// Folds a text at blanks.
std::string folded(std::string_view text) {
  constexpr std::size_t kColumns = 88;
  std::string out;
  std::size_t column = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (column > 0 && column + 1 + end > kColumns) {
      out += '\n';
      column = 0;
    } else if (column > 0) {
      out += ' ';
      ++column;
    }
    out += text.substr(0, end);
    column += end;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out + "\n";
}

}  // namespace

std::optional<bool> Measure::passed() const {
  if (!value || rule == Rule::kNone) return std::nullopt;
  return rule == Rule::kAtLeast ? *value >= threshold : *value < threshold;
}

ExitCode exit_code_of(const RunReport& report) {
  switch (report.status) {
    case TWINTRUE_CALIBRATED:
      return ExitCode::kCalibrated;
    case TWINTRUE_LENS_UNREADABLE:
      return ExitCode::kFileUnusable;
    case TWINTRUE_QUALITY_FAILED:
      return ExitCode::kQualityFailed;
    case TWINTRUE_TOO_FEW_MATCHES:
      return ExitCode::kTooFewMatches;
    default:
      return ExitCode::kOther;
  }
}

void read_counts(const std::string& chatter, RunReport& report) {
  report.few_left_keypoints = count_in(chatter, kFewLeftKeypoints);
  report.few_right_keypoints = count_in(chatter, kFewRightKeypoints);
  report.few_matches = count_in(chatter, kFewMatches);
}

std::vector<Measure> measures_of(const RunReport& report) {
  const CalibResult& result = report.result;
  const bool searched = result.error16 != kNotReached;
  return {
      {"detection_ratio", "detection ratio", "", reached(result.detection_ratio), Measure::Rule::kAtLeast,
       report.settings.detection_ratio_th},
      {"quality", "quality", "", searched ? std::optional(result.quality) : std::nullopt,
       Measure::Rule::kAtLeast, report.settings.failure_score_th},
      {"error16", "error16", " px", reached(result.error16), Measure::Rule::kBelow,
       report.settings.error16_th},
      {"score", "score", "", searched ? std::optional(result.score) : std::nullopt, Measure::Rule::kNone,
       0.0},
  };
}

std::string advice_for(const RunReport& report) {
  switch (report.status) {
    case TWINTRUE_CALIBRATED:
      if (report.out_lens) return fmt::format("Calibrated. The corrected lens file is {}.", *report.out_lens);
      return "Calibrated. Give -o OUT_LENS to have the corrected lens file written.";
    case TWINTRUE_TOO_FEW_MATCHES:
      return too_few_advice(report);
    case TWINTRUE_QUALITY_FAILED:
      return quality_advice(report);
    default:
      return fmt::format(
          "The calibration ended with status {} before the search. Run again with -v to see what the "
          "library says.",
          report.status);
  }
}

std::string format_table(const RunReport& report) {
  struct Row {
    const char* label;
    double right;
    double left;
    bool degrees;
  };
  const CalibResult& r = report.result;
  const std::array<Row, 5> rows{{{"pan", r.right_pan, r.left_pan, true},
                                 {"tilt", r.right_tilt, r.left_tilt, true},
                                 {"roll", r.right_roll, r.left_roll, true},
                                 {"offset x", r.right_offset_x, r.left_offset_x, false},
                                 {"offset y", r.right_offset_y, r.left_offset_y, false}}};
  std::string out =
      fmt::format("frame     {} ({} x {})\nlens      {}\nsettings  {}\n\n", report.frame_path,
                  report.frame_width, report.frame_height, report.lens_path, report.settings_name);
  if (r.error16 != kNotReached) {
    out += fmt::format("{:<17}{:>14}{:>18}\n", "correction", "right eye", "left eye");
    for (const Row& row : rows) {
      if (row.degrees) {
        out += fmt::format("  {:<15}{:>+10.4f} deg{:>+14.4f} deg\n", row.label, row.right * kDegreesPerRadian,
                           row.left * kDegreesPerRadian);
      } else {
        out += fmt::format("  {:<15}{:>+10.3f} px {:>+14.3f} px\n", row.label, row.right, row.left);
      }
    }
    out += '\n';
  }
  out += fmt::format("{:<17}{:>14}   {:<16}  {}\n", "measure", "found", "wanted", "verdict");
  for (const Measure& measure : measures_of(report)) {
    std::string line = fmt::format("  {:<15}{:>14}   {:<16}  {}", measure.label, number_of(measure),
                                   wanted_of(measure), verdict_of(measure));
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n";
  }
  return out + "\n" + folded(advice_for(report));
}

}  // namespace twintrue::cli
