// The pose search: one match after the other against vectors, cached rays and early leave. Items are
// candidates times matches.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <vector>

#include "BenchInputs.h"
#include "search/CandidateEvaluation.h"
#include "search/MatchScore.h"
#include "search/PoseSearch.h"
#include "search/SweepScorer.h"

namespace twintrue::bench {
namespace {

constexpr int kWidth = 4096;

// The accepted matches in the order of the search, repeated or cut to a number.
std::vector<RayMatch> matches_of(const BenchRun& run, std::size_t count) {
  std::vector<RayMatch> matches;
  while (matches.size() < count) {
    const std::size_t more = std::min(count - matches.size(), run.matches.size());
    matches.insert(matches.end(), run.matches.begin(),
                   run.matches.begin() + static_cast<std::ptrdiff_t>(more));
  }
  std::stable_sort(matches.begin(), matches.end(),
                   [](const RayMatch& a, const RayMatch& b) { return a.rank < b.rank; });
  return matches;
}

ScorePass pass_of(std::size_t count) {
  ScorePass pass;
  pass.sigma = 1.0;
  pass.rank_limit = 10000;
  pass.count_limit = static_cast<std::int32_t>(count) + 1;
  pass.weight_mode = 1;
  pass.div_mode = 2;
  return pass;
}

void ScorePlain(benchmark::State& state) {
  const BenchRun& run = BenchRun::of_width(kWidth);
  const auto matches = matches_of(run, static_cast<std::size_t>(state.range(0)));
  RigState rig = run.rig;
  rig_apply_pose(rig, starting_result());
  for (auto _ : state) {
    benchmark::DoNotOptimize(score_matches(*run.context, pass_of(matches.size()), rig, matches));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void ScoreFast(benchmark::State& state) {
  const BenchRun& run = BenchRun::of_width(kWidth);
  const auto matches = matches_of(run, static_cast<std::size_t>(state.range(0)));
  SweepScorer scorer(*run.context, run.rig, matches, static_cast<twintrue::InstructionSet>(state.range(1)));
  scorer.begin(pass_of(matches.size()));
  const std::vector<PoseCandidate> pose(1);
  scorer.prepare(pose);
  for (auto _ : state) benchmark::DoNotOptimize(scorer.score(pose[0], 0.0));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Candidates times matches that the plain form walks in the whole search.
std::int64_t pairs_of(const CalibContext& context, const std::vector<RayMatch>& matches) {
  class Counter final : public SearchObserver {
   public:
    Counter(const CalibContext& settings, std::size_t count) : settings_(settings), count_(count) {}
    void on_level(std::int32_t retry, std::int32_t level, bool, std::int64_t n, const Seeds&) override {
      const std::int64_t walked = level_pass(settings_, count_, level, retry).count_limit;
      pairs += n * std::min(walked, static_cast<std::int64_t>(count_));
    }
    void on_final(std::int32_t, double, const MatchScoreSums&) override {
      pairs += static_cast<std::int64_t>(count_);
    }
    std::int64_t pairs = 0;

   private:
    const CalibContext& settings_;
    std::size_t count_;
  };
  CalibContext copy = context;
  Counter counter(copy, matches.size());
  PoseCandidate result;
  pose_search(copy, BenchRun::of_width(kWidth).rig, matches, result, &counter);
  return counter.pairs;
}

// The whole search of the default preset. What it would cost the plain form is items times the plain rate.
void SearchOfDefaultPreset(benchmark::State& state) {
  const BenchRun& run = BenchRun::of_width(kWidth);
  const auto matches = matches_of(run, static_cast<std::size_t>(state.range(0)));
  const int before = omp_get_max_threads();
  omp_set_num_threads(static_cast<int>(state.range(1)));
  for (auto _ : state) {
    PoseCandidate result;
    pose_search(*run.context, run.rig, matches, result);
    benchmark::DoNotOptimize(result);
  }
  omp_set_num_threads(before);
  state.SetItemsProcessed(state.iterations() * pairs_of(*run.context, matches));
}

// One level of many candidates.
void Level(benchmark::State& state) {
  const BenchRun& run = BenchRun::of_width(kWidth);
  const auto matches = matches_of(run, 2000);
  CalibContext context = *run.context;
  context.limits[0] = {1, 1, 1, 1};
  context.right_table[0][0] = {};
  context.left_table[0][0] = {};
  for (SweepRange* range :
       {&context.right_table[0][0].pan, &context.right_table[0][0].tilt, &context.right_table[0][0].roll}) {
    *range = {-0.01, 0.01, static_cast<std::int32_t>(state.range(0)), 0};
  }
  const std::int64_t candidates = state.range(0) * state.range(0) * state.range(0);
  for (auto _ : state) {
    Seeds seeds;
    LevelEvaluator(context, run.rig, matches)
        .evaluate(seeds, static_cast<std::int32_t>(state.range(1)), 0, 0);
    benchmark::DoNotOptimize(seeds);
  }
  state.SetItemsProcessed(state.iterations() * candidates * 2000);
}

void every_set(benchmark::internal::Benchmark* bench) {
  for (twintrue::InstructionSet set : twintrue::supported_instruction_sets())
    bench->Args({20000, static_cast<int>(set)});
  for (int matches : {200, 2000, 200000})
    bench->Args({matches, static_cast<int>(twintrue::best_instruction_set())});
}

BENCHMARK(ScorePlain)->ArgName("matches")->Arg(200)->Arg(2000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(ScoreFast)->ArgNames({"matches", "set"})->Apply(every_set)->Unit(benchmark::kMillisecond);
BENCHMARK(SearchOfDefaultPreset)
    ->ArgNames({"matches", "threads"})
    ->Args({2000, 1})
    ->Args({20000, 1})
    ->Args({20000, 2})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(Level)
    ->ArgNames({"div", "seeds"})
    ->Args({5, 1})
    ->Args({11, 1})
    ->Args({24, 1})
    ->Args({24, 3})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace twintrue::bench
