// Speed of the patch matching, its plain form beside it. Items are patches.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "PlainPatch.h"
#include "refine/CodedPicture.h"
#include "refine/PatchKernel.h"
#ifdef TWINTRUE_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#endif

namespace twintrue {
namespace {

constexpr int kSide = 64;

// A patch of waves with edges among them, shifted.
double picture_at(double x, double y) {
  return 120.0 + 40.0 * std::sin(0.55 * x + 0.2 * y) + 30.0 * std::tanh(std::sin(0.31 * y - 0.17 * x) * 4.0);
}

struct Pictures {
  std::vector<std::int16_t> from = std::vector<std::int16_t>(kSide * kSide);
  std::vector<std::int16_t> to = from;
  Pictures() {
    for (int y = 0; y < kSide; ++y) {
      for (int x = 0; x < kSide; ++x) {
        const auto at = static_cast<std::size_t>(y * kSide + x);
        from[at] = static_cast<std::int16_t>(picture_at(x, y) * kCodeSteps);
        to[at] = static_cast<std::int16_t>(picture_at(x - 0.4, y - 0.3) * kCodeSteps);
      }
    }
  }
  static const std::int16_t* middle(const std::vector<std::int16_t>& pixels) {
    return &pixels[kSide / 2 * kSide + kSide / 2];
  }
};

PatchPlace place_of_step() {
  PatchPlace place;
  place.middle = {kWindowMiddle + 0.3f, kWindowMiddle + 0.2f};
  place.by_column = {1.01f, 0.02f};
  place.by_row = {-0.02f, 0.99f};
  place.along = place.along_back = {1.0f, 0.0f};
  place.across = place.across_back = {0.0f, 1.0f};
  place.level = 120.0f;
  return place;
}

template <typename Cut, typename Take, typename Measure>
void patches(benchmark::State& state, const Cut& cut, const Take& take, const Measure& measure) {
  const Pictures pictures;
  const PatchWeights weights;
  const PatchPlace place = place_of_step();
  PatchWindow window;
  PatchTemplate patch;
  PatchSums sums;
  const auto steps = state.range(0);
  for (auto _ : state) {
    cut(Pictures::middle(pictures.from), kSide, window);
    take(window, weights, patch);
    cut(Pictures::middle(pictures.to), kSide, window);
    for (std::int64_t i = 0; i < steps; ++i) measure(window, weights, patch, place, sums);
    benchmark::DoNotOptimize(sums);
  }
  state.SetItemsProcessed(state.iterations());
}

void Kernel(benchmark::State& state) {
  const auto set = static_cast<InstructionSet>(state.range(1));
  const PatchKernel kernel = patch_kernel(set);
  if (set > best_instruction_set()) {
    state.SkipWithError("this machine lacks the instructions");
    return;
  }
  patches(state, kernel.cut, kernel.take, kernel.measure);
}
void Plain(benchmark::State& state) {
  patches(state, testing_support::plain_cut, testing_support::plain_take, testing_support::plain_measure);
}
BENCHMARK(Kernel)->ArgNames({"steps", "set"})->ArgsProduct({{1, 4, 6}, {0, 1, 2}});
BENCHMARK(Plain)->ArgName("steps")->Arg(1)->Arg(4)->Arg(6);

#ifdef TWINTRUE_BENCH_OPENCV
cv::Mat bytes_of(const std::vector<std::int16_t>& pixels) {
  const cv::Mat codes(kSide, kSide, CV_16S, const_cast<std::int16_t*>(pixels.data()));
  cv::Mat bytes;
  codes.convertTo(bytes, CV_8U, 1.0 / kCodeSteps);
  return bytes;
}

// Refines one point of one picture.
void CornerSubPix(benchmark::State& state) {
  const Pictures pictures;
  const cv::Mat bytes = bytes_of(pictures.to);
  cv::setNumThreads(1);
  for (auto _ : state) {
    std::vector<cv::Point2f> points{{kSide / 2.0f, kSide / 2.0f}};
    cv::cornerSubPix(bytes, points, {kPatchReach, kPatchReach}, {-1, -1},
                     {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 12, 0.01});
    benchmark::DoNotOptimize(points);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(CornerSubPix);

// Aligns a patch of the one picture with a window of the other under an affine map.
void FindTransformEcc(benchmark::State& state) {
  const Pictures pictures;
  cv::setNumThreads(1);
  const cv::Mat from = bytes_of(pictures.from);
  const cv::Mat to = bytes_of(pictures.to);
  constexpr int kFirst = kSide / 2 - kPatchReach;
  const cv::Mat patch = from({kFirst, kFirst, kPatchSide, kPatchSide});
  const cv::Mat window = to({kSide / 2 - kWindowMiddle, kSide / 2 - kWindowMiddle, kWindowSide, kWindowSide});
  for (auto _ : state) {
    cv::Mat warp =
        (cv::Mat_<float>(2, 3) << 1, 0, kWindowMiddle - kPatchReach, 0, 1, kWindowMiddle - kPatchReach);
    cv::findTransformECC(patch, window, warp, cv::MOTION_AFFINE,
                         {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 12, 1e-4}, cv::noArray(), 5);
    benchmark::DoNotOptimize(warp);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FindTransformEcc);
#endif

}  // namespace
}  // namespace twintrue
