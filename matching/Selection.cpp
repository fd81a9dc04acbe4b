#include "matching/Selection.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace fpu {
namespace {

constexpr std::size_t kInsertionSortLimit = 32;
constexpr std::int32_t kDistinctRatio = 24;  // 1.5 in the usual fixed point, whatever dist_ratio_shift says

// Keys wrap as 32-bit arithmetic does.
std::int32_t joined(std::int32_t high, std::int32_t shift, std::int32_t low) {
  return static_cast<std::int32_t>((static_cast<std::uint32_t>(high) << shift) +
                                   static_cast<std::uint32_t>(low));
}

std::int32_t key_of(const CorrectionSettings& settings, const MatchVector& v) {
  switch (settings.sort_mode) {
    case 1:
    case 3:
      return v.score5;
    case 2:
    case 4:
      return v.score1;
    case 9:
      return joined(v.score1, settings.sshift, v.score2);
    case 10:
      return joined(v.score2, settings.sshift, v.score1);
    case 11:
      return joined(joined(v.score2, 8, v.score1), 8, v.score3);
    case 12: {
      const std::int32_t key = joined(v.score2, 8, v.score1);
      return v.prev_state != kPrevNone ? joined(key, 1, 0) : key;
    }
    default:
      return 0;
  }
}

// Whether `a` goes before `b` under sort_mode 1 to 12; under any other nothing goes before anything. Modes 5
// and 6 are no strict order: two vectors of the same dist_ratio from 24 on go before each other.
bool goes_before(const CorrectionSettings& settings, const MatchVector& a, const MatchVector& b) {
  switch (settings.sort_mode) {
    case 5:
      return a.dist_ratio >= kDistinctRatio ? a.dist_ratio >= b.dist_ratio : a.score5 > b.score5;
    case 6:
      return a.dist_ratio >= kDistinctRatio ? a.dist_ratio >= b.dist_ratio : a.score1 > b.score1;
    case 7:
      return a.dist_ratio != b.dist_ratio ? a.dist_ratio > b.dist_ratio : a.score5 > b.score5;
    case 8:
      return a.dist_ratio != b.dist_ratio ? a.dist_ratio > b.dist_ratio : a.score1 > b.score1;
    default:
      return key_of(settings, a) > key_of(settings, b);
  }
}

void insertion_sort(const CorrectionSettings& settings, std::span<MatchVector> vectors) {
  for (std::size_t i = 1; i < vectors.size(); ++i) {
    const MatchVector moving = vectors[i];
    std::size_t place = i;
    while (place > 0 && goes_before(settings, moving, vectors[place - 1])) {
      vectors[place] = vectors[place - 1];
      --place;
    }
    vectors[place] = moving;
  }
}

// From the bottom up; runs of `width` in `from` become runs of twice the width in `to`.
void merge_sort(const CorrectionSettings& settings, std::span<MatchVector> vectors,
                std::span<MatchVector> scratch) {
  const std::size_t size = vectors.size();
  std::span<MatchVector> from = vectors;
  std::span<MatchVector> to = scratch.first(size);
  for (std::size_t width = 1; width < size; width *= 2) {
    for (std::size_t begin = 0; begin < size; begin += 2 * width) {
      const std::size_t middle = std::min(begin + width, size);
      const std::size_t end = std::min(begin + 2 * width, size);
      std::size_t left = begin;
      std::size_t right = middle;
      for (std::size_t out = begin; out < end; ++out) {
        const bool takes_right =
            left == middle || (right < end && goes_before(settings, from[right], from[left]));
        to[out] = from[takes_right ? right++ : left++];
      }
    }
    std::swap(from, to);
  }
  if (from.data() != vectors.data()) std::copy(from.begin(), from.end(), vectors.begin());
}

// Up to kInsertionSortLimit vectors an insertion sort, above a merge sort; under a strict order both are
// stable, and neither leaves the array under the others. `scratch` holds at least as many.
void sort_vectors(const CorrectionSettings& settings, std::span<MatchVector> vectors,
                  std::span<MatchVector> scratch) {
  if (vectors.size() <= kInsertionSortLimit) {
    insertion_sort(settings, vectors);
  } else {
    merge_sort(settings, vectors, scratch);
  }
}

bool responds(const CorrectionSettings& settings, std::int32_t score_a, std::int32_t score_b) {
  return std::max(score_a, score_b) >= settings.res_th && std::min(score_a, score_b) >= settings.res_th_both;
}

}  // namespace

std::int32_t select_cell(const CorrectionSettings& settings, const FeatureFrame& frame_a,
                         const FeatureFrame& frame_b, MatchVector* vectors, std::int32_t count,
                         std::int32_t limit) {
  MatchVector* const end = vectors + std::clamp(count, 0, kMaxScoredInCell);
  MatchVector* const kept_end = std::remove_if(vectors, end, [&](const MatchVector& v) {
    return !responds(settings, keypoint_a(frame_a, v).score, keypoint_b(frame_b, v).score);
  });
  std::array<MatchVector, kMaxScoredInCell> scratch;
  sort_vectors(settings, {vectors, kept_end}, scratch);
  const auto survivors = static_cast<std::int32_t>(kept_end - vectors);
  const std::int32_t result = std::clamp(limit, 0, survivors);
  for (std::int32_t i = 0; i < result; ++i) vectors[i].rank = i;
  return result;
}

}  // namespace fpu
