#include "features/KeypointScan.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "FeatureTestSupport.h"
#include "PlainDetection.h"
#include "features/Response.h"
#include "features/Selection.h"

namespace {

using fpu::Region;
using testing_support::grid_of;
using testing_support::pixels_of;
using testing_support::same_bits;
using testing_support::store_for;

Region area_of(const fpu::Grid& grid) { return {grid.left, grid.top, grid.areaWidth(), grid.areaHeight()}; }

// Images of all bytes and of hardly any contrast, so that cells hold many equal scores. The first rows are
// dark, so that there are cells without candidates.
std::vector<cve::XMat_<unsigned char>> scanned_images() {
  std::mt19937 engine(4);
  std::vector<cve::XMat_<unsigned char>> images{testing_support::random_bytes(170, 160, 8)};
  images.push_back(testing_support::make_image<unsigned char>(
      170, 160, [&] { return static_cast<unsigned char>(100 + engine() % 2); }));
  for (auto& image : images) {
    for (int y = 0; y < 30; ++y) std::fill_n(image.row(y), 170, static_cast<unsigned char>(9));
  }
  return images;
}

TEST(KeypointScanTest, EqualsResponseThenSelection) {
  cve::XMat_<float> det;  // used again and again, whatever the size
  for (const cve::XMat_<unsigned char>& image : scanned_images()) {
    for (const fpu::Grid& grid : {grid_of(3, 3, 13, 9, 12, 17, 4), grid_of(5, 4, 70, 75, 2, 2, 30),
                                  grid_of(9, 3, 64, 64, 2, 2, 5), grid_of(9, 30, 128, 1, 1, 100, 3),
                                  grid_of(40, 30, 1, 1, 3, 4, 1), grid_of(3, 3, 164, 154, 1, 1, 9)}) {
      const Region area = area_of(grid);
      const fpu::ResponseImages images = fpu::computeResponse(image, area, nullptr);
      const auto responses = pixels_of(images.response);
      const float top = std::trunc(100.0f * *std::max_element(responses.begin(), responses.end()));
      for (const float threshold : {0.0f, 0.3f * top, top - 0.5f, top, 1e9f}) {
        if (threshold < 0.0f) continue;
        fpu::KeyPointStore expected = store_for(grid);
        plain::select(images.response, threshold, expected);
        EXPECT_EQ(expected.count > 0, threshold < top);
        for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
          for (const int threads : {1, 2, 7, 150}) {
            SCOPED_TRACE(testing::Message() << area.width << ' ' << threshold << ' ' << threads);
            const twintrue::ThreadTeam scoped(threads);
            fpu::KeyPointStore store = store_for(grid);
            fpu::scanKeypoints(image, area, threshold, nullptr, store, set);
            EXPECT_TRUE(testing_support::same_records(store, expected));
            fpu::KeyPointStore again = store_for(grid);
            fpu::scanKeypoints(image, area, threshold, &det, again, set);
            EXPECT_TRUE(testing_support::same_records(again, expected));
            EXPECT_TRUE(same_bits(pixels_of(det, 1), pixels_of(images.det, 1)));
            if (threads > 2 && threshold > 0.0f) break;
          }
        }
      }
    }
  }
}

TEST(KeypointScanTest, LeavesADeterminantImageThatSomebodyHolds) {
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(60, 60, 8);
  const cve::XMat_<unsigned char> other = testing_support::random_bytes(60, 60, 9);
  const fpu::Grid grid = grid_of(5, 5, 20, 20, 2, 2, 4);
  fpu::KeyPointStore store = store_for(grid);
  cve::XMat_<float> det;
  fpu::scanKeypoints(image, area_of(grid), 0.0f, &det, store, twintrue::best_instruction_set());
  const cve::XMat_<float> held = det;
  const auto before = pixels_of(held, 1);
  fpu::scanKeypoints(other, area_of(grid), 0.0f, &det, store, twintrue::best_instruction_set());
  EXPECT_TRUE(same_bits(pixels_of(held, 1), before));
  EXPECT_FALSE(same_bits(pixels_of(det, 1), before));
}

TEST(KeypointScanTest, ARasterWithoutCellsHasNoKeypoints) {
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(60, 60, 8);
  for (const fpu::Grid& grid : {grid_of(10, 10, 2, 2, 0, 3, 4), grid_of(10, 10, 2, 2, 3, 0, 4)}) {
    fpu::KeyPointStore store = store_for(grid);
    store.count = 5;
    fpu::scanKeypoints(image, area_of(grid), 0.0f, nullptr, store, twintrue::best_instruction_set());
    EXPECT_EQ(store.count, 0);
  }
}

TEST(KeypointScanDeathTest, LackOfScratchEndsTheProcessWithALineOnStandardOutput) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // A death test reads standard error alone, so standard output takes its place.
  EXPECT_EXIT(
      {
        std::fflush(stdout);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        if (std::freopen("/dev/null", "w", stderr) == nullptr) std::_Exit(1);
        fpu::end_for_lack_of_scratch();
      },
      testing::ExitedWithCode(255), "^FastBuf new error\n$");
}

}  // namespace
