#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>

#include "apps/cli/RunReport.h"

namespace twintrue::cli {
namespace {

// Insertion order, so that a person finds the fields where the table has them.
using Json = nlohmann::ordered_json;

constexpr double kDegreesPerRadian = 180.0 / std::numbers::pi;

Json head(ExitCode code, const char* outcome) {
  Json json;
  json["schema"] = kJsonSchema;
  json["program"] = "twintrue";
  json["version"] = TWINTRUE_VERSION;
  json["outcome"] = outcome;
  json["exit_code"] = static_cast<int>(code);
  return json;
}

const char* outcome_of(ExitCode code) {
  switch (code) {
    case ExitCode::kCalibrated:
      return "calibrated";
    case ExitCode::kTooFewMatches:
      return "too_few_matches";
    case ExitCode::kQualityFailed:
      return "quality_failed";
    default:
      return "error";
  }
}

// JSON knows neither infinity nor what is no number.
Json number(double value) { return std::isfinite(value) ? Json(value) : Json(nullptr); }

Json eye(bool known, double pan, double tilt, double roll, double offset_x, double offset_y) {
  Json json;
  if (!known) pan = tilt = roll = offset_x = offset_y = std::numeric_limits<double>::quiet_NaN();
  json["pan_rad"] = number(pan);
  json["tilt_rad"] = number(tilt);
  json["roll_rad"] = number(roll);
  json["pan_deg"] = number(pan * kDegreesPerRadian);
  json["tilt_deg"] = number(tilt * kDegreesPerRadian);
  json["roll_deg"] = number(roll * kDegreesPerRadian);
  json["offset_x_px"] = number(offset_x);
  json["offset_y_px"] = number(offset_y);
  return json;
}

Json eyes(bool known, const CalibResult& r) {
  return {
      {"right_eye", eye(known, r.right_pan, r.right_tilt, r.right_roll, r.right_offset_x, r.right_offset_y)},
      {"left_eye", eye(known, r.left_pan, r.left_tilt, r.left_roll, r.left_offset_x, r.left_offset_y)}};
}

Json shapes_json(const EyeShapes& shapes, const EyeShapes& deviations) {
  return {{"scale_ratio", number(std::exp(shapes.log_scale_ratio))},
          {"scale_ratio_deviation", number(deviations.log_scale_ratio)},
          {"shift_y", number(shapes.shift_y)},
          {"shift_y_deviation", number(deviations.shift_y)}};
}

Json measure(const Measure& measure) {
  Json json;
  json["value"] = measure.value ? number(*measure.value) : Json(nullptr);
  switch (measure.rule) {
    case Measure::Rule::kAtLeast:
      json["at_least"] = number(measure.threshold);
      break;
    case Measure::Rule::kBelow:
      json["below"] = number(measure.threshold);
      break;
    case Measure::Rule::kNone:
      break;
  }
  const std::optional<bool> passed = measure.passed();
  json["passed"] = passed ? Json(*passed) : Json(nullptr);
  return json;
}

Json part(const PartEvidence& part) {
  return {{"matches", part.matches}, {"fitting_share", number(part.fitting)}, {"bias_px", number(part.bias)}};
}

// Deviations of the five values, in the units of the corrections.
Json deviations(const std::array<double, 5>& values) {
  Json json;
  json["pan_deg"] = number(values[0] * kDegreesPerRadian);
  json["tilt_deg"] = number(values[1] * kDegreesPerRadian);
  json["roll_deg"] = number(values[2] * kDegreesPerRadian);
  json["offset_x_px"] = number(values[3]);
  json["offset_y_px"] = number(values[4]);
  return json;
}

Json evidence_json(const Evidence& evidence) {
  Json json;
  json["matches"] = evidence.matches;
  json["fitting_share"] = {{"within_1_px", number(evidence.within[0])},
                           {"within_2_px", number(evidence.within[1])},
                           {"within_4_px", number(evidence.within[2])},
                           {"within_2_px_before", number(evidence.before)}};
  json["noise_px"] = number(evidence.noise);
  json["systematic_px"] = number(evidence.systematic);
  json["coverage"] = number(evidence.coverage);
  json["unmoved_share"] = number(evidence.unmoved);
  json["behind_share"] = number(evidence.behind);
  json["exchanged_share"] = number(evidence.exchanged);
  json["parallax_spread_px"] = number(evidence.parallax_spread);
  json["expected_error_px"] = number(evidence.fit.expected_error);
  json["search_gap_px"] = number(evidence.fit.gap);
  json["change_px"] = number(evidence.change);
  json["at_rim"] = evidence.at_rim;
  json["graphics"] = {{"matches", evidence.graphics},
                      {"at_px", evidence.graphics > 0 ? Json(evidence.graphics_at) : Json(nullptr)}};
  json["shapes"] = shapes_json(evidence.fit.shapes, evidence.fit.shapes_sd);
  json["shapes"]["error_px"] = number(evidence.fit.shape_error);
  json["difference_deviation"] = deviations(evidence.fit.difference_sd);
  json["common_deviation"] = deviations(evidence.fit.common_sd);
  json["rings"] = Json::array();
  for (const PartEvidence& ring : evidence.rings) json["rings"].push_back(part(ring));
  json["quadrants"] = Json::array();
  for (const PartEvidence& quadrant : evidence.quadrants) json["quadrants"].push_back(part(quadrant));
  json["at_limit"] = {{"right_eye", evidence.right_at_limit}, {"left_eye", evidence.left_at_limit}};
  return json;
}

Json counts_json(const RunCounts& counts) {
  const auto count = [](std::optional<std::int32_t> value) { return value ? Json(*value) : Json(nullptr); };
  return {{"left_half_keypoints", count(counts.left_half_keypoints)},
          {"right_half_keypoints", count(counts.right_half_keypoints)},
          {"matches", count(counts.records)},
          {"accepted", count(counts.accepted)},
          {"searched", count(counts.searched)}};
}

Json verdict_json(const RunReport& report) {
  const Verdict verdict = verdict_of(report);
  Json json;
  json["outcome"] = name_of(verdict.outcome);
  json["reasons"] = Json::array();
  for (const VerdictReason& reason : verdict.reasons) {
    json["reasons"].push_back({{"key", reason.key}, {"found", reason.found}, {"to_do", reason.to_do}});
  }
  json["evidence"] = report.evidence ? evidence_json(*report.evidence) : Json(nullptr);
  return json;
}

// File names need not be UTF-8: what is not becomes a replacement character.
std::string dump(const Json& json) {
  return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

Json matrix_json(const PoseMatrix& matrix) {
  Json rows = Json::array();
  for (const PoseVector& row : matrix) {
    Json& values = rows.emplace_back(Json::array());
    for (const double value : row) values.push_back(number(value));
  }
  return rows;
}

// What refining came to, whether it was taken or not.
Json refining_json(const Refinement& refinement) {
  Json json;
  json["taken"] = refinement.taken;
  json["reason"] = refinement.taken ? Json(nullptr) : Json(refinement.reason);
  json["tried"] = refinement.tried;
  json["converged"] = refinement.converged;
  json["kept"] = refinement.kept;
  json["scatter_px"] = number(refinement.scatter);
  json["common_px"] = number(refinement.common);
  json["expected_error_px"] = number(refinement.expected_error);
  json["moved_px"] = number(refinement.moved);
  json["corrections"] = eyes(refinement.kept > 0, refinement.pose);
  // Radians and pixels.
  json["covariance_order"] = {"right_pan", "right_tilt", "right_roll", "right_offset_x", "right_offset_y",
                              "left_pan",  "left_tilt",  "left_roll",  "left_offset_x",  "left_offset_y"};
  json["covariance"] = matrix_json(refinement.covariance);
  json["correlation"] = matrix_json(refinement.correlation);
  return json;
}

// What was done behind the search, whose own pose stands here; null if that pose was asked for.
Json polished_json(const RunReport& report) {
  if (!report.polished) return nullptr;
  constexpr std::array<const char*, 5> kNames{"pan", "tilt", "roll", "offset_x", "offset_y"};
  const Settled& settled = report.polished->settled;
  Json json;
  json["search"] = eyes(report.has_pose(), report.result);
  json["settled"] = eyes(report.has_pose(), settled.pose);
  json["moved"] = settled.moved;
  json["shapes"] = report.fits_shapes ? shapes_json(settled.shapes, settled.shapes_sd) : Json(nullptr);
  json["difference_kept"] = Json::array();
  json["common_kept"] = Json::array();
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    if (settled.difference_kept[i]) json["difference_kept"].push_back(kNames[i]);
    if (settled.common_kept[i]) json["common_kept"].push_back(kNames[i]);
  }
  json["refining"] = refining_json(report.polished->refinement);
  return json;
}

}  // namespace

std::string format_json(const RunReport& report) {
  const ExitCode code = exit_code_of(report);
  Json json = head(code, outcome_of(code));
  json["calib_status"] = report.status;
  json["frame"] = {
      {"path", report.frame_path}, {"width", report.frame_width}, {"height", report.frame_height}};
  json["lens"] = report.lens_path;
  json["settings"] = report.settings_name;
  json["ignore_thresholds"] = report.ignore_thresholds;
  json["notes"] = report.notes;
  json["corrections"] = eyes(report.has_pose(), report.pose());
  json["polished"] = polished_json(report);
  for (const Measure& each : measures_of(report)) json["measures"][each.key] = measure(each);
  json["verdict"] = verdict_json(report);
  json["counts"] = counts_json(report.counts);
  json["grid_cells"] = report.settings.cells;
  json["out_lens"] = report.out_lens ? Json(*report.out_lens) : Json(nullptr);
  json["seconds"] = number(report.seconds);
  json["advice"] = advice_for(report);
  return dump(json);
}

std::string format_json(const Failure& failure) {
  Json json = head(failure.code(), "error");
  json["problems"] = Json::array();
  for (const Problem& problem : failure.problems()) {
    json["problems"].push_back({{"where", problem.where},
                                {"found", problem.found},
                                {"expected", problem.expected},
                                {"to_do", problem.remedy}});
  }
  return dump(json);
}

}  // namespace twintrue::cli
