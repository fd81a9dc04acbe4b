#pragma once

// The one parallel loop of the image stages.

#include <omp.h>

#include <atomic>
#include <exception>
#include <utility>

namespace cve {

// Calls body(row) for each row from `begin` to `end` - 1, rows shared out evenly among the threads. The body
// must write nothing that another row's call touches. The runtime's thread count is left as it was found. If
// bodies throw, the rows not yet begun are skipped and one of the exceptions leaves this call.
template <class Body>
void parallel_rows(int begin, int end, Body&& body) {
  struct ThreadCount {
    int saved = omp_get_max_threads();
    ThreadCount() { omp_set_num_threads(saved); }
    ~ThreadCount() { omp_set_num_threads(saved); }
  } const thread_count;
  std::atomic<bool> failed{false};
  std::exception_ptr failure;
#pragma omp parallel for schedule(static)
  for (int row = begin; row < end; ++row) {
    if (failed.load(std::memory_order_relaxed)) continue;
    try {
      body(row);
    } catch (...) {
      if (!failed.exchange(true)) failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace cve
