#include "matching/AreaKernel.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define TWINTRUE_HAS_X86 1
#define TWINTRUE_TARGET_POPCNT512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vpopcntdq")))
#endif

namespace fpu {
namespace {

// Words whose bytes' bit counts can be added up in a byte: 31 times 8 is below 256.
constexpr std::size_t kWordsPerByteSum = 31;
// A descriptor of 32 bytes without weight, the usual one: its loops are unrolled.
constexpr std::size_t kUsualWords = 8;

std::uint32_t lanes_from(std::int32_t place) {
  return 0xFFFFU << (static_cast<std::uint32_t>(place) % kLanes);
}

// Lanes of a run's block that belong to the run.
std::uint32_t lanes_of(Run run, std::size_t block) {
  std::uint32_t lanes = 0xFFFF;
  const std::size_t first = run.first_block();
  if (block == first) lanes &= lanes_from(run.begin);
  if (block + 1 == first + run.blocks()) lanes &= ~(lanes_from(run.end - 1) << 1);
  return lanes & 0xFFFF;
}

std::int32_t* append(std::uint32_t lanes, std::size_t block, std::int32_t* found) {
  for (; lanes != 0; lanes &= lanes - 1) {
    *found++ = static_cast<std::int32_t>(block * kLanes) + std::countr_zero(lanes);
  }
  return found;
}

// Counts of two bits, of four and of eight, side by side in a word.
std::uint32_t in_twos(std::uint32_t v) { return v - ((v >> 1) & 0x55555555U); }
std::uint32_t in_fours(std::uint32_t twos) { return (twos & 0x33333333U) + ((twos >> 2) & 0x33333333U); }
std::uint32_t in_eights(std::uint32_t fours) { return (fours & 0x0F0F0F0FU) + ((fours >> 4) & 0x0F0F0F0FU); }

// Written for vectors of the compiler's making: all lanes do the same, none branches. Three words share the
// later steps: the third one's bits find room in the twos of the other two, and the fours hold them all.
void count_bits(const Lanes<std::uint32_t>* words, const std::uint32_t* query, std::size_t count,
                std::uint32_t* __restrict sums) {
  while (count != 0) {
    const std::size_t now = std::min(count, kWordsPerByteSum);
    Lanes<std::uint32_t> bytes;
    std::size_t w = 0;
    for (; w + 3 <= now; w += 3) {
      for (std::size_t i = 0; i < kLanes; ++i) {
        const std::uint32_t third = words[w + 2].v[i] ^ query[w + 2];
        const std::uint32_t first = in_twos(words[w].v[i] ^ query[w]) + (third & 0x55555555U);
        const std::uint32_t second = in_twos(words[w + 1].v[i] ^ query[w + 1]) + ((third >> 1) & 0x55555555U);
        bytes.v[i] += in_eights(in_fours(first) + in_fours(second));
      }
    }
    for (; w < now; ++w) {
      for (std::size_t i = 0; i < kLanes; ++i) {
        bytes.v[i] += in_eights(in_fours(in_twos(words[w].v[i] ^ query[w])));
      }
    }
    for (std::size_t i = 0; i < kLanes; ++i) {
      const std::uint32_t pairs = (bytes.v[i] & 0x00FF00FFU) + ((bytes.v[i] >> 8) & 0x00FF00FFU);
      sums[i] += (pairs & 0xFFFFU) + (pairs >> 16);
    }
    words += now;
    query += now;
    count -= now;
  }
}

void measure_portable(const PackedKeypoints& frame, const DescriptorWords& order, const Area& area, Run run,
                      Lanes<std::uint32_t>* distances, Lanes<std::uint32_t>& minima) {
  const std::size_t first = run.first_block();
  const std::size_t past = first + run.blocks();
  for (std::size_t block = first; block != past; ++block, ++distances) {
    const std::uint32_t lanes = lanes_of(run, block);
    const auto& x = frame.x[block].v;
    const auto& y = frame.y[block].v;
    Lanes<std::uint32_t> outside;  // all ones or zero
    std::uint32_t anywhere = 0;
    for (std::size_t i = 0; i < kLanes; ++i) {
      const std::int32_t dx = x[i] > area.x ? x[i] - area.x : area.x - x[i];
      const std::int32_t dy = y[i] > area.y ? y[i] - area.y : area.y - y[i];
      outside.v[i] = (dx > area.max_h ? kOutside : 0U) | (dy > area.max_v ? kOutside : 0U);
      anywhere |= ~outside.v[i];
    }
    if (lanes != 0xFFFF) {
      for (std::size_t i = 0; i < kLanes; ++i) outside.v[i] |= (lanes >> i & 1) != 0 ? 0U : kOutside;
    }
    Lanes<std::uint32_t> sums;
    if (anywhere != 0) {
      const Lanes<std::uint32_t>* const words = frame.words.data() + block * frame.words_per_row;
      if (order.folded != 0) {
        count_bits(words, area.words, order.folded, sums.v.data());
        for (std::uint32_t& sum : sums.v) sum *= order.fold;
      }
      count_bits(words + order.folded, area.words + order.folded, order.plain, sums.v.data());
    }
    for (std::size_t i = 0; i < kLanes; ++i) {
      const std::uint32_t d = sums.v[i] | outside.v[i];
      distances->v[i] = d;
      minima.v[i] = std::min(minima.v[i], d);
    }
  }
}

std::size_t collect_portable(const Lanes<std::uint32_t>* distances, std::size_t blocks, std::uint32_t limit,
                             std::int32_t* found) {
  const std::int32_t* const begin = found;
  for (std::size_t block = 0; block < blocks; ++block) {
    std::uint32_t any = 0;
    for (const std::uint32_t d : distances[block].v) any |= d <= limit ? 1U : 0U;
    if (any == 0) continue;
    std::uint32_t lanes = 0;
    for (std::size_t i = 0; i < kLanes; ++i) lanes |= (distances[block].v[i] <= limit ? 1U : 0U) << i;
    found = append(lanes, block, found);
  }
  return static_cast<std::size_t>(found - begin);
}

#ifdef TWINTRUE_HAS_X86

constexpr std::size_t kHalf = kLanes / 2;

const __m256i* half_of(const Lanes<std::uint32_t>& lanes, std::size_t half) {
  return reinterpret_cast<const __m256i*>(lanes.v.data() + half * kHalf);
}
const __m256i* half_of(const Lanes<std::int32_t>& lanes, std::size_t half) {
  return reinterpret_cast<const __m256i*>(lanes.v.data() + half * kHalf);
}
__m256i* half_of(Lanes<std::uint32_t>& lanes, std::size_t half) {
  return reinterpret_cast<__m256i*>(lanes.v.data() + half * kHalf);
}

// Differing bits of eight keypoints; kCount words, or `count` if that is 0. Bits are looked up by half bytes.
template <std::size_t kCount>
TWINTRUE_TARGET_AVX2 inline __m256i bits_avx2(const Lanes<std::uint32_t>* words, std::size_t half,
                                              const std::uint32_t* query, std::size_t count) {
  const __m256i table = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4,  //
                                         0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
  const __m256i low = _mm256_set1_epi8(15);
  __m256i sums = _mm256_setzero_si256();
  for (std::size_t at = 0; at < (kCount != 0 ? kCount : count); at += kWordsPerByteSum) {
    const std::size_t now = kCount != 0 ? kCount : std::min(count - at, kWordsPerByteSum);
    __m256i bytes = _mm256_setzero_si256();
    for (std::size_t w = at; w < at + now; ++w) {
      const __m256i differing = _mm256_xor_si256(_mm256_load_si256(half_of(words[w], half)),
                                                 _mm256_set1_epi32(static_cast<std::int32_t>(query[w])));
      bytes = _mm256_add_epi8(bytes, _mm256_shuffle_epi8(table, _mm256_and_si256(differing, low)));
      bytes = _mm256_add_epi8(
          bytes, _mm256_shuffle_epi8(table, _mm256_and_si256(_mm256_srli_epi16(differing, 4), low)));
    }
    const __m256i pairs = _mm256_maddubs_epi16(bytes, _mm256_set1_epi8(1));
    sums = _mm256_add_epi32(sums, _mm256_madd_epi16(pairs, _mm256_set1_epi16(1)));
  }
  return sums;
}

template <std::size_t kPlain>
TWINTRUE_TARGET_AVX2 void measure_avx2_as(const PackedKeypoints& frame, const DescriptorWords& order,
                                          const Area& area, Run run, Lanes<std::uint32_t>* distances,
                                          Lanes<std::uint32_t>& minima) {
  const __m256i x = _mm256_set1_epi32(area.x);
  const __m256i y = _mm256_set1_epi32(area.y);
  const __m256i max_h = _mm256_set1_epi32(area.max_h);
  const __m256i max_v = _mm256_set1_epi32(area.max_v);
  const __m256i fold = _mm256_set1_epi32(static_cast<std::int32_t>(order.fold));
  const __m256i lane_bits = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
  const std::size_t first = run.first_block();
  const std::size_t past = first + run.blocks();
  for (std::size_t block = first; block != past; ++block, ++distances) {
    const std::uint32_t lanes = lanes_of(run, block);
    const Lanes<std::uint32_t>* const words = frame.words.data() + block * frame.words_per_row;
    for (std::size_t half = 0; half < 2; ++half) {
      const __m256i dx =
          _mm256_abs_epi32(_mm256_sub_epi32(_mm256_load_si256(half_of(frame.x[block], half)), x));
      const __m256i dy =
          _mm256_abs_epi32(_mm256_sub_epi32(_mm256_load_si256(half_of(frame.y[block], half)), y));
      __m256i outside = _mm256_or_si256(_mm256_cmpgt_epi32(dx, max_h), _mm256_cmpgt_epi32(dy, max_v));
      const __m256i in_run =
          _mm256_and_si256(_mm256_set1_epi32(static_cast<std::int32_t>(lanes >> (half * kHalf))), lane_bits);
      outside = _mm256_or_si256(outside, _mm256_cmpeq_epi32(in_run, _mm256_setzero_si256()));
      __m256i d = outside;
      if (_mm256_movemask_ps(_mm256_castsi256_ps(outside)) != 0xFF) {
        if (kPlain == 0 && order.folded != 0) {
          const __m256i folded = bits_avx2<0>(words, half, area.words, order.folded);
          d = _mm256_add_epi32(
              _mm256_mullo_epi32(folded, fold),
              bits_avx2<0>(words + order.folded, half, area.words + order.folded, order.plain));
        } else {
          d = bits_avx2<kPlain>(words, half, area.words, order.plain);
        }
        d = _mm256_or_si256(d, outside);
      }
      _mm256_store_si256(half_of(*distances, half), d);
      _mm256_store_si256(half_of(minima, half),
                         _mm256_min_epu32(_mm256_load_si256(half_of(minima, half)), d));
    }
  }
}

TWINTRUE_TARGET_AVX2 void measure_avx2(const PackedKeypoints& frame, const DescriptorWords& order,
                                       const Area& area, Run run, Lanes<std::uint32_t>* distances,
                                       Lanes<std::uint32_t>& minima) {
  const bool usual = order.folded == 0 && order.plain == kUsualWords;
  (usual ? measure_avx2_as<kUsualWords> : measure_avx2_as<0>)(frame, order, area, run, distances, minima);
}

TWINTRUE_TARGET_AVX2 std::size_t collect_avx2(const Lanes<std::uint32_t>* distances, std::size_t blocks,
                                              std::uint32_t limit, std::int32_t* found) {
  const std::int32_t* const begin = found;
  const __m256i most = _mm256_set1_epi32(static_cast<std::int32_t>(limit));
  for (std::size_t block = 0; block < blocks; ++block) {
    std::uint32_t lanes = 0;
    for (std::size_t half = 0; half < 2; ++half) {
      const __m256i d = _mm256_load_si256(half_of(distances[block], half));
      const __m256i hit = _mm256_cmpeq_epi32(_mm256_min_epu32(d, most), d);
      lanes |= static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(hit))) << (half * kHalf);
    }
    found = append(lanes, block, found);
  }
  return static_cast<std::size_t>(found - begin);
}

// Some forms without a mask are told to use a register before it is set, which the compiler takes amiss.
constexpr __mmask16 kAllLanes = 0xFFFF;

template <std::size_t kCount>
TWINTRUE_TARGET_POPCNT512 inline __m512i bits_avx512(const Lanes<std::uint32_t>* words,
                                                     const std::uint32_t* query, std::size_t count) {
  __m512i sums = _mm512_setzero_si512();
  for (std::size_t w = 0; w < (kCount != 0 ? kCount : count); ++w) {
    const __m512i differing = _mm512_xor_si512(_mm512_load_si512(words[w].v.data()),
                                               _mm512_set1_epi32(static_cast<std::int32_t>(query[w])));
    sums = _mm512_add_epi32(sums, _mm512_popcnt_epi32(differing));
  }
  return sums;
}

template <std::size_t kPlain>
TWINTRUE_TARGET_POPCNT512 void measure_avx512_as(const PackedKeypoints& frame, const DescriptorWords& order,
                                                 const Area& area, Run run, Lanes<std::uint32_t>* distances,
                                                 Lanes<std::uint32_t>& minima) {
  const __m512i x = _mm512_set1_epi32(area.x);
  const __m512i y = _mm512_set1_epi32(area.y);
  const __m512i max_h = _mm512_set1_epi32(area.max_h);
  const __m512i max_v = _mm512_set1_epi32(area.max_v);
  const __m512i fold = _mm512_set1_epi32(static_cast<std::int32_t>(order.fold));
  const __m512i outside = _mm512_set1_epi32(-1);
  __m512i least = _mm512_load_si512(minima.v.data());
  const std::size_t first = run.first_block();
  const std::size_t past = first + run.blocks();
  for (std::size_t block = first; block != past; ++block, ++distances) {
    const __m512i dx =
        _mm512_maskz_abs_epi32(kAllLanes, _mm512_sub_epi32(_mm512_load_si512(frame.x[block].v.data()), x));
    const __m512i dy =
        _mm512_maskz_abs_epi32(kAllLanes, _mm512_sub_epi32(_mm512_load_si512(frame.y[block].v.data()), y));
    __mmask16 lanes = static_cast<__mmask16>(lanes_of(run, block));
    lanes = _mm512_mask_cmple_epi32_mask(lanes, dx, max_h);
    lanes = _mm512_mask_cmple_epi32_mask(lanes, dy, max_v);
    __m512i d = outside;
    if (lanes != 0) {
      const Lanes<std::uint32_t>* const words = frame.words.data() + block * frame.words_per_row;
      if (kPlain == 0 && order.folded != 0) {
        const __m512i folded = bits_avx512<0>(words, area.words, order.folded);
        d = _mm512_add_epi32(_mm512_mullo_epi32(folded, fold),
                             bits_avx512<0>(words + order.folded, area.words + order.folded, order.plain));
      } else {
        d = bits_avx512<kPlain>(words, area.words, order.plain);
      }
      d = _mm512_mask_mov_epi32(outside, lanes, d);
    }
    _mm512_store_si512(distances->v.data(), d);
    least = _mm512_maskz_min_epu32(kAllLanes, least, d);
  }
  _mm512_store_si512(minima.v.data(), least);
}

TWINTRUE_TARGET_POPCNT512 void measure_avx512(const PackedKeypoints& frame, const DescriptorWords& order,
                                              const Area& area, Run run, Lanes<std::uint32_t>* distances,
                                              Lanes<std::uint32_t>& minima) {
  const bool usual = order.folded == 0 && order.plain == kUsualWords;
  (usual ? measure_avx512_as<kUsualWords> : measure_avx512_as<0>)(frame, order, area, run, distances, minima);
}

TWINTRUE_TARGET_POPCNT512 std::size_t collect_avx512(const Lanes<std::uint32_t>* distances,
                                                     std::size_t blocks, std::uint32_t limit,
                                                     std::int32_t* found) {
  const std::int32_t* const begin = found;
  const __m512i most = _mm512_set1_epi32(static_cast<std::int32_t>(limit));
  for (std::size_t block = 0; block < blocks; ++block) {
    const __m512i d = _mm512_load_si512(distances[block].v.data());
    std::uint32_t lanes = _mm512_cmple_epu32_mask(d, most);
    // g++ 12 may spill the mask as 16 bits and read it back as 32, as it does beside the thread sanitizer:
    // behind the barrier it knows no more that the upper ones are 0.
    asm("" : "+r"(lanes));
    found = append(lanes & 0xFFFFU, block, found);
  }
  return static_cast<std::size_t>(found - begin);
}

#endif

}  // namespace

AreaKernel area_kernel(twintrue::InstructionSet set) {
#ifdef TWINTRUE_HAS_X86
  // The first machines with the wide registers can't count the bits in them; eight lanes serve those better.
  if (set == twintrue::InstructionSet::kAvx512 && __builtin_cpu_supports("avx512vpopcntdq")) {
    return {measure_avx512, collect_avx512};
  }
  if (set != twintrue::InstructionSet::kPortable) return {measure_avx2, collect_avx2};
#else
  static_cast<void>(set);
#endif
  return {measure_portable, collect_portable};
}

}  // namespace fpu
