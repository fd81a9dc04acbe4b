#include "features/Description.h"

#include <gtest/gtest.h>

#include <limits>

#include "FeatureTestSupport.h"
#include "PlainDescription.h"

namespace {

using testing_support::pixels_of;

TEST(DescriptionTest, SmoothsInTheLightAndWithTheKernelOfItsSetting) {
  const struct {
    std::int32_t desc_gaus_size;
    std::int32_t tone;
    std::int32_t kernel;
  } cases[] = {
      {1, 0, 0},   {2, 0, 19},  {5, 0, 20},   {7, 0, 21},   {9, 0, 22},   {10, 0, 13},  {30, 0, 13},
      {99, 0, 13}, {100, 1, 0}, {105, 1, 20}, {207, 2, 21}, {307, 3, 21}, {199, 1, 13}, {200, 2, 0},
  };
  // More than one band of rows, and too small for a filter.
  const std::vector<cve::XMat_<unsigned char>> images{testing_support::random_bytes(45, 300, 3),
                                                      testing_support::random_bytes(31, 50, 4)};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.desc_gaus_size);
    for (const cve::XMat_<unsigned char>& image : images) {
      const auto expected = pixels_of(plain::smooth(image, test.tone, test.kernel));
      for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
        EXPECT_EQ(pixels_of(fpu::smoothForDescription(image, test.desc_gaus_size, set)), expected);
      }
      for (const int threads : {1, 2, 7}) {
        const twintrue::ThreadTeam scoped(threads);
        EXPECT_EQ(pixels_of(fpu::smoothForDescription(image, test.desc_gaus_size)), expected);
      }
    }
  }
}

TEST(DescriptionTest, LightAndBytes) {
  for (const std::int32_t tone : {0, 1, 2}) {
    for (int v = 0; v < 256; ++v) {
      const auto byte = static_cast<unsigned char>(v);
      EXPECT_EQ(fpu::linear_of_byte(byte, tone), plain::light_of(byte, tone)) << tone << ' ' << v;
    }
    for (const float light :
         {-0.5f, 0.0f, 0.003f, 0.0032f, 0.4f, 1.01f, 1e30f, std::numeric_limits<float>::quiet_NaN()}) {
      EXPECT_EQ(fpu::byte_of_linear(light, tone), plain::byte_of(light, tone)) << tone << ' ' << light;
    }
  }
}

TEST(DescriptionTest, ComparesEachPointWithTheNext) {
  const fpu::Grid grid = testing_support::grid_of(14, 14, 9, 9, 3, 2, 4);
  // Few values make many equal pixels.
  std::mt19937 engine(4);
  const auto image = testing_support::make_image<unsigned char>(
      60, 50, [&] { return static_cast<unsigned char>(engine() % 4 * 80); }, 5);
  for (const std::int32_t length : {1, 8, 16, 64}) {
    std::vector<fpu::PatternPoint> chain;
    for (std::int32_t i = 0; i < 16 * length + 1; ++i) {
      chain.push_back(
          {static_cast<std::int32_t>(engine() % 13) - 6, static_cast<std::int32_t>(engine() % 13) - 6});
    }
    fpu::KeyPointStore store = testing_support::store_for(grid);
    store.cellCounts = {4, 0, 2, 1, 4, 3};
    store.cellCounts.resize(24);
    store.count = 24;
    for (std::size_t i = 0; i < store.records.size(); ++i) {
      store.records[i].x = 14.0f + static_cast<float>(engine() % 2700) / 100.0f;
      store.records[i].y = 14.0f + static_cast<float>(engine() % 1800) / 100.0f;
      store.records[i].index = static_cast<std::int32_t>(23 - i);
    }
    store.records[0].x = 20.5f;
    store.records[1].x = 20.49f;

    const cve::XMat_<unsigned char> expected = plain::describe(image, chain, length, store);
    for (const int threads : {1, 2, 7}) {
      const twintrue::ThreadTeam scoped(threads);
      cve::XMat_<unsigned char> descriptors;
      descriptors.create(24, length);
      fpu::describeKeypoints({{image, 1.0f}}, chain, store, descriptors);
      EXPECT_EQ(pixels_of(descriptors), pixels_of(expected)) << length << ' ' << threads;
    }
  }
}

}  // namespace
