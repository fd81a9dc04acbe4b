// Several calls of one host at a time.

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "SmallRun.h"

namespace {

using namespace testing_support;

TEST(Threads, CallsOfTwoHostThreadsDontMeet) {
  constexpr std::size_t kHosts = 2;
  constexpr int kCalls = 5;
  const std::array<SmallFrame, kHosts> frames{SmallFrame(1),
                                              SmallFrame(2, kSmallWidth, kSmallHeight, 5, true)};
  const std::array<SmallRun, kHosts> runs;
  std::array<Outcome, kHosts> alone;
  for (std::size_t i = 0; i < kHosts; ++i) {
    alone[i] = runs[i].run(frames[i].image);
    EXPECT_EQ(alone[i].status, TWINTRUE_CALIBRATED);
  }
  EXPECT_FALSE(alone[0] == alone[1]) << "the two inputs have to differ";

  std::array<int, kHosts> same{};
  std::vector<std::thread> hosts;
  for (std::size_t i = 0; i < kHosts; ++i) {
    hosts.emplace_back([&, i] {
      for (int call = 0; call < kCalls; ++call) same[i] += runs[i].run(frames[i].image) == alone[i] ? 1 : 0;
    });
  }
  for (std::thread& host : hosts) host.join();
  for (const int count : same) EXPECT_EQ(count, kCalls);
}

}  // namespace
