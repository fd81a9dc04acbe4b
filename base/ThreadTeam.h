#pragma once

// The threads of one run.
//
// A team lives as long as its object and no longer: nothing is left behind that a later call, a fork or the
// end of the process could trip over. Its threads sleep while there is nothing to do, so runs side by side do
// not take the processors from each other. A thread that the system refuses is done without.

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace twintrue {

inline constexpr int kMostThreads = 1024;

// Threads of a team that was not told how many: what the OpenMP runtime would give the calling thread, which
// is how a host says it (OMP_NUM_THREADS, omp_set_num_threads), but no more than the machine runs at once.
int default_thread_count();

// While it lives, the loops of base/ParallelEach.h that its own thread starts are shared out among the team.
// Make and end one on the same thread; of several the innermost counts.
class ThreadTeam {
 public:
  // The calling thread and up to `threads` - 1 more; 0: default_thread_count(). At most kMostThreads. Throws
  // std::bad_alloc.
  explicit ThreadTeam(int threads = 0);
  ThreadTeam(const ThreadTeam&) = delete;
  ThreadTeam& operator=(const ThreadTeam&) = delete;
  ~ThreadTeam();

  // How many threads there are, the calling one included.
  int size() const;

  // What a loop hands to the team: called once by each member that takes part, with a number below size()
  // that no other member has at the time. Must not throw.
  struct Work {
    virtual void take_part(int member) = 0;

   protected:
    ~Work() = default;
  };

  // Has up to `most` members take part, the calling thread among them as member 0, and returns when all of
  // them are through. A member that wakes late finds the work done and is not waited for.
  void run(Work& work, std::size_t most);

  // The team that a loop of the calling thread belongs to; null: none. Within a loop there is none to be had:
  // see in_loop().
  static ThreadTeam* current();
  // Whether the calling thread is taking part in a loop. A loop within it stays on its thread.
  static bool in_loop();

 private:
  struct Helper;
  struct InLoop;
  void help();

  ThreadTeam* const outer_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable idle_;
  Work* work_ = nullptr;
  std::size_t seats_ = 0;  // of members that may still join
  int next_member_ = 1;
  int active_ = 0;  // helpers that are taking part
  bool ending_ = false;
  std::vector<std::unique_ptr<Helper>> helpers_;
};

}  // namespace twintrue
