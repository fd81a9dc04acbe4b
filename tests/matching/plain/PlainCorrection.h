#pragma once

// The scores of correction vote by vote: the reference that the fast form must equal, and the yardstick of
// its speed.

#include "features/FeatureFrame.h"
#include "features/MatchSettings.h"
#include "matching/MatchSet.h"

namespace plain_matching {

// As fpu::correct_cells, for vectors that all have a partner.
void correct_cells(fpu::CorrectionSettings& settings, const fpu::FeatureFrame& frame_a,
                   const fpu::FeatureFrame& frame_b, fpu::MatchSet& set);

}  // namespace plain_matching
