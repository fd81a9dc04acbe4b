#include "refine/Refine.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "refine/FieldError.h"

namespace twintrue {
namespace {

// Bounds of the guards. Beside them what bench/refine found of good frames and of those that it spoils.
constexpr std::size_t kLeastMatches = 100;
constexpr double kLeastConverging = 0.5;  // good 0.9, noise of 20 grey levels 0.4 to 0.8
constexpr double kLeastFitting = 0.6;     // good 0.92 and more, a part of the scene moved 0.79
constexpr std::size_t kLeastFields = 12;
constexpr double kMostScatter = 1.0;  // pixels; good up to 0.06, noise of 20 grey levels 0.6
// Pixels: good up to 0.01, noise, blur and compression up to 0.02, one half out of focus 0.04. Photographs
// have 0.05 to 0.6, as much as the curve of a lens is off: there where exactly matches lie tells nothing
// about the pose, and other shots of the rig fit the refined pose no better. Rows that sway, a half enlarged,
// parts that moved: 0.23 and more.
constexpr double kMostCommon = 0.04;
// Good 0.05 to 0.6; spoilt frames that refining makes worse 0.98 to 1.5.
constexpr double kMostForesight = 0.95;
constexpr double kMostMisfit =
    1.1;  // median disparity across of the search's matches, by that under its pose
constexpr double kMisfitFloor = 0.02;  // pixels; less is no difference

// Pairs of the search's matches, some thousands at most, spread over the list.
std::vector<PosePair> whole_pixel_pairs(const RigState& rig, const std::vector<RayMatch>& matches) {
  constexpr std::size_t kMost = 3000;
  const std::size_t stride = matches.size() / kMost + 1;
  std::vector<PosePair> pairs;
  for (std::size_t m = 0; m < matches.size(); m += stride) {
    PosePair pair;
    pair.right = {static_cast<double>(matches[m].x_a), static_cast<double>(matches[m].y_a)};
    pair.left = {static_cast<double>(matches[m].x_b) + rig.half_width, static_cast<double>(matches[m].y_b)};
    pairs.push_back(pair);
  }
  return pairs;
}

double median_across(const RigState& rig, const CalibResult& pose, const std::vector<PosePair>& pairs) {
  const PairGeometry geometry(rig, pose);
  std::vector<double> sizes;
  for (const PosePair& pair : pairs) {
    Vec3 right{}, left{};
    if (geometry.right_in_rig(pair.right[0], pair.right[1], right) &&
        geometry.left_in_rig(pair.left[0], pair.left[1], left)) {
      sizes.push_back(std::abs(geometry.across_in_rig(left, right)));
    }
  }
  if (sizes.empty()) return 0.0;
  const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
  std::nth_element(sizes.begin(), middle, sizes.end());
  return *middle;
}

void fill_deviations(Refinement& result) {
  const PoseMatrix& c = result.covariance;
  for (std::size_t i = 0; i < kPoseValues; ++i) {
    for (std::size_t j = 0; j < kPoseValues; ++j) {
      const double scale = std::sqrt(c[i][i] * c[j][j]);
      result.correlation[i][j] = scale > 0.0 ? c[i][j] / scale : (i == j ? 1.0 : 0.0);
    }
  }
  for (std::size_t i = 0; i < 5; ++i) {
    const double both = c[i][i] + c[i + 5][i + 5];
    result.difference_sd[i] = std::sqrt(std::max(both - 2.0 * c[i][i + 5], 0.0));
    result.common_sd[i] = 0.5 * std::sqrt(std::max(both + 2.0 * c[i][i + 5], 0.0));
  }
}

void refuse(Refinement& result, RefineRefusal refusal, const char* reason) {
  if (result.refusal != RefineRefusal::kNone) return;
  result.refusal = refusal;
  result.reason = reason;
}

// Whether the matches are enough to say anything; the pose does not matter yet.
void judge_patches(Refinement& result) {
  if (result.converged < kLeastMatches) {
    refuse(result, RefineRefusal::kFewPatches, "Too few of the matches can be refined.");
  }
  if (static_cast<double>(result.converged) < kLeastConverging * static_cast<double>(result.tried)) {
    refuse(result, RefineRefusal::kFewConverge,
           "The pictures of the two eyes differ too much at most matches.");
  }
}

void judge_pose(const RigState& rig, const std::vector<PosePair>& pairs, const CalibResult& start,
                bool solved, Refinement& result) {
  if (!solved) refuse(result, RefineRefusal::kNoSolution, "The refined matches do not fix a pose.");
  if (result.kept < kLeastMatches) {
    refuse(result, RefineRefusal::kFewPatches, "Too few of the refined matches fit one pose.");
  }
  if (static_cast<double>(result.kept) < kLeastFitting * static_cast<double>(result.converged)) {
    refuse(result, RefineRefusal::kFewFit, "Too many of the refined matches contradict each other.");
  }
  if (result.fields < kLeastFields) {
    refuse(result, RefineRefusal::kFewFields, "The refined matches cover too little of the picture.");
  }
  if (!(result.scatter <= kMostScatter)) {
    refuse(result, RefineRefusal::kScatter, "The refined matches lie too far off any pose.");
  }
  if (!(result.common <= kMostCommon)) {
    refuse(result, RefineRefusal::kSystematic,
           "Whole parts of the picture are off under any pose, by more than refining could mend.");
  }
  if (result.refusal == RefineRefusal::kNoSolution) return;
  const double before = median_across(rig, start, pairs);
  const double after = median_across(rig, result.pose, pairs);
  if (!(after <= kMostMisfit * before + kMisfitFloor)) {
    refuse(result, RefineRefusal::kMisfit,
           "The matches of the search fit the refined pose worse than its own.");
  }
  if (!(result.foresight <= kMostForesight)) {
    refuse(result, RefineRefusal::kNoBetter,
           "The refined pose is hardly better than the search's on matches that it has not seen.");
  }
}

// The pose to start from: the search's, unless its matches themselves lie clearly better about another one.
CalibResult starting_pose(const RigState& rig, std::vector<PosePair>& pairs, const CalibResult& start,
                          const RobustPoseSettings& settings) {
  constexpr double kClearlyBetter = 0.7;
  constexpr double kNear = 0.6;  // pixels; keypoints on whole pixels leave 0.3
  const double here = median_across(rig, start, pairs);
  if (here <= kNear) return start;
  const RobustPose coarse = coarse_pose(rig, start, pairs, settings);
  if (!coarse.solved) return start;
  CalibResult other = start;
  put_vector(other, coarse.pose);
  return median_across(rig, other, pairs) < kClearlyBetter * here ? other : start;
}

std::vector<PosePair> pairs_of(const std::vector<PatchMatch>& patches) {
  std::vector<PosePair> pairs;
  for (const PatchMatch& patch : patches) {
    if (patch.end != PatchEnd::kConverged) continue;
    PosePair pair;
    pair.right = patch.right;
    pair.left = patch.left;
    pair.variance = patch.variance_across;
    pairs.push_back(pair);
  }
  return pairs;
}

}  // namespace

Refinement refine(const CodedHalves& halves, const RigState& rig, const std::vector<RayMatch>& matches,
                  const CalibResult& start, const RefineSettings& settings) {
  Refinement result;
  result.pose = start;
  std::vector<PosePair> whole = whole_pixel_pairs(rig, matches);
  const CalibResult from = starting_pose(rig, whole, start, settings.pose);
  const PairGeometry geometry(rig, from);
  const std::vector<RayMatch> thinned = thin_matches(halves, geometry, matches, settings.thinning);
  std::vector<PosePair> pairs = pairs_of(match_patches(halves, geometry, thinned, settings.patch));
  result.tried = thinned.size();
  result.converged = pairs.size();
  judge_patches(result);
  if (result.refusal == RefineRefusal::kFewPatches) return result;

  const RobustPose fit = robust_pose(rig, from, pairs, settings.pose);
  put_vector(result.pose, fit.pose);
  result.covariance = fit.covariance;
  result.kept = fit.fitting;
  result.fields = fit.fields;
  result.scatter = fit.scatter;
  result.common = fit.common;
  result.foresight = fit.foresight;
  for (const PosePair& pair : pairs) {
    result.matches.push_back(
        {pair.right, pair.left, pair.deviation * pair.deviation, pair.residual, pair.weight});
  }
  if (fit.solved) {
    fill_deviations(result);
    result.expected_error = field_error(rig, result.pose, result.covariance);
    result.moved = field_difference(rig, start, result.pose);
  }
  judge_pose(rig, whole, start, fit.solved, result);
  result.taken = result.refusal == RefineRefusal::kNone;
  return result;
}

}  // namespace twintrue
