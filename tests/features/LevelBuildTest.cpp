#include "features/LevelBuild.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include "FeatureTestSupport.h"
#include "PlainDetection.h"
#include "imaging/Filters.h"
#include "imaging/ToneCurves.h"

namespace {

using fpu::Region;
using testing_support::pixels_of;

fpu::DetectorSettings settings_with(std::int32_t filter_mode, std::int32_t filter_type,
                                    std::int32_t gamma_mode) {
  fpu::DetectorSettings settings;
  settings.filter_mode = filter_mode;
  settings.filter_type[0] = filter_type;
  settings.gamma_mode = gamma_mode;
  return settings;
}

TEST(LevelBuildTest, FiltersTheViewOfItsModeAndEncodesIt) {
  const int cols = 90;
  const int rows = 80;
  const Region region{4, 9, 78, 66};
  const int r = 4;  // of kernel 14
  const struct {
    int mode;
    Region view;
    bool borders;
  } cases[] = {
      {0, {0, 0, cols, rows}, true},
      {1, {0, 0, cols, rows}, true},
      {2, {0, 0, cols, rows}, true},
      {3, {11, 16, 64, 52}, false},
      {4, {4 + r, 9 + r, 78 - 2 * r, 66 - 2 * r}, false},
      // x = max(4 - 4, 4), to min(78 + 4 + 8, 90 - 4); y = 9 - 4, to min(66 + 5 + 8, 80 - 4)
      {5, {4, 5, 82, 71}, false},
      {6, {11, 16, 64, 52}, true},
      // x = max(4 + 7 - 4, 4), to min(78 - 14 + 8 + 7, 86); y = 9 + 7 - 4, to min(66 - 14 + 8 + 12, 76)
      {7, {7, 12, 72, 60}, false},
      {8, {}, false},
      {-1, {}, false},
  };
  // Two corners leave 0 to 1023, as the kernels that sharpen do: that wraps in the byte, unless it is
  // clamped.
  cve::XMat_<float> image = testing_support::random_light(cols, rows, 3);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 30; ++x) {
      image.at(y, x) -= 0.5f;
      image.at(rows - 1 - y, x) += 0.75f;
    }
  }
  for (const auto& test : cases) {
    for (const int gamma_mode : {0, 1, 2, 3}) {
      SCOPED_TRACE(testing::Message() << test.mode << ' ' << gamma_mode);
      const auto settings = settings_with(test.mode, 14, gamma_mode);
      const auto expected =
          pixels_of(plain::working_image(image, test.view, 14, test.borders, test.mode == 2, gamma_mode));
      fpu::LevelImages levels = fpu::buildFloatLevels(image, settings, region, nullptr);
      EXPECT_EQ(pixels_of(levels.levelImage(0)), expected);
      for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
        EXPECT_EQ(pixels_of(fpu::buildWorkingImage(image, settings, region, set)), expected);
      }
    }
  }
}

// The widened views end as far beyond the inset as the kernel reaches, but stay as far from the frame's edge.
TEST(LevelBuildTest, ViewsFollowTheReachOfTheKernel) {
  const struct {
    int mode;
    int radius;
    Region region;
    Region view;
  } cases[] = {
      {5, 10, {4, 9, 78, 66}, {10, 10, 70, 60}},    // both ends held
      {7, 10, {4, 9, 78, 66}, {10, 10, 70, 60}},    // from max(4 + 7 - 10, 10) on
      {4, 10, {4, 9, 78, 66}, {14, 19, 58, 46}},    // no end is held
      {3, 10, {4, 9, 78, 66}, {11, 16, 64, 52}},    // nor here, though the kernel leaves the frame
      {5, 2, {30, 33, 20, 16}, {28, 31, 24, 20}},   // 2 more on each side
      {7, 2, {30, 33, 20, 16}, {35, 38, 10, 6}},    // 5 fewer
      {7, 10, {30, 33, 20, 16}, {27, 30, 26, 22}},  // 3 more
      {7, 0, {30, 33, 20, 16}, {37, 40, 6, 2}},
  };
  for (const auto& test : cases) {
    const Region view = fpu::filterView(test.mode, test.region, test.radius, 90, 80);
    EXPECT_EQ((std::array{view.x, view.y, view.width, view.height}),
              (std::array{test.view.x, test.view.y, test.view.width, test.view.height}))
        << test.mode << ' ' << test.radius;
  }
}

// Row by row or by whole images: the same, for every kernel, at sizes of one and several bands, for pixels of
// their own and for part of a wider picture. What only packed rows allow is left to the whole images.
TEST(LevelBuildTest, RowByRowItIsTheSameImage) {
  for (const auto& [cols, rows] : {std::pair{33, 300}, {131, 129}, {40, 31}, {31, 40}, {1, 1}}) {
    const cve::XMat_<float> packed = testing_support::random_light(cols, rows, 7);
    cve::XMat_<float> wide;
    wide.create(rows, cols + 9);
    for (int y = 0; y < rows; ++y) std::copy_n(packed.row(y), cols, wide.row(y) + 4);
    const cve::XMat_<float> part = wide.view(4, 0, cols, rows);
    for (int mode = -1; mode < 9; ++mode) {
      for (int kernel = -1; kernel < cve::kKernelCount; ++kernel) {
        // The last ones leave views without pixels, or have them begin outside the frame.
        for (const Region& region :
             {Region{0, 0, cols, rows}, Region{5, 3, cols - 8, rows - 5}, Region{}, Region{0, 0, 14, rows},
              Region{cols - 5, rows - 5, 5, 5}, Region{cols + 9, rows + 9, -9, -9}}) {
          SCOPED_TRACE(testing::Message() << cols << ' ' << mode << ' ' << kernel << ' ' << region.x);
          const auto settings = settings_with(mode, kernel, 2);
          const twintrue::ThreadTeam alone(1);
          const auto expected =
              pixels_of(fpu::buildFloatLevels(packed, settings, region, nullptr).levelImage(0));
          const int radius = cve::kernel_radius(kernel);
          const Region view = fpu::filterView(mode, region, radius, cols, rows);
          const bool leaves_rows = mode >= 3 && mode != 6 && fpu::lies_inside(view, cols, rows, 0) &&
                                   std::min(view.width, view.height) >= 32 &&
                                   (view.x < radius || view.x + view.width > cols - radius);
          for (const int threads : kernel == 14 ? std::vector{1, 2, 7} : std::vector{1}) {
            const twintrue::ThreadTeam scoped(threads);
            const auto image = fpu::buildWorkingImage(part, settings, region);
            if (leaves_rows) {
              EXPECT_TRUE(image.empty());
            } else {
              ASSERT_EQ(pixels_of(image), expected);
            }
          }
        }
      }
    }
  }
}

// Without a filter, whole-image modes take the picture as it is and the others leave their image dark.
TEST(LevelBuildTest, PassesSmallImagesAndNegativeKernelsThrough) {
  for (const int mode : {0, 1, 2, 3, 4, 5, 6, 7}) {
    for (const auto& [cols, rows, kernel] :
         {std::array{31, 60, 14}, std::array{60, 31, 14}, std::array{60, 60, -1}}) {
      SCOPED_TRACE(testing::Message() << mode << ' ' << cols << ' ' << rows << ' ' << kernel);
      const cve::XMat_<float> image = testing_support::random_light(cols, rows, 5);
      const Region region{0, 0, cols, rows};
      const auto levels = fpu::buildFloatLevels(image, settings_with(mode, kernel, 0), region, nullptr);
      const std::vector<float> light =
          mode <= 2 ? pixels_of(image) : std::vector<float>(static_cast<std::size_t>(cols * rows));
      std::vector<short> expected;
      for (const float value : light) expected.push_back(plain::tone10(value, 0));
      EXPECT_EQ(pixels_of(levels.fixedImages[0]), expected);
    }
  }
}

TEST(LevelBuildTest, PyramidPathFiltersTwelveBitsAndPadsTheResult) {
  const int cols = 40;
  const int rows = 36;
  const int border = 5;
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(cols, rows, 8);
  fpu::DetectorSettings settings;
  settings.filter_type[0] = 21;
  fpu::LevelImages levels = fpu::buildPyramidLevels(image, settings, border);
  const cve::XMat_<unsigned char> working = levels.levelImage(0);
  ASSERT_EQ(working.cols, cols);
  ASSERT_EQ(working.rows, rows);

  // Kernel 21 in 4096ths; both passes cut their sums.
  const int k[] = {1152, 896, 448, 128};
  const auto linear = [&](int x, int y) {
    const float v = static_cast<float>(image.at(std::clamp(y, 0, rows - 1), std::clamp(x, 0, cols - 1)));
    return static_cast<int>(std::pow(v * 0.003921569f, 2.2f) * 4095.0f);
  };
  const auto row_pass = [&](int x, int y) {
    int sum = linear(x, y) * k[0];
    for (int i = 1; i < 4; ++i) sum += (linear(x - i, y) + linear(x + i, y)) * k[i];
    return sum >> 12;
  };
  const auto pixel = [&](int x, int y) {
    int sum = row_pass(x, y) * k[0];
    for (int i = 1; i < 4; ++i) {
      sum +=
          (row_pass(x, std::clamp(y - i, 0, rows - 1)) + row_pass(x, std::clamp(y + i, 0, rows - 1))) * k[i];
    }
    return std::lround(std::pow(static_cast<float>(sum >> 12) * 0.00024420026f, 0.45454544f) * 255.0f);
  };
  for (int y = -border; y < rows + border; ++y) {
    for (int x = -border; x < cols + border; ++x) {
      ASSERT_EQ(working.row(y)[x], pixel(std::clamp(x, 0, cols - 1), std::clamp(y, 0, rows - 1)))
          << x << ' ' << y;
    }
  }
  EXPECT_THROW(fpu::buildPyramidLevels(image, settings, 2147483647), std::bad_alloc);
}

TEST(LevelBuildDeathTest, PyramidPathHasOneLevelOnly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(40, 40, 8);
  fpu::DetectorSettings settings;
  settings.nlevels = 2;
  EXPECT_EXIT(fpu::buildPyramidLevels(image, settings, 5), testing::KilledBySignal(SIGABRT), "^$");
  settings.nlevels = 1;
  settings.firstLevel = 1;
  EXPECT_EXIT(fpu::buildPyramidLevels(image, settings, 5), testing::KilledBySignal(SIGABRT), "^$");
}

}  // namespace
