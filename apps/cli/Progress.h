#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace twintrue::cli {

// One line on a terminal that tells what goes on and for how long, gone at the end. Silent, without a thread,
// where standard error is no terminal.
class Progress {
 public:
  explicit Progress(std::string what);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

 private:
  void tick();

  std::string what_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

}  // namespace twintrue::cli
