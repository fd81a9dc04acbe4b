// A process that calibrates for a long time: nothing grows, nothing is left open, nothing is remembered.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <fstream>

#include "SmallRun.h"

namespace {

using namespace testing_support;

long resident_bytes() {
  std::ifstream stream("/proc/self/statm");
  long total = 0, resident = 0;
  stream >> total >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

std::size_t entries_of(const char* folder) {
  const auto entries = std::filesystem::directory_iterator(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(LongRun, NothingGrowsAndNothingIsRemembered) {
  const int calls = kSanitized ? 100 : 500;
  const SmallRun calibrated;
  const SmallRun failing(small_lens(), small_settings() + "calib:\n  error16_th: 0\n");
  const SmallRun unreadable("[OPTRA]\n");
  const SmallRun refused(small_lens(), small_settings() + "RENO:\n  nlevels: 0\n");
  const SmallFrame frame, other(3, 301, 140, 1, true), tiny(0, 1, 1);
  const struct {
    const SmallRun& run;
    const SmallFrame& frame;
    std::int32_t status;
  } inputs[] = {{calibrated, frame, TWINTRUE_CALIBRATED},  {calibrated, other, TWINTRUE_CALIBRATED},
                {failing, frame, TWINTRUE_QUALITY_FAILED}, {unreadable, frame, TWINTRUE_LENS_UNREADABLE},
                {refused, other, TWINTRUE_FAILED},         {calibrated, tiny, TWINTRUE_QUALITY_FAILED}};
  std::array<Outcome, std::size(inputs)> first;
  const auto pass = [&](int call) {
    const auto i = static_cast<std::size_t>(call) % std::size(inputs);
    const Outcome outcome = inputs[i].run.run(inputs[i].frame.image);
    if (call < static_cast<int>(std::size(inputs))) {
      first[i] = outcome;
      EXPECT_EQ(outcome.status, inputs[i].status) << i;
    }
    EXPECT_TRUE(outcome == first[i]) << call;
  };
  // The first calls make what stays: threads, buffers of the standard streams, the allocator's own reserves.
  constexpr int kWarmUp = 18;
  for (int call = 0; call < kWarmUp; ++call) pass(call);
  const long memory = resident_bytes();
  const std::size_t handles = entries_of("/proc/self/fd");
  const std::size_t threads = entries_of("/proc/self/task");
  for (int call = kWarmUp; call < calls; ++call) pass(call);
  EXPECT_EQ(entries_of("/proc/self/fd"), handles);
  EXPECT_EQ(entries_of("/proc/self/task"), threads);
  if (!kSanitized) {                  // a sanitizer keeps freed memory for a while
    constexpr long kSlack = 4 << 20;  // fragmentation; a leak of one frame a call is more
    EXPECT_LT(resident_bytes(), memory + kSlack);
  }
}

}  // namespace
