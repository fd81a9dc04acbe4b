#include "matching/Matching.h"

#include <omp.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "matching/PackedKeypoints.h"
#include "matching/ThreadCountKeeper.h"

namespace fpu {
namespace {

// Costs of candidates that aren't there: above all that the search takes, and in this order.
constexpr std::int64_t kNoBestCost = 2147483645;
constexpr std::int64_t kNoSecondCost = 2147483646;
constexpr std::int32_t kMaxPenalty = 65535;
constexpr std::int32_t kRandomPenaltyMode = 7;

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
  std::int32_t bytes;  // of a descriptor
  std::int32_t split_bit;
  std::int32_t weight;
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
  const unsigned char* descriptor;
};

// Neighbouring keypoints in the packed frame B.
struct Run {
  std::int32_t begin;
  std::int32_t end;
};

std::int64_t response_penalty(std::int32_t score, float coeff) {
  // Held to what converts; a penalty as large as the lower end allows is beyond every candidate.
  const float weighed = std::floor(static_cast<float>(score) * coeff);
  const float held = std::clamp(weighed, -2147483648.0f, static_cast<float>(kMaxPenalty));
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
                        std::int32_t score_b, std::mt19937& draws) {
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
  } else if constexpr (kMode == kRandomPenaltyMode) {
    return static_cast<std::int64_t>(draws() & 0xFFFU);
  } else {
    static_assert(kMode == 0);
    return 0;
  }
}

// Offers the keypoints of one run that lie in the area. Positions are tested before a descriptor is touched.
template <std::int32_t kMode>
void search_run(const PackedKeypoints& frame_b, Run run, const Query& query, const SearchRules& rules,
                std::mt19937& draws, BestTwo& found) {
  constexpr int kShift = cost_shift_of(kMode);
  for (std::int32_t i = run.begin; i < run.end; ++i) {
    const auto place = static_cast<std::size_t>(i);
    const std::int32_t dx = std::abs(frame_b.x[place] - query.x);
    const std::int32_t dy = std::abs(frame_b.y[place] - query.y);
    const auto penalty = [&] {
      return penalty_of<kMode>(rules, dx, dy, query.score, frame_b.score[place], draws);
    };
    // Pairs outside the area draw a number as well.
    const std::int64_t drawn = kMode == kRandomPenaltyMode ? penalty() : 0;
    if (dy > rules.max_v || frame_b.octave[place] != query.octave) continue;
    if constexpr (kMode == 2) {
      if (penalty() > rules.max_h) continue;  // the length itself bounds the area
    } else {
      if (dx > rules.max_h) continue;
      if (rules.check_circle && std::int64_t{dx} * dx + std::int64_t{dy} * dy > rules.circle2) continue;
    }
    const std::uint32_t distance = descriptor_distance(query.descriptor, frame_b.descriptor(i), rules.bytes,
                                                       rules.split_bit, rules.weight);
    const std::int64_t added = kMode == kRandomPenaltyMode ? drawn : penalty();
    found.offer((std::int64_t{distance} << kShift) + added, i);
  }
}

using SearchRun = void (*)(const PackedKeypoints&, Run, const Query&, const SearchRules&, std::mt19937&,
                           BestTwo&);

[[noreturn]] void search_unknown(const PackedKeypoints&, Run, const Query&, const SearchRules&, std::mt19937&,
                                 BestTwo&) {
  std::abort();
}

SearchRun search_run_of(std::int32_t penalty_mode) {
  switch (penalty_mode) {
    case 0:
      return search_run<0>;
    case 1:
      return search_run<1>;
    case 2:
      return search_run<2>;
    case 3:
      return search_run<3>;
    case 4:
      return search_run<4>;
    case 5:
      return search_run<5>;
    case kRandomPenaltyMode:
      return search_run<kRandomPenaltyMode>;
    default:
      return search_unknown;
  }
}

// Cells that a displacement may lead away from its own, in one direction. Cells beyond the raster hold
// nothing, so the raster's own length bounds it. Below 0 not even the own cell is searched.
std::int32_t reach_of(std::int32_t max_vector, std::int32_t cell_size, std::int32_t raster_length) {
  const double reach = std::ceil(static_cast<double>(max_vector) / cell_size);
  return static_cast<std::int32_t>(std::clamp(reach, -1.0, static_cast<double>(raster_length)));
}

// The area of cells around one cell, as runs of keypoints: a run a raster row, from the top row down. So the
// keypoints come in the order of rows, columns and slots, which decides ties.
void list_runs(const PackedKeypoints& frame_b, const GridIF& grid, std::int32_t cell, std::int32_t reach_h,
               std::int32_t reach_v, std::vector<Run>& runs) {
  runs.clear();
  if (reach_h < 0) return;
  const std::int32_t columns = grid.numHorzCells();
  const std::int32_t column = cell % columns;
  const std::int32_t row = cell / columns;
  const std::int32_t left = std::max(column - reach_h, 0);
  const std::int32_t right = std::min(column + reach_h, columns - 1);
  const std::int32_t bottom = std::min(row + reach_v, grid.numVertCells() - 1);
  for (std::int32_t y = std::max(row - reach_v, 0); y <= bottom; ++y) {
    const auto first = static_cast<std::size_t>(y * columns + left);
    const auto past = static_cast<std::size_t>(y * columns + right + 1);
    const Run run{frame_b.cell_begin[first], frame_b.cell_begin[past]};
    if (run.begin != run.end) runs.push_back(run);
  }
}

// Agreement of the best candidate with the match that frame A's keypoint had in the previous pair.
std::int32_t compare_with_previous(const MatchingSettings& settings, const MatchSet& set,
                                   const KeyPointRecord& a, const KeyPointRecord& b) {
  if (!settings.keep_links) return kPrevNone;
  const MatchRecord* const previous = set.linked_record(a.link);
  if (previous == nullptr) return kPrevNone;
  if (previous->score3 < settings.score_th3 && previous->score4 < settings.score_th4) return kPrevNone;
  const auto length = [](float x, float y) { return std::sqrt(x * x + y * y); };
  const float vx = b.x - a.x;
  const float vy = b.y - a.y;
  const float px = previous->x_b - previous->x_a;
  const float py = previous->y_b - previous->y_a;
  const float longer = std::max(length(vx, vy), length(px, py));
  const float tolerance = std::max(0.2f * longer, settings.acc_th);
  return length(vx - px, vy - py) <= tolerance ? kPrevAgrees : kPrevDisagrees;
}

std::int32_t slot_of(const PackedKeypoints& frame, std::int32_t place) {
  const auto cell = static_cast<std::size_t>(frame.cell[static_cast<std::size_t>(place)]);
  return place - frame.cell_begin[cell];
}

// One run of match_cells: what its threads share, all of it read only.
struct MatchRun {
  const MatchingSettings& settings;
  const FeatureFrame& frame_a;
  const FeatureFrame& frame_b;
  const PackedKeypoints packed_a;
  const PackedKeypoints packed_b;
  const SearchRules rules;
  const SearchRun search;
  const int cost_shift;

  MatchVector make_vector(std::int32_t place_a, const Candidate& candidate, std::int64_t other_cost,
                          std::int32_t number, std::int32_t prev_state) const {
    MatchVector vector;
    vector.id_a = packed_a.index[static_cast<std::size_t>(place_a)];
    vector.cell_a = static_cast<std::int16_t>(packed_a.cell[static_cast<std::size_t>(place_a)]);
    vector.slot_a = static_cast<std::int16_t>(slot_of(packed_a, place_a));
    vector.id_b = packed_b.index[static_cast<std::size_t>(candidate.place)];
    vector.cell_b = static_cast<std::int16_t>(packed_b.cell[static_cast<std::size_t>(candidate.place)]);
    vector.slot_b = static_cast<std::int16_t>(slot_of(packed_b, candidate.place));
    vector.cost = static_cast<std::int32_t>(candidate.cost >> cost_shift);
    cost_ratio(vector, static_cast<std::int32_t>(other_cost >> cost_shift), settings.dist_ratio_offset,
               settings.dist_ratio_shift, settings.sat_offset);
    vector.candidate = number;
    vector.prev_state = prev_state;
    return vector;
  }

  // Searches for one keypoint of frame A and stores what it found behind the vectors of its cell.
  void match_keypoint(std::int32_t place_a, const std::vector<Run>& runs, std::mt19937& draws,
                      MatchSet& set) const {
    const auto a = static_cast<std::size_t>(place_a);
    const Query query{packed_a.x[a], packed_a.y[a], packed_a.score[a], packed_a.octave[a],
                      packed_a.descriptor(place_a)};
    BestTwo found;
    for (const Run run : runs) search(packed_b, run, query, rules, draws, found);
    if (found.best.place < 0 || (settings.k == 2 && found.second.place < 0)) return;

    const std::int32_t cell = packed_a.cell[a];
    MatchVector* const out = set.cell(cell);
    std::int32_t& count = set.count(cell);
    const auto store = [&](const Candidate& candidate, const Candidate& other, std::int32_t number,
                           std::int32_t prev_state) {
      if (count < set.capacity)
        out[count++] = make_vector(place_a, candidate, other.cost, number, prev_state);
    };
    const std::int32_t prev_state = compare_with_previous(
        settings, set, record_at(frame_a, packed_a, place_a), record_at(frame_b, packed_b, found.best.place));
    store(found.best, found.second, 0, prev_state);
    if (settings.out_mode == 0 && settings.k > 1) store(found.second, found.best, 1, prev_state);
  }

  static const KeyPointRecord& record_at(const FeatureFrame& frame, const PackedKeypoints& packed,
                                         std::int32_t place) {
    const auto cell = static_cast<std::size_t>(packed.cell[static_cast<std::size_t>(place)]);
    const auto slots = static_cast<std::size_t>(frame.store.capacityPerCell);
    return frame.store.records[cell * slots + static_cast<std::size_t>(slot_of(packed, place))];
  }
};

bool can_be_named(const FeatureFrame& frame) {
  return frame.store.grid->numCells() <= kMaxPlaces && frame.store.capacityPerCell <= kMaxPlaces;
}

}  // namespace

std::int32_t match_cells(const MatchingSettings& settings, const FeatureFrame& frame_a,
                         const FeatureFrame& frame_b, MatchSet& cells) {
  const GridIF& grid = *cells.grid;
  const std::int32_t cell_count = grid.numCells();
  std::fill(cells.counts.begin(), cells.counts.end(), 0);
  cells.total = 0;
  if (frame_a.descriptors.rows <= settings.k || !can_be_named(frame_a) || !can_be_named(frame_b)) return 0;

  const std::int32_t bytes = frame_a.descriptors.cols;
  const SearchRules rules{settings.max_vector_h,
                          settings.max_vector_v,
                          settings.check_circle,
                          std::int64_t{settings.max_vector_h} * settings.max_vector_h,
                          settings.penalty_rshift,
                          settings.penalty_res_coeff,
                          bytes,
                          descriptor_split_bit(bytes, settings.patchSize, settings.weightDist),
                          settings.weightDist};
  const MatchRun run{settings,
                     frame_a,
                     frame_b,
                     PackedKeypoints(frame_a),
                     PackedKeypoints(frame_b),
                     rules,
                     search_run_of(settings.penalty_mode),
                     cost_shift_of(settings.penalty_mode)};
  const std::int32_t reach_h = reach_of(settings.max_vector_h, grid.cellWidth(), grid.numHorzCells());
  const std::int32_t reach_v = reach_of(settings.max_vector_v, grid.cellHeight(), grid.numVertCells());
  std::mt19937 draws(5489);

  const ThreadCountKeeper keeper;
  // Nothing may be allocated, and so thrown, inside the parallel loop.
  std::vector<std::vector<Run>> lists(static_cast<std::size_t>(keeper.threads()));
  for (auto& runs : lists) runs.reserve(static_cast<std::size_t>(grid.numVertCells()));
#pragma omp parallel for schedule(static) if (settings.penalty_mode != kRandomPenaltyMode)
  for (std::int32_t cell = 0; cell < cell_count; ++cell) {
    const std::int32_t begin = run.packed_a.cell_begin[static_cast<std::size_t>(cell)];
    const std::int32_t end = run.packed_a.cell_begin[static_cast<std::size_t>(cell) + 1];
    if (begin == end) continue;
    std::vector<Run>& runs = lists[static_cast<std::size_t>(omp_get_thread_num())];
    list_runs(run.packed_b, grid, cell, reach_h, reach_v, runs);
    for (std::int32_t place = begin; place < end; ++place) run.match_keypoint(place, runs, draws, cells);
  }
  for (std::int32_t cell = 0; cell < cell_count; ++cell) cells.total += cells.count(cell);
  return cells.total;
}

std::int32_t descriptor_split_bit(std::int32_t bytes, std::int32_t patchSize, std::int32_t weightDist) {
  if (weightDist == 0) return 0;
  const std::int64_t half_bits = (std::int64_t{bytes} * 8 + 1) / 2;
  const std::int64_t half_patch = patchSize / 2;
  return static_cast<std::int32_t>(std::min(half_bits, half_patch * half_patch));
}

std::uint32_t descriptor_distance(const unsigned char* a, const unsigned char* b, std::int32_t bytes,
                                  std::int32_t split_bit, std::int32_t weight) {
  const auto differing = [](const unsigned char* left, const unsigned char* right, auto word) {
    auto other = word;
    std::memcpy(&word, left, sizeof(word));
    std::memcpy(&other, right, sizeof(other));
    return word ^ other;
  };
  const auto bits = [](auto word) { return static_cast<std::uint32_t>(std::popcount(word)); };
  const auto fold = static_cast<std::uint32_t>(weight);
  const std::int32_t whole = bytes / 8 * 8;
  std::uint32_t distance = 0;
  if (weight == 0) {
    for (std::int32_t i = 0; i < whole; i += 8) distance += bits(differing(a + i, b + i, std::uint64_t{}));
  } else {
    for (std::int32_t i = 0; i < whole; i += 8) {
      const std::uint64_t x = differing(a + i, b + i, std::uint64_t{});
      const std::int32_t start = i * 8;
      if (start + 64 <= split_bit) {
        distance += fold * bits(x);
      } else if (start > split_bit) {
        distance += bits(x);
      } else {
        const int inside = split_bit - start;
        distance += bits(x >> inside) + fold * bits(x << ((64 - inside) % 64));
      }
    }
  }
  for (std::int32_t i = 0; i < bytes % 8; ++i) {
    const std::int32_t place = whole + i * 4;
    distance += bits(differing(a + place, b + place, std::uint32_t{}));
  }
  return distance;
}

void cost_ratio(MatchVector& vector, std::int32_t other_cost, std::int32_t offset, std::int32_t shift,
                std::int32_t sat_offset) {
  constexpr std::int64_t kMaxRatio = 255;
  const bool adds_offset = static_cast<std::uint32_t>(sat_offset) < 2;
  const auto raised = [&](std::int64_t cost) {
    return adds_offset ? cost + offset : std::max<std::int64_t>(cost, offset);
  };
  const std::int64_t one = std::int64_t{1} << shift;
  const std::int64_t own = raised(vector.cost);
  std::int64_t ratio =
      own == 0 ? kMaxRatio : std::clamp<std::int64_t>(raised(other_cost) * one / own, 0, kMaxRatio);
  if (adds_offset && ratio == one && vector.cost <= 3) ratio -= sat_offset;
  vector.other_cost = other_cost;
  vector.dist_ratio = static_cast<std::int32_t>(ratio);
}

}  // namespace fpu
