#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>

namespace twintrue {

// Runs body(i) for i below `count` on all threads, one at a time each. When all are done, an exception of a
// body comes out: of several, any.
template <typename Body>
void parallel_each(std::size_t count, const Body& body) {
  std::exception_ptr failure;
  const auto n = static_cast<std::int64_t>(count);
#pragma omp parallel for schedule(dynamic, 1) if (n > 1)
  for (std::int64_t i = 0; i < n; ++i) {
    try {
      body(static_cast<std::size_t>(i));
    } catch (...) {
#pragma omp critical(twintrue_parallel_failure)
      failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace twintrue
