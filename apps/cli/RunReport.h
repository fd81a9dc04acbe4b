#pragma once

// What a calibration gave, and how it is told: to a person as a table, to a program as JSON.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/ExitCode.h"
#include "apps/cli/Problem.h"
#include "apps/cli/SettingsCheck.h"
#include "twintrue/calib.h"
#include "verdict/Evidence.h"
#include "verdict/Verdict.h"

namespace twintrue::cli {

struct RunReport {
  std::string frame_path;
  std::uint32_t frame_width = 0;
  std::uint32_t frame_height = 0;
  std::string lens_path;
  std::string settings_name;
  bool ignore_thresholds = false;
  SettingsFacts settings;

  std::int32_t status = 0;  // of calib()
  CalibResult result{};
  // Counts that the library reported as too low.
  std::optional<std::int64_t> few_left_keypoints;
  std::optional<std::int64_t> few_right_keypoints;
  std::optional<std::int64_t> few_matches;
  std::optional<Evidence> evidence;     // of a search that ended
  std::optional<std::string> out_lens;  // the corrected file, if one was written
  bool out_lens_wanted = false;
  double seconds = 0.0;
};

// One number of the result beside what it has to reach.
struct Measure {
  enum class Rule { kAtLeast, kBelow, kNone };
  std::string key;    // in JSON
  std::string label;  // in the table
  std::string unit;
  std::optional<double> value;  // nothing: the run did not get that far
  Rule rule = Rule::kNone;
  double threshold = 0.0;

  // Nothing without a value or a threshold.
  std::optional<bool> passed() const;
};

// calib()'s status and the evidence together.
Verdict verdict_of(const RunReport& report);

ExitCode exit_code_of(const RunReport& report);

// Takes the counts from what the library printed.
void read_counts(const std::string& chatter, RunReport& report);

// Detection ratio, quality, error16 and score, in this order.
std::vector<Measure> measures_of(const RunReport& report);

// What the result means and what to do about it, one or two sentences.
std::string advice_for(const RunReport& report);

std::string format_table(const RunReport& report);

// Number of the JSON's layout; grows when a field changes its meaning or goes.
inline constexpr int kJsonSchema = 1;

std::string format_json(const RunReport& report);
std::string format_json(const Failure& failure);

}  // namespace twintrue::cli
