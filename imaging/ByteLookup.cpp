#include "imaging/ByteLookup.h"

#include <bit>

namespace cve {
namespace {

TWINTRUE_INLINE bool look_up(const std::uint32_t* __restrict stretches, const float* __restrict values,
                             std::size_t count, unsigned char* __restrict out) {
  constexpr auto kFirst = static_cast<std::int32_t>(kFirstStretch);
  constexpr auto kLast = static_cast<std::int32_t>(kStretches) - 1;
  std::uint32_t outside = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto bits = std::bit_cast<std::uint32_t>(values[i]);
    outside |= bits;
    std::int32_t stretch = static_cast<std::int32_t>(bits >> kStretchBits) - kFirst;
    stretch = stretch < 0 ? 0 : stretch;
    stretch = stretch > kLast ? kLast : stretch;
    const std::uint32_t within = bits & ((std::uint32_t{1} << kStretchBits) - 1);
    out[i] = static_cast<unsigned char>((stretches[stretch] + within) >> kStretchBits);
  }
  return outside < kEndBits;
}

bool look_up_portable(const std::uint32_t* stretches, const float* values, std::size_t count,
                      unsigned char* out) {
  return look_up(stretches, values, count, out);
}
TWINTRUE_TARGET_AVX2 bool look_up_avx2(const std::uint32_t* stretches, const float* values, std::size_t count,
                                       unsigned char* out) {
  return look_up(stretches, values, count, out);
}
TWINTRUE_TARGET_AVX512 bool look_up_avx512(const std::uint32_t* stretches, const float* values,
                                           std::size_t count, unsigned char* out) {
  return look_up(stretches, values, count, out);
}

}  // namespace

ByteLookupFn byte_lookup(InstructionSet set) {
  switch (set) {
    case InstructionSet::kAvx512:
      return look_up_avx512;
    case InstructionSet::kAvx2:
      return look_up_avx2;
    default:
      return look_up_portable;
  }
}

}  // namespace cve
