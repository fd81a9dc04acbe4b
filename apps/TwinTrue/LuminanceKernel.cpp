#include "apps/TwinTrue/LuminanceKernel.h"

#include <array>
#include <bit>
#include <cmath>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "base/VectorMath.h"

namespace twintrue {
namespace {

constexpr std::size_t kBlock = 256;
constexpr double kExponent = 2.4000000953674316;
// Bound on the relative error of the power: some thirty times what rounding and the cut of the series make.
constexpr double kPowerError = 1e-13;

constexpr double kFirst = 0.05213270401371484;  // what black makes; white makes a little over 1
constexpr double kLast = 1.001;
constexpr int kBucketShift = 52 - 6;  // exponent and six bits of the mantissa choose the bucket

constexpr std::uint64_t bucket_of(double x) { return std::bit_cast<std::uint64_t>(x) >> kBucketShift; }
static_assert(bucket_of(kLast) - bucket_of(kFirst) + 1 <= kLuminanceBuckets);

template <std::size_t kRed>
TWINTRUE_INLINE void luminances(const std::uint8_t* __restrict source, std::size_t count,
                                float* __restrict luminance) {
  for (std::size_t i = 0; i < count; ++i) {
    const float red = static_cast<float>(source[3 * i + kRed]) * 0.299f;
    const double green = static_cast<double>(source[3 * i + 1]) * 0.587;
    const float blue = static_cast<float>(source[3 * i + 2 - kRed]) * 0.114f;
    luminance[i] = static_cast<float>(static_cast<double>(red) + green + static_cast<double>(blue));
  }
}

// Returns how many values hang on the last bits; those are left as NaN.
TWINTRUE_INLINE std::int32_t decode(const LuminanceTable& table, const float* __restrict luminance,
                                    std::size_t count, float* __restrict target) {
  // (1 + r)^2.4 for |r| <= 1/128, cut where the terms fall below 1e-15.
  constexpr double kC1 = kExponent;
  constexpr double kC2 = kC1 * (kExponent - 1) / 2;
  constexpr double kC3 = kC2 * (kExponent - 2) / 3;
  constexpr double kC4 = kC3 * (kExponent - 3) / 4;
  constexpr double kC5 = kC4 * (kExponent - 4) / 5;
  const double* __restrict inverse_centre = table.inverse_centre.data();
  const double* __restrict power = table.power.data();
  std::int32_t unsure = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const float v = luminance[i] * 0.003921569f;
    const double x = static_cast<double>(v) * 0.9478673457039061 + 0.05213270401371484;
    const std::uint64_t bucket = (std::bit_cast<std::uint64_t>(x) >> kBucketShift) - bucket_of(kFirst);
    const double r = x * inverse_centre[bucket] - 1.0;
    const double series = 1.0 + r * (kC1 + r * (kC2 + r * (kC3 + r * (kC4 + r * kC5))));
    const double value = power[bucket] * series;
    const float low = static_cast<float>(value * (1.0 - kPowerError));
    const float high = static_cast<float>(value * (1.0 + kPowerError));
    const bool bright = luminance[i] >= 0.04045f;
    const float dark = v * 0.07739938f;
    const bool open = bright & (low != high);
    unsure += open ? 1 : 0;
    const float decoded = bright ? low : dark;
    target[i] = open ? __builtin_nanf("") : decoded;
  }
  return unsure;
}

TWINTRUE_INLINE void convert(const LuminanceTable& table, const std::uint8_t* source, std::size_t count,
                             bool blue_first, float* target) {
  std::array<float, kBlock> luminance;
  for (std::size_t at = 0; at < count; at += kBlock) {
    const std::size_t n = count - at < kBlock ? count - at : kBlock;
    const std::uint8_t* pixels = source + 3 * at;
    if (blue_first) {
      luminances<2>(pixels, n, luminance.data());
    } else {
      luminances<0>(pixels, n, luminance.data());
    }
    if (decode(table, luminance.data(), n, target + at) == 0) continue;
    for (std::size_t i = 0; i < n; ++i) {
      if (target[at + i] == target[at + i]) continue;
      const std::uint8_t first = pixels[3 * i];
      const std::uint8_t last = pixels[3 * i + 2];
      target[at + i] =
          linear_luminance(blue_first ? last : first, pixels[3 * i + 1], blue_first ? first : last);
    }
  }
}

void convert_portable(const LuminanceTable& table, const std::uint8_t* source, std::size_t count,
                      bool blue_first, float* target) {
  convert(table, source, count, blue_first, target);
}
TWINTRUE_TARGET_AVX2 void convert_avx2(const LuminanceTable& table, const std::uint8_t* source,
                                       std::size_t count, bool blue_first, float* target) {
  convert(table, source, count, blue_first, target);
}
TWINTRUE_TARGET_AVX512 void convert_avx512(const LuminanceTable& table, const std::uint8_t* source,
                                           std::size_t count, bool blue_first, float* target) {
  convert(table, source, count, blue_first, target);
}

}  // namespace

LuminanceTable::LuminanceTable() {
  for (std::size_t i = 0; i < kLuminanceBuckets; ++i) {
    const std::uint64_t start = (bucket_of(kFirst) + i) << kBucketShift;
    const double centre = std::bit_cast<double>(start + (std::uint64_t{1} << (kBucketShift - 1)));
    inverse_centre[i] = 1.0 / centre;
    // The series takes up from the inverse as it was rounded.
    power[i] = std::pow(1.0 / inverse_centre[i], kExponent);
  }
}

LuminanceFn luminance_kernel(twintrue::InstructionSet set) {
  return twintrue::for_set<LuminanceFn>(set, convert_portable, convert_avx2, convert_avx512);
}

}  // namespace twintrue
