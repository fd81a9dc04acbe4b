#include "verdict/Polish.h"

#include <cstddef>
#include <utility>

namespace twintrue {
namespace {

// Where the shapes are fitted nothing else has to make up for them: what both eyes have in common is as the
// lens file has it.
RefineSettings settings_for(bool fit_shapes) {
  RefineSettings settings;
  if (!fit_shapes) return settings;
  constexpr double kDegree = 0.0175;
  settings.pose.prior.common = {0.3 * kDegree, 0.1 * kDegree, 0.1 * kDegree, 0.0001, 0.0001};
  return settings;
}

// Those that fit, where refining found them.
std::vector<RayMatch> refined_matches(const Refinement& refinement, const RigState& rig) {
  std::vector<RayMatch> matches;
  for (const RefinedMatch& refined : refinement.matches) {
    if (refined.weight == 0.0) continue;
    matches.push_back(match_of(rig, refined.right, refined.left));
  }
  return matches;
}

}  // namespace

Polished polish_pose(const CodedHalves& halves, const RigState& rig, const std::vector<RayMatch>& matches,
                     const CalibResult& found, bool fit_shapes) {
  Polished polished;
  const RefineSettings settings = settings_for(fit_shapes);
  polished.settled = settle_pose(rig, matches, found, fit_shapes);
  const auto refine_settled = [&] {
    return refine(halves, with_shapes(rig, polished.settled.shapes), matches, polished.settled.pose,
                  settings);
  };
  polished.refinement = refine_settled();
  if (fit_shapes && polished.refinement.taken) {
    // Whole pixels tell the shapes to a tenth of a pixel at the rim; refined matches tell them better.
    constexpr FitNoise kRefinedNoise{0.03, 0.005};
    const Settled coarse =
        std::exchange(polished.settled, settle_pose(rig, refined_matches(polished.refinement, rig),
                                                    polished.refinement.pose, fit_shapes, kRefinedNoise));
    Refinement finer = refine_settled();
    if (finer.taken) {
      polished.refinement = std::move(finer);
    } else {
      polished.settled = coarse;
    }
  }
  const Settled& settled = polished.settled;
  const Refinement& refinement = polished.refinement;
  polished.pose = refinement.taken ? refinement.pose : settled.pose;
  polished.shapes = settled.shapes;
  polished.difference_sd = refinement.taken ? refinement.difference_sd : settled.difference_sd;
  polished.common_sd = refinement.taken ? refinement.common_sd : settled.common_sd;
  return polished;
}

}  // namespace twintrue
