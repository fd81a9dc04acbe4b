#include "features/Response.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "FeatureTestSupport.h"
#include "features/ResponseKernels.h"
#include "features/ResponseRows.h"

namespace {

using fpu::Region;
using testing_support::pixels_of;
using testing_support::same_bits;

// What a tap sees of each step.
class Recorder final : public fpu::StageTap {
 public:
  void image(std::string_view name, const cve::XMat& image, std::int32_t x, std::int32_t y) override {
    seen[std::string(name)] = pixels_of(dynamic_cast<const cve::XMat_<float>&>(image));
    at = {x, y};
  }
  std::map<std::string, std::vector<float>> seen;
  std::pair<std::int32_t, std::int32_t> at;
};

// On a surface of second order all steps have closed forms. The weights of a first derivative sum to 16 over
// two pixels, those of the smoothing to 1/2.
TEST(ResponseTest, StepsOnAQuadraticSurface) {
  const int a = 2, b = 1, c = 1, p = 1, q = -2;
  int i = 0;
  const auto image = testing_support::make_image<unsigned char>(15, 13, [&] {
    const int x = i % 15 - 7;
    const int y = i++ / 15 - 6;
    return static_cast<unsigned char>(40 + a * x * x + b * x * y + c * y * y + p * x + q * y);
  });
  const Region area{3, 4, 8, 5};
  Recorder recorder;
  const fpu::ResponseImages images = fpu::computeResponse(image, area, &recorder);
  std::map<std::string, std::vector<float>> expected;
  for (int row = 0; row < area.height; ++row) {
    for (int column = 0; column < area.width; ++column) {
      const int x = column + area.x - 7;
      const int y = row + area.y - 6;
      const double xx = 64 * a, xy = 32 * b, yy = 64 * c;
      const double root = std::sqrt((xx - yy) * (xx - yy) / 4 + xy * xy);
      const std::pair<const char*, double> values[] = {{"gx", 32 * (2 * a * x + b * y + p)},
                                                       {"gy", 32 * (2 * c * y + b * x + q)},
                                                       {"lxx", xx},
                                                       {"lxy", xy},
                                                       {"lyy", yy},
                                                       {"det", xx * yy - xy * xy},
                                                       {"response", (xx + yy) / 2 - root}};
      for (const auto& [name, value] : values) expected[name].push_back(static_cast<float>(value));
    }
  }
  EXPECT_EQ(recorder.at, std::pair(area.x, area.y));
  EXPECT_EQ(recorder.seen.size(), expected.size());
  for (const auto& [name, pixels] : expected) {
    EXPECT_THAT(recorder.seen[name], testing::Pointwise(testing::FloatEq(), pixels)) << name;
  }
  EXPECT_TRUE(same_bits(pixels_of(images.response), recorder.seen["response"]));
  // The rim of the determinant image holds the smoothed vertical gradient.
  for (int row = -1; row <= area.height; ++row) {
    for (int column = -1; column <= area.width; ++column) {
      const bool rim = row < 0 || column < 0 || row == area.height || column == area.width;
      if (!rim) continue;
      const int gy = 32 * (2 * c * (row + area.y - 6) + b * (column + area.x - 7) + q);
      EXPECT_EQ(images.det.row(row)[column], static_cast<float>(gy / 2)) << column << ' ' << row;
    }
  }
  const fpu::ResponseImages unseen = fpu::computeResponse(image, area, nullptr);
  EXPECT_TRUE(same_bits(pixels_of(unseen.response), pixels_of(images.response)));
  EXPECT_TRUE(same_bits(pixels_of(unseen.det, 1), pixels_of(images.det, 1)));
}

// Where the determinant is 0 so is the smaller eigenvalue, whatever rounding makes of the root.
TEST(ResponseTest, NothingIsFoundAlongAnEdge) {
  int rounded = 0;
  for (int a = 1; a < 200; ++a) {
    for (int b = 1; b < 200; ++b) {
      float xx_then_response = static_cast<float>(a * a);
      const float xy = static_cast<float>(a * b);
      const float yy = static_cast<float>(b * b);
      const float mean = yy * 0.5f + xx_then_response * 0.5f;
      const float half = xx_then_response * 0.5f - yy * 0.5f;
      rounded += std::sqrt(half * half + xy * xy) != mean ? 1 : 0;
      float det = -1.0f;
      fpu::response_row(&xx_then_response, &xy, &yy, &det, 1);
      ASSERT_EQ(det, 0.0f) << a << ' ' << b;
      ASSERT_EQ(xx_then_response, 0.0f) << a << ' ' << b;
    }
  }
  EXPECT_GT(rounded, 0);
}

// Images that bring every sum to its ends: black and white in all patterns of two rows and columns.
std::vector<cve::XMat_<unsigned char>> trying_images() {
  std::vector<cve::XMat_<unsigned char>> images{testing_support::random_bytes(261, 40, 5)};
  for (int pattern = 0; pattern < 6; ++pattern) {
    int i = 0;
    images.push_back(testing_support::make_image<unsigned char>(261, 40, [&] {
      const int x = i % 261;
      const int y = i++ / 261;
      const bool white[] = {x % 4 < 2,
                            y % 4 < 2,
                            (x + y) % 4 < 2,
                            x / 2 % 2 != y / 2 % 2,
                            x % 2 == 0 && y % 2 == 0,
                            x % 3 == 0 || y % 3 == 0};
      return static_cast<unsigned char>(white[pattern] ? 255 : 0);
    }));
  }
  return images;
}

// Rows in any order, with and without a determinant, at widths about those of blocks and vectors. Below the
// limit a response may be missing, at it and above it may not.
TEST(ResponseTest, RowsEqualTheImage) {
  for (const cve::XMat_<unsigned char>& image : trying_images()) {
    for (const int width : {1, 15, 63, 64, 65, 128, 200, 255}) {
      const Region area{3, 3, width, 34};
      const fpu::ResponseImages images = fpu::computeResponse(image, area, nullptr);
      for (std::int32_t y = 0; y < area.height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
          ASSERT_TRUE(images.det.at(y, x) > 0.0f || images.response.at(y, x) == 0.0f);
        }
      }
      for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
        fpu::ResponseRows rows(image, area, set);
        const auto length = static_cast<std::size_t>(width);
        for (const int y : {0, 1, 2, 3, 4, 9, 5, 4, 4, 3, 33, 32, 0, 17}) {
          const std::vector<float> expected(images.response.row(y), images.response.row(y) + width);
          const std::vector<float> det(images.det.row(y), images.det.row(y) + width);
          for (const float least : {0.01f, 0.02f, 10.0f, 700.0f, 1e7f}) {
            SCOPED_TRACE(testing::Message() << width << ' ' << y << ' ' << least);
            std::vector<float> found(length, -1.0f);
            std::vector<float> found_det(length);
            rows.make_row(y, least, found.data(), found_det.data());
            EXPECT_TRUE(same_bits(found_det, det));
            std::vector<float> again(length, -1.0f);
            rows.make_row(y, least, again.data(), nullptr);
            EXPECT_TRUE(same_bits(found, again));
            for (std::size_t x = 0; x < length; ++x) {
              if (expected[x] < least && found[x] == 0.0f) continue;
              ASSERT_EQ(found[x], expected[x]) << x;
            }
          }
        }
      }
    }
  }
}

TEST(ResponseTest, ColumnsThatReachALimit) {
  const cve::XMat_<float> image = testing_support::random_light(200, 1, 3);
  for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
    for (const int count : {0, 1, 63, 64, 65, 200}) {
      for (const float least : {0.0f, 50.0f, 99.5f, 101.0f, std::numeric_limits<float>::quiet_NaN()}) {
        std::vector<std::int32_t> expected;
        for (int x = 0; x < count; ++x) {
          if (image.at(0, x) * 100.0f >= least) expected.push_back(x);
        }
        std::vector<std::int32_t> columns(static_cast<std::size_t>(count) + 1);
        const std::int32_t found =
            fpu::response_row_kernels(set).reach(image.row(0), count, least, columns.data());
        columns.resize(static_cast<std::size_t>(found));
        EXPECT_EQ(columns, expected) << count << ' ' << least;
      }
    }
  }
}

}  // namespace
