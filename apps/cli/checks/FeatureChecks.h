#pragma once

// Checks of the sections `grid`, `RENO`, `matching`, `mvc` and `vdet`.

#include <cstdint>

#include "apps/cli/checks/KeyProblems.h"
#include "apps/cli/checks/LensCheck.h"
#include "params/ParamDocument.h"

namespace twintrue::cli {

// Notes all that would end the process, make the set-up of the features fail, or detect or accept nothing.
// Returns the number of cells of the grid, 0 if it can't be laid. Looking keys up adds them to the document's
// tree.
std::int32_t check_feature_sections(KeyProblems& problems, ParamDocument& document, const LensFacts& lens);

}  // namespace twintrue::cli
