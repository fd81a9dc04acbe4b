#include "refine/PatchKernel.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "refine/PlainPatch.h"

namespace twintrue {
namespace {

constexpr int kSide = 48;

std::vector<std::int16_t> noise_picture(unsigned seed) {
  std::mt19937 engine(seed);
  std::vector<std::int16_t> pixels(kSide * kSide);
  for (std::int16_t& pixel : pixels) pixel = static_cast<std::int16_t>(engine() % 32641);
  return pixels;
}
const std::int16_t* middle_of(const std::vector<std::int16_t>& pixels) {
  return &pixels[kSide / 2 * kSide + kSide / 2];
}

// Maps from a plain shift to the greatest tilt and scale that fit.
std::vector<PatchPlace> places() {
  std::vector<PatchPlace> all;
  for (const float step : {0.71f, 0.9f, 1.0f, 1.24f}) {
    for (const float incline : {-0.29f, 0.0f, 0.02f, 0.29f}) {
      PatchPlace place;
      place.middle = {15.0f + 0.37f * step, 15.0f - 2.0f * incline};
      place.by_column = {step, incline};
      place.by_row = {-0.5f * incline, step};
      place.along = {0.96f, 0.28f};
      place.across = {-0.28f, 0.96f};
      place.along_back = {1.1f, 0.2f};
      place.across_back = {-0.3f, 0.8f};
      place.gain = 0.8f;
      place.level = 100.0f;
      all.push_back(place);
    }
  }
  return all;
}

struct Result {
  PatchWindow window;
  PatchTemplate patch;
  std::vector<PatchSums> sums;
};
template <typename Cut, typename Take, typename Measure>
Result run(const Cut& cut, const Take& take, const Measure& measure) {
  const auto from = noise_picture(1);
  const auto to = noise_picture(2);
  const PatchWeights weights;
  Result result;
  cut(middle_of(from), kSide, result.window);
  take(result.window, weights, result.patch);
  cut(middle_of(to), kSide, result.window);
  for (const PatchPlace& place : places()) {
    result.sums.emplace_back();
    measure(result.window, weights, result.patch, place, result.sums.back());
  }
  return result;
}

TEST(PatchKernel, AllInstructionSetsGiveTheSameBits) {
  const PatchKernel portable = patch_kernel(InstructionSet::kPortable);
  const Result wanted = run(portable.cut, portable.take, portable.measure);
  for (const InstructionSet set : supported_instruction_sets()) {
    const PatchKernel kernel = patch_kernel(set);
    const Result result = run(kernel.cut, kernel.take, kernel.measure);
    EXPECT_EQ(std::memcmp(&result.window, &wanted.window, sizeof result.window), 0);
    EXPECT_EQ(std::memcmp(&result.patch.value, &wanted.patch.value, sizeof result.patch.value), 0);
    EXPECT_EQ(result.patch.square, wanted.patch.square);
    for (std::size_t k = 0; k < wanted.sums.size(); ++k) {
      EXPECT_EQ(std::memcmp(&result.sums[k], &wanted.sums[k], sizeof wanted.sums[k]), 0)
          << "set " << static_cast<int>(set) << ", place " << k;
    }
  }
}

TEST(PatchKernel, IsThePlainForm) {
  const PatchKernel kernel = patch_kernel(best_instruction_set());
  const Result result = run(kernel.cut, kernel.take, kernel.measure);
  const Result plain =
      run(testing_support::plain_cut, testing_support::plain_take, testing_support::plain_measure);
  // Sums of a hundred and more 32-bit terms, their errors beside the sizes of the factors.
  constexpr double kTolerance = 2e-5;
  EXPECT_NEAR(result.patch.square, plain.patch.square, kTolerance * plain.patch.square);
  const auto all = places();
  for (std::size_t k = 0; k < plain.sums.size(); ++k) {
    ASSERT_TRUE(place_fits(all[k])) << k;
    const PatchSums& a = result.sums[k];
    const PatchSums& b = plain.sums[k];
    EXPECT_NEAR(a.square, b.square, kTolerance * b.square);
    for (std::size_t i = 0; i < kPatchUnknowns; ++i) {
      EXPECT_NEAR(a.pull[i], b.pull[i], kTolerance * std::sqrt(b.normal[i][i] * b.square)) << k << ": " << i;
      for (std::size_t j = 0; j <= i; ++j) {
        EXPECT_NEAR(a.normal[i][j], b.normal[i][j], kTolerance * std::sqrt(b.normal[i][i] * b.normal[j][j]))
            << k << ": " << i << ", " << j;
      }
    }
  }
}

TEST(PatchKernel, TakesOnlyPlacesWithinTheWindow) {
  PatchPlace good;
  good.middle = {15.0f, 15.0f};
  good.by_column = {1.0f, 0.0f};
  good.by_row = {0.0f, 1.0f};
  EXPECT_TRUE(place_fits(good));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::array<std::array<float, 6>, 12> bad{{{7.9f, 15, 1, 0, 0, 1},
                                                  {15, 7.9f, 1, 0, 0, 1},
                                                  {23, 15, 1, 0, 0, 1},
                                                  {15, 23, 1, 0, 0, 1},
                                                  {15, 15, 1.3f, 0, 0, 1},
                                                  {15, 15, 0.6f, 0, 0, 1},
                                                  {15, 15, 1, 0.4f, 0, 1},
                                                  {15, 15, 1, 0, -0.4f, 1},
                                                  {15, 15, 1, 0, 0, -1},
                                                  {nan, 15, 1, 0, 0, 1},
                                                  {15, 15, nan, 0, 0, 1},
                                                  {15, 1e30f, 1, 0, 0, 1}}};
  for (const auto& b : bad) {
    PatchPlace place;
    place.middle = {b[0], b[1]};
    place.by_column = {b[2], b[3]};
    place.by_row = {b[4], b[5]};
    EXPECT_FALSE(place_fits(place)) << b[0] << " " << b[1] << " " << b[2] << " " << b[3] << " " << b[4];
  }
}

}  // namespace
}  // namespace twintrue
