#pragma once

// A lens file's rig as the lens that the benchmarks project by themselves.

#include "lens/RigModel.h"
#include "support/PlainLens.h"

namespace twintrue::accuracy {

// Throws std::runtime_error for a rig with shear or translation: PlainLens has neither.
PlainLens plain_lens(const RigState& rig);

}  // namespace twintrue::accuracy
