#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "apps/cli/OutputFile.h"

namespace twintrue::cli {

// What a calibration by OpenCV's fisheye module found, in pixels of its pictures; whole numbers are pixel
// centres.
struct FisheyeCalibration {
  double focal_x = 0.0;
  double focal_y = 0.0;
  double center_x = 0.0;
  double center_y = 0.0;
  std::array<double, 4> k{};
  // Size of the pictures, if the file has it.
  std::optional<std::int32_t> width;
  std::optional<std::int32_t> height;
};

// Reads the camera matrix and the four coefficients out of a file that OpenCV's FileStorage wrote as YAML or
// JSON, by the names that its samples use. Throws Failure: input unreadable, or file unusable.
FisheyeCalibration read_fisheye_calibration(const NamedPath& file);

}  // namespace twintrue::cli
