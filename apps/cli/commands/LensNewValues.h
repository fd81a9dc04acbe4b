#pragma once

#include "apps/cli/commands/LensNew.h"
#include "lens/FirstLens.h"

namespace twintrue::cli {

// The arguments as numbers, in the frame's coordinates. Throws Failure (usage) for what can't be read,
// contradicts or is missing; what the numbers say of a lens is for make_first_lens() to judge.
FirstLensInput first_lens_input(const LensNewArguments& arguments);

}  // namespace twintrue::cli
