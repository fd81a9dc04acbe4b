#pragma once

#include <cstdint>

#include "apps/cli/SettingsSource.h"
#include "apps/cli/checks/KeyProblems.h"
#include "apps/cli/checks/LensCheck.h"
#include "params/ParamDocument.h"

namespace twintrue::cli {

// What the report needs to know of the settings.
struct SettingsFacts {
  double failure_score_th = 0.0;    // least quality
  double detection_ratio_th = 0.0;  // least share of filled places
  double error16_th = 0.0;          // pixels; error16 must stay below
  std::int32_t rank_last = 0;
  std::int32_t cells = 0;
  std::int32_t levels = 0;      // of the first retry
  std::int32_t last_retry = 0;  // by its number; 0 is the first

  // Places that keypoints and matches are to fill: so many ranks of each cell.
  std::int64_t places() const { return (std::int64_t{rank_last} + 1) * cells; }
};

// Reads the settings. Throws Failure: input unreadable, or settings unusable with the reader's reason.
ParamDocument open_settings(const SettingsSource& source);

// Reads the settings by the loaders of the library and looks for all that keeps a run from coming that far:
// what would end the process, make calib() refuse the settings, or, for kResult, find nothing for certain.
// Throws Failure (settings unusable) with one problem a key.
SettingsFacts check_settings(const SettingsSource& source, const LensFacts& lens,
                             Reach reach = Reach::kResult);

// The same of settings that have been read, so that what is checked is what runs. Keys that are looked up are
// added to the document's tree.
SettingsFacts check_settings(const SettingsSource& source, ParamDocument& document, const LensFacts& lens,
                             Reach reach);

// The same for a search without the steps before it.
void check_search_settings(const SettingsSource& source, ParamDocument& document, const LensFacts& lens);

}  // namespace twintrue::cli
