#include "Trial.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

#include "Optimum.h"
#include "search/MatchFiltering.h"
#include "search/MatchScore.h"

namespace twintrue::accuracy {
namespace {

class WorkCounter final : public SearchObserver {
 public:
  WorkCounter(const CalibContext& context, const std::vector<RayMatch>& matches)
      : context_(context), matches_(matches) {}

  void on_level(std::int32_t retry, std::int32_t level, bool skipped, std::int64_t candidates,
                const Seeds&) override {
    if (skipped) return;
    candidates_ += candidates;
    work_ += candidates * matches_of(static_cast<std::size_t>(retry), static_cast<std::size_t>(level));
  }
  void on_final(std::int32_t, double, const MatchScoreSums&) override {}

  std::int64_t candidates() const { return candidates_; }
  std::int64_t work() const { return work_; }

 private:
  // The matches are sorted by now: the best ranks stand first.
  std::int64_t matches_of(std::size_t retry, std::size_t level) const {
    const std::int32_t rank = context_.rank[level];
    const auto end = std::find_if(matches_.begin(), matches_.end(),
                                  [rank](const RayMatch& match) { return match.rank > rank; });
    const auto of_rank = static_cast<std::int64_t>(end - matches_.begin());
    if (context_.skip_num_using_feat_mode != 0) return of_rank;
    const std::int64_t limit = std::min<std::int64_t>(context_.num_of_using_feat[retry][level],
                                                      static_cast<std::int64_t>(matches_.size()));
    return std::clamp<std::int64_t>(limit - 1, 0, of_rank);
  }

  const CalibContext& context_;
  const std::vector<RayMatch>& matches_;
  std::int64_t candidates_ = 0;
  std::int64_t work_ = 0;
};

// Sigma of the level that runs last.
double last_sigma(const CalibContext& context) {
  const auto retry = static_cast<std::size_t>(context.retry_count);
  for (std::int32_t l = context.num_levels[retry]; l-- > 0;) {
    const auto level = static_cast<std::size_t>(l);
    if (context.skip[retry][level] == 0) return context.sigma[retry][level];
  }
  return context.sigma_org_last;
}

double score_of(const CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                const Pose& corrections, double sigma) {
  CalibResult pose{};
  for (std::size_t i = 0; i < kPoseSize; ++i) pose.*kPoseFields[i] = corrections[i];
  RigState posed = rig;
  rig_apply_pose(posed, pose);
  ScorePass pass;
  pass.final = true;
  pass.sigma = sigma;
  pass.rank_limit = pass.count_limit = 1'000'000'000;
  pass.weight_mode = 1;
  pass.div_mode = 2;
  return score_matches(context, pass, posed, matches).score_sum;
}

Pose sum(const Pose& a, const Pose& b, double sign) {
  Pose result{};
  for (std::size_t i = 0; i < kPoseSize; ++i) result[i] = a[i] + sign * b[i];
  return result;
}

}  // namespace

Trial run_trial(Case& one, CalibContext& context, const TrialSettings& settings) {
  Trial trial;
  trial.name = one.name;
  trial.format = one.lens.format;
  trial.width = one.lens.width;
  trial.matches = static_cast<int>(one.matches.size());
  trial.wanted = sum(one.truth, one.lens.pose, -1.0);

  context.verbose = settings.verbose;
  PoseCandidate found;
  WorkCounter counter(context, one.matches);
  const std::clock_t cpu_start = std::clock();
  const auto start = std::chrono::steady_clock::now();
  trial.status = filter_and_search(context, one.rig, one.matches, found, one.cells, true, &counter);
  trial.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  trial.cpu_seconds = static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC;
  for (std::size_t i = 0; i < kPoseSize; ++i) trial.found[i] = found.*kPoseFields[i];
  trial.candidates = counter.candidates();
  trial.work = counter.work();

  const Scene scene(one.lens, one.truth);
  const Pose after = sum(one.lens.pose, trial.found, 1.0);
  trial.before = scene.judge(one.lens.pose);
  trial.after = scene.judge(after);

  std::vector<PixelPair> pairs;
  for (const RayMatch& match : one.matches) {
    pairs.push_back({match.x_a, match.y_a, match.x_b + one.lens.half_width(), match.y_b});
  }
  OptimumSettings optimum;
  optimum.sigma = trial.sigma = settings.sigma > 0.0 ? settings.sigma : last_sigma(context);
  optimum.depth_min = context.depth_min + 0.0001;
  optimum.depth_max = context.depth_max - 0.0001;
  optimum.threads = settings.threads;
  // From the truth as well: a search that ended far off leads to a top of its own.
  const Pose best = find_optimum(one.lens, pairs, {after, one.truth}, optimum);
  trial.optimum = scene.judge(best);
  trial.score = score_of(context, one.rig, one.matches, trial.found, trial.sigma);
  trial.optimum_score = score_of(context, one.rig, one.matches, sum(best, one.lens.pose, -1.0), trial.sigma);
  return trial;
}

}  // namespace twintrue::accuracy
