#pragma once

// A whole calibration, from a caller's pixels to the result: what calib() and the program both run.

#include <cstdint>

#include "apps/TwinTrue/RunDriver.h"
#include "twintrue/calib.h"

namespace twintrue {

struct RunOptions {
  bool ignore_thresholds = false;
  int threads = 0;  // of the team; 0: default_thread_count()
  // Whether the team converts the frame. Else the conversion has threads of its own, says so on standard
  // output, and ends the process on a machine that runs one thread at a time. The pixels are the same.
  bool team_converts = false;
  RunObserver* observer = nullptr;  // called on the thread of the run
};

// Converts the frame, runs the driver and fills `result` unless it is null. A frame that can't be read gives
// TWINTRUE_FAILED and leaves `result` alone. `image` may be null, which can't be read either. Throws nothing:
// what memory or threads throw is told on standard error and gives TWINTRUE_FAILED. Holds no state: safe on
// any number of threads, whatever their stacks, and in a child after a fork. The paths are those of RunPaths,
// and not null.
std::int32_t calibrate(const CalibImage* image, const char* lens, const char* params, const char* out_lens,
                       const RunOptions& options, CalibResult* result);

}  // namespace twintrue
