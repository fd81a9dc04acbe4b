#include "features/LevelBuild.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include "FeatureTestSupport.h"
#include "PlainDetection.h"
#include "PlainFilter.h"
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

// By whole images and row by row: what the view, the filter and the tone curve of the settings make of each
// pixel. At sizes of one and several bands and too small for a filter, for pixels of their own and for part
// of a wider picture. What only packed rows allow, to read on beside them, is left to the whole images.
TEST(LevelBuildTest, FiltersTheViewOfItsModeAndEncodesIt) {
  for (const auto& [cols, rows] :
       {std::pair{33, 140}, {131, 45}, {40, 31}, {31, 40}, {40, 32}, {32, 40}, {1, 1}}) {
    // Much of it leaves 0 to 1, as the kernels that sharpen do: that wraps in the byte, unless it is clamped.
    cve::XMat_<float> packed = testing_support::random_light(cols, rows, 7);
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < cols; ++x) packed.at(y, x) += y < 12 ? -0.5f : x > 20 ? 0.75f : 0.0f;
    }
    cve::XMat_<float> wide;
    wide.create(rows, cols + 9);
    for (int y = 0; y < rows; ++y) std::copy_n(packed.row(y), cols, wide.row(y) + 4);
    const cve::XMat_<float> part = wide.view(4, 0, cols, rows);
    // The last regions leave views without pixels, or have them begin outside the frame.
    const Region regions[] = {{0, 0, cols, rows}, {5, 3, cols - 8, rows - 5}, {},
                              {0, 0, 14, rows},   {cols - 5, rows - 5, 5, 5}, {cols + 9, rows + 9, -9, -9}};
    for (int mode = -1; mode < 9; ++mode) {
      for (const int kernel : {-1, 0, 9, 14, 23}) {
        for (const Region& region : regions) {
          SCOPED_TRACE(testing::Message() << cols << ' ' << mode << ' ' << kernel << ' ' << region.x);
          const int radius = cve::kernel_radius(kernel);
          const Region view = fpu::filterView(mode, region, radius, cols, rows);
          const bool inside = fpu::lies_inside(view, cols, rows, 0);
          const bool whole = mode >= 0 && mode <= 2;
          const bool borders = whole || mode == 6;
          const bool filtered = inside && kernel >= 0 && std::min(view.width, view.height) >= 32;
          const std::int32_t gamma_mode = (kernel + 1) % 4;
          const auto settings = settings_with(mode, kernel, gamma_mode);
          const auto expected = pixels_of(
              plain::working_image(packed, filtered || (whole && inside) ? view : Region{},
                                   filtered ? kernel : -1, borders, filtered && mode == 2, gamma_mode));
          fpu::LevelImages levels = fpu::buildFloatLevels(packed, settings, region, nullptr);
          ASSERT_EQ(pixels_of(levels.levelImage(0)), expected);
          const bool leaves_rows =
              filtered && !borders && (view.x < radius || view.x + view.width > cols - radius);
          for (const int threads : kernel == 14 ? std::vector{1, 2, 7} : std::vector{1}) {
            const twintrue::ThreadTeam scoped(threads);
            for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
              const auto image = fpu::buildWorkingImage(part, settings, region, set);
              ASSERT_EQ(pixels_of(image), leaves_rows ? std::vector<unsigned char>{} : expected);
            }
          }
        }
      }
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

  cve::XMat_<short> linear;
  cve::bytesToLinear12(image, linear);
  cve::XMat_<unsigned char> expected;
  cve::linear12ToBytes(plain::filter(cve::make_fixed_kernel(21), linear, true), expected);
  for (int y = -border; y < rows + border; ++y) {
    for (int x = -border; x < cols + border; ++x) {
      ASSERT_EQ(working.row(y)[x], expected.at(std::clamp(y, 0, rows - 1), std::clamp(x, 0, cols - 1)))
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
