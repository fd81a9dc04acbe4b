#include "features/Response.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

#include "FeatureTestSupport.h"

namespace {

using fpu::Region;

// The response by its definition: every value of every step worked out anew, pixel by pixel.
class SlowResponse {
 public:
  explicit SlowResponse(const cve::XMat_<unsigned char>& image, const Region& area)
      : image_(image), area_(area) {}

  float gx(int x, int y) const {
    const int corners = p(x + 1, y + 1) - p(x - 1, y + 1) - p(x - 1, y - 1) + p(x + 1, y - 1);
    return static_cast<float>(corners * 3 + (p(x + 1, y) - p(x - 1, y)) * 10);
  }
  float gy(int x, int y) const {
    const int corners = p(x - 1, y + 1) - p(x + 1, y - 1) - p(x - 1, y - 1) + p(x + 1, y + 1);
    return static_cast<float>(corners * 3 + (p(x, y + 1) - p(x, y - 1)) * 10);
  }
  static float derivative(float before, float centre, float after) {
    float sum = 0.0f;
    sum += -1.0f * before;
    sum += 0.0f * centre;
    sum += 1.0f * after;
    return sum;
  }
  static float smoothing(float before, float centre, float after) {
    float sum = centre * 0.3125f;
    sum += (before + after) * 0.09375f;
    return sum;
  }
  float dx_of_gx(int x, int y) const { return derivative(gx(x - 1, y), gx(x, y), gx(x + 1, y)); }
  float bx_of_gx(int x, int y) const { return smoothing(gx(x - 1, y), gx(x, y), gx(x + 1, y)); }
  float bx_of_gy(int x, int y) const { return smoothing(gy(x - 1, y), gy(x, y), gy(x + 1, y)); }
  float lxx(int x, int y) const { return smoothing(dx_of_gx(x, y - 1), dx_of_gx(x, y), dx_of_gx(x, y + 1)); }
  float lxy(int x, int y) const { return derivative(bx_of_gx(x, y - 1), bx_of_gx(x, y), bx_of_gx(x, y + 1)); }
  float lyy(int x, int y) const { return derivative(bx_of_gy(x, y - 1), bx_of_gy(x, y), bx_of_gy(x, y + 1)); }
  float det(int x, int y) const { return (lxx(x, y) * lyy(x, y) - lxy(x, y) * lxy(x, y)) * 1.0f; }
  float response(int x, int y) const {
    if (!(det(x, y) > 0.0f)) return 0.0f;
    const float m = lyy(x, y) * 0.5f + lxx(x, y) * 0.5f;
    const float h = lxx(x, y) * 0.5f - lyy(x, y) * 0.5f;
    const float q = std::sqrt(h * h + lxy(x, y) * lxy(x, y));
    return std::min(std::fabs(m - q), std::fabs(q + m));
  }

 private:
  int p(int x, int y) const { return image_.at(area_.y + y, area_.x + x); }

  const cve::XMat_<unsigned char>& image_;
  Region area_;
};

using Pixel = std::function<float(int, int)>;

std::vector<float> all_pixels(const Region& area, int margin, const Pixel& pixel) {
  std::vector<float> pixels;
  for (int y = -margin; y < area.height + margin; ++y) {
    for (int x = -margin; x < area.width + margin; ++x) pixels.push_back(pixel(x, y));
  }
  return pixels;
}

Pixel pixel_of(const cve::XMat_<float>& image) {
  return [&image](int x, int y) { return image.row(y)[x]; };
}

class Recorder final : public fpu::StageTap {
 public:
  void image(std::string_view name, const cve::XMat& image, std::int32_t x, std::int32_t y) override {
    EXPECT_EQ(image.type(), cve::kFloat32);
    const auto& typed = dynamic_cast<const cve::XMat_<float>&>(image);
    seen[std::string(name)] = testing_support::pixels_of(typed);
    EXPECT_EQ(x, 4);
    EXPECT_EQ(y, 3);
  }
  std::map<std::string, std::vector<float>> seen;
};

TEST(ResponseTest, EqualsItsDefinitionBitForBit) {
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(61, 47, 1);
  for (const Region& area :
       {Region{3, 3, 55, 41}, Region{4, 3, 17, 1}, Region{4, 3, 1, 20}, Region{40, 20, 8, 9}}) {
    SCOPED_TRACE(testing::Message() << area.width << " x " << area.height);
    const SlowResponse slow(image, area);
    const fpu::ResponseImages images = fpu::computeResponse(image, area, nullptr);
    ASSERT_EQ(images.response.cols, area.width);
    ASSERT_EQ(images.response.rows, area.height);
    const auto expected = all_pixels(area, 0, [&](int x, int y) { return slow.response(x, y); });
    EXPECT_TRUE(testing_support::same_bits(all_pixels(area, 0, pixel_of(images.response)), expected));
    EXPECT_TRUE(std::any_of(expected.begin(), expected.end(), [](float value) { return value > 100.0f; }));

    // The rim of the determinant image is left over from the last row pass.
    const auto with_rim = all_pixels(area, 1, [&](int x, int y) {
      const bool rim = x < 0 || y < 0 || x >= area.width || y >= area.height;
      return rim ? slow.bx_of_gy(x, y) : slow.det(x, y);
    });
    EXPECT_TRUE(testing_support::same_bits(all_pixels(area, 1, pixel_of(images.det)), with_rim));
  }
}

TEST(ResponseTest, TapSeesEveryStepAndChangesNothing) {
  const cve::XMat_<unsigned char> image = testing_support::random_bytes(40, 40, 2);
  const Region area{4, 3, 30, 31};
  const SlowResponse slow(image, area);
  Recorder recorder;
  const fpu::ResponseImages images = fpu::computeResponse(image, area, &recorder);
  const fpu::ResponseImages untapped = fpu::computeResponse(image, area, nullptr);
  EXPECT_TRUE(testing_support::same_bits(all_pixels(area, 1, pixel_of(images.det)),
                                         all_pixels(area, 1, pixel_of(untapped.det))));
  const std::map<std::string, Pixel> steps = {
      {"gx", [&](int x, int y) { return slow.gx(x, y); }},
      {"gy", [&](int x, int y) { return slow.gy(x, y); }},
      {"lxx", [&](int x, int y) { return slow.lxx(x, y); }},
      {"lxy", [&](int x, int y) { return slow.lxy(x, y); }},
      {"lyy", [&](int x, int y) { return slow.lyy(x, y); }},
      {"det", [&](int x, int y) { return slow.det(x, y); }},
      {"response", [&](int x, int y) { return slow.response(x, y); }},
  };
  EXPECT_EQ(recorder.seen.size(), steps.size());
  for (const auto& [name, pixel] : steps) {
    EXPECT_TRUE(testing_support::same_bits(recorder.seen[name], all_pixels(area, 0, pixel))) << name;
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
