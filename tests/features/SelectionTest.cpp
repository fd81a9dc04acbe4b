#include "features/Selection.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>

#include "FeatureTestSupport.h"
#include "PlainDetection.h"
#include "features/ResponseRowKernels.h"

namespace {

using testing_support::grid_of;
using testing_support::store_for;

// Rows of a response through all rows of cells.
void select(const cve::XMat_<float>& response, float threshold, fpu::KeyPointStore& store) {
  const fpu::ResponseRowKernels kernels = fpu::response_row_kernels(twintrue::best_instruction_set());
  fpu::CellRow cells(threshold, store);
  std::vector<std::int32_t> columns(static_cast<std::size_t>(response.cols) + 1);
  const std::int32_t height = store.grid->cellHeight();
  for (std::int32_t y = 0; y < store.grid->numVertCells() * height; ++y) {
    const std::int32_t count = kernels.reach(response.row(y), response.cols, cells.least(), columns.data());
    cells.add(y % height, response.row(y), columns.data(), count);
    if (y % height == height - 1) cells.finish(y / height);
  }
  fpu::number_keypoints(store);
}

TEST(SelectionTest, KeepsTheBestOfEachCell) {
  // Responses with few different values, so that cells hold many equal scores.
  std::mt19937 engine(4);
  for (const std::int32_t capacity : {1, 5, 30, 200}) {
    const fpu::Grid grid = grid_of(14, 21, 13, 9, 4, 3, capacity);
    const auto response = testing_support::make_image<float>(
        grid.areaWidth(), grid.areaHeight(), [&] { return static_cast<float>(engine() % 40) * 0.004f; }, 3);
    for (const float threshold : {0.0f, 7.0f, 7.5f, 12.0f, 100.0f, 1e9f}) {
      SCOPED_TRACE(testing::Message() << capacity << ' ' << threshold);
      fpu::KeyPointStore store = store_for(grid);
      select(response, threshold, store);
      fpu::KeyPointStore expected = store_for(grid);
      plain::select(response, threshold, expected);
      EXPECT_TRUE(testing_support::same_records(store, expected));
      EXPECT_EQ(store.count > 0, threshold < 16.0f);
    }
  }
}

TEST(SelectionDeathTest, LackOfScratchEndsTheProcessWithALineOnStandardOutput) {
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
