#include "apps/TwinTrue/Calibration.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "imaging/XMat.h"

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
std::int32_t calibrate(const CalibImage* image, const char* lens, const char* params, const char* out_lens,
                       bool ignore_thresholds, CalibResult* result, RunObserver* observer) {
  cve::XMat_<float> frame;
  if (const auto failure = convert(frame, image)) return *failure;

  CalibResult record = starting_result();
  std::int32_t status = TWINTRUE_FAILED;
  try {
    status = run_driver(frame, RunPaths{lens, params, out_lens}, ignore_thresholds, record, observer);
  } catch (const std::exception& failure) {
    // Memory or threads ran out: a C host must survive that.
    std::fprintf(stderr, "%s\n", failure.what());
  }
  if (result != nullptr) *result = record;
  return status;
}

}  // namespace twintrue
