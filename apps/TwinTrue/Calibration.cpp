#include "apps/TwinTrue/Calibration.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "base/EnoughStack.h"
#include "base/ThreadTeam.h"
#include "imaging/XMat.h"

namespace twintrue {
namespace {

// More than a run takes of the stack, in a build that checks its own memory as well. Hosts' worker threads
// often have less.
constexpr std::size_t kRunStack = std::size_t{4} << 20;

// Whether the record describes pixels that can be read: rows of three bytes a pixel that don't run into each
// other. A frame without any pixel is readable, there is just nothing to see.
bool is_readable(const CalibImage& image) {
  if (image.width == 0 || image.height == 0) return true;
  if (image.pixels == nullptr) return false;
  const std::int64_t step = image.stride;
  return image.height == 1 || (step < 0 ? -step : step) >= std::int64_t{3} * image.width;
}

// Whether there is a frame to go on with.
bool convert(cve::XMat_<float>& frame, const CalibImage* image, bool by_team) {
  if (image == nullptr || !is_readable(*image)) return false;
  if (!by_team) return convert_frame(frame, *image);
  convert_frame_by_team(frame, *image);
  return true;
}

}  // namespace

std::int32_t calibrate(const CalibImage* image, const char* lens, const char* params, const char* out_lens,
                       const RunOptions& options, CalibResult* result) {
  CalibResult record = starting_result();
  bool converted = false;
  std::int32_t status = TWINTRUE_FAILED;
  try {
    with_enough_stack(kRunStack, [&] {
      const ThreadTeam team(options.threads);
      cve::XMat_<float> frame;
      converted = convert(frame, image, options.team_converts);
      if (!converted) return;
      status = run_driver(frame, RunPaths{lens, params, out_lens}, options.ignore_thresholds, record,
                          options.observer);
    });
  } catch (const std::exception& failure) {
    // Memory or threads ran out: a C host must survive that.
    std::fprintf(stderr, "%s\n", failure.what());
  }
  if (converted && result != nullptr) *result = record;
  return status;
}

}  // namespace twintrue
