#include "apps/cli/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <utility>

namespace twintrue::cli {

Progress::Progress(std::string what) : what_(std::move(what)) {
  if (isatty(STDERR_FILENO) == 1) thread_ = std::thread(&Progress::tick, this);
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    done_ = true;
  }
  changed_.notify_one();
  thread_.join();
  fmt::print(stderr, "\r\033[K");
}

void Progress::tick() {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  std::unique_lock lock(mutex_);
  while (!done_) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count();
    fmt::print(stderr, "\r{} ... {} s", what_, seconds);
    std::fflush(stderr);
    changed_.wait_for(lock, std::chrono::seconds(1), [this] { return done_; });
  }
}

}  // namespace twintrue::cli
