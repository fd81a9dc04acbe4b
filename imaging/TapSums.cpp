#include "imaging/TapSums.h"

#include <cstring>

namespace cve {
namespace {

// Vectors of 4, 8 and 16 pixels.
struct Narrow {
  typedef float Floats __attribute__((vector_size(16)));
};
struct Wide {
  typedef float Floats __attribute__((vector_size(32)));
};
struct Widest {
  typedef float Floats __attribute__((vector_size(64)));
};

// Vectors that are summed side by side: enough to hide how long an addition takes.
constexpr int kAbreast = 4;

template <class Floats, int kVectors>
TWINTRUE_INLINE void symmetric_strip(const float* k, int radius, const float* const* taps, int x,
                                     float* out) {
  constexpr int kLanes = sizeof(Floats) / sizeof(float);
  Floats sums[kVectors];
  for (int v = 0; v < kVectors; ++v) {
    Floats pixels;
    std::memcpy(&pixels, taps[0] + x + v * kLanes, sizeof pixels);
    sums[v] = pixels * k[0];
  }
  for (int i = 1; i <= radius; ++i) {
    const float* before = taps[-i] + x;
    const float* after = taps[i] + x;
    const float weight = k[i];
    for (int v = 0; v < kVectors; ++v) {
      Floats a;
      Floats b;
      std::memcpy(&a, before + v * kLanes, sizeof a);
      std::memcpy(&b, after + v * kLanes, sizeof b);
      sums[v] += (a + b) * weight;
    }
  }
  for (int v = 0; v < kVectors; ++v) std::memcpy(out + x + v * kLanes, &sums[v], sizeof(Floats));
}

template <class Floats, int kVectors>
TWINTRUE_INLINE void general_strip(const float* k, int radius, const float* const* taps, int x, float* out) {
  constexpr int kLanes = sizeof(Floats) / sizeof(float);
  Floats sums[kVectors];
  for (int v = 0; v < kVectors; ++v) sums[v] = Floats{};
  for (int i = -radius; i <= radius; ++i) {
    const float* tap = taps[i] + x;
    const float weight = k[i];
    for (int v = 0; v < kVectors; ++v) {
      Floats pixels;
      std::memcpy(&pixels, tap + v * kLanes, sizeof pixels);
      sums[v] += weight * pixels;
    }
  }
  for (int v = 0; v < kVectors; ++v) std::memcpy(out + x + v * kLanes, &sums[v], sizeof(Floats));
}

// Strips from the left; the last one overlaps the one before, and what is narrower than a vector goes pixel
// by pixel.
template <class Width>
TWINTRUE_INLINE void symmetric_sums(const float* k, int radius, const float* const* taps, float* out,
                                    int count) {
  using Floats = typename Width::Floats;
  constexpr int kLanes = sizeof(Floats) / sizeof(float);
  int x = 0;
  for (; x + kAbreast * kLanes <= count; x += kAbreast * kLanes) {
    symmetric_strip<Floats, kAbreast>(k, radius, taps, x, out);
  }
  for (; x + kLanes <= count; x += kLanes) symmetric_strip<Floats, 1>(k, radius, taps, x, out);
  if (x == count) return;
  if (count >= kLanes) {
    symmetric_strip<Floats, 1>(k, radius, taps, count - kLanes, out);
    return;
  }
  for (; x < count; ++x) {
    float sum = taps[0][x] * k[0];
    for (int i = 1; i <= radius; ++i) sum += (taps[-i][x] + taps[i][x]) * k[i];
    out[x] = sum;
  }
}

template <class Width>
TWINTRUE_INLINE void general_sums(const float* k, int radius, const float* const* taps, float* out,
                                  int count) {
  using Floats = typename Width::Floats;
  constexpr int kLanes = sizeof(Floats) / sizeof(float);
  int x = 0;
  for (; x + kAbreast * kLanes <= count; x += kAbreast * kLanes) {
    general_strip<Floats, kAbreast>(k, radius, taps, x, out);
  }
  for (; x + kLanes <= count; x += kLanes) general_strip<Floats, 1>(k, radius, taps, x, out);
  if (x == count) return;
  if (count >= kLanes) {
    general_strip<Floats, 1>(k, radius, taps, count - kLanes, out);
    return;
  }
  for (; x < count; ++x) {
    float sum = 0.0f;
    for (int i = -radius; i <= radius; ++i) sum += k[i] * taps[i][x];
    out[x] = sum;
  }
}

TWINTRUE_INLINE void fixed_sums(const std::int32_t* k, int radius, const short* const* taps,
                                short* __restrict out, int count) {
  constexpr int kStrip = 64;
  std::int32_t sums[kStrip];
  for (int x = 0; x < count; x += kStrip) {
    const int n = count - x < kStrip ? count - x : kStrip;
    for (int j = 0; j < n; ++j) sums[j] = taps[0][x + j] * k[0];
    for (int i = 1; i <= radius; ++i) {
      const short* before = taps[-i] + x;
      const short* after = taps[i] + x;
      const std::int32_t weight = k[i];
      for (int j = 0; j < n; ++j) sums[j] += (before[j] + after[j]) * weight;
    }
    for (int j = 0; j < n; ++j) out[x + j] = static_cast<short>(sums[j] >> kFixedBits);
  }
}

// Each loop once for every instruction set.
void symmetric_portable(const float* k, int radius, const float* const* taps, float* out, int count) {
  symmetric_sums<Narrow>(k, radius, taps, out, count);
}
TWINTRUE_TARGET_AVX2 void symmetric_avx2(const float* k, int radius, const float* const* taps, float* out,
                                         int count) {
  symmetric_sums<Wide>(k, radius, taps, out, count);
}
TWINTRUE_TARGET_AVX512 void symmetric_avx512(const float* k, int radius, const float* const* taps, float* out,
                                             int count) {
  symmetric_sums<Widest>(k, radius, taps, out, count);
}

void general_portable(const float* k, int radius, const float* const* taps, float* out, int count) {
  general_sums<Narrow>(k, radius, taps, out, count);
}
TWINTRUE_TARGET_AVX2 void general_avx2(const float* k, int radius, const float* const* taps, float* out,
                                       int count) {
  general_sums<Wide>(k, radius, taps, out, count);
}
TWINTRUE_TARGET_AVX512 void general_avx512(const float* k, int radius, const float* const* taps, float* out,
                                           int count) {
  general_sums<Widest>(k, radius, taps, out, count);
}

void fixed_portable(const std::int32_t* k, int radius, const short* const* taps, short* out, int count) {
  fixed_sums(k, radius, taps, out, count);
}
TWINTRUE_TARGET_AVX2 void fixed_avx2(const std::int32_t* k, int radius, const short* const* taps, short* out,
                                     int count) {
  fixed_sums(k, radius, taps, out, count);
}
TWINTRUE_TARGET_AVX512 void fixed_avx512(const std::int32_t* k, int radius, const short* const* taps,
                                         short* out, int count) {
  fixed_sums(k, radius, taps, out, count);
}

}  // namespace

TapSums tap_sums(twintrue::InstructionSet set) {
  return twintrue::for_set<TapSums>(set, {symmetric_portable, general_portable, fixed_portable},
                                    {symmetric_avx2, general_avx2, fixed_avx2},
                                    {symmetric_avx512, general_avx512, fixed_avx512});
}

}  // namespace cve
