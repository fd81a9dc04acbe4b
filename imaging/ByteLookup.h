#pragma once

// Kernel of ByteCurve: pointers and a length only.

#include <cstddef>
#include <cstdint>

#include "base/InstructionSet.h"

namespace cve {

// Floats from 0 to 2 fall into stretches by their bits: eight bits of the mantissa, so that a byte which
// rises over the whole range 0 to 1 steps at most once in a stretch. The first stretch takes up all below
// 2^-20 too.
inline constexpr int kStretchBits = 15;
inline constexpr std::uint32_t kEndBits = 0x40000000;                       // of 2.0f
inline constexpr std::uint32_t kFirstStretch = 0x35800000 >> kStretchBits;  // of 2^-20
inline constexpr std::uint32_t kStretches = (kEndBits >> kStretchBits) - kFirstStretch;

// Bytes of the values from the table of ByteCurve. False if some lie outside 0 to 2; their bytes mean
// nothing.
using ByteLookupFn = bool (*)(const std::uint32_t* stretches, const float* values, std::size_t count,
                              unsigned char* out);
ByteLookupFn byte_lookup(twintrue::InstructionSet set);

}  // namespace cve
