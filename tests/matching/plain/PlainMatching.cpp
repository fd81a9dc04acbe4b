#include "PlainMatching.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

#include "matching/Matching.h"

namespace plain_matching {
namespace {

using namespace fpu;

class PlainMatcher {
 public:
  PlainMatcher(const MatchingSettings& settings, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
               MatchSet& set)
      : s_(settings),
        a_(frame_a),
        b_(frame_b),
        set_(set),
        split_(descriptor_split_bit(frame_a.descriptors.cols, settings.patchSize, settings.weightDist)) {}

  std::int32_t match() {
    std::fill(set_.counts.begin(), set_.counts.end(), 0);
    set_.total = 0;
    if (a_.descriptors.rows <= s_.k) return 0;
    const GridIF& grid = *set_.grid;
    const auto reach_h =
        static_cast<std::int32_t>(std::ceil(s_.max_vector_h / static_cast<double>(grid.cellWidth())));
    const auto reach_v =
        static_cast<std::int32_t>(std::ceil(s_.max_vector_v / static_cast<double>(grid.cellHeight())));
    for (std::int32_t cell = 0; cell < grid.numCells(); ++cell) {
      std::vector<std::int32_t> area;
      for (std::int32_t dy = -reach_v; dy <= reach_v; ++dy) {
        for (std::int32_t dx = -reach_h; dx <= reach_h; ++dx) {
          std::int32_t index = 0;
          if (grid.cellIndex(cell % grid.numHorzCells() + dx, cell / grid.numHorzCells() + dy, &index))
            area.push_back(index);
        }
      }
      for (std::int32_t slot = 0; slot < a_.store.cellCounts[static_cast<std::size_t>(cell)]; ++slot)
        search(area, cell, slot);
      set_.total += set_.count(cell);
    }
    return set_.total;
  }

 private:
  struct Candidate {
    std::int64_t cost;
    std::int32_t cell = -1;
    std::int32_t slot = -1;
  };

  static const KeyPointRecord& keypoint(const FeatureFrame& frame, std::int32_t cell, std::int32_t slot) {
    return frame.store.records[static_cast<std::size_t>(cell * frame.store.capacityPerCell + slot)];
  }

  static std::int64_t rounded(float v) { return static_cast<std::int64_t>(v >= 0 ? v + 0.5f : v - 0.5f); }

  void search(const std::vector<std::int32_t>& area, std::int32_t cell, std::int32_t slot) {
    const KeyPointRecord& a = keypoint(a_, cell, slot);
    Candidate best{2147483645};
    Candidate second{2147483646};
    for (const std::int32_t cell_b : area) {
      const std::int32_t live = b_.store.cellCounts[static_cast<std::size_t>(cell_b)];
      for (std::int32_t slot_b = 0; slot_b < live; ++slot_b) {
        const KeyPointRecord& b = keypoint(b_, cell_b, slot_b);
        const std::int64_t dx = std::abs(rounded(b.x) - rounded(a.x));
        const std::int64_t dy = std::abs(rounded(b.y) - rounded(a.y));
        const std::int64_t penalty = penalty_of(a, b, dx, dy);
        if ((s_.penalty_mode == 2 ? penalty : dx) > s_.max_vector_h || dy > s_.max_vector_v) continue;
        if (a.octave != b.octave) continue;
        if (s_.check_circle && s_.penalty_mode != 2 &&
            dx * dx + dy * dy > std::int64_t{s_.max_vector_h} * s_.max_vector_h)
          continue;
        const std::int64_t cost = (std::int64_t{distance(a.index, b.index)} << shift()) + penalty;
        if (cost < best.cost) {
          second = best;
          best = {cost, cell_b, slot_b};
        } else if (cost < second.cost) {
          second = {cost, cell_b, slot_b};
        }
      }
    }
    if (best.cell < 0 || (s_.k == 2 && second.cell < 0)) return;
    store(a, cell, slot, best, second, 0);
    if (s_.out_mode == 0 && s_.k > 1) store(a, cell, slot, second, best, 1);
  }

  void store(const KeyPointRecord& a, std::int32_t cell, std::int32_t slot, const Candidate& own,
             const Candidate& other, std::int32_t number) {
    if (set_.count(cell) == set_.capacity) return;
    MatchVector vector;
    vector.id_a = a.index;
    vector.id_b = keypoint(b_, own.cell, own.slot).index;
    vector.cell_a = static_cast<std::int16_t>(cell);
    vector.slot_a = static_cast<std::int16_t>(slot);
    vector.cell_b = static_cast<std::int16_t>(own.cell);
    vector.slot_b = static_cast<std::int16_t>(own.slot);
    vector.cost = static_cast<std::int32_t>(own.cost >> shift());
    cost_ratio(vector, static_cast<std::int32_t>(other.cost >> shift()), s_.dist_ratio_offset,
               s_.dist_ratio_shift, s_.sat_offset);
    vector.candidate = number;
    set_.cell(cell)[set_.count(cell)++] = vector;
  }

  int shift() const { return s_.penalty_mode == 0 || s_.penalty_mode == 2 ? 8 : 16; }

  std::int64_t penalty_of(const KeyPointRecord& a, const KeyPointRecord& b, std::int64_t dx,
                          std::int64_t dy) {
    const std::int32_t r = s_.penalty_rshift;
    const std::int64_t low = std::min(2 * std::min<std::int32_t>(a.score, b.score), 65535);
    switch (s_.penalty_mode) {
      case 0:
        return 0;
      case 1:
        return std::min<std::int64_t>(r < 0 ? (dx + dy) << -r : (dx + dy) >> r, 65535);
      case 2: {
        const std::int64_t hi = std::max(dx, dy);
        const std::int64_t lo = std::min(dx, dy);
        std::int64_t scaled = 1007 * hi + 441 * lo;
        if (hi < 16 * lo) scaled -= 40 * hi;
        return ((scaled + 512) >> 10) >> r;
      }
      case 3:
        return 65535 - low;
      case 4:
        return ((dx + dy) >> r) * 65536 - low + 65535;
      case 5:
        return 65535 - static_cast<std::int64_t>(std::min(
                           std::floor(static_cast<float>(b.score) * s_.penalty_res_coeff), 65535.0f));
      case 7:
        return static_cast<std::int64_t>(draws_() & 0xFFFU);
      default:
        std::abort();
    }
  }

  // Words may reach into the rows behind; what is behind the last one counts as zero.
  static std::vector<unsigned char> rows_of(const FeatureFrame& frame) {
    const cve::XMat_<unsigned char>& rows = frame.descriptors;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(rows.rows * rows.cols) +
                                     sizeof(std::uint64_t) * 4);
    for (std::int32_t y = 0; y < rows.rows; ++y)
      std::copy_n(rows.row(y), rows.cols, &bytes[static_cast<std::size_t>(y * rows.cols)]);
    return bytes;
  }

  std::uint32_t distance(std::int32_t row_a, std::int32_t row_b) const {
    const std::int32_t width = a_.descriptors.cols;
    return plain_matching::descriptor_distance(&rows_a_[static_cast<std::size_t>(row_a * width)],
                                               &rows_b_[static_cast<std::size_t>(row_b * width)], width,
                                               split_, s_.weightDist);
  }

  const MatchingSettings& s_;
  const FeatureFrame& a_;
  const FeatureFrame& b_;
  MatchSet& set_;
  const std::int32_t split_;
  const std::vector<unsigned char> rows_a_ = rows_of(a_);
  const std::vector<unsigned char> rows_b_ = rows_of(b_);
  std::mt19937 draws_{5489};
};

}  // namespace

std::uint32_t descriptor_distance(const unsigned char* a, const unsigned char* b, std::int32_t bytes,
                                  std::int32_t split_bit, std::int32_t weight) {
  const auto differing = [&](std::int32_t i) { return static_cast<std::uint32_t>(a[i] ^ b[i]); };
  const auto bits = [](std::uint32_t x) { return static_cast<std::uint32_t>(std::popcount(x)); };
  const auto fold = static_cast<std::uint32_t>(weight);
  const std::int32_t whole = bytes / 8 * 8;
  std::uint32_t distance = 0;
  for (std::int32_t i = 0; i < whole; ++i) {
    const std::uint32_t x = differing(i);
    const int before_split = std::clamp(split_bit - 8 * i, 0, 8);
    if (weight == 0) {
      distance += bits(x);
    } else if (i / 8 * 64 == split_bit) {
      distance += (1 + fold) * bits(x);
    } else {
      distance += bits(x >> before_split) + fold * bits(x & ((1U << before_split) - 1));
    }
  }
  for (std::int32_t i = whole; i < whole + bytes % 8 * 4; ++i) distance += bits(differing(i));
  return distance;
}

std::int32_t match_cells(const MatchingSettings& settings, const FeatureFrame& frame_a,
                         const FeatureFrame& frame_b, MatchSet& set) {
  return PlainMatcher(settings, frame_a, frame_b, set).match();
}

}  // namespace plain_matching
