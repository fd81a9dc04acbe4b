// Memory that runs out, once at each allocation of a run in turn.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

#include "SmallRun.h"

namespace {

std::atomic<long> allocations{0};
std::atomic<long> live{0};
std::atomic<long> failing{0};  // number of the allocation to refuse; 0: none

void* allocate(std::size_t size, std::size_t alignment) {
  if (++allocations == failing.load()) throw std::bad_alloc();
  const std::size_t rounded = (std::max<std::size_t>(size, 1) + alignment - 1) / alignment * alignment;
  void* const memory =
      alignment > alignof(std::max_align_t) ? std::aligned_alloc(alignment, rounded) : std::malloc(rounded);
  if (memory == nullptr) throw std::bad_alloc();
  ++live;
  return memory;
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  --live;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size, alignof(std::max_align_t)); }
void* operator new[](std::size_t size) { return allocate(size, alignof(std::max_align_t)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return allocate(size, alignof(std::max_align_t));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }

namespace {

using namespace testing_support;

constexpr int kLeaked = 40;
constexpr int kOddStatus = 41;
constexpr int kOddResult = 42;

// One run with that allocation refused. What a child of it ends with: 0 if the run came back in order.
int run_refused(const SmallRun& run, const SmallFrame& frame, const std::string& out, long number) {
  const long before = live.load();
  CalibResult result;
  result.score = 7.0;
  allocations = 0;
  failing = number;
  // Through the pointers alone: the arguments must not allocate.
  const std::int32_t status = run.status(frame.image, out, &result);
  failing = 0;
  if (live.load() != before) return kLeaked;
  switch (status) {
    case TWINTRUE_CALIBRATED:
      return result.score > 0.0 ? 0 : kOddResult;
    case TWINTRUE_FAILED:
    case TWINTRUE_LENS_UNREADABLE:
      // Untouched (7), at its start (-1), or found before memory ran out.
      return result.score == 7.0 || result.score == -1.0 || result.score > 0.0 ? 0 : kOddResult;
    default:
      return kOddStatus;
  }
}

// Two places end the process, each with its message: the lens language, which people know to do so, and the
// scratch memory of the detector. All others come back with a status, and nothing is lost.
TEST(Allocation, EveryPathEndsInOrder) {
  omp_set_num_threads(1);  // so that allocations come in the same order every time
  const SmallRun run;
  const SmallFrame frame;
  const std::string out = run.dir().file("out.lens");
  const std::string chatter = run.dir().file("chatter");
  ASSERT_EQ(run.status(frame.image, out), TWINTRUE_CALIBRATED);  // what is made once is made
  ASSERT_EQ(run_refused(run, frame, out, 0), 0);
  const long count = allocations.load();
  ASSERT_GT(count, 500);

  const std::string old(read_file(out));
  // Under a sanitizer every early one and a share of the many like ones behind.
  constexpr long kAll = kSanitized ? 100 : std::numeric_limits<long>::max();
  constexpr long kStep = 7;
  int returned = 0, ended_by_language = 0, ended_by_scratch = 0;
  for (long number = 1; number <= count + 1; number += number < kAll ? 1 : kStep) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      const int descriptor = open(chatter.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(descriptor, STDOUT_FILENO);
      dup2(descriptor, STDERR_FILENO);
      const int code = run_refused(run, frame, out, number);
      std::fflush(nullptr);
      _exit(code);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    const std::string said = read_file(chatter);
    ASSERT_TRUE(WIFEXITED(status)) << "allocation " << number << " ends with signal " << WTERMSIG(status)
                                   << ":\n"
                                   << said;
    const int code = WEXITSTATUS(status);
    if (code == 0) {
      ++returned;
    } else if (code == 1 && said.ends_with("ERROR: Not enough memory.\n")) {
      ++ended_by_language;
    } else if (code == 255 && said.ends_with("FastBuf new error\n")) {
      ++ended_by_scratch;
    } else {
      ADD_FAILURE() << "allocation " << number << " of " << count << " ends with " << code << ":\n" << said;
    }
    // A lens is written whole or not at all.
    ASSERT_EQ(read_file(out), old) << number;
  }
  EXPECT_GT(returned, 100);
  EXPECT_GT(ended_by_language, 0);
  if (!kSanitized) {
    EXPECT_GT(ended_by_scratch, 0);
  }
}

}  // namespace
