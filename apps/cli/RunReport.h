#pragma once

// What a calibration gave, and how it is told: to a person as a table, to a program as JSON.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/ExitCode.h"
#include "apps/cli/Problem.h"
#include "apps/cli/checks/SettingsCheck.h"
#include "twintrue/calib.h"
#include "verdict/Evidence.h"
#include "verdict/Polish.h"
#include "verdict/Verdict.h"

namespace twintrue::cli {

// What a run counted, as far as it came.
struct RunCounts {
  enum class Few { kNone, kLeftHalf, kRightHalf, kRecords };
  Few few = Few::kNone;  // the count that ended the run
  // Keypoints by the halves of the frame; the left one is the right eye's picture.
  std::optional<std::int32_t> left_half_keypoints;
  std::optional<std::int32_t> right_half_keypoints;
  std::optional<std::int32_t> records;   // matches between the halves
  std::optional<std::int32_t> accepted;  // of these
  std::optional<std::int32_t> searched;  // of these, those that the search had
};

struct RunReport {
  std::string frame_path;
  std::uint32_t frame_width = 0;
  std::uint32_t frame_height = 0;
  std::string lens_path;
  std::string settings_name;
  bool ignore_thresholds = false;
  SettingsFacts settings;

  std::int32_t status = 0;  // of calib()
  CalibResult result{};     // as the search left it
  // What is written in the place of the search's pose. Nothing if it was not asked for.
  std::optional<Polished> polished;
  bool fits_shapes = false;  // whether the shapes of the eyes' pictures were asked for
  RunCounts counts;
  std::optional<Evidence> evidence;     // of a search that ended
  std::optional<std::string> out_lens;  // the corrected file, if one was written
  std::vector<std::string> notes;       // what the person ought to know of the inputs
  double seconds = 0.0;

  // Whether there is a pose: without a search the result holds zeros.
  bool has_pose() const;
  // Whether calib()'s status alone rules the result out. Its quality test is of the search's pose, and says
  // nothing of one that was refined.
  bool status_decides() const;
  // Whether the corrections are so small that the frame can't tell them from none.
  bool lens_file_was_right() const;
  // The corrections: those that are written.
  const CalibResult& pose() const { return polished ? polished->pose : result; }
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

// Detection ratio, quality, error16 and score, in this order.
std::vector<Measure> measures_of(const RunReport& report);

// What the result means and what to do about it, one or two sentences.
std::string advice_for(const RunReport& report);

std::string format_table(const RunReport& report);

// Number of the JSON's layout; grows when a field changes its meaning or goes.
inline constexpr int kJsonSchema = 3;

std::string format_json(const RunReport& report);
std::string format_json(const Failure& failure);

}  // namespace twintrue::cli
