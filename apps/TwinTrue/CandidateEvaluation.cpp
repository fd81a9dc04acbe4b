#include "apps/TwinTrue/CandidateEvaluation.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include <fmt/format.h>

namespace twintrue {
namespace {

// Candidates that are scored between two offers to the list: enough to keep all threads busy, few enough to
// hold.
constexpr std::size_t kBatch = 1 << 16;

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
  const double c = 0.5 / (sigma * sigma);
  // Modes 12 and 13 flatten the top of the curve.
  const float least = mode == 12 ? 1.0f : mode == 13 ? 0.25f : 0.0f;
  const bool flattened = mode == 12 || mode == 13;
  context.score_table.resize(static_cast<std::size_t>(context.score_tbl_size));
  for (std::size_t i = 0; i < context.score_table.size(); ++i) {
    float x = static_cast<float>(i) / context.score_tbl_coeff;
    if (flattened) x = std::max(x, least);
    context.score_table[i] = static_cast<float>(std::exp(-static_cast<double>(x) * c));
  }
}

std::int64_t evaluate_level(CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                            Seeds& seeds, std::int32_t seed_count, std::int32_t l, std::int32_t r) {
  const auto level = static_cast<std::size_t>(l);
  const auto retry = static_cast<std::size_t>(r);
  const CandidateGrid list(context.right_table[retry][level], context.left_table[retry][level],
                           context.limits[retry], seeds, seed_count);
  TopList top_list(seed_count);
  if (context.verbose) fmt::print("param candidate count[{}]:{}\n", l, list.size());
  build_score_table(context, l, r);

  const ScorePass pass = level_pass(context, matches.size(), l, r);
  CandidateGrid::Cursor cursor;
  std::vector<CandidateGrid::Cursor> places;
  std::vector<PoseCandidate> batch;
  for (bool more = true; more;) {
    places.clear();
    more = list.next(cursor, kBatch, places);
    batch.resize(places.size());
    std::exception_ptr failure;
    const auto count = static_cast<std::int64_t>(places.size());
#pragma omp parallel for schedule(dynamic, 1)
    for (std::int64_t i = 0; i < count; ++i) {
      try {
        const auto at = static_cast<std::size_t>(i);
        PoseCandidate candidate;
        list.grid(places[at].grid).pose(places[at].place, &candidate);
        RigState posed = rig;
        rig_apply_pose(posed, candidate);
        candidate.sums = score_matches(context, pass, posed, matches);
        candidate.score = candidate.sums.score_sum;
        candidate.sigma = pass.sigma;
        batch[at] = candidate;
      } catch (...) {
#pragma omp critical(twintrue_level_failure)
        failure = std::current_exception();
      }
    }
    if (failure) std::rethrow_exception(failure);
    for (const PoseCandidate& candidate : batch) top_list.offer(candidate);
  }
  seeds = top_list.slots();
  return list.size();
}

}  // namespace twintrue
