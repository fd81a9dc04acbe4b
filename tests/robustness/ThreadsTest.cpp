// Several calls of one host at a time, and any number of threads inside a call.

#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <thread>

#include "SmallRun.h"

namespace {

using namespace testing_support;

TEST(Threads, OneToEightGiveTheSameBytes) {
  const SmallFrame frame;
  const SmallRun run;
  const int before = omp_get_max_threads();
  omp_set_num_threads(1);
  const Outcome one = run.run(frame.image);
  EXPECT_EQ(one.status, TWINTRUE_CALIBRATED);
  for (int threads = 2; threads <= 8; ++threads) {
    omp_set_num_threads(threads);
    EXPECT_TRUE(run.run(frame.image) == one) << threads;
    EXPECT_EQ(omp_get_max_threads(), threads) << "the host's setting is as it was";
  }
  omp_set_num_threads(before);
}

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
