#pragma once

// The test pattern of the descriptor: 512 random points round the keypoint, and a chain of some of them whose
// consecutive pixels are compared. Points are whole pixels relative to the keypoint, x to the right and y
// downward. The same settings give the same pattern on every machine.

#include <array>
#include <cstdint>
#include <ostream>
#include <vector>

#include "features/DetectorSettings.h"

namespace fpu {

struct PatternPoint {
  std::int32_t x = 0;
  std::int32_t y = 0;
  friend bool operator==(const PatternPoint&, const PatternPoint&) = default;
};

inline constexpr std::size_t kCandidates = 512;
using CandidatePattern = std::array<PatternPoint, kCandidates>;

// The candidates, with |x| and |y| at most patchSize / 2. rnd_mode 0 draws them uniformly, 1 with deviation
// rSigma round the centre; any other mode writes a message to standard error and ends the process with exit
// code 1.
CandidatePattern makePattern(std::int32_t patchSize, std::int32_t rnd_mode, float rSigma, std::uint64_t seed);

// How a chain is picked from the candidates.
struct ChainRules {
  std::int32_t bits = 0;  // comparisons; the chain has one point more
  std::int32_t patchSize = 0;
  std::int32_t weightDist =
      0;                      // non-zero: the first half of the chain (at most (patchSize / 2)^2 points) lies
                              // in the central square, |x| and |y| at most patchSize / 4, the rest outside
  std::int32_t posLimit = 0;  // bit 2: no point within a pixel of the one before it (inside the central
                              // square only with bit 1); bit 4: none within a pixel of the one before that
  std::uint64_t seed = 0;
};

ChainRules chain_rules(const DetectorSettings& settings);

// Whether selectPattern can come to an end: enough different candidates, inside and outside the central
// square where the rules tell them apart. The neighbour rules never stand in the way, since a point gives
// them up after a number of attempts.
bool chain_can_be_completed(const CandidatePattern& candidates, const ChainRules& rules);

// The chain: bits + 1 different points, in a vector of 2 * bits + 1 whose other entries are zero. Steps go to
// `histogram`, one line each after a heading. Prints "GU" to standard output at each draw of a point that
// gave the neighbour rules up. Does not end unless chain_can_be_completed.
std::vector<PatternPoint> select_chain(const CandidatePattern& candidates, const ChainRules& rules,
                                       std::ostream& histogram);

// The chain of the settings, as description uses it. Leaves the histogram in ./histgram/hist_0.csv, if that
// folder exists. Aborts unless wta_k is 1.
std::vector<PatternPoint> selectPattern(const CandidatePattern& candidates, const DetectorSettings& settings);

}  // namespace fpu
