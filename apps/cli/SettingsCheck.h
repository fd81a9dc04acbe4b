#pragma once

#include <cstdint>

#include "apps/cli/LensCheck.h"
#include "apps/cli/SettingsSource.h"

namespace twintrue::cli {

// What the report needs to know of the settings.
struct SettingsFacts {
  double failure_score_th = 0.0;    // least quality
  double detection_ratio_th = 0.0;  // least share of filled places
  double error16_th = 0.0;          // pixels; error16 must stay below
  std::int32_t rank_last = 0;
  std::int32_t cells = 0;

  // Places that keypoints and matches are to fill: so many ranks of each cell.
  std::int64_t places() const { return (std::int64_t{rank_last} + 1) * cells; }
};

// Reads the settings by the loaders of the library and looks for all that would end the process, make calib()
// refuse them, or find nothing for certain. Throws Failure (settings unusable) with one problem a key.
SettingsFacts check_settings(const SettingsSource& source, const LensFacts& lens);

}  // namespace twintrue::cli
