#pragma once

// Kernels of the response, a row at a time: pointers and lengths only. No kernel allocates or starts threads.
//
// Every derivative is a whole number of thirty-seconds below 2^17, which a 32-bit float holds exactly. So the
// passes of the definition (a gradient of 3 x 3 pixels, then two more of 3) may be joined and their additions
// taken in any order, in integers: each second derivative becomes one sum along the row and one down the
// column, over five pixels each. The sums along the row fit 16 bits.

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/InstructionSet.h"

namespace fpu {

// Pixels of a row or column that a second derivative looks at, to each side.
inline constexpr std::int32_t kDerivativeReach = 2;

// What one row of pixels adds to the derivatives of its neighbours: sums along the row with the weights
// 1, 0, -2, 0, 1; -3, -10, 0, 10, 3; 9, 60, 118, 60, 9.
struct RowSums {
  std::int16_t* bend = nullptr;
  std::int16_t* slope = nullptr;
  std::uint16_t* level = nullptr;
};

struct ResponseRowKernels {
  // Sums of the `count` pixels from `pixels`; reads reach kDerivativeReach to each side.
  void (*along)(const unsigned char* pixels, std::int32_t count, const RowSums& out);

  // Response of a row from the sums of the five rows round it, top to bottom. Responses that a limit `least`
  // above 0 excludes may be given as 0, unless they are at least that. With `det`, the determinants go there.
  void (*down)(const std::array<RowSums, 5>& rows, std::int32_t count, float least, float* response,
               float* det);

  // Columns at which a hundred times the response is at least `least`, in order; returns their number.
  std::int32_t (*reach)(const float* response, std::int32_t count, float least, std::int32_t* columns);
};

// The kernels for a set that the machine has.
ResponseRowKernels response_row_kernels(twintrue::InstructionSet set);

}  // namespace fpu
