#include "features/SubPixel.h"

#include <gtest/gtest.h>

#include "FeatureTestSupport.h"
#include "PlainDetection.h"

namespace {

using fpu::KeyPointRecord;

// On samples of a parabola the step finds the true extremum, or refuses one that lies half a pixel away or
// further, and a saddle or an edge.
TEST(SubPixelTest, FindsTheTopOfAParabola) {
  const struct {
    float top_x, top_y;
    float xx, xy, yy;  // second derivatives
    bool refined;
  } cases[] = {
      {0.25f, -0.375f, -4, 0, -2, true}, {-0.45f, 0.45f, -4, 1, -2, true}, {0.0f, 0.0f, -4, 1, -2, true},
      {0.1f, 0.2f, 4, -1, 2, true},  // a minimum is an extremum too
      {0.5f, 0.0f, -4, 0, -2, false},    {0.0f, -0.6f, -4, 0, -2, false},  {0.25f, 0.25f, 4, 0, -2, false},
      {0.0f, 0.0f, -4, 0, 0, false},     {0.0f, 0.0f, 0, 0, 0, false},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::Message() << test.top_x << ' ' << test.top_y);
    float samples[7 * 5];
    for (int y = 0; y < 5; ++y) {
      for (int x = 0; x < 7; ++x) {
        const float u = static_cast<float>(x - 3) - test.top_x;
        const float v = static_cast<float>(y - 2) - test.top_y;
        samples[y * 7 + x] = 100 + 0.5f * test.xx * u * u + test.xy * u * v + 0.5f * test.yy * v * v;
      }
    }
    float px = 3.0f;
    float py = 2.0f;
    ASSERT_EQ(fpu::refine_point(samples, 7, px, py), test.refined);
    // The samples stand near 100, with 1e-5 to their last digit.
    EXPECT_NEAR(px, test.refined ? 3.0f + test.top_x : 3.0f, 1e-4f);
    EXPECT_NEAR(py, test.refined ? 2.0f + test.top_y : 2.0f, 1e-4f);
  }
}

// A determinant image with its margin, every pixel of the area a keypoint: samples drift by two columns a row
// and reach into the rim.
TEST(SubPixelTest, ReadsByTheWidthOfTheImageWithoutItsMargin) {
  const fpu::Grid grid = testing_support::grid_of(15, 12, 6, 5, 3, 2, 30);
  std::mt19937 engine(6);
  auto det = cve::createWithMargin<float>({grid.areaWidth(), grid.areaHeight()}, 1);
  for (float& value : *det.owner) value = static_cast<float>(engine() % 2001) - 1000.0f;

  fpu::KeyPointStore filled = testing_support::store_for(grid);
  for (std::int32_t c = 0; c < grid.numCells(); ++c) {
    for (std::int32_t slot = 0; slot < 30; ++slot) {
      KeyPointRecord& record = filled.records[static_cast<std::size_t>(c * 30 + slot)];
      record.x = static_cast<float>(15 + c % 3 * 6 + slot % 6);
      record.y = static_cast<float>(12 + c / 3 * 5 + slot / 6);
      record.cell = c;
      record.index = c * 30 + slot;
    }
    filled.cellCounts[static_cast<std::size_t>(c)] = 30 - c;
  }
  filled.count = 777;  // stays as it is: indices are those before the drop

  const std::size_t all = testing_support::live_records(filled).size();
  for (const bool drop : {false, true}) {
    fpu::KeyPointStore expected = filled;
    plain::refine(det, drop, expected);
    const std::size_t kept = testing_support::live_records(expected).size();
    EXPECT_GT(kept, 0u);
    EXPECT_EQ(kept < all, drop);
    for (const int threads : {1, 2, 7}) {
      const twintrue::ThreadTeam scoped(threads);
      fpu::KeyPointStore store = filled;
      fpu::refineKeypoints(det, drop, store);
      EXPECT_TRUE(testing_support::same_records(store, expected)) << drop << ' ' << threads;
    }
  }
}

}  // namespace
