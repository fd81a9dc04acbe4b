#include "matching/CandidateChoice.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace fpu {
namespace {

constexpr std::int32_t kMaxPenalty = 65535;

std::int64_t response_penalty(std::int32_t score, float coeff) {
  // Held to what converts; a penalty as large as the lower end allows is beyond every candidate, and so is
  // one that is no number.
  constexpr float kLeast = -2147483648.0f;
  const float weighed = std::floor(static_cast<float>(score) * coeff);
  const float held = weighed > kLeast ? std::min(weighed, static_cast<float>(kMaxPenalty)) : kLeast;
  return kMaxPenalty - static_cast<std::int64_t>(held);
}

// Integer estimate of the Euclidean length by an octagon.
std::int64_t octagon_length(std::int64_t dx, std::int64_t dy) {
  const std::int64_t hi = std::max(dx, dy);
  const std::int64_t lo = std::min(dx, dy);
  std::int64_t scaled = 1007 * hi + 441 * lo;
  if (hi < 16 * lo) scaled -= 40 * hi;
  return (scaled + 512) >> 10;
}

template <std::int32_t kMode>
std::int64_t penalty_of(const SearchRules& rules, std::int32_t dx, std::int32_t dy, std::int32_t score_a,
                        std::int32_t score_b) {
  const std::int64_t length = std::int64_t{dx} + dy;
  const auto low = [&] { return std::min(std::min(score_a, score_b) * 2, kMaxPenalty); };
  if constexpr (kMode == 1) {
    const std::int64_t shifted = rules.rshift < 0 ? length << -rules.rshift : length >> rules.rshift;
    return std::min<std::int64_t>(shifted, kMaxPenalty);
  } else if constexpr (kMode == 2) {
    return octagon_length(dx, dy) >> rules.rshift;
  } else if constexpr (kMode == 3) {
    return kMaxPenalty - low();
  } else if constexpr (kMode == 4) {
    return (length >> rules.rshift) * 65536 - low() + kMaxPenalty;
  } else if constexpr (kMode == 5) {
    return response_penalty(score_b, rules.res_coeff);
  } else {
    static_assert(kMode == 0);
    return 0;
  }
}

// The part of the area test that goes beyond the rectangle.
template <std::int32_t kMode>
bool lies_in_area(const SearchRules& rules, std::int32_t dx, std::int32_t dy) {
  if constexpr (kMode == 2) {
    return penalty_of<kMode>(rules, dx, dy, 0, 0) <= rules.max_h;  // the length itself bounds the area
  } else {
    return !rules.check_circle || std::int64_t{dx} * dx + std::int64_t{dy} * dy <= rules.circle2;
  }
}

// Offers the keypoints of the runs that lie in the area, whose distances have been measured. Penalties are
// never negative, so a distance that alone costs as much as the second best is passed over unseen.
template <std::int32_t kMode>
void offer_runs(const SearchInput& input, const Query& query, std::uint32_t nearest_two, Workspace& work,
                std::mt19937&, BestTwo& found) {
  constexpr int kShift = cost_shift_of(kMode);
  const PackedKeypoints& frame_b = input.frame_b;
  const std::uint32_t bound = input.distance_decides ? nearest_two : kOutside;
  const Lanes<std::uint32_t>* distances = work.distances.data();
  for (const Run run : work.runs) {
    if (found.second.cost == 0) return;  // nothing is cheaper, and the limit would wrap
    const std::uint32_t limit =
        std::min(bound, static_cast<std::uint32_t>((found.second.cost - 1) >> kShift));
    const std::size_t count = input.kernel.collect(distances, run.blocks(), limit, work.found.data());
    for (std::size_t i = 0; i < count; ++i) {
      const auto lane = static_cast<std::size_t>(work.found[i]);
      const std::size_t at = run.first_block() * kLanes + lane;
      const auto place = static_cast<std::int32_t>(at);
      const std::int32_t dx = std::abs(frame_b.x_of(place) - query.x);
      const std::int32_t dy = std::abs(frame_b.y_of(place) - query.y);
      if (frame_b.octave[at] != query.octave || !lies_in_area<kMode>(input.rules, dx, dy)) continue;
      const std::uint32_t distance = distances[lane / kLanes].v[lane % kLanes];
      const std::int64_t penalty = penalty_of<kMode>(input.rules, dx, dy, query.score, frame_b.score[at]);
      found.offer((std::int64_t{distance} << kShift) + penalty, place);
    }
    distances += run.blocks();
  }
}

// Every pair draws a number, those outside the area as well.
template <>
void offer_runs<kRandomPenaltyMode>(const SearchInput& input, const Query& query, std::uint32_t,
                                    Workspace& work, std::mt19937& draws, BestTwo& found) {
  const PackedKeypoints& frame_b = input.frame_b;
  const Lanes<std::uint32_t>* distances = work.distances.data();
  for (const Run run : work.runs) {
    for (std::int32_t place = run.begin; place < run.end; ++place) {
      const auto drawn = static_cast<std::int64_t>(draws() & 0xFFFU);
      const auto at = static_cast<std::size_t>(place);
      const std::uint32_t distance = distances[at / kLanes - run.first_block()].v[at % kLanes];
      const std::int32_t dx = std::abs(frame_b.x_of(place) - query.x);
      const std::int32_t dy = std::abs(frame_b.y_of(place) - query.y);
      if (distance == kOutside || frame_b.octave[at] != query.octave ||
          !lies_in_area<0>(input.rules, dx, dy)) {
        continue;
      }
      found.offer((std::int64_t{distance} << cost_shift_of(kRandomPenaltyMode)) + drawn, place);
    }
    distances += run.blocks();
  }
}

[[noreturn]] void offer_unknown(const SearchInput&, const Query&, std::uint32_t, Workspace&, std::mt19937&,
                                BestTwo&) {
  std::abort();
}

}  // namespace

OfferRuns offer_runs_of(std::int32_t penalty_mode) {
  switch (penalty_mode) {
    case 0:
      return offer_runs<0>;
    case 1:
      return offer_runs<1>;
    case 2:
      return offer_runs<2>;
    case 3:
      return offer_runs<3>;
    case 4:
      return offer_runs<4>;
    case 5:
      return offer_runs<5>;
    case kRandomPenaltyMode:
      return offer_runs<kRandomPenaltyMode>;
    default:
      return offer_unknown;
  }
}

bool penalty_is_fraction(std::int32_t penalty_mode, float res_coeff) {
  return penalty_mode == 0 || penalty_mode == 1 || penalty_mode == 3 ||
         (penalty_mode == 5 && res_coeff >= 0.0f);
}

}  // namespace fpu
