#include "apps/cli/RunReport.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <numbers>
#include <string_view>

namespace twintrue::cli {
namespace {

constexpr double kDegreesPerRadian = 180.0 / std::numbers::pi;
constexpr double kNotReached = -1.0;  // what calib() leaves in a number that it did not work out

std::optional<double> reached(double value) {
  return value == kNotReached ? std::nullopt : std::optional<double>(value);
}

std::string few(std::optional<std::int32_t> count, const RunReport& report) {
  const double wanted =
      std::ceil(report.settings.detection_ratio_th * static_cast<double>(report.settings.places()));
  return fmt::format("{} where {:.0f} are wanted", count.value_or(0), wanted);
}

std::string too_few_found(const RunReport& report) {
  switch (report.counts.few) {
    case RunCounts::Few::kLeftHalf:
      return fmt::format("Too few keypoints in the left half (right eye): {}.",
                         few(report.counts.left_half_keypoints, report));
    case RunCounts::Few::kRightHalf:
      return fmt::format("Too few keypoints in the right half (left eye): {}.",
                         few(report.counts.right_half_keypoints, report));
    case RunCounts::Few::kRecords:
      return fmt::format("Too few matches between the two halves: {}.", few(report.counts.records, report));
    case RunCounts::Few::kNone:
      break;
  }
  return fmt::format(
      "Too few good matches: they fill {:.0f} % of the wanted places, and {:.0f} % are needed.",
      100.0 * report.result.detection_ratio, 100.0 * report.settings.detection_ratio_th);
}

std::string failed_measures(const RunReport& report) {
  std::string failed;
  for (const Measure& measure : measures_of(report)) {
    if (measure.passed().value_or(true)) continue;
    failed += fmt::format("{}{} is {} where {} is wanted", failed.empty() ? "" : ", ", measure.label,
                          number_of(measure), wanted_of(measure));
  }
  return failed;
}

// Why the status alone rules a result out.
VerdictReason reason_of_status(const RunReport& report) {
  switch (report.status) {
    case TWINTRUE_TOO_FEW_MATCHES:
      return {
          "too_few_matches", too_few_found(report),
          "Take a frame of a well-lit scene with texture all over both pictures, in focus and unscaled, or "
          "go on regardless with --ignore-thresholds."};
    case TWINTRUE_QUALITY_FAILED:
      return {
          "quality",
          fmt::format("The matches fit no pose of the two eyes well enough: {}.", failed_measures(report)),
          "Check that the lens file belongs to this lens and frame, and take a frame with texture at "
          "several distances."};
    default:
      return {"error", fmt::format("The calibration ended with status {} before the search.", report.status),
              "Run again with -v to see what the library says."};
  }
}

// A reason that the status, too, follows from.
bool has_one_cause(const Verdict& verdict) {
  return !verdict.reasons.empty() && verdict.reasons.front().key == kExchangedHalves;
}

std::string file_note(const RunReport& report) {
  if (report.lens_file_was_right()) {
    return fmt::format("The lens file was already right as far as this frame can tell: keep it.{}",
                       report.out_lens ? fmt::format(" {} was written all the same.", *report.out_lens) : "");
  }
  if (report.out_lens) return fmt::format("The corrected lens file is {}.", *report.out_lens);
  return "Give -o OUT_LENS to have the corrected lens file written.";
}

std::string file_warning(const RunReport& report) {
  return report.out_lens ? " The corrected lens file was written all the same; do not rely on it." : "";
}

// How far the matches fix a value, a standard deviation. `angle` in radians or a length in pixels.
std::string fixed_to(double deviation, double prior, bool is_angle) {
  if (is_open(deviation, prior)) return kNotFixed;
  // Deviations are estimates: two digits say enough.
  if (is_angle) return fmt::format("{:.2g} deg", deviation * kDegreesPerRadian);
  return fmt::format("{:.2g} px", deviation);
}

// Whether the lens file's own value was kept, since the matches tell next to nothing of it.
bool keeps(const RunReport& report, std::array<bool, 5> Settled::*kept, std::size_t value) {
  return report.polished && !report.polished->refinement.taken && (report.polished->settled.*kept)[value];
}

// Numbers of both units end in one column.
std::string padded(const std::string& number) { return number.ends_with(" px") ? number + " " : number; }

std::string corrections_table(const RunReport& report) {
  std::string out = fmt::format("{:<17}{:>14}{:>18}", "correction", "right eye", "left eye");
  if (report.evidence) out += fmt::format("{:>18}{:>16}", "difference +-", "in common +-");
  out += '\n';
  for (const Correction& row : corrections_of(report)) {
    if (std::string_view(row.unit) == "deg") {
      out += fmt::format("  {:<15}{:>+10.4f} deg{:>+14.4f} deg", row.label, row.right_eye, row.left_eye);
    } else {
      out += fmt::format("  {:<15}{:>+10.3f} px {:>+14.3f} px ", row.label, row.right_eye, row.left_eye);
    }
    out += fmt::format("{:>18}{:>16}", padded(row.difference), padded(row.common));
    out.erase(out.find_last_not_of(' ') + 1);
    out += '\n';
  }
  if (report.evidence) {
    out +=
        "  +-: one standard deviation, of the right eye against the left one and of what both have in "
        "common\n";
    if (out.find(kKept) != std::string::npos) {
      out += "  kept: the frame hardly tells, so it stays as the lens file has it\n";
    }
  }
  return out;
}

// Folds a text at blanks. `indent` stands before every line but the first.
std::string folded(std::string_view text, std::string_view indent = "") {
  const std::size_t kColumns = 88 - indent.size();
  std::string out;
  std::size_t column = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (column > 0 && column + 1 + end > kColumns) {
      out += '\n';
      out += indent;
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

// What the matches say, in a line each.
std::string evidence_lines(const RunReport& report) {
  const Evidence& evidence = *report.evidence;
  std::string out = fmt::format(
      "matches   {} in the search; within 2 px: {:.0f} % before, {:.0f} % now\n"
      "picture   expected error {:.2g} px over the field; the corrections move it by {:.2g} px\n",
      evidence.matches, 100.0 * evidence.before, 100.0 * evidence.within[1], evidence.fit.expected_error,
      evidence.change);
  if (evidence.graphics > 0) {
    out += fmt::format(
        "left out  {} matches on graphics burned into both halves near ({:.0f}, {:.0f}) of a half\n",
        evidence.graphics, evidence.graphics_at[0], evidence.graphics_at[1]);
  }
  if (!report.polished) return out;
  const Refinement& refinement = report.polished->refinement;
  if (refinement.taken) {
    out += fmt::format("refined   by {} of {} matches, good to {:.2g} px\n", refinement.kept,
                       refinement.tried, refinement.scatter);
  } else {
    out += folded(fmt::format("refined   no: {} The fit to the search's matches stands.", refinement.reason),
                  "          ");
  }
  if (report.fits_shapes) {
    const Settled& settled = report.polished->settled;
    out += fmt::format(
        "shapes    right eye against left: scale {:.5f} (+- {:.5f}), centring {:+.5f} (+- {:.5f})\n",
        std::exp(settled.shapes.log_scale_ratio), settled.shapes_sd.log_scale_ratio, settled.shapes.shift_y,
        settled.shapes_sd.shift_y);
  }
  return out;
}

}  // namespace

bool RunReport::has_pose() const { return result.error16 != kNotReached; }

bool RunReport::status_decides() const {
  return status != TWINTRUE_CALIBRATED &&
         !(status == TWINTRUE_QUALITY_FAILED && polished && polished->refinement.taken);
}

bool RunReport::lens_file_was_right() const {
  constexpr double kTold = 2.0;  // expected errors that a change has to be
  return evidence && !fits_shapes && evidence->change <= kTold * evidence->fit.expected_error;
}

std::optional<bool> Measure::passed() const {
  if (!value || rule == Rule::kNone) return std::nullopt;
  return rule == Rule::kAtLeast ? *value >= threshold : *value < threshold;
}

Verdict verdict_of(const RunReport& report) {
  Verdict verdict;
  if (report.evidence) verdict = judge_evidence(*report.evidence);
  if (report.status == TWINTRUE_CALIBRATED) return verdict;
  if (!report.status_decides()) {
    if (verdict.outcome == Verdict::Outcome::kCalibrated) verdict.outcome = Verdict::Outcome::kCalibratedBut;
    if (has_one_cause(verdict)) return verdict;
    verdict.reasons.push_back(
        {"search_quality",
         fmt::format("The search's own pose failed the quality test: {}.", failed_measures(report)),
         "What is written was refined from there and fits; if the eyes really are that far apart, all is "
         "well."});
    return verdict;
  }
  verdict.outcome = Verdict::Outcome::kNotCalibrated;
  if (!has_one_cause(verdict)) verdict.reasons.insert(verdict.reasons.begin(), reason_of_status(report));
  return verdict;
}

std::string number_of(const Measure& measure) {
  if (measure.value && std::isnan(*measure.value)) return "no number";
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

std::string test_of(const Measure& measure) {
  const std::optional<bool> passed = measure.passed();
  if (!measure.value) return "not reached";
  if (!passed) return "";
  return *passed ? "ok" : "FAILED";
}

std::vector<Correction> corrections_of(const RunReport& report) {
  const CalibResult& r = report.pose();
  constexpr double kDegrees = kDegreesPerRadian;
  std::vector<Correction> rows{{"pan", "deg", r.right_pan * kDegrees, r.left_pan * kDegrees, "", ""},
                               {"tilt", "deg", r.right_tilt * kDegrees, r.left_tilt * kDegrees, "", ""},
                               {"roll", "deg", r.right_roll * kDegrees, r.left_roll * kDegrees, "", ""},
                               {"offset x", "px", r.right_offset_x, r.left_offset_x, "", ""},
                               {"offset y", "px", r.right_offset_y, r.left_offset_y, "", ""}};
  if (!report.evidence) return rows;
  const PoseFit& fit = report.evidence->fit;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const bool is_angle = std::string_view(rows[i].unit) == "deg";
    const double prior = prior_of(i, report.frame_width);
    // Two eyes whose values are known that well each: their difference and their mean.
    rows[i].difference = keeps(report, &Settled::difference_kept, i)
                             ? kKept
                             : fixed_to(fit.difference_sd[i], prior * std::numbers::sqrt2, is_angle);
    rows[i].common = keeps(report, &Settled::common_kept, i)
                         ? kKept
                         : fixed_to(fit.common_sd[i], prior / std::numbers::sqrt2, is_angle);
  }
  return rows;
}

ExitCode exit_code_of(const RunReport& report) {
  switch (report.status) {
    case TWINTRUE_CALIBRATED:
    case TWINTRUE_QUALITY_FAILED:
      return verdict_of(report).outcome == Verdict::Outcome::kNotCalibrated ? ExitCode::kQualityFailed
                                                                            : ExitCode::kCalibrated;
    case TWINTRUE_LENS_UNREADABLE:
      return ExitCode::kFileUnusable;
    case TWINTRUE_TOO_FEW_MATCHES:
      return ExitCode::kTooFewMatches;
    default:
      return ExitCode::kOther;
  }
}

std::vector<Measure> measures_of(const RunReport& report) {
  const CalibResult& result = report.result;
  const bool searched = report.has_pose();
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
  const Verdict verdict = verdict_of(report);
  if (report.status_decides()) {
    const VerdictReason& first = verdict.reasons.front();
    return fmt::format("{} {}{}", first.found, first.to_do, file_warning(report));
  }
  switch (verdict.outcome) {
    case Verdict::Outcome::kNotCalibrated:
      return fmt::format("Not calibrated: the pose found is not the one of the two eyes.{}",
                         file_warning(report));
    case Verdict::Outcome::kCalibratedBut:
      return fmt::format("Calibrated, with the reservations above. {}", file_note(report));
    default:
      return fmt::format("Calibrated. {}", file_note(report));
  }
}

std::string format_table(const RunReport& report) {
  std::string out =
      fmt::format("frame     {} ({} x {})\nlens      {}\nsettings  {}\n", report.frame_path,
                  report.frame_width, report.frame_height, report.lens_path, report.settings_name);
  for (const std::string& note : report.notes) out += fmt::format("note      {}", folded(note, "          "));
  out += "\n";
  if (report.has_pose()) out += corrections_table(report) + "\n";
  out += fmt::format("{:<17}{:>14}   {:<16}  {}\n", "measure", "found", "wanted", "test");
  for (const Measure& measure : measures_of(report)) {
    std::string line = fmt::format("  {:<15}{:>14}   {:<16}  {}", measure.label, number_of(measure),
                                   wanted_of(measure), test_of(measure));
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n";
  }
  if (report.evidence) out += fmt::format("\n{}", evidence_lines(report));
  const Verdict verdict = verdict_of(report);
  out += fmt::format("\nverdict   {}\n", words_of(verdict.outcome));
  // Of a status that rules the result out, the first reason stands in the advice.
  const std::size_t first = report.status_decides() ? 1 : 0;
  for (std::size_t i = first; i < verdict.reasons.size(); ++i) {
    const VerdictReason& reason = verdict.reasons[i];
    out += fmt::format("  - {}", folded(fmt::format("{} {}", reason.found, reason.to_do), "    "));
  }
  return fmt::format("{}\n{}", out, folded(advice_for(report)));
}

}  // namespace twintrue::cli
