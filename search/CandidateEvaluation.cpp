#include "search/CandidateEvaluation.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "base/ParallelEach.h"

namespace twintrue {
namespace {

// Candidates that are scored between two offers to the list: enough to keep all threads busy, few enough to
// hold.
constexpr std::size_t kBatch = 1 << 16;

// The best scores of a batch so far, and with them what a candidate must reach to be kept.
class KeptScores {
 public:
  KeptScores(std::int32_t kept, double entry)
      : scores_(static_cast<std::size_t>(kept), entry), least_(entry) {}

  double least() const { return least_.load(std::memory_order_relaxed); }
  void add(double score) {
    if (!(score > least())) return;
    const std::lock_guard lock(mutex_);
    if (!(score > scores_.back())) return;
    scores_.back() = score;
    std::sort(scores_.begin(), scores_.end(), std::greater<>());
    least_.store(scores_.back(), std::memory_order_relaxed);
  }

 private:
  std::vector<double> scores_;  // best first
  std::atomic<double> least_;
  std::mutex mutex_;
};

// Cuts the batch where its poses would need more rays than may be kept; at least one pose stays.
std::size_t affordable(const std::vector<PoseCandidate>& batch, const SweepScorer& scorer) {
  std::set<std::pair<double, double>> left, right;
  for (std::size_t i = 0; i < batch.size(); ++i) {
    left.insert({batch[i].left_offset_x, batch[i].left_offset_y});
    right.insert({batch[i].right_offset_x, batch[i].right_offset_y});
    if (i > 0 && (left.size() + right.size()) * scorer.ray_bytes() > kMostRayBytes) return i;
  }
  return batch.size();
}

}  // namespace

void TopList::offer(const PoseCandidate& candidate) {
  if (!(candidate.score >= entry_)) return;  // a score that isn't a number goes here
  insert(candidate);
}

void TopList::insert(const PoseCandidate& candidate) {
  const double score = candidate.score;
  auto& [best, second, third] = slots_;
  switch (kept_) {
    case 1:
      if (score >= best.score) best = candidate;
      entry_ = best.score;
      break;
    case 2:
      if (score >= best.score) {
        second = best;
        best = candidate;
      } else if (score > second.score) {  // strict, unlike all others
        second = candidate;
      }
      entry_ = second.score;
      break;
    case 3:
      if (score >= best.score) {
        third = second;
        second = best;
        best = candidate;
      } else if (score >= second.score) {
        third = second;
        second = candidate;
      } else if (score >= third.score) {
        third = candidate;
      }
      entry_ = third.score;
      break;
    default:
      break;
  }
}

ScorePass level_pass(const CalibContext& context, std::size_t match_count, std::int32_t l, std::int32_t r) {
  const auto level = static_cast<std::size_t>(l);
  const auto retry = static_cast<std::size_t>(r);
  ScorePass pass;
  pass.sigma = context.sigma[retry][level];
  pass.rank_limit = context.rank[level];
  pass.count_limit = static_cast<std::int32_t>(std::min<std::int64_t>(
      context.num_of_using_feat[retry][level], static_cast<std::int64_t>(match_count)));
  pass.weight_mode = context.score_weight_mode[retry][level];
  pass.div_mode = context.score_div_mode_last;  // for all levels alike
  pass.mid_point = context.use_mid_point[retry][level];
  return pass;
}

void build_score_table(CalibContext& context, std::int32_t l, std::int32_t r) {
  const auto level = static_cast<std::size_t>(l);
  const auto retry = static_cast<std::size_t>(r);
  const std::int32_t mode = context.score_weight_mode[retry][level];
  if (!uses_score_table(mode)) return;
  const double sigma = context.sigma[retry][level];
  const double exponent = weight_exponent(mode, sigma * sigma);
  // Modes 12 and 13 flatten the top of the curve.
  const float least = mode == 12 ? 1.0f : mode == 13 ? 0.25f : 0.0f;
  const bool flattened = mode == 12 || mode == 13;
  context.score_table.resize(static_cast<std::size_t>(context.score_tbl_size));
  for (std::size_t i = 0; i < context.score_table.size(); ++i) {
    float x = static_cast<float>(i) / context.score_tbl_coeff;
    if (flattened) x = std::max(x, least);
    // No number comes of an error of 0 under a scale or a sigma of 0. An error of 0 gives 1.
    const double term = std::exp(static_cast<double>(x) * exponent);
    context.score_table[i] = std::isnan(term) ? 1.0f : static_cast<float>(term);
  }
}

LevelEvaluator::LevelEvaluator(CalibContext& context, const RigState& rig,
                               const std::vector<RayMatch>& matches)
    : context_(context), rig_(rig), matches_(matches), scorer_(context, rig, matches) {}

PoseCandidate LevelEvaluator::plainly_scored(PoseCandidate candidate, const ScorePass& pass) const {
  RigState posed = rig_;
  rig_apply_pose(posed, candidate);
  candidate.sums = score_matches(context_, pass, posed, matches_);
  candidate.score = candidate.sums.score_sum;
  return candidate;
}

void LevelEvaluator::offer_batch(const ScorePass& pass, bool alone, std::vector<PoseCandidate>& batch,
                                 TopList& top_list) {
  KeptScores best(top_list.kept(), top_list.entry());
  // The middle of the grid is where the best was before. From there outwards: with a good score known early,
  // others are left early, and the poses that are left soonest come last, where a thread that has no more
  // waits for the other.
  const std::size_t middle = batch.size() / 2;
  scorer_.prepare({batch[middle]});
  const std::optional<double> known = scorer_.put_least_first(batch[middle]);
  scorer_.prepare(batch);
  const auto take = [&](PoseCandidate& candidate, std::optional<double> score) {
    candidate.score = score ? *score : scorer_.score(candidate, best.least());
    best.add(candidate.score);
  };
  take(batch[middle], known);
  parallel_each(batch.size() - 1, [&](std::size_t k) {
    const std::size_t away = k / 2 + 1;
    take(batch[k % 2 == 0 ? middle - away : middle + away], std::nullopt);
  });

  // What can't be kept is never offered. The few that are left are scored in the plain form, so that rounding
  // decides neither which of them are kept nor in what order. One that is left alone has nothing to be
  // decided, and neither has one that no match counts for: there may be many of those, and they are all
  // alike.
  const double bound = least_to_keep(best.least());
  std::erase_if(batch, [&](const PoseCandidate& candidate) { return !(candidate.score >= bound); });
  const bool is_decided = alone && batch.size() == 1 && std::abs(batch[0].score) >= kLeastTrustedScore;
  if (!is_decided) {
    parallel_each(batch.size(), [&](std::size_t i) {
      if (batch[i].score == 0.0 && scorer_.counts_no_match(batch[i])) return;
      batch[i] = plainly_scored(batch[i], pass);
    });
  }
  for (const PoseCandidate& candidate : batch) top_list.offer(candidate);
}

std::int64_t LevelEvaluator::evaluate(Seeds& seeds, std::int32_t seed_count, std::int32_t l, std::int32_t r) {
  const auto level = static_cast<std::size_t>(l);
  const auto retry = static_cast<std::size_t>(r);
  const CandidateGrid list(context_.right_table[retry][level], context_.left_table[retry][level],
                           context_.limits[retry], seeds, seed_count);
  TopList top_list(seed_count);
  if (context_.verbose) fmt::print("param candidate count[{}]:{}\n", l, list.size());
  build_score_table(context_, l, r);

  const ScorePass pass = level_pass(context_, matches_.size(), l, r);
  const bool swept = SweepScorer::serves(context_, pass);
  if (swept) scorer_.begin(pass);
  CandidateGrid::Cursor cursor;
  std::vector<CandidateGrid::Cursor> places;
  std::vector<PoseCandidate> batch;
  while (list.next(cursor, kBatch, places) || !places.empty()) {
    batch.assign(places.size(), PoseCandidate());
    for (std::size_t i = 0; i < places.size(); ++i) {
      list.grid(places[i].grid).pose(places[i].place, &batch[i]);
      batch[i].sigma = pass.sigma;
    }
    if (swept) {
      const std::size_t affordable_count = affordable(batch, scorer_);
      if (affordable_count < batch.size()) {
        cursor = places[affordable_count];
        batch.resize(affordable_count);
      }
      const bool alone = static_cast<std::int64_t>(batch.size()) == list.size();
      offer_batch(pass, alone, batch, top_list);
    } else {
      parallel_each(batch.size(), [&](std::size_t i) { batch[i] = plainly_scored(batch[i], pass); });
      for (const PoseCandidate& candidate : batch) top_list.offer(candidate);
    }
    places.clear();
  }
  seeds = top_list.slots();
  return list.size();
}

}  // namespace twintrue
