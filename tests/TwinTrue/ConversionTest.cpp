#include "apps/TwinTrue/ImageFormatConverter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "apps/TwinTrue/LuminanceKernel.h"

namespace twintrue {
namespace {

CalibImage image_over(const std::vector<std::uint8_t>& bytes, std::uint32_t width, std::uint32_t height,
                      std::int32_t stride, std::int32_t bgr = 0) {
  return {width, height, stride, bytes.data(), bgr};
}

TEST(Conversion, FollowsTheSrgbCurveAboveBlack) {
  EXPECT_EQ(linear_luminance(0, 0, 0), 0.0f);
  EXPECT_NEAR(linear_luminance(255, 255, 255), 1.0, 1e-6);
  for (int r = 0; r < 256; r += 17) {
    for (int g = 0; g < 256; g += 15) {
      for (int b = 0; b < 256; b += 5) {
        if (r + g + b == 0) continue;
        const double y = (0.299 * r + 0.587 * g + 0.114 * b) / 255;
        const double expected = std::pow((y + 0.055) / 1.055, 2.4);  // the power branch, for dark pixels too
        ASSERT_NEAR(linear_luminance(static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(g),
                                     static_cast<std::uint8_t>(b)),
                    expected, 1e-6)
            << r << ' ' << g << ' ' << b;
      }
    }
  }
}

TEST(Conversion, HonoursOrderAndStride) {
  constexpr std::uint32_t kWidth = 5;
  constexpr std::int32_t kStride = 3 * kWidth + 4;
  for (std::uint32_t height : {1u, 2u, 7u, 64u}) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(kStride) * height);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 37 + i / 5);
    const auto expected = [&](std::size_t x, std::size_t y, bool bgr) {
      const std::uint8_t* p = &bytes[y * kStride + 3 * x];
      return bgr ? linear_luminance(p[2], p[1], p[0]) : linear_luminance(p[0], p[1], p[2]);
    };
    for (int bgr : {0, 1, -2}) {
      cve::XMat_<float> down, up;
      ASSERT_TRUE(convert_frame(down, image_over(bytes, kWidth, height, kStride, bgr)));
      cve::XMat_<float> by_team;
      convert_frame_by_team(by_team, image_over(bytes, kWidth, height, kStride, bgr));
      CalibImage bottom_up = image_over(bytes, kWidth, height, -kStride, bgr);
      bottom_up.pixels = &bytes[kStride * (height - 1)];
      ASSERT_TRUE(convert_frame(up, bottom_up));
      EXPECT_EQ(down.stride, static_cast<std::int32_t>(kWidth * 4));
      for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < kWidth; ++x) {
          ASSERT_EQ(down.at(y, x), expected(x, y, bgr != 0));
          ASSERT_EQ(by_team.at(y, x), down.at(y, x));
          ASSERT_EQ(up.at(height - 1 - y, x), expected(x, y, bgr != 0));
        }
      }
    }
  }
}

TEST(Conversion, KernelsGiveThePlainFormsBitsOnEveryInstructionSet) {
  // A walk through the colour cube that meets every byte value in every place.
  constexpr std::size_t kCount = 300000;
  std::vector<std::uint8_t> bytes(3 * kCount);
  std::uint32_t colour = 0;
  for (std::size_t i = 0; i < kCount; ++i, colour = (colour + 9973) & 0xffffff) {
    for (std::size_t k = 0; k < 3; ++k) bytes[3 * i + k] = static_cast<std::uint8_t>(colour >> (8 * k));
  }
  std::fill_n(bytes.begin(), 30, std::uint8_t{0});
  const LuminanceTable table;
  for (twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
    const LuminanceFn kernel = luminance_kernel(set);
    std::vector<float> target(kCount);
    for (bool blue_first : {false, true}) {
      kernel(table, bytes.data(), kCount, blue_first, target.data());
      for (std::size_t i = 0; i < kCount; ++i) {
        const std::uint8_t* p = &bytes[3 * i];
        ASSERT_EQ(target[i],
                  blue_first ? linear_luminance(p[2], p[1], p[0]) : linear_luminance(p[0], p[1], p[2]));
      }
    }
    for (std::size_t count : {0u, 1u, 7u, 31u, 255u, 256u, 257u}) {
      std::vector<float> some(count + 1, -1.0f);
      kernel(table, &bytes[999], count, false, some.data());
      for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t* p = &bytes[999 + 3 * i];
        ASSERT_EQ(some[i], linear_luminance(p[0], p[1], p[2]));
      }
      EXPECT_EQ(some[count], -1.0f) << "writes nothing behind the row";
    }
  }
}

class CountingTask final : public RowTask {
 public:
  explicit CountingTask(std::uint32_t rows) : visits_(rows) {}
  std::uint32_t row_count() const override { return static_cast<std::uint32_t>(visits_.size()); }
  void run_rows(std::uint32_t from, std::uint32_t to) override {
    for (std::uint32_t y = from; y < to; ++y) ++visits_[y];
  }
  std::vector<int> visits_;
};

TEST(RowRunner, RunsEachRowOnceForEveryThreadCount) {
  for (std::uint32_t rows : {0u, 1u, 3u, 1000u}) {
    CountingTask task(rows);
    RowRunner runner(task);
    EXPECT_EQ(runner.current_thread_count(), runner.max_thread_count() / 2);
    EXPECT_FALSE(runner.set_current_thread_count(runner.max_thread_count() + 1));
    for (std::uint32_t n = 0; n <= runner.max_thread_count(); ++n) {
      ASSERT_TRUE(runner.set_current_thread_count(n));
      task.visits_.assign(rows, 0);
      runner.run();
      EXPECT_EQ(task.visits_, std::vector<int>(rows, 1));
    }
  }
}

}  // namespace
}  // namespace twintrue
