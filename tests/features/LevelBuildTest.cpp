#include "features/LevelBuild.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "FeatureTestSupport.h"
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

// A view's filter by the definition, pixel by pixel: horizontally the view's neighbours in flat memory, or
// its own edge; vertically always its own edge.
std::vector<float> filter_by_definition(const cve::XMat_<float>& image, const Region& view, int number,
                                        bool borders) {
  const cve::FilterKernel kernel = cve::make_float_kernel(number);
  const int r = kernel.radius;
  const auto k = [&](int i) { return kernel.coefficients[static_cast<std::size_t>(i)]; };
  const auto source = [&](int x, int y) {
    if (borders) x = std::clamp(x, view.x, view.x + view.width - 1);
    return image.row(y)[x];
  };
  const auto row_pass = [&](int x, int y) {
    y = std::clamp(y, view.y, view.y + view.height - 1);
    float sum = source(x, y) * k(0);
    for (int i = 1; i <= r; ++i) sum += (source(x - i, y) + source(x + i, y)) * k(i);
    return sum;
  };
  std::vector<float> filtered(static_cast<std::size_t>(image.cols * image.rows));
  for (int y = view.y; y < view.y + view.height; ++y) {
    for (int x = view.x; x < view.x + view.width; ++x) {
      float sum = row_pass(x, y) * k(0);
      for (int i = 1; i <= r; ++i) sum += (row_pass(x, y - i) + row_pass(x, y + i)) * k(i);
      filtered[static_cast<std::size_t>(y * image.cols + x)] = sum;
    }
  }
  return filtered;
}

std::vector<short> encode(const std::vector<float>& light, int gamma_mode) {
  std::vector<short> encoded;
  for (const float v : light) {
    float curve = v;
    if (gamma_mode == 1) curve = std::pow(v, 0.45454544f);
    if (gamma_mode == 2) curve = v < 0.0031308f ? v * 12.92f : std::pow(v, 0.41666666f) * 1.055f - 0.055f;
    const float value = 1023.0f * curve;
    encoded.push_back(std::isnan(value) ? short{0} : static_cast<short>(static_cast<int>(value)));
  }
  return encoded;
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
  const cve::XMat_<float> image = testing_support::random_light(cols, rows, 3);
  for (const auto& test : cases) {
    for (const int gamma_mode : {0, 1, 2, 3}) {
      SCOPED_TRACE(testing::Message() << test.mode << ' ' << gamma_mode);
      const auto settings = settings_with(test.mode, 14, gamma_mode);
      std::vector<float> light = filter_by_definition(image, test.view, 14, test.borders);
      if (test.mode == 2) {
        for (float& value : light) value = std::clamp(value, 0.0f, 1.0f);
      }
      const std::vector<short> expected = encode(light, gamma_mode);
      fpu::LevelImages levels = fpu::buildFloatLevels(image, settings, region, nullptr);
      ASSERT_EQ(pixels_of(levels.fixedImages[0]), expected);

      std::vector<unsigned char> bytes;
      for (const short value : expected) bytes.push_back(static_cast<unsigned char>((value >> 2) & 0xff));
      EXPECT_EQ(pixels_of(levels.levelImage(0)), bytes);
    }
  }
}

// Sharpening kernels overshoot: what leaves 0 to 1023 wraps in the byte, and stays in the 10-bit image.
TEST(LevelBuildTest, OvershootWrapsUnlessClamped) {
  int step = 0;
  const auto image =
      testing_support::make_image<float>(64, 64, [&] { return step++ % 64 < 32 ? 0.0f : 1.0f; });
  const auto extremes = [&](int mode) {
    fpu::LevelImages levels = fpu::buildFloatLevels(image, settings_with(mode, 1, 0), {}, nullptr);
    const std::vector<short> pixels = pixels_of(levels.fixedImages[0]);
    const auto [low, high] = std::minmax_element(pixels.begin(), pixels.end());
    const std::vector<unsigned char> bytes = pixels_of(levels.levelImage(0));
    for (const auto place : {low, high}) {
      const int quarter = static_cast<int>(std::floor(*place / 4.0));
      EXPECT_EQ(bytes[static_cast<std::size_t>(place - pixels.begin())], (quarter + 256) % 256);
    }
    return std::pair<short, short>(*low, *high);
  };
  const auto [low, high] = extremes(0);
  EXPECT_LT(low, 0);
  EXPECT_GT(high, 1023);
  EXPECT_EQ(extremes(2), (std::pair<short, short>(0, 1023)));
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
      EXPECT_EQ(pixels_of(levels.fixedImages[0]), encode(light, 0));
    }
  }
}

// Views that a small or lopsided region leaves without pixels, or that begin outside the frame.
TEST(LevelBuildTest, SurvivesRegionsWithoutRoom) {
  const cve::XMat_<float> image = testing_support::random_light(50, 50, 5);
  for (const Region& region : {Region{}, Region{45, 45, 5, 5}, Region{0, 0, 14, 50}, Region{50, 50, 0, 0},
                               Region{60, 60, -10, -10}, Region{0, 0, 50, 50}, Region{20, 0, 30, 50}}) {
    for (int mode = 0; mode < 8; ++mode) {
      for (const int kernel : {0, 11, 19, 23}) {
        const auto levels = fpu::buildFloatLevels(image, settings_with(mode, kernel, 2), region, nullptr);
        EXPECT_EQ(levels.fixedImages[0].cols, 50);
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
