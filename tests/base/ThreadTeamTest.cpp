#include "base/ThreadTeam.h"

#include <gtest/gtest.h>
#include <omp.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "base/ParallelEach.h"
#include "support/Child.h"

namespace twintrue {
namespace {

TEST(ThreadTeam, LoopsDoEachPieceOnceOnAnyTeam) {
  for (const int threads : {1, 2, 7}) {
    const ThreadTeam team(threads);
    ASSERT_EQ(team.size(), threads);
    for (const std::size_t count : {0u, 1u, 2u, 6u, 1000u}) {
      std::vector<int> calls(count);
      parallel_each(count, [&](std::size_t i) { ++calls[i]; });
      EXPECT_EQ(calls, std::vector<int>(count, 1));

      parallel_rows(-20, static_cast<int>(count) - 20,
                    [&](int row) { ++calls[static_cast<std::size_t>(row + 20)]; });
      EXPECT_EQ(calls, std::vector<int>(count, 2));

      // No two of a member's pieces at a time, so that what it counts in needs no lock.
      std::vector<std::size_t> by_member(static_cast<std::size_t>(loop_thread_count()));
      parallel_each_by_member(
          count, [&](int member, std::size_t) { ++by_member[static_cast<std::size_t>(member)]; });
      std::size_t sum = 0;
      for (const std::size_t some : by_member) sum += some;
      EXPECT_EQ(sum, count);
    }
  }
  parallel_rows(5, 5, [](int) { throw std::runtime_error("no row"); });
}

// All threads of a team are in a loop at a time, or this never ends.
TEST(ThreadTeam, AllMembersTakePart) {
  constexpr std::size_t kThreads = 4;
  const ThreadTeam team(kThreads);
  std::atomic<std::size_t> arrived{0};
  parallel_each(kThreads, [&](std::size_t) {
    ++arrived;
    while (arrived < kThreads) std::this_thread::yield();
  });
  EXPECT_EQ(arrived, kThreads);
}

TEST(ThreadTeam, ExceptionsComeOutAndTheTeamGoesOn) {
  const ThreadTeam team(3);
  for (int round = 0; round < 50; ++round) {
    EXPECT_THROW(parallel_each(100,
                               [](std::size_t i) {
                                 if (i % 10 == 3) throw std::runtime_error("piece");
                               }),
                 std::runtime_error);
  }
  std::atomic<int> calls{0};
  parallel_each(100, [&](std::size_t) { ++calls; });
  EXPECT_EQ(calls, 100);
}

TEST(ThreadTeam, ALoopInALoopStaysOnItsThread) {
  const ThreadTeam team(4);
  std::atomic<int> strays{0};
  parallel_each(8, [&](std::size_t) {
    const std::thread::id self = std::this_thread::get_id();
    if (loop_thread_count() != 1) ++strays;
    parallel_each(8, [&](std::size_t) {
      if (std::this_thread::get_id() != self) ++strays;
    });
  });
  EXPECT_EQ(strays, 0);
}

TEST(ThreadTeam, TheInnermostTeamCounts) {
  const ThreadTeam outer(3);
  {
    const ThreadTeam inner(5);
    EXPECT_EQ(loop_thread_count(), 5);
  }
  EXPECT_EQ(loop_thread_count(), 3);
}

TEST(ThreadTeam, TakesTheHostsWishWithinTheMachine) {
  const int before = omp_get_max_threads();
  const auto machine = static_cast<int>(std::thread::hardware_concurrency());
  omp_set_num_threads(1);
  EXPECT_EQ(default_thread_count(), 1);
  omp_set_num_threads(100000);
  EXPECT_EQ(default_thread_count(), machine);
  EXPECT_EQ(loop_thread_count(), machine);
  omp_set_num_threads(before);
}

// The signals of a host are for the host's own threads.
TEST(ThreadTeam, HelpersTakeNoSignals) {
  const ThreadTeam team(4);
  std::atomic<std::size_t> arrived{0};
  std::atomic<int> open{0};
  parallel_each(4, [&](std::size_t) {
    ++arrived;
    while (arrived < 4) std::this_thread::yield();
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    if (sigismember(&blocked, SIGTERM) == 0) ++open;
  });
  EXPECT_EQ(open, 1) << "the calling thread alone";
}

// A team is gone with its object: a child of a process that had one makes its own.
TEST(ThreadTeam, AChildStartsAfresh) {
  {
    const ThreadTeam team(4);
    parallel_each(100, [](std::size_t) {});
  }
  const int status = testing_support::in_child([] {
    alarm(20);  // a hang becomes an end by a signal
    const ThreadTeam team(4);
    std::atomic<int> calls{0};
    parallel_each(100, [&](std::size_t) { ++calls; });
    return calls == 100 ? 0 : 1;
  });
  EXPECT_TRUE(testing_support::ended_with(status, 0)) << status;
}

}  // namespace
}  // namespace twintrue
