#pragma once

// The inner loops of the separable filters: pointers in, pixels out. They allocate nothing, start no thread
// and check nothing.
//
// `taps` points to the middle of 2 * radius + 1 pointers: taps[d] is the first of the pixels that stand at
// distance d from the `count` pixels to be made. A row pass lets the pointers step along one row, a column
// pass lets them name one row each, and clamping is a matter of where they point. So four passes share one
// loop. The output must not overlap any of them.
//
// The order of the additions is fixed: each pixel is summed by itself, from the first tap to the last, in the
// type of the sum. Pixels stand side by side in a vector, so its width leaves that order alone.

#include <cstdint>

#include "base/InstructionSet.h"

namespace cve {

// Fraction bits of the weights in fixed point.
inline constexpr int kFixedBits = 12;

struct TapSums {
  // out = taps[0] * k[0], then + (taps[-i] + taps[i]) * k[i] for i from 1 to radius, in 32-bit floats.
  void (*symmetric)(const float* k, int radius, const float* const* taps, float* out, int count);

  // out = 0, then + k[i] * taps[i] for i from -radius to radius, in 32-bit floats.
  void (*general)(const float* k, int radius, const float* const* taps, float* out, int count);

  // As `symmetric` in 32-bit integers; the sum >> kFixedBits is stored in 16 bits.
  void (*fixed)(const std::int32_t* k, int radius, const short* const* taps, short* out, int count);
};

// The loops for a set that the machine has.
TapSums tap_sums(twintrue::InstructionSet set);

}  // namespace cve
