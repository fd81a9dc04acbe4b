#include "features/Timer.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ratio>

namespace fpu {
namespace {

constexpr std::int64_t kTicksPerMs = 10'000;

std::uint64_t now_ticks() {
  using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<Ticks>(since_epoch).count());
}

}  // namespace

Timer::Timer() : lastTick(now_ticks()) {}

double Timer::lap() {
  if (paused) std::abort();
  const std::uint64_t now = now_ticks();
  // Signed, since the system clock may be set back between two laps.
  const auto delta = static_cast<std::int64_t>(now - lastTick);
  lastTick = now;
  const double ms = static_cast<double>(delta / kTicksPerMs) - carry;
  carry = 0.0;
  return ms;
}

double Timer::lapAndPrint(const char* format) {
  lastMs = lap();
  // A host may have closed standard output: that is no error, as it would be to fmt::print.
  if (printEnabled) std::fputs(fmt::format(fmt::runtime(format), lastMs).c_str(), stdout);
  return lastMs;
}

}  // namespace fpu
