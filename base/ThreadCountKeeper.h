#pragma once

#include <omp.h>

namespace fpu {

// Gives the OpenMP runtime its number of threads back when a parallel loop is through. The match stage itself
// never sets one.
class ThreadCountKeeper {
 public:
  ThreadCountKeeper() : threads_(omp_get_max_threads()) {}
  ThreadCountKeeper(const ThreadCountKeeper&) = delete;
  ThreadCountKeeper& operator=(const ThreadCountKeeper&) = delete;
  ~ThreadCountKeeper() { omp_set_num_threads(threads_); }

  int threads() const { return threads_; }

 private:
  int threads_;
};

}  // namespace fpu
