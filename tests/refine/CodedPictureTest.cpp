#include "refine/CodedPicture.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace twintrue {
namespace {

TEST(CodedPicture, HoldsTheRootToASixtyFourthOfAGreyLevel) {
  cve::XMat_<float> linear;
  linear.create(3, 1003);
  for (std::int32_t x = 0; x < linear.cols; ++x) {
    for (std::int32_t y = 0; y < 3; ++y)
      linear.at(y, x) = static_cast<float>(x) / 1000.0f + 0.1f * static_cast<float>(y);
  }
  const auto coded = code_picture(linear);
  ASSERT_EQ(coded.rows, 3);
  ASSERT_EQ(coded.cols, 1003);
  for (std::int32_t y = 0; y < 3; ++y) {
    for (std::int32_t x = 0; x < linear.cols; ++x) {
      const double grey = 255.0 * std::sqrt(static_cast<double>(linear.at(y, x)));
      EXPECT_NEAR(coded.at(y, x) / kCodeSteps, grey, 0.51 / kCodeSteps) << x << ", " << y;
    }
  }
}

TEST(CodedPicture, KeepsWhatHasNoRootWithinItsEnds) {
  cve::XMat_<float> linear;
  linear.create(1, 5);
  const float values[] = {-1.0f, std::numeric_limits<float>::quiet_NaN(), 1e30f,
                          std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
  std::copy(std::begin(values), std::end(values), linear.row(0));
  const auto coded = code_picture(linear);
  const std::int16_t most = 32640;  // the root of 4
  const std::int16_t wanted[] = {0, 0, most, most, 0};
  for (std::int32_t x = 0; x < 5; ++x) EXPECT_EQ(coded.at(0, x), wanted[x]) << values[x];
}

}  // namespace
}  // namespace twintrue
