#pragma once

// Floats to whole numbers as the match stage needs them.

#include <cmath>
#include <cstdint>
#include <limits>

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

// Cut toward zero; the smallest integer for what has no 32-bit value.
inline std::int32_t truncate_to_int(float value) {
  if (!(value >= -2147483648.0f && value < 2147483648.0f)) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

}  // namespace fpu
