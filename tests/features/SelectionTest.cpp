#include "features/Selection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "FeatureTestSupport.h"

namespace {

using fpu::KeyPointRecord;
using testing_support::grid_of;
using testing_support::store_for;

// Responses with few different values, so that cells hold many equal scores.
cve::XMat_<float> responses(const fpu::Grid& grid, unsigned seed) {
  std::mt19937 engine(seed);
  return testing_support::make_image<float>(
      grid.areaWidth(), grid.areaHeight(), [&] { return static_cast<float>(engine() % 40) * 0.004f; }, 3);
}

// What a cell must hold: the candidates in raster order, and if they are too many a stable sort and a cut.
std::vector<KeyPointRecord> expected_cell(const cve::XMat_<float>& response, const fpu::Grid& grid,
                                          std::int32_t c, float threshold) {
  std::vector<KeyPointRecord> records;
  for (std::int32_t y = 0; y < response.rows; ++y) {
    for (std::int32_t x = 0; x < response.cols; ++x) {
      std::int32_t cell = -1;
      if (!grid.cellIndexOf(x + grid.left, y + grid.top, &cell) || cell != c) continue;
      const auto v = static_cast<std::int32_t>(response.at(y, x) * 100.0f);
      if (!(static_cast<float>(v) > threshold)) continue;
      KeyPointRecord record;
      record.x = static_cast<float>(x + grid.left);
      record.y = static_cast<float>(y + grid.top);
      record.cell = c;
      record.link = -1;
      record.score = static_cast<std::uint16_t>(std::min(v, 65535));
      records.push_back(record);
    }
  }
  const auto capacity = static_cast<std::size_t>(grid.maxKpsInCell());
  if (records.size() > capacity) {
    std::stable_sort(records.begin(), records.end(),
                     [](const KeyPointRecord& a, const KeyPointRecord& b) { return a.score > b.score; });
    records.resize(capacity);
  }
  return records;
}

void expect_same(const KeyPointRecord& a, const KeyPointRecord& b) {
  EXPECT_EQ(a.x, b.x);
  EXPECT_EQ(a.y, b.y);
  EXPECT_EQ(a.cell, b.cell);
  EXPECT_EQ(a.index, b.index);
  EXPECT_EQ(a.link, b.link);
  EXPECT_EQ(a.score, b.score);
  EXPECT_EQ(a.octave, b.octave);
  EXPECT_EQ(a.refined, b.refined);
}

TEST(SelectionTest, KeepsTheBestOfEachCellForAnyThreadCount) {
  for (const std::int32_t capacity : {1, 5, 30, 200}) {
    for (const float threshold : {0.0f, 7.5f, 12.0f, 100.0f}) {
      const fpu::Grid grid = grid_of(14, 21, 13, 9, 4, 3, capacity);
      const cve::XMat_<float> response = responses(grid, 4);
      for (const int threads : {1, 2, 7}) {
        SCOPED_TRACE(testing::Message() << capacity << ' ' << threshold << ' ' << threads);
        const testing_support::ScopedThreads scoped(threads);
        fpu::KeyPointStore store = store_for(grid);
        fpu::selectKeypoints(response, threshold, store);
        std::int32_t number = 0;
        for (std::int32_t c = 0; c < grid.numCells(); ++c) {
          std::vector<KeyPointRecord> expected = expected_cell(response, grid, c, threshold);
          ASSERT_EQ(store.cellCounts[static_cast<std::size_t>(c)], std::ssize(expected));
          for (std::size_t slot = 0; slot < expected.size(); ++slot) {
            expected[slot].index = number++;
            expect_same(store.records[static_cast<std::size_t>(c * capacity) + slot], expected[slot]);
          }
        }
        EXPECT_EQ(store.count, number);
        EXPECT_EQ(number > 0, threshold < 16.0f);
      }
    }
  }
}

TEST(SelectionTest, ComparesTheWholePartAndClipsTheScore) {
  const fpu::Grid grid = grid_of(10, 10, 8, 1, 1, 1, 8);
  cve::XMat_<float> response;
  response.create(1, 8);
  const float values[] = {0.0f, 0.0099f, 0.01f, 0.5f, 655.35f, 655.36f, 4000.0f, 8000.0f};
  std::copy(std::begin(values), std::end(values), response.row(0));
  const auto scores = [&](float threshold) {
    fpu::KeyPointStore store = store_for(grid);
    fpu::selectKeypoints(response, threshold, store);
    std::vector<int> found;
    for (const KeyPointRecord& record : testing_support::live_records(store)) found.push_back(record.score);
    return found;
  };
  const auto whole = [](float value) { return static_cast<int>(value * 100.0f); };
  EXPECT_EQ(scores(0.0f), (std::vector<int>{whole(0.01f), 50, whole(655.35f), 65535, 65535, 65535}));
  EXPECT_EQ(scores(50.0f), (std::vector<int>{whole(655.35f), 65535, 65535, 65535}));
  EXPECT_EQ(scores(300000.0f), (std::vector<int>{65535, 65535}));
}

// More threads than the buffer has vectors of its own.
TEST(SelectionTest, ServesManyThreads) {
  const testing_support::ScopedThreads scoped(150);
  const fpu::Grid grid = grid_of(10, 10, 2, 2, 20, 10, 4);
  const cve::XMat_<float> response = responses(grid, 9);
  fpu::KeyPointStore store = store_for(grid);
  fpu::selectKeypoints(response, 0.0f, store);
  for (std::int32_t c = 0; c < grid.numCells(); ++c) {
    ASSERT_EQ(store.cellCounts[static_cast<std::size_t>(c)],
              std::ssize(expected_cell(response, grid, c, 0.0f)));
  }
}

TEST(SelectionTest, ARasterWithoutCellsHasNoKeypoints) {
  const fpu::Grid grid = grid_of(10, 10, 2, 2, 0, 3, 4);
  cve::XMat_<float> response;
  response.create(6, 0);
  fpu::KeyPointStore store = store_for(grid);
  store.count = 5;
  fpu::selectKeypoints(response, 0.0f, store);
  EXPECT_EQ(store.count, 0);
}

}  // namespace
