// Float filter and tone curve of one half of a frame: plain, fast, and a library's filter with the same
// kernel. Items are pixels. One thread.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "BenchInputs.h"
#include "PlainDetection.h"
#include "PlainFilter.h"
#include "imaging/ByteCurve.h"
#include "imaging/Filters.h"
#include "imaging/ToneCurves.h"

#ifdef TWINTRUE_BENCH_OPENCV_IMGPROC
#include <opencv2/imgproc.hpp>
#endif

namespace twintrue::bench {
namespace {

constexpr int kKernel = 14;

const cve::XMat_<float>& half_of(const benchmark::State& state) {
  return BenchRun::of_width(static_cast<int>(state.range(0))).halves.left;
}

std::int64_t pixels_of(const cve::XMat& image) { return std::int64_t{image.cols} * image.rows; }

void FilterPlain(benchmark::State& state) {
  const cve::XMat_<float>& half = half_of(state);
  const cve::FilterKernel kernel = cve::make_float_kernel(kKernel);
  for (auto _ : state) benchmark::DoNotOptimize(plain::filter(kernel, half, true).data);
  state.SetItemsProcessed(state.iterations() * pixels_of(half));
}

void FilterFast(benchmark::State& state) {
  const cve::XMat_<float>& half = half_of(state);
  const cve::FilterKernel kernel = cve::make_float_kernel(kKernel);
  const auto set = static_cast<twintrue::InstructionSet>(state.range(1));
  omp_set_num_threads(1);
  cve::XMat_<float> filtered;
  for (auto _ : state) {
    cve::convolveFloat(kernel, half, filtered, true, set);
    benchmark::DoNotOptimize(filtered.data);
  }
  state.SetItemsProcessed(state.iterations() * pixels_of(half));
}

#ifdef TWINTRUE_BENCH_OPENCV_IMGPROC
void FilterOpenCv(benchmark::State& state) {
  const cve::XMat_<float>& half = half_of(state);
  const cve::FilterKernel kernel = cve::make_float_kernel(kKernel);
  std::vector<float> weights;
  for (int d = -kernel.radius; d <= kernel.radius; ++d) {
    weights.push_back(kernel.coefficients[static_cast<std::size_t>(std::abs(d))]);
  }
  cv::setNumThreads(1);
  const cv::Mat source(half.rows, half.cols, CV_32F, half.data, static_cast<std::size_t>(half.stride));
  cv::Mat filtered;
  for (auto _ : state) {
    cv::sepFilter2D(source, filtered, CV_32F, weights, weights, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    benchmark::DoNotOptimize(filtered.data);
  }
  state.SetItemsProcessed(state.iterations() * pixels_of(half));
}
#endif

unsigned char working_byte(float light, std::int32_t gamma_mode) {
  return cve::byteFromTone10(cve::tone10FromLinear(light, gamma_mode));
}

void CurvePlain(benchmark::State& state) {
  const cve::XMat_<float>& half = half_of(state);
  std::vector<unsigned char> bytes(static_cast<std::size_t>(half.cols));
  for (auto _ : state) {
    for (int y = 0; y < half.rows; ++y) {
      for (int x = 0; x < half.cols; ++x) {
        bytes[static_cast<std::size_t>(x)] = static_cast<unsigned char>(plain::tone10(half.at(y, x), 2) >> 2);
      }
      benchmark::DoNotOptimize(bytes.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * pixels_of(half));
}

// The table is made anew each time, as it is for each image.
void CurveFast(benchmark::State& state) {
  const cve::XMat_<float>& half = half_of(state);
  const auto set = static_cast<twintrue::InstructionSet>(state.range(1));
  std::vector<unsigned char> bytes(static_cast<std::size_t>(half.cols));
  for (auto _ : state) {
    const cve::ByteCurve curve(working_byte, 2);
    for (int y = 0; y < half.rows; ++y) {
      curve.convert(half.row(y), bytes.size(), bytes.data(), set);
      benchmark::DoNotOptimize(bytes.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * pixels_of(half));
}

// Every float from 0 to 2: fails if one comes out another way than the formula gives it.
void CurveOfEveryFloat(benchmark::State& state) {
  const auto mode = static_cast<std::int32_t>(state.range(0));
  const cve::ByteCurve curve(working_byte, mode);
  constexpr std::uint32_t kBlock = 1 << 16;
  std::vector<float> values(kBlock);
  std::vector<unsigned char> bytes(kBlock);
  std::int64_t different = 0;
  for (auto _ : state) {
    for (std::uint32_t first = 0; first < std::bit_cast<std::uint32_t>(2.0f); first += kBlock) {
      for (std::uint32_t i = 0; i < kBlock; ++i) values[i] = std::bit_cast<float>(first + i);
      curve.convert(values.data(), kBlock, bytes.data(), twintrue::best_instruction_set());
      for (std::uint32_t i = 0; i < kBlock; ++i) different += bytes[i] != working_byte(values[i], mode);
    }
  }
  if (different != 0) state.SkipWithError("floats differ from the formula");
  state.counters["different"] = static_cast<double>(different);
  state.SetItemsProcessed(state.iterations() * std::bit_cast<std::uint32_t>(2.0f));
}

void every_width_and_set(benchmark::internal::Benchmark* bench) {
  for (int width : {2048, 4096, 8192}) {
    for (twintrue::InstructionSet set : twintrue::supported_instruction_sets())
      bench->Args({width, static_cast<int>(set)});
  }
}

void plain_form(benchmark::internal::Benchmark* bench) {
  bench->ArgName("width")
      ->Arg(2048)
      ->Arg(4096)
      ->Arg(8192)
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime();
}

void fast_form(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"width", "set"})
      ->Apply(every_width_and_set)
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime();
}

BENCHMARK(FilterPlain)->Apply(plain_form);
BENCHMARK(FilterFast)->Apply(fast_form);
#ifdef TWINTRUE_BENCH_OPENCV_IMGPROC
BENCHMARK(FilterOpenCv)->Apply(plain_form);
#endif
BENCHMARK(CurvePlain)->Apply(plain_form);
BENCHMARK(CurveFast)->Apply(fast_form);
BENCHMARK(CurveOfEveryFloat)
    ->ArgName("gamma_mode")
    ->DenseRange(0, 2)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

}  // namespace
}  // namespace twintrue::bench
