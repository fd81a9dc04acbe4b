#pragma once

// The parallel loops of all stages, over the team of the calling thread (see ThreadTeam.h). Without a team
// one is made for the loop. Which thread runs what is left open, so bodies write places of their own, and
// what is summed is summed in order of index afterwards.
//
// If bodies throw, what is not yet begun is left out, and when all are done one of the exceptions comes out.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>

#include "base/ThreadTeam.h"

namespace twintrue {

// How many members a loop that is started now may have: their numbers are below it.
inline int loop_thread_count() {
  if (ThreadTeam::in_loop()) return 1;
  const ThreadTeam* const team = ThreadTeam::current();
  return team != nullptr ? team->size() : default_thread_count();
}

namespace parallel_detail {

// Hands out 0 to count - 1 in runs of `grain`, in order.
template <typename Body>
class Loop final : public ThreadTeam::Work {
 public:
  Loop(std::size_t count, std::size_t grain, const Body& body) : count_(count), grain_(grain), body_(body) {}

  void take_part(int member) override {
    for (;;) {
      const std::size_t begin = next_.fetch_add(grain_, std::memory_order_relaxed);
      if (begin >= count_ || failed_.load(std::memory_order_relaxed)) return;
      try {
        for (std::size_t i = begin; i < std::min(begin + grain_, count_); ++i) body_(member, i);
      } catch (...) {
        if (!failed_.exchange(true)) failure_ = std::current_exception();
      }
    }
  }

  void rethrow() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  std::size_t count_;
  std::size_t grain_;
  const Body& body_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> failed_{false};
  std::exception_ptr failure_;
};

template <typename Body>
void run(std::size_t count, std::size_t grain, const Body& body) {
  Loop<Body> loop(count, grain, body);
  const std::size_t runs = (count + grain - 1) / grain;
  if (runs < 2 || loop_thread_count() == 1) {
    loop.take_part(0);
  } else if (ThreadTeam* const team = ThreadTeam::current()) {
    team->run(loop, runs);
  } else {
    ThreadTeam().run(loop, runs);
  }
  loop.rethrow();
}

}  // namespace parallel_detail

// Runs body(i) for i below `count`, one at a time each.
template <typename Body>
void parallel_each(std::size_t count, const Body& body) {
  parallel_detail::run(count, 1, [&body](int, std::size_t i) { body(i); });
}

// Runs body(member, i) for i below `count`, `member` below the loop_thread_count() of before: for work space
// that each thread has to itself.
template <typename Body>
void parallel_each_by_member(std::size_t count, const Body& body) {
  parallel_detail::run(count, 1, body);
}

// Runs body(row) for rows from `begin` to `end` - 1, in runs of neighbouring rows.
template <typename Body>
void parallel_rows(int begin, int end, const Body& body) {
  if (end <= begin) return;
  const auto count = static_cast<std::size_t>(std::int64_t{end} - begin);
  constexpr std::size_t kRunsPerThread = 8;  // so that threads end at about the same time
  const auto threads = static_cast<std::size_t>(loop_thread_count());
  const std::size_t grain = std::max<std::size_t>(count / (kRunsPerThread * threads), 1);
  parallel_detail::run(count, grain,
                       [&body, begin](int, std::size_t i) { body(begin + static_cast<int>(i)); });
}

}  // namespace twintrue
