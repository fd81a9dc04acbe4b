#include "features/Response.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <map>
#include <utility>

#include "FeatureTestSupport.h"
#include "PlainDetection.h"
#include "features/ResponseRows.h"

namespace {

using fpu::Region;
using testing_support::pixels_of;
using testing_support::same_bits;

class Recorder final : public fpu::StageTap {
 public:
  void image(std::string_view name, const cve::XMat& image, std::int32_t x, std::int32_t y) override {
    EXPECT_EQ(image.type(), cve::kFloat32);
    seen[std::string(name)] = pixels_of(dynamic_cast<const cve::XMat_<float>&>(image));
    at = {x, y};
  }
  std::map<std::string, std::vector<float>> seen;
  std::pair<std::int32_t, std::int32_t> at;
};

// Every step too, as a tap sees it. Looking on changes nothing.
TEST(ResponseTest, EqualsItsDefinitionBitForBit) {
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(61, 47, 1);
  for (const Region& area :
       {Region{3, 3, 55, 41}, Region{4, 3, 17, 1}, Region{4, 3, 1, 20}, Region{40, 20, 8, 9}}) {
    SCOPED_TRACE(testing::Message() << area.width << " x " << area.height);
    const plain::ResponseSteps steps = plain::response_steps(image, area);
    Recorder recorder;
    for (Recorder* const tap : std::initializer_list<Recorder*>{nullptr, &recorder}) {
      const fpu::ResponseImages images = fpu::computeResponse(image, area, tap);
      ASSERT_EQ(images.response.cols, area.width);
      ASSERT_EQ(images.response.rows, area.height);
      EXPECT_TRUE(same_bits(pixels_of(images.response), pixels_of(steps.response)));
      EXPECT_TRUE(same_bits(pixels_of(images.det, 1), pixels_of(steps.det, 1)));
    }
    EXPECT_EQ(recorder.at, std::pair(area.x, area.y));
    const std::map<std::string, const cve::XMat_<float>*> expected = {
        {"gx", &steps.gx},   {"gy", &steps.gy},   {"lxx", &steps.lxx},          {"lxy", &steps.lxy},
        {"lyy", &steps.lyy}, {"det", &steps.det}, {"response", &steps.response}};
    EXPECT_EQ(recorder.seen.size(), expected.size());
    for (const auto& [name, pixels] : expected) {
      EXPECT_TRUE(same_bits(recorder.seen[name], pixels_of(*pixels))) << name;
    }
    EXPECT_GT(*std::max_element(recorder.seen["response"].begin(), recorder.seen["response"].end()), 100.0f);
  }
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
      const plain::ResponseSteps steps = plain::response_steps(image, area);
      for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
        fpu::ResponseRows rows(image, area, set);
        const auto length = static_cast<std::size_t>(width);
        for (const int y : {0, 1, 2, 3, 4, 9, 5, 4, 4, 3, 33, 32, 0, 17}) {
          const std::vector<float> expected(steps.response.row(y), steps.response.row(y) + width);
          const std::vector<float> det(steps.det.row(y), steps.det.row(y) + width);
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

// A round bump curves alike in all directions: both eigenvalues at its top are the second derivative, in
// units of the kernels' weights (32 of a pixel difference, halved by the smoothing, over two pixels twice).
TEST(ResponseTest, FindsTheCurvatureOfABump) {
  for (const int curvature : {1, 2, 4}) {
    int i = 0;
    const auto image = testing_support::make_image<unsigned char>(15, 15, [&] {
      const int x = i % 15 - 7;
      const int y = i++ / 15 - 7;
      return static_cast<unsigned char>(std::max(0, 250 - curvature * (x * x + y * y)));
    });
    const fpu::ResponseImages images = fpu::computeResponse(image, {6, 6, 3, 3}, nullptr);
    // f = -c x^2: the difference over two pixels is -4 c x, times 16 = 3 + 10 + 3; the next over two pixels
    // gives -4 * 16 * 2 c, times the smoothing's sum 1/2.
    EXPECT_EQ(images.response.at(1, 1), 64.0f * static_cast<float>(curvature));
  }
}

}  // namespace
