#include "apps/cli/commands/InspectChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <memory>
#include <string>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/KeyProblems.h"
#include "apps/cli/Problem.h"
#include "apps/cli/SearchChecks.h"
#include "apps/cli/SettingsCheck.h"
#include "features/DetectorSettings.h"
#include "features/FeatureUnit.h"
#include "features/MatchSettings.h"
#include "params/ParamDocument.h"
#include "search/CalibContext.h"

namespace twintrue::cli {
namespace {

bool is_one_of(std::int32_t value, std::initializer_list<std::int32_t> known) {
  return std::find(known.begin(), known.end(), value) != known.end();
}

bool in_range(std::int32_t value, std::int32_t low, std::int32_t high) {
  return value >= low && value <= high;
}

bool is_weight_mode(std::int32_t mode) { return in_range(mode, 0, 13); }

bool detection_runs(const fpu::DetectorSettings& detector) {
  return detector.lpf_bit == 0 && detector.det_type != 8 && detector.wta_k == 1 &&
         detector.desc_image_mode == 0 && is_one_of(detector.rnd_mode, {0, 1});
}

bool matching_runs(const fpu::FeatureUnit& unit) {
  const fpu::MatchingSettings& matching = unit.matchingSettings;
  const auto& modes = unit.mvcSettings.score_mode;
  return is_one_of(matching.k, {1, 2}) && is_one_of(matching.penalty_mode, {0, 1, 2, 3, 4, 5, 7}) &&
         std::all_of(modes.begin(), modes.end(), [](std::int32_t mode) { return in_range(mode, 0, 12); });
}

bool search_runs(const SettingsSource& source, std::int32_t frame_width) {
  const auto context = std::make_unique<CalibContext>();
  if (!load_calib_settings(*context, source.path(), frame_width)) return false;
  if (context->mode != kSearchMode || !is_weight_mode(context->score_weight_mode_last)) return false;
  for (std::size_t r = 0; r < kMaxRetries && static_cast<std::int32_t>(r) <= context->retry_count; ++r) {
    for (std::size_t l = 0; l < kMaxLevels && static_cast<std::int32_t>(l) < context->num_levels[r]; ++l) {
      if (context->skip[r][l] == 0 && !is_weight_mode(context->score_weight_mode[r][l])) return false;
    }
  }
  return true;
}

// Tests in the order in which the library would come to grief, so that no step of the tests ends the process.
bool stages_run(const SettingsSource& source, const LensFacts& lens, Reach reach) {
  const ChatterCapture quiet(ChatterCapture::Streams::kOutputAndErrors);
  try {
    ParamDocument document;
    if (!param_document_open(document, source.path())) return false;
    fpu::DetectorSettings detector;
    detector.read(param_root_child(document, "RENO"));
    if (!detection_runs(detector)) return false;
    fpu::MatchingSettings matching;
    fpu::load_matching_settings(matching, document, 0);
    if (!is_one_of(matching.out_mode, {0, 2})) return false;
  } catch (const std::exception&) {
    return false;
  }
  const auto unit = fpu::createFeatureUnit(source.path(), lens.view_width(), lens.view_height());
  if (!unit) return false;
  if (reach != Reach::kDetection && !matching_runs(*unit)) return false;
  return reach != Reach::kSearch || search_runs(source, lens.frame_width);
}

}  // namespace

void require_stages(const SettingsSource& source, const LensFacts& lens, Reach reach) {
  try {
    check_settings(source, lens);
  } catch (const Failure&) {
    if (!stages_run(source, lens, reach)) throw;
  }
}

void require_search(const SettingsSource& source, const LensFacts& lens) {
  ParamDocument document;
  std::string reason;
  try {
    if (!param_document_open(document, source.path())) reason = "the file can't be read";
  } catch (const std::exception& error) {
    reason = error.what();
  }
  if (!document.loaded) {
    throw Failure(ExitCode::kFileUnusable, Problem{fmt::format("PARAMS: {}", source.name()), reason,
                                                   "`section:` lines with indented `key: value` lines",
                                                   "correct the line that the message names"});
  }
  KeyProblems problems(source);
  const auto context = std::make_unique<CalibContext>();
  check_search_sections(problems, document, lens.frame_width, *context);
  if (!problems.all().empty() && !search_runs(source, lens.frame_width)) {
    throw Failure(ExitCode::kFileUnusable, problems.all());
  }
}

}  // namespace twintrue::cli
