#include "refine/Refine.h"

namespace twintrue {

Refinement refine(const CodedHalves& halves, const RigState& rig, const std::vector<RayMatch>& matches,
                  const CalibResult& start, const RefineSettings& settings) {
  Refinement result;
  result.pose = start;
  for (int pass = 0; pass < settings.passes; ++pass) {
    const PairGeometry geometry(rig, result.pose);
    const std::vector<RayMatch> thinned = thin_matches(halves, geometry, matches, settings.thinning);
    result.tried = thinned.size();
    result.patches = match_patches(halves, geometry, thinned, settings.patch);
    result.pairs.clear();
    for (const PatchMatch& patch : result.patches) {
      if (patch.end != PatchEnd::kConverged) continue;
      PosePair pair;
      pair.right = patch.right;
      pair.left = patch.left;
      pair.variance = patch.variance_across;
      result.pairs.push_back(pair);
    }
    result.converged = result.pairs.size();
    result.fit = robust_pose(rig, result.pose, result.pairs, settings.pose);
    put_vector(result.pose, result.fit.pose);
  }
  result.covariance = result.fit.covariance;
  result.kept = result.fit.fitting;
  result.scatter = result.fit.scatter;
  result.expected_error = field_error(rig, result.pose, result.covariance);
  result.moved = field_difference(rig, start, result.pose);
  result.taken = result.fit.solved;
  return result;
}

}  // namespace twintrue
