#pragma once

// Numbers cut to 32 and 64 bits, defined for every input.

#include <algorithm>
#include <cstdint>
#include <limits>

namespace twintrue {

// Toward zero. What doesn't fit then, NaN included, gives the smallest integer of the type.
template <typename Int, typename Float>
inline Int truncate_to(Float value) {
  // Both bounds are powers of two, so they are exact. Those of a float and of 64 bits have no neighbour that
  // is one away; there the smallest integer is what a value below it gives anyway.
  constexpr auto low = static_cast<Float>(std::numeric_limits<Int>::min());
  if (value > low - 1 && value < -low) return static_cast<Int>(value);
  return std::numeric_limits<Int>::min();
}

inline std::int32_t truncate_to_int32(double value) { return truncate_to<std::int32_t>(value); }
inline std::int32_t truncate_to_int32(float value) { return truncate_to<std::int32_t>(value); }
inline std::int64_t truncate_to_int64(double value) { return truncate_to<std::int64_t>(value); }

// The nearest integer of 32 bits.
inline std::int32_t clamp_to_int32(std::int64_t value) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, std::numeric_limits<std::int32_t>::min(),
                                                            std::numeric_limits<std::int32_t>::max()));
}

}  // namespace twintrue
