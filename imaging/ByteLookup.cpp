#include "imaging/ByteLookup.h"

#include <cstring>

namespace cve {
namespace {

constexpr std::size_t kBlock = 256;

TWINTRUE_INLINE std::uint32_t look_up_block(const std::uint32_t* __restrict stretches,
                                            const float* __restrict values, std::size_t count,
                                            unsigned char* __restrict out) {
  constexpr auto kFirst = static_cast<std::int32_t>(kFirstStretch);
  constexpr auto kLast = static_cast<std::int32_t>(kStretches) - 1;
  alignas(64) std::int32_t index[kBlock];
  alignas(64) std::uint32_t within[kBlock];
  std::uint32_t all = 0;
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, values + i, sizeof bits);
    all |= bits;
    std::int32_t stretch = static_cast<std::int32_t>(bits >> kStretchBits) - kFirst;
    stretch = stretch < 0 ? 0 : stretch;
    index[i] = stretch > kLast ? kLast : stretch;
    within[i] = bits & ((std::uint32_t{1} << kStretchBits) - 1);
  }
  // By itself, so that the loads become gathers.
  for (std::size_t i = 0; i < count; ++i) within[i] += stretches[index[i]];
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(within[i] >> kStretchBits);
  return all;
}

TWINTRUE_INLINE bool look_up(const std::uint32_t* stretches, const float* values, std::size_t count,
                             unsigned char* out) {
  std::uint32_t all = 0;
  std::size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) all |= look_up_block(stretches, values + i, kBlock, out + i);
  if (i < count) all |= look_up_block(stretches, values + i, count - i, out + i);
  return all < kEndBits;
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

ByteLookupFn byte_lookup(twintrue::InstructionSet set) {
  return twintrue::for_set<ByteLookupFn>(set, look_up_portable, look_up_avx2, look_up_avx512);
}

}  // namespace cve
