#pragma once

// A whole calibration, from a caller's pixels to the result: what calib() and the program both run.

#include <cstdint>

#include "apps/TwinTrue/RunDriver.h"
#include "twintrue/calib.h"

namespace twintrue {

// Converts the frame, runs the driver and fills `result` unless it is null. A frame that can't be read gives
// TWINTRUE_FAILED and leaves `result` alone. `image` may be null, which can't be read either. Throws nothing:
// what memory or threads throw is told on standard error and gives TWINTRUE_FAILED. `observer` may be null;
// it is called on the calling thread. Holds no state: safe on any number of threads.
// The paths are those of RunPaths, and not null.
std::int32_t calibrate(const CalibImage* image, const char* lens, const char* params, const char* out_lens,
                       bool ignore_thresholds, CalibResult* result, RunObserver* observer = nullptr);

}  // namespace twintrue
