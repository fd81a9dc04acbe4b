#include "search/MatchFiltering.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include <fmt/format.h>

namespace twintrue {
namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;

// Keeps the usable matches, each with its rratio, and counts them by rank.
std::vector<RayMatch> usable_matches(CalibContext& context, const RigState& rig,
                                     const std::vector<RayMatch>& matches) {
  // The left half of the frame is the right eye's picture.
  const EyeModel& eye = rig.current.right;
  const auto cx = static_cast<float>(eye.view_width / 2);
  const auto cy = static_cast<float>(eye.view_height / 2);
  std::vector<RayMatch> kept;
  for (RayMatch match : matches) {
    const float dx = match.x_a - cx;
    const float dy = match.y_a - cy;
    const float radius = std::sqrt(dy * dy + dx * dx);
    match.rratio = static_cast<double>(radius) / rig.circle_radius_px;
    if (match.rratio > context.removing_outer_feat_rratio || match.accepted < 1) continue;
    if (match.rank >= 0 && match.rank < kRankBins)
      ++context.rank_histogram[static_cast<std::size_t>(match.rank)];
    kept.push_back(match);
  }
  return kept;
}

void report(const PoseCandidate& result) {
  fmt::print("right pan:{:.2f}deg  tilt:{:.2f}deg  roll:{:.2f}deg  offset_x:{}pix  offset_y:{}pix\n",
             result.right_pan * kDegreesPerRadian, result.right_tilt * kDegreesPerRadian,
             result.right_roll * kDegreesPerRadian, result.right_offset_x, result.right_offset_y);
  fmt::print("left  pan:{:.2f}deg  tilt:{:.2f}deg  roll:{:.2f}deg  offset_x:{}pix  offset_y:{}pix {}\n",
             result.left_pan * kDegreesPerRadian, result.left_tilt * kDegreesPerRadian,
             result.left_roll * kDegreesPerRadian, result.left_offset_x, result.left_offset_y, result.score);
}

}  // namespace

std::int32_t filter_and_search(CalibContext& context, const RigState& rig, std::vector<RayMatch>& matches,
                               PoseCandidate& result, std::int32_t cells, bool ignore_thresholds,
                               SearchObserver* observer) {
  context.rank_histogram.fill(0);
  matches = usable_matches(context, rig, matches);
  for (std::size_t i = 1; i < kRankBins; ++i) context.rank_histogram[i] += context.rank_histogram[i - 1];

  const std::int32_t places = (context.rank_last + 1) * cells;
  const double detection_ratio =
      static_cast<double>(context.rank_histogram[static_cast<std::size_t>(context.rank_last)]) / places;
  if (!ignore_thresholds && detection_ratio < context.detection_ratio_th) {
    result.detection_ratio = detection_ratio;
    return TWINTRUE_TOO_FEW_MATCHES;
  }

  std::stable_sort(matches.begin(), matches.end(), [](const RayMatch& a, const RayMatch& b) {
    return a.rank != b.rank ? a.rank < b.rank : a.rratio > b.rratio;
  });

  if (context.mode != kSearchMode) std::abort();
  pose_search(context, rig, matches, result, observer);
  if (context.verbose) report(result);

  const MatchScoreSums& sums = result.sums;
  const double rms4 = sums.count4 == 0 ? 0.0 : std::sqrt(sums.sum4 / sums.count4);
  result.quality = sums.count4 / (places * rms4);
  result.detection_ratio = detection_ratio;
  result.error16 = sums.count16 == 0 ? 0.0 : std::sqrt(sums.sum16 / sums.count16);
  const bool passed = result.quality >= context.failure_score_th && result.error16 < context.error16_th;
  return passed ? TWINTRUE_CALIBRATED : TWINTRUE_QUALITY_FAILED;
}

}  // namespace twintrue
