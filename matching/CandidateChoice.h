#pragma once

// The choice among the keypoints of an area: what a candidate costs, and which two are the cheapest.

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "matching/AreaKernel.h"
#include "matching/PackedKeypoints.h"

namespace fpu {

// Costs of candidates that aren't there: above all that the search takes, and in this order.
inline constexpr std::int64_t kNoBestCost = 2147483645;
inline constexpr std::int64_t kNoSecondCost = 2147483646;
inline constexpr std::int32_t kRandomPenaltyMode = 7;

// Whole units of a cost stand above this many bits; the penalties that have no whole unit get 16 below.
constexpr int cost_shift_of(std::int32_t penalty_mode) {
  return penalty_mode == 0 || penalty_mode == 2 ? 8 : 16;
}

// One run's settings in the form that the search reads.
struct SearchRules {
  std::int32_t max_h;  // pixels
  std::int32_t max_v;
  bool check_circle;
  std::int64_t circle2;  // max_h squared
  std::int32_t rshift;
  float res_coeff;
};

struct Candidate {
  std::int64_t cost;
  std::int32_t place;  // in the packed frame B; -1 means none
};

struct BestTwo {
  Candidate best{kNoBestCost, -1};
  Candidate second{kNoSecondCost, -1};

  // Of equal costs the one that came first stays in front.
  void offer(std::int64_t cost, std::int32_t place) {
    if (cost < best.cost) {
      second = best;
      best = {cost, place};
    } else if (cost < second.cost) {
      second = {cost, place};
    }
  }
};

// The keypoint of frame A that is searched for.
struct Query {
  std::int32_t x;
  std::int32_t y;
  std::int32_t score;
  std::int32_t octave;
};

// What one member of the team writes while it searches. Room for whatever may come is taken once a run, not
// once a keypoint.
struct Workspace {
  Workspace(const PackedKeypoints& frame_b, std::int32_t raster_rows, std::size_t query_words)
      : words(query_words) {
    runs.reserve(static_cast<std::size_t>(raster_rows));
    // The blocks at the two ends of a run may belong to its neighbours as well.
    distances.resize(frame_b.x.size() + 2 * static_cast<std::size_t>(raster_rows));
    found.resize(distances.size() * kLanes);
  }

  std::vector<Run> runs;
  std::vector<std::uint32_t> words;             // of the keypoint that is searched for
  std::vector<Lanes<std::uint32_t>> distances;  // block after block of run after run
  std::vector<std::int32_t> found;
};

// What a search knows of the frames.
struct SearchInput {
  const PackedKeypoints& frame_b;
  const SearchRules& rules;
  const AreaKernel& kernel;
  // No keypoint of the rectangle can fail for another reason, and no penalty reaches a whole unit of the
  // cost: then one that is farther than the two nearest can't be one of the two cheapest.
  bool distance_decides;
};

// Offers the keypoints of the workspace's runs, whose distances must have been measured, to `found`.
// `nearest_two`: an upper bound of the distance of the second nearest. Only the random mode draws.
using OfferRuns = void (*)(const SearchInput&, const Query&, std::uint32_t, Workspace&, std::mt19937&,
                           BestTwo&);

// For an unknown mode it gives one that aborts.
OfferRuns offer_runs_of(std::int32_t penalty_mode);

// Whether every penalty of the mode lies below a whole unit of the cost.
bool penalty_is_fraction(std::int32_t penalty_mode, float res_coeff);

}  // namespace fpu
