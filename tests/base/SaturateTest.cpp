#include "base/Saturate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace twintrue {
namespace {

constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kLeast64 = std::numeric_limits<std::int64_t>::min();

TEST(Saturate, WhatDoesNotFitGivesTheSmallestInteger) {
  EXPECT_EQ(truncate_to_int32(-1.9), -1);
  EXPECT_EQ(truncate_to_int32(1.9f), 1);
  EXPECT_EQ(truncate_to_int32(2147483647.9), kMost);
  EXPECT_EQ(truncate_to_int32(-2147483647.9), -2147483647);
  EXPECT_EQ(truncate_to_int32(-2147483648.9), kLeast);
  EXPECT_EQ(truncate_to_int32(2147483520.0f), 2147483520);  // the last float below 2^31
  EXPECT_EQ(truncate_to_int32(-2147483520.0f), -2147483520);
  EXPECT_EQ(truncate_to_int64(9223372036854774784.0), 9223372036854774784);  // the last double below 2^63
  EXPECT_EQ(truncate_to_int64(-9223372036854774784.0), -9223372036854774784);
  for (const double outside : {2147483648.0, 1e300, -1e300, -HUGE_VAL, HUGE_VAL, std::nan("")}) {
    EXPECT_EQ(truncate_to_int32(outside), kLeast) << outside;
    EXPECT_EQ(truncate_to_int32(static_cast<float>(outside)), kLeast) << outside;
  }
  for (const double outside : {9223372036854775808.0, -9223372036854775808.0, HUGE_VAL, std::nan("")}) {
    EXPECT_EQ(truncate_to_int64(outside), kLeast64) << outside;
  }
}

TEST(Saturate, ClampingGivesTheNearest) {
  for (const std::int64_t kept : {std::int64_t{kLeast}, std::int64_t{-7}, std::int64_t{kMost}}) {
    EXPECT_EQ(clamp_to_int32(kept), kept);
  }
  EXPECT_EQ(clamp_to_int32(std::int64_t{kMost} + 1), kMost);
  EXPECT_EQ(clamp_to_int32(std::int64_t{kLeast} - 1), kLeast);
  EXPECT_EQ(clamp_to_int32(kLeast64), kLeast);
}

}  // namespace
}  // namespace twintrue
