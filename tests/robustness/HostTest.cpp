// What hosts do to a process before and while they call: few threads, small stacks, forks, odd settings of
// the runtime. Each in a child of its own.

#include <gtest/gtest.h>
#include <omp.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <utility>

#include "SmallRun.h"
#include "support/Child.h"
#include "support/SmallStack.h"

namespace {

using namespace testing_support;

constexpr int kSame = 0;
constexpr int kDiffers = 1;
constexpr int kNoSetUp = 9;

class Host : public testing::Test {
 protected:
  int compare(const Outcome& expected) const { return run_.run(frame_.image) == expected ? kSame : kDiffers; }

  SmallRun run_;
  SmallFrame frame_;
};

// Nested as deep as either language allows.
TEST_F(Host, AWorkerWithASmallStackCanCall) {
  const std::string deep(1000, '(');
  const std::string closed(1000, ')');
  const SmallRun deep_lens(small_lens() + "deep = " + deep + "1" + closed + ";\n");
  std::string nested;
  for (int level = 0; level < 990; ++level)
    nested += std::string(static_cast<std::size_t>(level), ' ') + "k:\n";
  const SmallRun deep_settings(small_lens(), small_settings() + nested + std::string(990, ' ') + "k: 1\n");
  for (const SmallRun* run : {&std::as_const(run_), &deep_lens, &deep_settings}) {
    const Outcome expected = run->run(frame_.image);
    ASSERT_EQ(expected.status, TWINTRUE_CALIBRATED);
    Outcome found;
    constexpr std::size_t kStack = std::size_t{256} << 10;
    on_small_stack([&] { found = run->run(frame_.image); }, kStack);
    EXPECT_TRUE(found == expected);
  }
}

// The superuser may make as many threads as he likes, so the process becomes somebody else.
TEST_F(Host, ThreadsThatTheSystemRefusesAreDoneWithout) {
  const Outcome expected = run_.run(frame_.image);
  ASSERT_EQ(chmod(run_.dir().path().c_str(), 0777), 0);
  const int status = in_child([&] {
    constexpr uid_t kSomebody = 64321;  // who has no other process
    const rlimit limit{1, 1};
    if (geteuid() == 0 && setuid(kSomebody) != 0) return kNoSetUp;
    if (setrlimit(RLIMIT_NPROC, &limit) != 0) return kNoSetUp;
    pthread_t refused{};
    if (pthread_create(
            &refused, nullptr, [](void* p) { return p; }, nullptr) == 0)
      return kNoSetUp;
    omp_set_num_threads(8);
    return compare(expected);
  });
  EXPECT_TRUE(ended_with(status, kSame)) << status;
}

TEST_F(Host, AChildCanCallAfterItsParentDid) {
  const Outcome expected = run_.run(frame_.image);
  const int status = in_child([&] {
    alarm(kSanitized ? 120 : 30);  // a hang becomes an end by a signal
    return compare(expected);
  });
  EXPECT_TRUE(ended_with(status, kSame)) << status;
}

TEST_F(Host, AChildCanCallWhileItsParentDoes) {
  const Outcome expected = run_.run(frame_.image);
  const SmallRun other;
  std::thread parent([&] {
    for (int call = 0; call < 5; ++call) other.run(frame_.image);
  });
  const int status = in_child([&] {
    alarm(kSanitized ? 120 : 30);
    return compare(expected);
  });
  parent.join();
  EXPECT_TRUE(ended_with(status, kSame)) << status;
}

}  // namespace
