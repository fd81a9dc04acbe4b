#include "search/PoseSearch.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "search/CandidateEvaluation.h"
#include "search/MatchScore.h"

namespace twintrue {
namespace {

double root_mean(double sum, std::int32_t count) { return count == 0 ? 0.0 : std::sqrt(sum / count); }

// The final scoring of a retry: one pass under the settings named `..._last`.
MatchScoreSums score_final(const CalibContext& context, const RigState& rig,
                           const std::vector<RayMatch>& matches, const PoseCandidate& pose) {
  RigState posed = rig;
  rig_apply_pose(posed, pose);
  ScorePass pass;
  pass.final = true;
  pass.sigma = context.sigma_org_last;
  pass.rank_limit = context.rank_last;
  pass.count_limit = static_cast<std::int32_t>(
      std::min<std::int64_t>(context.num_using_feat_last, static_cast<std::int64_t>(matches.size())));
  pass.weight_mode = context.score_weight_mode_last;
  pass.div_mode = context.score_div_mode_last;
  pass.mid_point = context.use_mid_point_last;
  return score_matches_in_parallel(context, pass, posed, matches);
}

// Two weight modes count down from a ceiling, so that with the divider 1 the score turns into a
// root-mean-square error. Which is asked of the first retry's last level, whatever retry runs.
bool score_is_ceiling_minus_error(const CalibContext& context) {
  const std::int32_t levels = context.num_levels[0];
  if (levels < 1) return false;
  const std::int32_t mode = context.score_weight_mode[0][static_cast<std::size_t>(levels - 1)];
  return mode == 6 || mode == 10;
}

}  // namespace

void pose_search(CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                 PoseCandidate& result, SearchObserver* observer) {
  for (double CalibResult::*field : kPoseFields) result.*field = 0.0;
  result.score = -1.0;
  result.sigma = 0.0;

  LevelEvaluator levels(context, rig, matches);
  Seeds seeds;
  for (std::int32_t r = 0;; ++r) {
    const auto retry = static_cast<std::size_t>(r);
    if (context.cont[retry] == 0) seeds[0] = PoseCandidate();
    seeds[1] = PoseCandidate();
    seeds[2] = PoseCandidate();

    for (std::int32_t l = 0; l < context.num_levels[retry]; ++l) {
      const auto level = static_cast<std::size_t>(l);
      const bool skipped = context.skip[retry][level] != 0;
      std::int64_t candidates = 0;
      if (!skipped) {
        if (context.verbose) fmt::print("sigma:{} lv:{} retry:{}\n", context.sigma[retry][level], l, r);
        candidates = levels.evaluate(seeds, context.knn[level], l, r);
      }
      if (observer != nullptr) observer->on_level(r, l, skipped, candidates, seeds);
    }

    const PoseCandidate best_now = seeds[0];
    const MatchScoreSums sums = score_final(context, rig, matches, best_now);
    double s = sums.score_sum;
    if (score_is_ceiling_minus_error(context)) s = std::sqrt(kScoreCeiling - s);
    if (context.verbose) {
      fmt::print("***********************\n***********************\n");
      fmt::print("{}    {}     {}\n", result.score, s, sums.count4);
      fmt::print("***********************\n***********************\n");
    }
    if (observer != nullptr) observer->on_final(r, s, sums);
    if (s >= result.score) {
      result = best_now;
      result.sums = sums;
      result.sums.score_sum = s;
      result.score = s;
      result.best_retry = r;
    }
    result.last_retry = r;
    if (root_mean(result.sums.sum16, result.sums.count16) < context.retry_break_err_th16) return;
    if (root_mean(result.sums.sum4, result.sums.count4) < context.retry_break_err_th4) return;
    if (r >= context.retry_count) return;
  }
}

}  // namespace twintrue
