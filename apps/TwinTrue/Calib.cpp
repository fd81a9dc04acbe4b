#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "apps/TwinTrue/RunDriver.h"
#include "imaging/XMat.h"
#include "twintrue/calib.h"

namespace twintrue {
namespace {

// Whether the record describes pixels that can be read: rows of three bytes a pixel that don't run into each
// other. A frame without any pixel is readable, there is just nothing to see.
bool is_readable(const CalibImage& image) {
  if (image.width == 0 || image.height == 0) return true;
  if (image.pixels == nullptr) return false;
  const std::int64_t step = image.stride;
  return image.height == 1 || (step < 0 ? -step : step) >= std::int64_t{3} * image.width;
}

std::optional<std::int32_t> convert(cve::XMat_<float>& frame, const CalibImage* image) {
  if (image == nullptr || !is_readable(*image)) return TWINTRUE_FAILED;
  try {
    if (convert_frame(frame, *image)) return std::nullopt;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
  }
  return TWINTRUE_FAILED;
}

}  // namespace
}  // namespace twintrue

extern "C" TWINTRUE_API std::int32_t calib(const CalibImage* image, const char* lens_path,
                                           const char* param_path, const char* out_lens_path,
                                           std::int32_t ignore_thresholds, CalibResult* result) {
  using namespace twintrue;
  if (lens_path == nullptr || param_path == nullptr || out_lens_path == nullptr) return TWINTRUE_FAILED;
  cve::XMat_<float> frame;
  if (const auto failure = convert(frame, image)) return *failure;

  CalibResult record = starting_result();
  std::int32_t status = TWINTRUE_FAILED;
  try {
    status =
        run_driver(frame, RunPaths{lens_path, param_path, out_lens_path}, ignore_thresholds != 0, record);
  } catch (const std::exception& failure) {
    // Memory or threads ran out: a C host must survive that.
    std::fprintf(stderr, "%s\n", failure.what());
  }
  if (result != nullptr) *result = record;
  return status;
}
