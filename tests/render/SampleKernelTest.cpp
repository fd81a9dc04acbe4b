// The sampling against its plain form, bit for bit on every instruction set, and at the edge of the circle.

#include "render/SampleKernel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "RenderRigs.h"
#include "render/ToneCode.h"

namespace twintrue::render {
namespace {

using render_test::small_rig;
using render_test::textured;

float number_at(const EyePicture& picture, int column, int row, int channel) {
  const std::size_t at = (static_cast<std::size_t>(row) * static_cast<std::size_t>(picture.width()) +
                          static_cast<std::size_t>(column)) *
                             4 +
                         static_cast<std::size_t>(channel);
  return picture.words() != nullptr ? static_cast<float>(picture.words()[at]) : picture.floats()[at];
}

bool holds(const EyePicture& picture, int column, int row) {
  return row >= 0 && row < picture.height() && picture.inside(row).holds(column);
}

std::array<float, 4> plain_weights(float t) {
  const float s = 1.0f - t;
  return {-0.5f * t * s * s, 1.0f + t * t * (1.5f * t - 2.5f), 1.0f + s * s * (1.5f * s - 2.5f),
          -0.5f * s * t * t};
}

// One channel of one point, with the sums in the order of the kernel.
float plain_sample(const EyePicture& picture, double x, double y, int channel) {
  const double scale = 1.0 / picture.reduction();
  const double px = x * scale + ((0.5 - picture.left()) * scale - 0.5);
  const double py = y * scale + (0.5 * scale - 0.5);
  if (!(px > -1.0 && px < picture.width() && py > -1.0 && py < picture.height())) return 0.0f;
  const auto column = static_cast<int>(std::floor(px));
  const auto row = static_cast<int>(std::floor(py));
  const auto tx = static_cast<float>(px - column);
  const auto ty = static_cast<float>(py - row);
  const float unit = picture.words() != nullptr ? 1.0f / 65535.0f : 1.0f;

  int inside = 0;
  for (int j = -1; j <= 2; ++j) {
    for (int i = -1; i <= 2; ++i) inside += holds(picture, column + i, row + j) ? 1 : 0;
  }
  if (inside == 16) {
    const std::array<float, 4> wx = plain_weights(tx), wy = plain_weights(ty);
    std::array<float, 4> of_column{};
    for (int i = 0; i < 4; ++i) {
      const auto c = static_cast<std::size_t>(i);
      for (int j = 0; j < 4; ++j) {
        of_column[c] +=
            number_at(picture, column - 1 + i, row - 1 + j, channel) * wy[static_cast<std::size_t>(j)];
      }
    }
    return ((of_column[0] * wx[0] + of_column[2] * wx[2]) + (of_column[1] * wx[1] + of_column[3] * wx[3])) *
           unit;
  }
  float sum = 0.0f;
  float weights = 0.0f;
  for (int i = 0; i < 4; ++i) {
    const int c = column + i % 2, r = row + i / 2;
    if (!holds(picture, c, r)) continue;
    const float weight = (i % 2 != 0 ? tx : 1.0f - tx) * (i / 2 != 0 ? ty : 1.0f - ty);
    sum += weight * number_at(picture, c, r, channel);
    weights += weight;
  }
  return sum * (weights > 0.0f ? unit / weights : 0.0f);
}

struct Points {
  std::vector<double> x, y;
  // All over the left eye's half and beyond, with some that are no points or lie on borders.
  explicit Points(std::size_t count) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> across(250, 518), down(-4, 260);
    for (std::size_t i = 0; i < count; ++i) {
      x.push_back(across(random));
      y.push_back(down(random));
    }
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const double odd[] = {std::nan(""),
                          kInfinity,
                          -kInfinity,
                          1e300,
                          -1e18,
                          255.0,
                          256.0,
                          511.0,
                          512.0,
                          std::nextafter(512.0, 0.0),
                          std::nextafter(256.0, 0.0),
                          -1.0,
                          0.0,
                          300.0};
    for (const double a : odd) {
      for (const double b : odd) {
        x.push_back(a);
        y.push_back(b);
      }
    }
  }
};

TEST(SampleKernel, IsItsPlainFormBitForBit) {
  const auto bytes = textured<std::uint8_t>(512, 256, 255);
  auto floats = textured<float>(512, 256, 3.0);
  floats[1000] = -2.0f;
  const RigModel rig = small_rig(1);
  for (const int reduction : {1, 3}) {
    for (const bool of_bytes : {true, false}) {
      const FramePixels frame{512, 256, of_bytes ? SampleType::kByte : SampleType::kFloat, Light::kEncoded,
                              of_bytes ? static_cast<const void*>(bytes.data()) : floats.data()};
      const EyePicture picture(frame, rig.left, Light::kLinear, reduction);
      const Points points(2011);
      const auto count = static_cast<int>(points.x.size());
      for (const InstructionSet set : supported_instruction_sets()) {
        std::vector<float> out(points.x.size() * 4);
        sample_row(set)(picture, points.x.data(), points.y.data(), count, out.data());
        int lit = 0;
        for (std::size_t i = 0; i < points.x.size(); ++i) {
          for (int channel = 0; channel < 3; ++channel) {
            const float expected = plain_sample(picture, points.x[i], points.y[i], channel);
            ASSERT_EQ(out[4 * i + static_cast<std::size_t>(channel)], expected)
                << points.x[i] << ", " << points.y[i] << ", set " << static_cast<int>(set);
            lit += expected != 0.0f ? 1 : 0;
          }
        }
        EXPECT_GT(lit, count);
      }
    }
  }
}

// Outside the circle the frame is white, and inside grey: what is drawn must be either grey or black.
TEST(SampleKernel, UsesNoPixelOutsideTheCircle) {
  const RigModel rig = small_rig(2, 150.0);
  std::vector<std::uint8_t> bytes(512 * 256 * 3, 255);
  for (int y = 0; y < 256; ++y) {
    for (int x = 256; x < 512; ++x) {
      double ray[3];
      if (!eye_image_to_ray(rig.left, &ray[0], &ray[1], &ray[2], x, y)) continue;
      for (int c = 0; c < 3; ++c) bytes[static_cast<std::size_t>((y * 512 + x) * 3 + c)] = 100;
    }
  }
  const FramePixels frame{512, 256, SampleType::kByte, Light::kEncoded, bytes.data()};
  for (const int reduction : {1, 2, 5}) {
    const EyePicture picture(frame, rig.left, Light::kEncoded, reduction);
    const Points points(20000);
    std::vector<float> out(points.x.size() * 4);
    sample_row()(picture, points.x.data(), points.y.data(), static_cast<int>(points.x.size()), out.data());
    int grey = 0, black = 0;
    for (std::size_t i = 0; i < out.size(); i += 4) {
      grey += std::fabs(out[i] - 100.0f / 255.0f) < 1e-3f ? 1 : 0;
      black += out[i] == 0.0f ? 1 : 0;
    }
    EXPECT_EQ(grey + black, static_cast<int>(points.x.size())) << reduction;
    EXPECT_GT(grey, 8000);
    EXPECT_GT(black, 2000);
  }
}

TEST(SampleKernel, IsWithinTheCircleUpToItsRim) {
  // A circle that is not cut: every place within the limit but for the rim's last pixel shows something.
  RigModel rig = small_rig(1, 150.0);
  const std::vector<std::uint8_t> bytes(512 * 256 * 3, 200);
  const FramePixels frame{512, 256, SampleType::kByte, Light::kEncoded, bytes.data()};
  const EyePicture picture(frame, rig.left, Light::kLinear, 1);
  for (int i = 0; i < 360; ++i) {
    const double theta = 74.4 * render_test::kDegree, phi = i * render_test::kDegree;
    double x = 0.0, y = 0.0;
    const auto& m = rig.left.rotation_t;  // a ray about the eye's own axis
    const double e[3] = {std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), -std::cos(theta)};
    ASSERT_TRUE(eye_ray_to_image(rig.left, &x, &y, m[0] * e[0] + m[1] * e[1] + m[2] * e[2],
                                 m[3] * e[0] + m[4] * e[1] + m[5] * e[2],
                                 m[6] * e[0] + m[7] * e[1] + m[8] * e[2]));
    float pixel[4];
    sample_row()(picture, &x, &y, 1, pixel);
    EXPECT_NEAR(display_of_light(pixel[0]), 200.0 / 255.0, 1e-3) << i;
  }
}

}  // namespace
}  // namespace twintrue::render
