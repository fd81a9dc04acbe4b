#include "PlainCorrection.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/Saturate.h"
#include "matching/Correction.h"
#include "matching/DisplacementHistogram.h"
#include "matching/Selection.h"

namespace plain_matching {
namespace {

using namespace fpu;

struct Voter {
  const MatchVector* vector;
  std::int64_t dx, dy;  // eighths of a pixel
  std::int64_t x, y;    // pixels
};

std::int64_t rounded(float value) { return std::llround(value); }

Voter voter_of(const FeatureFrame& frame_a, const FeatureFrame& frame_b, const MatchVector& vector) {
  const KeyPointRecord& a = keypoint_a(frame_a, vector);
  const KeyPointRecord& b = keypoint_b(frame_b, vector);
  return {&vector, rounded(8.0f * b.x) - rounded(8.0f * a.x), rounded(8.0f * b.y) - rounded(8.0f * a.y),
          rounded(a.x), rounded(a.y)};
}

std::int64_t votes_for(const CorrectionSettings& settings, std::size_t score, const Voter& a,
                       const std::vector<Voter>& voters) {
  const std::int64_t radius = twintrue::truncate_to_int32(std::round(8.0f * settings.th[score]));
  const std::int64_t limit = std::int64_t{settings.diff_pt_th} * settings.diff_pt_th;
  std::int64_t sum = 0;
  for (const Voter& w : voters) {
    const std::int64_t dd = (w.dx - a.dx) * (w.dx - a.dx) + (w.dy - a.dy) * (w.dy - a.dy);
    if (dd > radius * radius) continue;
    const std::int64_t pp = (w.x - a.x) * (w.x - a.x) + (w.y - a.y) * (w.y - a.y);
    const bool near = score == 1 ? pp < limit : pp <= limit;
    sum += vote_kernel(settings.score_mode[score], settings, *w.vector, near);
  }
  return sum;
}

}  // namespace

void correct_cells(CorrectionSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
                   MatchSet& set) {
  constexpr std::pair<int, int> kOffsets[] = {{-1, 0},  {1, 0},  {0, -1}, {0, 1},
                                              {-1, -1}, {1, -1}, {1, 1},  {-1, 1}};
  constexpr int kOffered[] = {0, 2, 4, 8};
  const GridIF& grid = *set.grid;
  const MatchSet before = set;
  DisplacementHistogram histogram_y(settings.bin_width, std::int64_t{settings.image_height / 2} * 8);
  DisplacementHistogram histogram_x(settings.bin_width, std::int64_t{settings.image_width / 2} * 8);
  set.total = 0;
  for (std::int32_t cell = 0; cell < grid.numCells(); ++cell) {
    std::vector<Voter> voters;
    const std::int32_t own = std::min(before.count(cell), kMaxScoredInCell);
    for (std::int32_t i = 0; i < own; ++i) {
      voters.push_back(voter_of(frame_a, frame_b, before.cell(cell)[i]));
      histogram_y.add(static_cast<std::int32_t>(voters.back().dy));
      histogram_x.add(static_cast<std::int32_t>(voters.back().dx));
    }
    std::int64_t cells_around = 0;
    for (int i = 0; i < kOffered[std::clamp(settings.neighbour_mode, 0, 3)]; ++i) {
      std::int32_t other = 0;
      if (!grid.cellIndex(cell % grid.numHorzCells() + kOffsets[i].first,
                          cell / grid.numHorzCells() + kOffsets[i].second, &other))
        continue;
      ++cells_around;
      for (std::int32_t j = 0; j < before.count(other); ++j)
        voters.push_back(voter_of(frame_a, frame_b, before.cell(other)[j]));
    }
    const ScoreScale scale(settings, static_cast<std::int64_t>(voters.size()), cells_around);
    MatchVector* const vectors = set.cell(cell);
    for (std::int32_t j = 0; j < own; ++j) {
      const std::int32_t link = keypoint_a(frame_a, vectors[j]).link;
      const bool linked = link >= 0 && static_cast<std::size_t>(link) < set.records.size();
      const MatchRecord prev = linked ? set.records[static_cast<std::size_t>(link)] : MatchRecord{};
      const std::array previous{prev.score1, prev.score2, prev.score3, prev.score4};
      std::array<std::int32_t, 4> scores;
      for (std::size_t i = 0; i < scores.size(); ++i) {
        const std::int64_t sum = votes_for(settings, i, voters[static_cast<std::size_t>(j)], voters);
        scores[i] = finish_score(settings.score_mode[i], settings, scale, sum, vectors[j], previous[i], j);
      }
      vectors[j].score1 = scores[0];
      vectors[j].score2 = scores[1];
      vectors[j].score3 = scores[2];
      vectors[j].score4 = scores[3];
    }
    set.count(cell) =
        select_cell(settings, frame_a, frame_b, vectors, own, settings.num_matching_in_cell_out);
    set.total += set.count(cell);
  }
  histogram_y.smooth();
  histogram_x.smooth();
  settings.gmv_y = histogram_y.peak() / 8;
  settings.gmv_x = histogram_x.peak() / 8;
}

}  // namespace plain_matching
