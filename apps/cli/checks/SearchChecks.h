#pragma once

// Checks of the sections `calib`, `calib1`, ...

#include <cstdint>
#include <string>

#include "apps/cli/checks/KeyProblems.h"
#include "params/ParamDocument.h"
#include "search/CalibContext.h"

namespace twintrue::cli {

// Loads the settings of the search for a frame of that width and notes all that would make the load refuse
// them, end the process, or leave the search without a score.
void check_search_sections(KeyProblems& problems, ParamDocument& document, std::int32_t frame_width,
                           CalibContext& context);

}  // namespace twintrue::cli
