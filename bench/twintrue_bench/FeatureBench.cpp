// Detection and description of one half of a frame: plain, fast, and a library's binary features for as many
// keypoints. Items are pixels.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <map>
#include <memory>
#include <vector>

#include "BenchInputs.h"
#include "PlainDescription.h"
#include "PlainDetection.h"
#include "features/Description.h"
#include "features/KeypointScan.h"
#include "features/LevelBuild.h"
#include "features/RENO_Impl.h"
#include "features/Response.h"
#include "imaging/Filters.h"

#ifdef TWINTRUE_BENCH_OPENCV_FEATURES
#include <opencv2/features2d.hpp>
#endif

namespace twintrue::bench {
namespace {

constexpr int kSmoothingKernel = 21;  // of desc_gaus_size 7

// What the stages of a half start from, and the results of the plain form.
struct Half {
  explicit Half(int width)
      : run(BenchRun::of_width(width)),
        light(run.halves.left),
        detector(dynamic_cast<const fpu::RENO_Impl&>(*run.unit->detector)),
        grid(run.unit->grid),
        area{grid.areaLeft(), grid.areaTop(), grid.areaWidth(), grid.areaHeight()},
        chain(fpu::selectPattern(detector.candidates(), detector.settings())) {
    const std::int32_t margin = detector.patchSize() / 2 + fpu::kReachBeyondPatch;
    region.x = std::max(area.x - margin, 0);
    region.y = std::max(area.y - margin, 0);
    region.width = std::min(area.x + area.width + margin, light.cols) - region.x;
    region.height = std::min(area.y + area.height + margin, light.rows) - region.y;
    number = detector.settings().filter_type[0];
    view = fpu::filterView(detector.settings().filter_mode, region, cve::kernel_radius(number), light.cols,
                           light.rows);
    threshold = detector.settings().threshold[0];
    length = detector.settings().desc_bytes;
    working = plain_working();
    smoothed = plain::smooth(working, 0, kSmoothingKernel);
    plain_scan(keypoints);
    descriptors = plain::describe(smoothed, chain, length, keypoints);
  }

  // Made on first use.
  static Half& of(const benchmark::State& state) {
    static std::map<std::int64_t, std::unique_ptr<Half>> halves;
    auto& half = halves[state.range(0)];
    if (!half) half = std::make_unique<Half>(static_cast<int>(state.range(0)));
    return *half;
  }

  cve::XMat_<unsigned char> plain_working() const {
    return plain::working_image(light, view, number, false, false, detector.settings().gamma_mode);
  }

  void plain_scan(fpu::KeyPointStore& store) const {
    store = fpu::FeatureFrame(*run.unit).store;
    plain::select(fpu::computeResponse(working, area, nullptr).response, threshold, store);
  }

  bool same_keypoints(const fpu::KeyPointStore& other) const {
    if (other.count != keypoints.count || other.cellCounts != keypoints.cellCounts) return false;
    for (std::size_t i = 0; i < keypoints.records.size(); ++i) {
      const bool live = static_cast<std::int32_t>(i % static_cast<std::size_t>(keypoints.capacityPerCell)) <
                        keypoints.cellCounts[i / static_cast<std::size_t>(keypoints.capacityPerCell)];
      const fpu::KeyPointRecord& a = keypoints.records[i];
      const fpu::KeyPointRecord& b = other.records[i];
      if (live && (a.x != b.x || a.y != b.y || a.score != b.score || a.index != b.index)) return false;
    }
    return true;
  }

  BenchRun& run;
  const cve::XMat_<float>& light;
  const fpu::RENO_Impl& detector;
  const fpu::Grid& grid;
  fpu::Region area, region, view;
  std::vector<fpu::PatternPoint> chain;
  std::int32_t number = 0;
  std::int32_t length = 0;
  float threshold = 0.0f;
  cve::XMat_<unsigned char> working, smoothed, descriptors;
  fpu::KeyPointStore keypoints;
};

bool same_pixels(const cve::XMat_<unsigned char>& a, const cve::XMat_<unsigned char>& b) {
  bool same = a.rows == b.rows && a.cols == b.cols;
  for (int y = 0; same && y < a.rows; ++y) same = std::equal(a.row(y), a.row(y) + a.cols, b.row(y));
  return same;
}

void finish(benchmark::State& state, const Half& half, bool same) {
  if (!same) state.SkipWithError("not what the plain form gives");
  state.counters["keypoints"] = half.keypoints.count;
  state.SetItemsProcessed(state.iterations() * half.light.cols * half.light.rows);
}

twintrue::InstructionSet set_of(const benchmark::State& state) {
  omp_set_num_threads(1);
  return static_cast<twintrue::InstructionSet>(state.range(1));
}

void WorkingImagePlain(benchmark::State& state) {
  const Half& half = Half::of(state);
  for (auto _ : state) benchmark::DoNotOptimize(half.plain_working().data);
  finish(state, half, true);
}

void WorkingImageFast(benchmark::State& state) {
  const Half& half = Half::of(state);
  const auto set = set_of(state);
  cve::XMat_<unsigned char> working;
  for (auto _ : state)
    working = fpu::buildWorkingImage(half.light, half.detector.settings(), half.region, set);
  finish(state, half, same_pixels(working, half.working));
}

void KeypointsPlain(benchmark::State& state) {
  const Half& half = Half::of(state);
  fpu::KeyPointStore store;
  for (auto _ : state) half.plain_scan(store);
  finish(state, half, half.same_keypoints(store));
}

void KeypointsFast(benchmark::State& state) {
  const Half& half = Half::of(state);
  const auto set = set_of(state);
  fpu::KeyPointStore store = half.keypoints;
  for (auto _ : state) fpu::scanKeypoints(half.working, half.area, half.threshold, nullptr, store, set);
  finish(state, half, half.same_keypoints(store));
}

void SmoothingPlain(benchmark::State& state) {
  const Half& half = Half::of(state);
  for (auto _ : state) benchmark::DoNotOptimize(plain::smooth(half.working, 0, kSmoothingKernel).data);
  finish(state, half, true);
}

void SmoothingFast(benchmark::State& state) {
  const Half& half = Half::of(state);
  const auto set = set_of(state);
  cve::XMat_<unsigned char> smoothed;
  for (auto _ : state)
    smoothed = fpu::smoothForDescription(half.working, half.detector.settings().desc_gaus_size, set);
  finish(state, half, same_pixels(smoothed, half.smoothed));
}

void DescriptorsPlain(benchmark::State& state) {
  const Half& half = Half::of(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(plain::describe(half.smoothed, half.chain, half.length, half.keypoints).data);
  finish(state, half, true);
}

void DescriptorsFast(benchmark::State& state) {
  const Half& half = Half::of(state);
  omp_set_num_threads(1);
  cve::XMat_<unsigned char> descriptors;
  descriptors.create(half.keypoints.count, half.length);
  for (auto _ : state)
    fpu::describeKeypoints({{half.smoothed, 1.0f}}, half.chain, half.keypoints, descriptors);
  finish(state, half, same_pixels(descriptors, half.descriptors));
}

// All of the above, from light to descriptors, with the choice of the chain.
void HalfPlain(benchmark::State& state) {
  const Half& half = Half::of(state);
  for (auto _ : state) {
    const cve::XMat_<unsigned char> working = half.plain_working();
    fpu::KeyPointStore store;
    half.plain_scan(store);
    const cve::XMat_<unsigned char> smoothed = plain::smooth(working, 0, kSmoothingKernel);
    const auto chain = fpu::selectPattern(half.detector.candidates(), half.detector.settings());
    benchmark::DoNotOptimize(plain::describe(smoothed, chain, half.length, store).data);
  }
  finish(state, half, true);
}

void HalfFast(benchmark::State& state) {
  const Half& half = Half::of(state);
  fpu::FeatureFrame frame(*half.run.unit);
  const int before = omp_get_max_threads();
  omp_set_num_threads(static_cast<int>(state.range(1)));
  for (auto _ : state) half.run.unit->detectAndDescribe(half.light, frame.store, frame.descriptors);
  omp_set_num_threads(before);
  finish(state, half, half.same_keypoints(frame.store) && same_pixels(frame.descriptors, half.descriptors));
}

#ifdef TWINTRUE_BENCH_OPENCV_FEATURES
void HalfOrb(benchmark::State& state) {
  const Half& half = Half::of(state);
  cv::setNumThreads(1);
  const cv::Mat image(half.working.rows, half.working.cols, CV_8U, half.working.data,
                      static_cast<std::size_t>(half.working.stride));
  const auto orb = cv::ORB::create(half.keypoints.count);
  std::size_t found = 0;
  for (auto _ : state) {
    std::vector<cv::KeyPoint> keypoints;
    cv::Mat descriptors;
    orb->detectAndCompute(image, cv::noArray(), keypoints, descriptors);
    found = keypoints.size();
  }
  state.counters["keypoints"] = static_cast<double>(found);
  state.SetItemsProcessed(state.iterations() * half.light.cols * half.light.rows);
}
#endif

void every_width(benchmark::internal::Benchmark* bench) {
  bench->ArgName("width")
      ->Arg(2048)
      ->Arg(4096)
      ->Arg(8192)
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime();
}

void every_set(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"width", "set"})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
  for (twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
    bench->Args({4096, static_cast<int>(set)});
  }
}

void one_width(benchmark::internal::Benchmark* bench) {
  bench->ArgName("width")->Arg(4096)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
}

BENCHMARK(WorkingImagePlain)->Apply(one_width);
BENCHMARK(WorkingImageFast)->Apply(every_set);
BENCHMARK(KeypointsPlain)->Apply(one_width);
BENCHMARK(KeypointsFast)->Apply(every_set);
BENCHMARK(SmoothingPlain)->Apply(one_width);
BENCHMARK(SmoothingFast)->Apply(every_set);
BENCHMARK(DescriptorsPlain)->Apply(one_width);
BENCHMARK(DescriptorsFast)->Apply(one_width);
BENCHMARK(HalfPlain)->Apply(every_width);
BENCHMARK(HalfFast)
    ->ArgNames({"width", "threads"})
    ->ArgsProduct({{2048, 4096, 8192}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
#ifdef TWINTRUE_BENCH_OPENCV_FEATURES
BENCHMARK(HalfOrb)->Apply(every_width);
#endif

}  // namespace
}  // namespace twintrue::bench
