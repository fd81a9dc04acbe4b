#pragma once

// Linear luminance of a row of pixels, bit for bit what linear_luminance gives, many pixels at once.
//
// The curve's power is taken from a table at the middle of the value's bucket and a short series from there,
// to far better than a 32-bit float can tell. Where the float that it rounds to hangs on the last bits all
// the same, the pixel is done again the plain way.

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/InstructionSet.h"

namespace twintrue {

inline constexpr std::size_t kLuminanceBuckets = 288;

// Powers at the middles of the buckets.
struct LuminanceTable {
  LuminanceTable();
  std::array<double, kLuminanceBuckets> inverse_centre;
  std::array<double, kLuminanceBuckets> power;
};

// `source`: `count` pixels of three interleaved bytes, red first unless `blue_first`. Reads nothing behind
// them.
using LuminanceFn = void (*)(const LuminanceTable& table, const std::uint8_t* source, std::size_t count,
                             bool blue_first, float* target);

LuminanceFn luminance_kernel(twintrue::InstructionSet set);

}  // namespace twintrue
