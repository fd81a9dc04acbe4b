// Matching: pair by pair against blocks of keypoints, and a well-kept library's search of all pairs beside
// it. Items are pairs that the plain walk looks at; of the library, pairs that it compares.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "BenchInputs.h"
#include "PlainCorrection.h"
#include "PlainMatching.h"
#include "matching/Correction.h"
#include "matching/MatchSet.h"
#include "matching/Matching.h"

#ifdef TWINTRUE_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#endif

#ifdef TWINTRUE_BENCH_POPCNT
// The plain form once more, built for machines that count bits in one instruction.
namespace plain_matching_popcnt {
std::int32_t match_cells(const fpu::MatchingSettings& settings, const fpu::FeatureFrame& frame_a,
                         const fpu::FeatureFrame& frame_b, fpu::MatchSet& set);
}
#endif

namespace twintrue::bench {
namespace {

// Pairs of keypoints in cells that are within reach of each other.
std::int64_t pairs_of(const BenchRun& run) {
  const fpu::Grid& grid = run.unit->grid;
  const fpu::MatchingSettings& s = run.unit->matchingSettings;
  const auto reach = [](std::int32_t longest, std::int32_t cell) { return (longest + cell - 1) / cell; };
  const std::int32_t reach_h = reach(s.max_vector_h, grid.cellWidth());
  const std::int32_t reach_v = reach(s.max_vector_v, grid.cellHeight());
  std::int64_t pairs = 0;
  for (std::int32_t cell = 0; cell < grid.numCells(); ++cell) {
    std::int64_t around = 0;
    for (std::int32_t dy = -reach_v; dy <= reach_v; ++dy) {
      for (std::int32_t dx = -reach_h; dx <= reach_h; ++dx) {
        std::int32_t index = 0;
        if (grid.cellIndex(cell % grid.numHorzCells() + dx, cell / grid.numHorzCells() + dy, &index)) {
          around += run.right->store.cellCounts[static_cast<std::size_t>(index)];
        }
      }
    }
    pairs += around * run.left->store.cellCounts[static_cast<std::size_t>(cell)];
  }
  return pairs;
}

void every_width(benchmark::internal::Benchmark* bench) {
  bench->ArgName("width")->Arg(2048)->Arg(4096)->Arg(8192);
}

template <class Match>
void measure(benchmark::State& state, Match&& match) {
  const BenchRun& run = BenchRun::of_width(static_cast<int>(state.range(0)));
  fpu::MatchSet set = make_match_set(*run.unit);
  for (auto _ : state) benchmark::DoNotOptimize(match(run, set));
  state.SetItemsProcessed(state.iterations() * pairs_of(run));
}

void MatchingPlain(benchmark::State& state) {
  measure(state, [](const BenchRun& run, fpu::MatchSet& set) {
    return plain_matching::match_cells(run.unit->matchingSettings, *run.left, *run.right, set);
  });
}

#ifdef TWINTRUE_BENCH_POPCNT
void MatchingPlainPopcnt(benchmark::State& state) {
  measure(state, [](const BenchRun& run, fpu::MatchSet& set) {
    return plain_matching_popcnt::match_cells(run.unit->matchingSettings, *run.left, *run.right, set);
  });
}
BENCHMARK(MatchingPlainPopcnt)->Apply(every_width)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

void MatchingFast(benchmark::State& state) {
  const auto instructions = static_cast<twintrue::InstructionSet>(state.range(1));
  const int before = omp_get_max_threads();
  omp_set_num_threads(static_cast<int>(state.range(2)));
  measure(state, [instructions](const BenchRun& run, fpu::MatchSet& set) {
    return fpu::match_cells(run.unit->matchingSettings, *run.left, *run.right, set, instructions);
  });
  omp_set_num_threads(before);
}

// Items are vectors.
template <class Correct>
void measure_correction(benchmark::State& state, Correct&& correct) {
  const BenchRun& run = BenchRun::of_width(static_cast<int>(state.range(0)));
  fpu::MatchSet matched = make_match_set(*run.unit);
  fpu::match_cells(run.unit->matchingSettings, *run.left, *run.right, matched);
  fpu::CorrectionSettings settings = run.unit->mvcSettings;
  fpu::MatchSet set = matched;
  for (auto _ : state) {
    state.PauseTiming();
    set = matched;
    state.ResumeTiming();
    correct(settings, run, set);
    benchmark::DoNotOptimize(set.total);
  }
  state.SetItemsProcessed(state.iterations() * matched.total);
}

void CorrectionPlain(benchmark::State& state) {
  measure_correction(state, [](fpu::CorrectionSettings& settings, const BenchRun& run, fpu::MatchSet& set) {
    plain_matching::correct_cells(settings, *run.left, *run.right, set);
  });
}

void CorrectionFast(benchmark::State& state) {
  const auto instructions = static_cast<twintrue::InstructionSet>(state.range(1));
  measure_correction(
      state, [instructions](fpu::CorrectionSettings& settings, const BenchRun& run, fpu::MatchSet& set) {
        fpu::correct_cells(settings, *run.left, *run.right, set, instructions);
      });
}

#ifdef TWINTRUE_BENCH_OPENCV
// The two nearest of all keypoints, wherever they are.
void MatchingBesideOpenCv(benchmark::State& state) {
  cv::setNumThreads(1);
  const BenchRun& run = BenchRun::of_width(static_cast<int>(state.range(0)));
  const auto rows_of = [](const fpu::FeatureFrame& frame) {
    const cve::XMat_<unsigned char>& rows = frame.descriptors;
    cv::Mat mat(rows.rows, rows.cols, CV_8U);
    for (std::int32_t i = 0; i < rows.rows; ++i) std::copy_n(rows.row(i), rows.cols, mat.ptr(i));
    return mat;
  };
  const cv::Mat a = rows_of(*run.left);
  const cv::Mat b = rows_of(*run.right);
  const cv::BFMatcher matcher(cv::NORM_HAMMING);
  std::vector<std::vector<cv::DMatch>> found;
  for (auto _ : state) matcher.knnMatch(a, b, found, 2);
  state.SetItemsProcessed(state.iterations() * a.rows * b.rows);
}
BENCHMARK(MatchingBesideOpenCv)
    ->ArgName("width")
    ->Arg(2048)
    ->Arg(4096)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
#endif

void every_width_and_set(benchmark::internal::Benchmark* bench) {
  for (int width : {2048, 4096, 8192}) {
    for (twintrue::InstructionSet set : twintrue::supported_instruction_sets())
      bench->Args({width, static_cast<int>(set), 1});
    bench->Args({width, static_cast<int>(twintrue::best_instruction_set()), 2});
  }
}

BENCHMARK(MatchingPlain)->Apply(every_width)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(MatchingFast)
    ->ArgNames({"width", "set", "threads"})
    ->Apply(every_width_and_set)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
BENCHMARK(CorrectionPlain)->Apply(every_width)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(CorrectionFast)
    ->ArgNames({"width", "set"})
    ->Apply([](benchmark::internal::Benchmark* bench) {
      for (int width : {2048, 4096, 8192}) {
        for (twintrue::InstructionSet set : twintrue::supported_instruction_sets())
          bench->Args({width, static_cast<int>(set)});
      }
    })
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

}  // namespace
}  // namespace twintrue::bench
