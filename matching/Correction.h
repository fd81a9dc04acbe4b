#pragma once

// Support scores. A vector that many vectors around it resemble is likely true: they vote for it, each by
// its distinctness, and the scores are the sums of their votes. On the side, the histograms of all
// displacements give the gmv.

#include <cstdint>

#include "base/InstructionSet.h"
#include "features/FeatureFrame.h"
#include "features/MatchSettings.h"
#include "matching/MatchSet.h"

namespace fpu {

// Scores the vectors of every cell by those of the cell and of its neighbours as matching left them, and
// lets the cell keep what selection leaves. Sets the set's counts and total, and gmv_x and gmv_y of the
// settings (whole pixels). Without vectors the gmv is the histograms' first bin, about minus half the image.
//
// The settings must come from their loader, the frames from the set's unit. A cell's vectors beyond
// kMaxScoredInCell vote in the neighbour cells and are dropped in their own. Aborts on a score mode outside 0
// to 12 as soon as there is a vector. Runs on the calling thread; memory is taken once a call, not once a
// cell.
void correct_cells(CorrectionSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
                   MatchSet& match_set);

// The same with the vectors of one instruction set, which the machine must have. The result is the same for
// every set.
void correct_cells(CorrectionSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
                   MatchSet& match_set, twintrue::InstructionSet set);

// The vote of `voter` under a score mode (0 to 13, aborts on any other). `near`: the voter starts at about
// the same place as the vector that it votes for, and so tells less.
std::int32_t vote_kernel(std::int32_t mode, const CorrectionSettings& settings, const MatchVector& voter,
                         bool near);

// By what the scores of one cell are normalised.
struct ScoreScale {
  // `voters` is how many vectors vote in the cell, `neighbour_cells` how many cells around it. A cell that
  // has nothing to divide by is divided by 1.
  ScoreScale(const CorrectionSettings& settings, std::int64_t voters, std::int64_t neighbour_cells);

  std::int64_t n;
  std::int64_t coeff8;  // normalizing_coeff / n with 8 fraction bits
};

// The score that a sum of votes becomes under a score mode (0 to 12, aborts on any other). `vector` is the
// one voted for, `prev` the same score of its record in the previous pair or 0, `own_index` its place in the
// cell before the selection. Values beyond 32 bits are held at the ends of their range.
std::int32_t finish_score(std::int32_t mode, const CorrectionSettings& settings, const ScoreScale& scale,
                          std::int64_t sum, const MatchVector& vector, std::int32_t prev,
                          std::int32_t own_index);

}  // namespace fpu
