#include "base/ThreadTeam.h"

#include <omp.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <new>
#include <thread>
#include <utility>

namespace twintrue {
namespace {

// Of a helper. Loops of all stages take less than 64 KiB; checked builds some times that. Only what is
// touched is ever backed by memory.
constexpr std::size_t kHelperStack = std::size_t{2} << 20;

thread_local ThreadTeam* current_team = nullptr;
thread_local bool taking_part = false;

// While it lives, a thread that is started gets no signals: those are for the host's own threads.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_;
};

}  // namespace

int default_thread_count() {
  const auto machine =
      static_cast<int>(std::min(std::thread::hardware_concurrency(), unsigned{kMostThreads}));
  return std::clamp(omp_get_max_threads(), 1, std::max(machine, 1));
}

struct ThreadTeam::InLoop {
  InLoop() { taking_part = true; }
  InLoop(const InLoop&) = delete;
  InLoop& operator=(const InLoop&) = delete;
  ~InLoop() { taking_part = false; }
};

struct ThreadTeam::Helper {
  ThreadTeam* team;
  pthread_t thread{};

  static void* main(void* helper) {
    static_cast<Helper*>(helper)->team->help();
    return nullptr;
  }
};

ThreadTeam::ThreadTeam(int threads) : outer_(current_team) {
  const int wanted = threads > 0 ? std::min(threads, kMostThreads) : default_thread_count();
  helpers_.reserve(static_cast<std::size_t>(wanted));
  pthread_attr_t attributes;
  if (wanted > 1 && pthread_attr_init(&attributes) == 0) {
    pthread_attr_setstacksize(&attributes, kHelperStack);
    const SignalsBlocked blocked;
    for (int i = 1; i < wanted; ++i) {
      auto helper = std::unique_ptr<Helper>(new (std::nothrow) Helper{this});
      if (!helper || pthread_create(&helper->thread, &attributes, Helper::main, helper.get()) != 0) break;
      helpers_.push_back(std::move(helper));
    }
    pthread_attr_destroy(&attributes);
  }
  current_team = this;
}

ThreadTeam::~ThreadTeam() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_all();
  for (const auto& helper : helpers_) pthread_join(helper->thread, nullptr);
  current_team = outer_;
}

int ThreadTeam::size() const { return static_cast<int>(helpers_.size()) + 1; }

ThreadTeam* ThreadTeam::current() { return current_team; }
bool ThreadTeam::in_loop() { return taking_part; }

void ThreadTeam::help() {
  const InLoop in_loop;
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return ending_ || seats_ > 0; });
    if (ending_) return;
    --seats_;
    ++active_;
    const int member = next_member_++;
    Work& work = *work_;
    lock.unlock();
    work.take_part(member);
    lock.lock();
    if (--active_ == 0) idle_.notify_one();
  }
}

void ThreadTeam::run(Work& work, std::size_t most) {
  const std::size_t helpers = std::min(helpers_.size(), most > 0 ? most - 1 : 0);
  {
    const std::lock_guard lock(mutex_);
    work_ = &work;
    seats_ = helpers;
    next_member_ = 1;
  }
  if (helpers == helpers_.size()) {
    wake_.notify_all();
  } else {
    for (std::size_t i = 0; i < helpers; ++i) wake_.notify_one();
  }
  {
    const InLoop in_loop;
    work.take_part(0);
  }
  std::unique_lock lock(mutex_);
  seats_ = 0;
  idle_.wait(lock, [this] { return active_ == 0; });
}

}  // namespace twintrue
