#pragma once

#include "apps/cli/commands/InspectJson.h"
#include "search/CalibContext.h"

namespace twintrue::cli {

// The settings of the search, tables by retry and level in full; without what a run works out.
Json calib_json(const CalibContext& context);

}  // namespace twintrue::cli
