#include "apps/cli/report/RunRecord.h"

#include <sys/resource.h>

#include <chrono>

namespace twintrue::cli {
namespace {

std::int64_t nanoseconds_now() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

std::int64_t peak_memory() {
  constexpr std::int64_t kUnit = 1024;  // what Linux counts it in
  rusage usage{};
  return getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss * kUnit : 0;
}

}  // namespace

StageClock::StageClock(RunRecord* record) : record_(record) {
  if (record_ != nullptr) last_ = nanoseconds_now();
}

void StageClock::end(const char* name) {
  if (record_ == nullptr) return;
  const std::int64_t now = nanoseconds_now();
  record_->stages.push_back({name, 1e-9 * static_cast<double>(now - last_), peak_memory()});
  last_ = now;
}

}  // namespace twintrue::cli
