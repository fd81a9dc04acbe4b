#pragma once

// Floats to whole numbers as the match stage needs them.

#include <cmath>
#include <cstdint>

namespace fpu {

// Coordinates are held to this size, far beyond any image, so that differences of displacements stay in 32
// bits whatever a keypoint holds.
inline constexpr float kCoordinateLimit = 268435456.0f;  // 2^28

// Half away from zero.
inline std::int32_t round_coordinate(float value) {
  const float rounded = std::round(value);
  if (!(rounded > -kCoordinateLimit)) return -static_cast<std::int32_t>(kCoordinateLimit);
  if (rounded > kCoordinateLimit) return static_cast<std::int32_t>(kCoordinateLimit);
  return static_cast<std::int32_t>(rounded);
}

// Pixels to eighths of a pixel.
inline std::int32_t to_eighths(float pixels) { return round_coordinate(8.0f * pixels); }

}  // namespace fpu
