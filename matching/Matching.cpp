#include "matching/Matching.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "base/ParallelEach.h"
#include "matching/AreaKernel.h"
#include "matching/CandidateChoice.h"
#include "matching/PackedKeypoints.h"

namespace fpu {
namespace {

// An upper bound of the second least value.
std::uint32_t second_least(const Lanes<std::uint32_t>& minima) {
  std::uint32_t least = kOutside;
  std::uint32_t second = kOutside;
  for (const std::uint32_t value : minima.v) {
    second = std::min(second, std::max(least, value));
    least = std::min(least, value);
  }
  return second;
}

bool all_equal(const std::vector<std::int32_t>& values, std::int32_t to) {
  return std::all_of(values.begin(), values.end(), [to](std::int32_t value) { return value == to; });
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

// Of the longer of two displacements: by so much they may differ and still agree.
constexpr float kToleratedShare = 0.2f;

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
  const float tolerance = std::max(kToleratedShare * longer, settings.acc_th);
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
  const DescriptorWords& order;
  const SearchRules rules;
  const AreaKernel kernel;
  const OfferRuns offer;
  const int cost_shift;
  const bool distance_decides;

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

  // The two cheapest keypoints of the runs.
  BestTwo search(std::int32_t place_a, std::mt19937& draws, Workspace& work) const {
    const auto a = static_cast<std::size_t>(place_a);
    for (std::size_t w = 0; w < work.words.size(); ++w) {
      work.words[w] = packed_a.words[a / kLanes * packed_a.words_per_row + w].v[a % kLanes];
    }
    const Query query{packed_a.x_of(place_a), packed_a.y_of(place_a), packed_a.score[a], packed_a.octave[a]};
    const std::int32_t max_h =
        settings.penalty_mode == 2 ? std::numeric_limits<std::int32_t>::max() : rules.max_h;
    const Area area{query.x, query.y, max_h, rules.max_v, work.words.data()};
    Lanes<std::uint32_t> minima;
    minima.v.fill(kOutside);
    Lanes<std::uint32_t>* distances = work.distances.data();
    for (const Run run : work.runs) {
      kernel.measure(packed_b, order, area, run, distances, minima);
      distances += run.blocks();
    }
    BestTwo found;
    if (work.runs.empty()) return found;
    offer({packed_b, rules, kernel, distance_decides}, query, second_least(minima), work, draws, found);
    return found;
  }

  // Searches for one keypoint of frame A and stores what it found behind the vectors of its cell.
  void match_keypoint(std::int32_t place_a, std::mt19937& draws, Workspace& work, MatchSet& set) const {
    const auto a = static_cast<std::size_t>(place_a);
    const BestTwo found = search(place_a, draws, work);
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
  return match_cells(settings, frame_a, frame_b, cells, twintrue::best_instruction_set());
}

std::int32_t match_cells(const MatchingSettings& settings, const FeatureFrame& frame_a,
                         const FeatureFrame& frame_b, MatchSet& cells, twintrue::InstructionSet set) {
  const GridIF& grid = *cells.grid;
  const std::int32_t cell_count = grid.numCells();
  std::fill(cells.counts.begin(), cells.counts.end(), 0);
  cells.total = 0;
  if (frame_a.descriptors.rows <= settings.k || !can_be_named(frame_a) || !can_be_named(frame_b)) return 0;

  const std::int32_t bytes = frame_a.descriptors.cols;
  const DescriptorWords order(bytes, descriptor_split_bit(bytes, settings.patchSize, settings.weightDist),
                              settings.weightDist);
  const SearchRules rules{
      settings.max_vector_h,   settings.max_vector_v,
      settings.check_circle,   std::int64_t{settings.max_vector_h} * settings.max_vector_h,
      settings.penalty_rshift, settings.penalty_res_coeff};
  PackedKeypoints packed_a(frame_a, order);
  PackedKeypoints packed_b(frame_b, order);
  const std::int32_t octave = packed_a.octave.empty() ? 0 : packed_a.octave.front();
  const bool distance_decides = penalty_is_fraction(settings.penalty_mode, settings.penalty_res_coeff) &&
                                !settings.check_circle && all_equal(packed_a.octave, octave) &&
                                all_equal(packed_b.octave, octave);
  const MatchRun run{settings,
                     frame_a,
                     frame_b,
                     std::move(packed_a),
                     std::move(packed_b),
                     order,
                     rules,
                     area_kernel(set),
                     offer_runs_of(settings.penalty_mode),
                     cost_shift_of(settings.penalty_mode),
                     distance_decides};
  const std::int32_t reach_h = reach_of(settings.max_vector_h, grid.cellWidth(), grid.numHorzCells());
  const std::int32_t reach_v = reach_of(settings.max_vector_v, grid.cellHeight(), grid.numVertCells());
  std::mt19937 draws(std::mt19937::default_seed);

  std::vector<Workspace> spaces;
  spaces.reserve(static_cast<std::size_t>(twintrue::loop_thread_count()));
  while (spaces.size() < spaces.capacity()) {
    spaces.emplace_back(run.packed_b, grid.numVertCells(), run.packed_a.words_per_row);
  }
  const auto match_cell = [&](int member, std::size_t cell) {
    const std::int32_t begin = run.packed_a.cell_begin[cell];
    const std::int32_t end = run.packed_a.cell_begin[cell + 1];
    if (begin == end) return;
    Workspace& work = spaces[static_cast<std::size_t>(member)];
    list_runs(run.packed_b, grid, static_cast<std::int32_t>(cell), reach_h, reach_v, work.runs);
    for (std::int32_t place = begin; place < end; ++place) run.match_keypoint(place, draws, work, cells);
  };
  const auto cells_to_match = static_cast<std::size_t>(std::max(cell_count, 0));
  if (settings.penalty_mode == kRandomPenaltyMode) {
    // The draws go to the keypoints in order.
    for (std::size_t cell = 0; cell < cells_to_match; ++cell) match_cell(0, cell);
  } else {
    twintrue::parallel_each_by_member(cells_to_match, match_cell);
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
