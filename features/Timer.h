#pragma once

// Stopwatch of the stages: laps in whole milliseconds.

#include <cstdint>

namespace fpu {

// Thread-safety: one thread.
class Timer {
 public:
  Timer();

  // Milliseconds since the last lap or the construction, less `carry`. Aborts when paused.
  double lap();

  // A lap that is kept in lastMs and, with printEnabled, printed to standard output through `format`, which
  // has one {} for the number.
  double lapAndPrint(const char* format);

  std::uint64_t lastTick = 0;  // 100 ns ticks of the system clock
  double carry = 0.0;          // milliseconds that the next lap leaves out
  bool paused = false;
  bool printEnabled = true;
  double lastMs = 0.0;
};

}  // namespace fpu
