#include "features/Description.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "FeatureTestSupport.h"
#include "imaging/Filters.h"

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
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(45, 38, 3);
  for (const auto& test : cases) {
    SCOPED_TRACE(test.desc_gaus_size);
    cve::XMat_<float> light;
    light.create(38, 45);
    for (int y = 0; y < 38; ++y) {
      for (int x = 0; x < 45; ++x) {
        const unsigned char v = image.at(y, x);
        const float f = static_cast<float>(v) * 0.003921569f;
        float& out = light.at(y, x);
        out = f;
        if (test.tone == 1) out = std::pow(f, 2.2f);
        if (test.tone == 2 && v > 0) {
          out =
              static_cast<float>(std::pow(f * 0.9478673457039061 + 0.05213270401371484, 2.4000000953674316));
        }
      }
    }
    std::vector<unsigned char> expected;
    for (const float w : pixels_of(cve::filterFloatImage(light, test.kernel))) {
      float level = w * 255.0f;
      if (test.tone == 1) level = std::pow(w, 0.45454544f) * 255.0f;
      if (test.tone == 2)
        level = w < 0.0031308f ? w * 3294.6f : std::pow(w, 0.41666666f) * 269.025f - 14.025f;
      const double whole = std::trunc(static_cast<double>(level));
      expected.push_back(static_cast<unsigned char>(whole > 0.0 ? std::fmin(whole, 255.0) : 0.0));
    }
    EXPECT_EQ(pixels_of(fpu::smoothForDescription(image, test.desc_gaus_size)), expected);
  }
}

TEST(DescriptionTest, LightAndBytes) {
  // The linear foot serves black alone: the next byte is three times as light as it would be there.
  EXPECT_EQ(fpu::linear_of_byte(0, 2), 0.0f);
  EXPECT_GT(fpu::linear_of_byte(1, 2), 2.5f * 0.003921569f * 0.07739938f);
  for (const std::int32_t tone : {0, 1, 2}) {
    for (int v = 11; v < 256; ++v) {
      const auto byte = static_cast<unsigned char>(v);
      // The way back cuts, so half a step keeps rounding out of it.
      const float half_step =
          (fpu::linear_of_byte(byte, tone) - fpu::linear_of_byte(static_cast<unsigned char>(v - 1), tone)) /
          2;
      EXPECT_EQ(fpu::byte_of_linear(fpu::linear_of_byte(byte, tone) + half_step, tone), byte) << tone;
    }
    EXPECT_EQ(fpu::byte_of_linear(-0.5f, tone), 0);
    EXPECT_EQ(fpu::byte_of_linear(1.01f, tone), 255);
    EXPECT_EQ(fpu::byte_of_linear(1e30f, tone), 255);
    EXPECT_EQ(fpu::byte_of_linear(std::numeric_limits<float>::quiet_NaN(), tone), 0);
  }
}

TEST(DescriptionTest, ComparesEachPointWithTheNext) {
  const fpu::Grid grid = testing_support::grid_of(14, 14, 9, 9, 3, 2, 4);
  // Few values make many equal pixels.
  std::mt19937 engine(4);
  const auto image = testing_support::make_image<unsigned char>(
      60, 50, [&] { return static_cast<unsigned char>(engine() % 4 * 80); }, 5);
  for (const std::int32_t length : {1, 8, 16, 63}) {
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

    cve::XMat_<unsigned char> expected;
    expected.create(24, length);
    for (const fpu::KeyPointRecord& record : testing_support::live_records(store)) {
      const int px = static_cast<int>(std::floor(record.x + 0.5));
      const int py = static_cast<int>(std::floor(record.y + 0.5));
      for (int bit = 0; bit < 8 * length; ++bit) {
        const auto pixel = [&](int i) {
          const fpu::PatternPoint& p = chain[static_cast<std::size_t>(i)];
          return image.at(py + p.y, px + p.x);
        };
        if (pixel(bit) <= pixel(bit + 1)) {
          unsigned char& byte = expected.at(record.index, bit / 8);
          byte = static_cast<unsigned char>(byte | 1 << bit % 8);
        }
      }
    }
    for (const int threads : {1, 2, 7}) {
      const testing_support::ScopedThreads scoped(threads);
      cve::XMat_<unsigned char> descriptors;
      descriptors.create(24, length);
      fpu::describeKeypoints({{image, 1.0f}}, chain, store, descriptors);
      EXPECT_EQ(pixels_of(descriptors), pixels_of(expected)) << length << ' ' << threads;
    }
  }
}

}  // namespace
