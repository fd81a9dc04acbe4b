#pragma once

// Elementary functions as straight lines of arithmetic, for loops that the compiler turns into vectors. No
// branches, no tables, no fused operations: every vector width gives the same bits.

#include <bit>
#include <cstdint>

#include "base/InstructionSet.h"

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

// Sine and cosine of x in [-100, 100], to 3e-16: the series of what is left of x beside the nearest quarter
// turn, which is at most an eighth of a turn.
TWINTRUE_INLINE void sine_cosine(double x, double* sine, double* cosine) {
  constexpr double kTwoOverPi = 0.6366197723675814;
  constexpr double kHalfPiHigh = 1.57079632673412561417e+00;  // in two parts, the first with low zeros
  constexpr double kHalfPiLow = 6.07710050650619224932e-11;
  constexpr double kRounder = 6755399441055744.0;
  const double rounded = x * kTwoOverPi + kRounder;
  const double n = rounded - kRounder;
  const double r = (x - n * kHalfPiHigh) - n * kHalfPiLow;
  const double z = r * r;
  double s = -1.0 / 1307674368000.0;
  s = s * z + 1.0 / 6227020800.0;
  s = s * z - 1.0 / 39916800.0;
  s = s * z + 1.0 / 362880.0;
  s = s * z - 1.0 / 5040.0;
  s = s * z + 1.0 / 120.0;
  s = s * z - 1.0 / 6.0;
  s = r + r * z * s;
  double c = 1.0 / 20922789888000.0;
  c = c * z - 1.0 / 87178291200.0;
  c = c * z + 1.0 / 479001600.0;
  c = c * z - 1.0 / 3628800.0;
  c = c * z + 1.0 / 40320.0;
  c = c * z - 1.0 / 720.0;
  c = c * z + 1.0 / 24.0;
  c = c * z - 0.5;
  c = c * z + 1.0;
  // The choice and the signs by bits: as conditions they would keep the loop from becoming vectors.
  const std::uint64_t quarter = std::bit_cast<std::uint64_t>(rounded);
  const std::uint64_t odd = 0 - (quarter & 1);
  const std::uint64_t sine_bits = std::bit_cast<std::uint64_t>(s);
  const std::uint64_t changed = (sine_bits ^ std::bit_cast<std::uint64_t>(c)) & odd;
  const std::uint64_t cosine_bits = std::bit_cast<std::uint64_t>(c) ^ changed;
  *sine = std::bit_cast<double>((sine_bits ^ changed) ^ ((quarter & 2) << 62));
  *cosine = std::bit_cast<double>(cosine_bits ^ (((quarter + 1) & 2) << 62));
}

}  // namespace twintrue::vector_math
