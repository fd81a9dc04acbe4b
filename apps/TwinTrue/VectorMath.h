#pragma once

// Elementary functions as straight lines of arithmetic, for loops that the compiler turns into vectors. No
// branches, no tables, no fused operations: every vector width gives the same bits.

#include <bit>
#include <cstdint>

#define TWINTRUE_INLINE [[gnu::always_inline]] inline

namespace twintrue::vector_math {

inline constexpr double kLn2High =
    6.93147180369123816490e-01;  // log 2 in two parts, the first with low zeros
inline constexpr double kLn2Low = 1.90821492927058770002e-10;

// exp(x) for x in [-700, 700], to 3e-13 of its value: 2^n times the series of the rest, which is at most half
// of log 2 in size.
TWINTRUE_INLINE double exp(double x) {
  constexpr double kLog2E = 1.4426950408889634;
  constexpr double kRounder =
      6755399441055744.0;  // 1.5 * 2^52: adding it leaves the whole part in the low bits
  const double rounded = x * kLog2E + kRounder;
  const double n = rounded - kRounder;
  const double r = (x - n * kLn2High) - n * kLn2Low;
  double p = 1.0 / 3628800.0;
  p = p * r + 1.0 / 362880.0;
  p = p * r + 1.0 / 40320.0;
  p = p * r + 1.0 / 5040.0;
  p = p * r + 1.0 / 720.0;
  p = p * r + 1.0 / 120.0;
  p = p * r + 1.0 / 24.0;
  p = p * r + 1.0 / 6.0;
  p = p * r + 0.5;
  p = p * r + 1.0;
  p = p * r + 1.0;
  const std::uint64_t power =
      (std::bit_cast<std::uint64_t>(rounded) << 52) + std::bit_cast<std::uint64_t>(1.0);
  return p * std::bit_cast<double>(power);
}

}  // namespace twintrue::vector_math
