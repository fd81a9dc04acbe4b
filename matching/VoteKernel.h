#pragma once

// The inner loop of correction: the votes that a vector gets from those around it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/InstructionSet.h"

namespace fpu {

inline constexpr std::size_t kScores = 4;

// Voters side by side. A voter's votes depend on it alone, so they are counted out once and not for every
// vector that it votes for.
struct VoterColumns {
  std::vector<std::int32_t> dx;  // displacement, eighths of a pixel
  std::vector<std::int32_t> dy;
  std::vector<std::int32_t> x;  // position in frame A, whole pixels
  std::vector<std::int32_t> y;
  std::array<std::vector<std::int32_t>, kScores> near_votes;
  std::array<std::vector<std::int32_t>, kScores> far_votes;

  // Calls `visit` with each column of this and the same one of `other`.
  template <class Other, class Visit>
  void with(Other& other, Visit&& visit) {
    visit(dx, other.dx);
    visit(dy, other.dy);
    visit(x, other.x);
    visit(y, other.y);
    for (std::size_t i = 0; i < kScores; ++i) {
      visit(near_votes[i], other.near_votes[i]);
      visit(far_votes[i], other.far_votes[i]);
    }
  }
};

// Who votes for a vector, and as what.
struct VoteLimits {
  std::array<std::int64_t, kScores>
      radius;         // of the displacements' difference; eighths of a pixel, 0 or more
  std::int64_t near;  // pixels, 0 or more: voters that start this near to the vector count as near ones
};

// The vector that is voted for.
struct VotedFor {
  std::int32_t dx;
  std::int32_t dy;
  std::int32_t x;
  std::int32_t y;
};

using VoteSums = std::array<std::int64_t, kScores>;

// Voters come in blocks of this many.
inline constexpr std::size_t kVoterBlock = 16;

// Adds up the votes of the first `count` voters, a multiple of kVoterBlock.
using SumVotesFn = void (*)(const VoterColumns& voters, std::size_t count, const VoteLimits& limits,
                            const VotedFor& vector, VoteSums& sums);

// The form for a set that this machine has. It counts in 32 bits: `count` voters with votes up to
// `most_votes` must allow for it, and so must the limits. Where they don't, another form comes back, which
// always serves.
SumVotesFn sum_votes(twintrue::InstructionSet set, const VoteLimits& limits, std::size_t count,
                     std::int64_t most_votes);

}  // namespace fpu
