#include "matching/Correction.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <span>
#include <utility>
#include <vector>

#include "base/Saturate.h"
#include "matching/DisplacementHistogram.h"
#include "matching/Rounding.h"
#include "matching/Selection.h"
#include "matching/VoteKernel.h"

namespace fpu {
namespace {

constexpr std::int64_t kMaxBase = 255;

// All vectors of the set as matching left them, cell by cell.
struct Voters : VoterColumns {
  Voters(const CorrectionSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
         const MatchSet& set);

  std::vector<std::int32_t> cell_begin;  // cells + 1
  std::int64_t most_votes = 0;           // of one voter for one score, without its sign
};

Voters::Voters(const CorrectionSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
               const MatchSet& set) {
  const std::int32_t cells = set.grid->numCells();
  cell_begin.reserve(static_cast<std::size_t>(cells) + 1);
  cell_begin.push_back(0);
  for (std::int32_t cell = 0; cell < cells; ++cell) cell_begin.push_back(cell_begin.back() + set.count(cell));
  const auto count = static_cast<std::size_t>(cell_begin.back());
  for (auto* column : {&dx, &dy, &x, &y}) column->reserve(count);
  for (auto* votes : {&near_votes, &far_votes}) {
    for (auto& column : *votes) column.reserve(count);
  }
  for (std::int32_t cell = 0; cell < cells; ++cell) {
    for (const MatchVector& vector : std::span(set.cell(cell), static_cast<std::size_t>(set.count(cell)))) {
      const KeyPointRecord& a = keypoint_a(frame_a, vector);
      const KeyPointRecord& b = keypoint_b(frame_b, vector);
      dx.push_back(to_eighths(b.x) - to_eighths(a.x));
      dy.push_back(to_eighths(b.y) - to_eighths(a.y));
      x.push_back(round_coordinate(a.x));
      y.push_back(round_coordinate(a.y));
      for (std::size_t i = 0; i < kScores; ++i) {
        near_votes[i].push_back(vote_kernel(settings.score_mode[i], settings, vector, true));
        far_votes[i].push_back(vote_kernel(settings.score_mode[i], settings, vector, false));
        for (const std::int64_t votes : {near_votes[i].back(), far_votes[i].back()})
          most_votes = std::max(most_votes, std::abs(votes));
      }
    }
  }
}

// Consecutive voters.
struct Run {
  std::int32_t begin;
  std::int32_t end;

  std::int32_t size() const { return end - begin; }
};

VoteLimits vote_limits(const CorrectionSettings& settings) {
  VoteLimits limits;
  for (std::size_t i = 0; i < kScores; ++i) {
    limits.radius[i] = std::abs(std::int64_t{twintrue::truncate_to_int32(std::round(8.0f * settings.th[i]))});
  }
  limits.near = std::abs(std::int64_t{settings.diff_pt_th});
  return limits;
}

constexpr std::size_t kMaxNeighbours = 8;

// Voters of the cells around one cell, in the order of the offsets.
struct Neighbours {
  std::array<Run, kMaxNeighbours> runs;
  std::size_t cells = 0;
};

Neighbours list_neighbours(const Voters& voters, const GridIF& grid, std::int32_t cell,
                           std::int32_t neighbour_mode) {
  constexpr std::pair<int, int> kOffsets[kMaxNeighbours] = {{-1, 0},  {1, 0},  {0, -1}, {0, 1},
                                                            {-1, -1}, {1, -1}, {1, 1},  {-1, 1}};
  constexpr std::size_t kOffered[] = {0, 2, 4, 8};
  const std::size_t offered = kOffered[std::clamp(neighbour_mode, 0, 3)];
  const std::int32_t column = cell % grid.numHorzCells();
  const std::int32_t row = cell / grid.numHorzCells();
  Neighbours neighbours;
  for (const auto& [dx, dy] : std::span(kOffsets).first(offered)) {
    std::int32_t index = 0;
    if (!grid.cellIndex(column + dx, row + dy, &index)) continue;
    const auto place = static_cast<std::size_t>(index);
    neighbours.runs[neighbours.cells++] = {voters.cell_begin[place], voters.cell_begin[place + 1]};
  }
  return neighbours;
}

// The voters of one cell after the other, drawn together and filled up to whole blocks with ones that have no
// votes.
class Electorate {
 public:
  // Room for the fullest cell and its neighbours.
  explicit Electorate(const Voters& all) : all_(all) {
    std::int32_t fullest = 0;
    for (std::size_t c = 0; c + 1 < all.cell_begin.size(); ++c) {
      fullest = std::max(fullest, all.cell_begin[c + 1] - all.cell_begin[c]);
    }
    const std::size_t most = static_cast<std::size_t>(fullest) * (kMaxNeighbours + 1);
    columns_.with(all, [&](std::vector<std::int32_t>& mine, const std::vector<std::int32_t>&) {
      mine.resize(most + kVoterBlock);
    });
  }

  void gather(Run own, const Neighbours& neighbours) {
    count_ = 0;
    append(own);
    for (std::size_t i = 0; i < neighbours.cells; ++i) append(neighbours.runs[i]);
    padded_ = (count_ + kVoterBlock - 1) / kVoterBlock * kVoterBlock;
    for (auto* votes : {&columns_.near_votes, &columns_.far_votes}) {
      for (auto& column : *votes) {
        std::fill(column.begin() + static_cast<std::ptrdiff_t>(count_),
                  column.begin() + static_cast<std::ptrdiff_t>(padded_), 0);
      }
    }
  }

  // The votes for voter `a` of all voters.
  VoteSums sums_for(SumVotesFn sum, const VoteLimits& limits, std::size_t a) const {
    VoteSums sums{};
    sum(columns_, padded_, limits, {all_.dx[a], all_.dy[a], all_.x[a], all_.y[a]}, sums);
    return sums;
  }

  std::int64_t size() const { return static_cast<std::int64_t>(count_); }
  std::size_t room() const { return columns_.dx.size(); }

 private:
  void append(Run run) {
    columns_.with(all_, [&](std::vector<std::int32_t>& mine, const std::vector<std::int32_t>& theirs) {
      std::copy(theirs.begin() + run.begin, theirs.begin() + run.end,
                mine.begin() + static_cast<std::ptrdiff_t>(count_));
    });
    count_ += static_cast<std::size_t>(run.size());
  }

  const Voters& all_;
  VoterColumns columns_;
  std::size_t count_ = 0;
  std::size_t padded_ = 0;
};

// Scores the vectors that `own` stands for, which are those at `vectors`. The electorate is the cell's.
void score_cell(const CorrectionSettings& settings, const VoteLimits& limits, SumVotesFn sum,
                const Electorate& electorate, Run own, std::size_t neighbour_cells,
                const FeatureFrame& frame_a, const MatchSet& set, MatchVector* vectors) {
  const ScoreScale scale(settings, electorate.size(), static_cast<std::int64_t>(neighbour_cells));
  for (std::int32_t j = 0; j < own.size(); ++j) {
    const VoteSums sums = electorate.sums_for(sum, limits, static_cast<std::size_t>(own.begin + j));
    MatchVector& vector = vectors[j];
    const MatchRecord* const previous = set.linked_record(keypoint_a(frame_a, vector).link);
    const MatchRecord none;
    const MatchRecord& prev = previous != nullptr ? *previous : none;
    const auto finish = [&](std::size_t i, std::int32_t prev_score) {
      return finish_score(settings.score_mode[i], settings, scale, sums[i], vector, prev_score, j);
    };
    vector.score1 = finish(0, prev.score1);
    vector.score2 = finish(1, prev.score2);
    vector.score3 = finish(2, prev.score3);
    vector.score4 = finish(3, prev.score4);
  }
}

// Matching leaves no vector without a partner; should one come from elsewhere, it takes no part.
void drop_unpaired(MatchSet& set) {
  const std::int32_t cells = set.grid->numCells();
  for (std::int32_t cell = 0; cell < cells; ++cell) {
    MatchVector* const first = set.cell(cell);
    MatchVector* const last = std::remove_if(first, first + set.count(cell),
                                             [](const MatchVector& vector) { return vector.id_b < 0; });
    set.count(cell) = static_cast<std::int32_t>(last - first);
  }
}

struct HistogramPair {
  DisplacementHistogram y;
  DisplacementHistogram x;
};

// A vector that agrees with its record of the previous pair is raised by it.
std::int64_t raised_by_previous(std::int32_t ref_mode, std::int64_t v, std::int64_t p,
                                std::int32_t own_index) {
  switch (ref_mode) {
    case 1:
      return 2 * v;
    case 2:
      return 3 * v / 2;
    case 3:
      return std::min(3 * v, v + p / 2);
    case 4:
      return std::min(3 * v, v + p);
    case 5:
      return std::min(4 * v, v + p);
    case 6:
      return v + p / 2;
    case 7:
      return v + p;
    case 8:
      return std::min(2 * v, v + p / 2);
    case 9:
      return std::min(2 * v, v + p);
    case 10:
      return 3 * v;
    case 11:
      return own_index < 2 ? 2 * v : v;
    default:
      return v;
  }
}

// A sum of votes in the score mode's own unit, before it is normalised.
std::int64_t base_of(std::int32_t mode, const CorrectionSettings& settings, std::int64_t sum,
                     std::int32_t dist_ratio) {
  const std::int32_t s = settings.dist_ratio_shift;
  const std::int32_t c = settings.count_rshift;
  switch (mode) {
    case 0:
      return std::min(sum, kMaxBase);
    case 1:
    case 3:
    case 4:
    case 7:
    case 9:
    case 11:
    case 12:
      return std::min(sum >> s, kMaxBase);
    case 2:
      return std::min((sum >> s) + dist_ratio, kMaxBase);
    case 5:
      return sum >> s;
    case 6:
      return sum >> c;
    case 8:
    case 10:
      return (sum / 16) >> c;
    default:
      std::abort();
  }
}

}  // namespace

void correct_cells(CorrectionSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
                   MatchSet& match_set) {
  correct_cells(settings, frame_a, frame_b, match_set, twintrue::best_instruction_set());
}

void correct_cells(CorrectionSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
                   MatchSet& match_set, twintrue::InstructionSet set) {
  drop_unpaired(match_set);
  const auto half_range = [](std::int32_t side) { return std::int64_t{side / 2} * 8; };
  HistogramPair gathered{{settings.bin_width, half_range(settings.image_height)},
                         {settings.bin_width, half_range(settings.image_width)}};

  const Voters voters(settings, frame_a, frame_b, match_set);
  const VoteLimits limits = vote_limits(settings);
  Electorate electorate(voters);
  const SumVotesFn sum = sum_votes(set, limits, electorate.room(), voters.most_votes);
  const GridIF& grid = *match_set.grid;
  match_set.total = 0;
  for (std::int32_t cell = 0; cell < grid.numCells(); ++cell) {
    const Neighbours neighbours = list_neighbours(voters, grid, cell, settings.neighbour_mode);
    const std::int32_t begin = voters.cell_begin[static_cast<std::size_t>(cell)];
    const Run own{begin, begin + std::min(match_set.count(cell), kMaxScoredInCell)};
    for (auto i = static_cast<std::size_t>(own.begin); i < static_cast<std::size_t>(own.end); ++i) {
      gathered.y.add(voters.dy[i]);
      gathered.x.add(voters.dx[i]);
    }
    MatchVector* const vectors = match_set.cell(cell);
    if (own.size() > 0) electorate.gather(own, neighbours);
    score_cell(settings, limits, sum, electorate, own, neighbours.cells, frame_a, match_set, vectors);
    match_set.count(cell) =
        select_cell(settings, frame_a, frame_b, vectors, own.size(), settings.num_matching_in_cell_out);
    match_set.total += match_set.count(cell);
  }

  gathered.y.smooth();
  gathered.x.smooth();
  settings.gmv_y = gathered.y.peak() / 8;
  settings.gmv_x = gathered.x.peak() / 8;
}

std::int32_t vote_kernel(std::int32_t mode, const CorrectionSettings& settings, const MatchVector& voter,
                         bool near) {
  const std::int32_t s = settings.dist_ratio_shift;
  const std::int32_t ratio = voter.dist_ratio;
  const std::int32_t squared = (ratio * ratio) >> s;
  // Ratios of `eighths` / 8 in the fixed point of s bits.
  const auto at_most = [&](std::int64_t eighths) {
    return static_cast<std::int32_t>(std::min<std::int64_t>((eighths << s) >> 3, ratio));
  };
  switch (mode) {
    case 0: {
      const std::int64_t own = voter.cost;
      const std::int64_t other = voter.other_cost;
      if (voter.candidate == 0) return own > other / 2 || other - own < 3 ? 1 : 2;
      return other > own / 2 || own - other < 3 ? 1 : 0;
    }
    case 1:
    case 2:
    case 5:
      return ratio;
    case 3:
      return squared;
    case 4:
      return std::max(squared, ratio);
    case 6:
      return 1;
    case 7:
      return near ? at_most(16) / 2 : at_most(16);
    case 8:
      return near ? 4 : 16;
    case 9: {
      const std::int32_t vote = ratio < 16 ? 8 : ratio;
      return near ? vote / 4 : vote;
    }
    case 10:
      if (near) return ratio < 16 ? 2 : 4;
      return ratio < 16 ? 8 : 16;
    case 11:
      return at_most(12);
    case 12:
      return at_most(16);
    case 13:
      return at_most(10);
    default:
      std::abort();
  }
}

ScoreScale::ScoreScale(const CorrectionSettings& settings, std::int64_t voters,
                       std::int64_t neighbour_cells) {
  const std::int64_t slots = neighbour_cells * settings.max_num_data_in_cell;
  switch (settings.normalizing) {
    case 0:
      n = 1;
      break;
    case 2:
      n = slots;
      break;
    case 3:
      n = settings.candidates * slots;
      break;
    case 4:
      n = settings.candidates != 1 ? slots * 3 / 2 : slots;
      break;
    default:
      n = voters;
  }
  if (n == 0) n = 1;
  coeff8 = twintrue::clamp_to_int32(std::int64_t{settings.normalizing_coeff} * 256 / n);
}

std::int32_t finish_score(std::int32_t mode, const CorrectionSettings& settings, const ScoreScale& scale,
                          std::int64_t sum, const MatchVector& vector, std::int32_t prev,
                          std::int32_t own_index) {
  const std::int64_t base = twintrue::clamp_to_int32(base_of(mode, settings, sum, vector.dist_ratio));
  const std::int64_t normalized = settings.normalizing_mode == 0 ? base * settings.normalizing_coeff / scale.n
                                                                 : (base * scale.coeff8) >> 8;
  const std::int64_t v = twintrue::clamp_to_int32(normalized);
  const std::int64_t score = vector.prev_state == kPrevAgrees
                                 ? raised_by_previous(settings.ref_prev_frame_data_mode, v, prev, own_index)
                                 : v;
  return twintrue::clamp_to_int32(std::min<std::int64_t>(settings.max_score, score));
}

}  // namespace fpu
