#include "twintrue/calib.h"
#include "apps/TwinTrue/Calibration.h"

extern "C" TWINTRUE_API std::int32_t calib(const CalibImage* image, const char* lens_path,
                                           const char* param_path, const char* out_lens_path,
                                           std::int32_t ignore_thresholds, CalibResult* result) {
  if (lens_path == nullptr || param_path == nullptr || out_lens_path == nullptr) return TWINTRUE_FAILED;
  const twintrue::RunOptions options{.ignore_thresholds = ignore_thresholds != 0};
  return twintrue::calibrate(image, lens_path, param_path, out_lens_path, options, result);
}
