#include "imaging/TapSums.h"

namespace cve {
namespace {

// Pixels that are summed side by side: a fixed count, so that the compiler makes vectors of them.
constexpr int kStrip = 32;

template <int kCount, class Sum, class Weight, class Pixel>
void symmetricStrip(const Weight* k, int radius, const Pixel* const* taps, int x, Sum* sums) {
  const Pixel* middle = taps[0] + x;
  for (int j = 0; j < kCount; ++j) sums[j] = middle[j] * k[0];
  for (int i = 1; i <= radius; ++i) {
    const Pixel* before = taps[-i] + x;
    const Pixel* after = taps[i] + x;
    const Weight weight = k[i];
    for (int j = 0; j < kCount; ++j) sums[j] += (before[j] + after[j]) * weight;
  }
}

template <int kCount>
void generalStrip(const float* k, int radius, const float* const* taps, int x, float* sums) {
  for (int j = 0; j < kCount; ++j) sums[j] = 0.0f;
  for (int i = -radius; i <= radius; ++i) {
    const float* tap = taps[i] + x;
    const float weight = k[i];
    for (int j = 0; j < kCount; ++j) sums[j] += weight * tap[j];
  }
}

short fromFixed(std::int32_t sum) { return static_cast<short>(sum >> 12); }

}  // namespace

void sumSymmetric(const float* k, int radius, const float* const* taps, float* out, int count) {
  int x = 0;
  for (; x + kStrip <= count; x += kStrip) {
    float sums[kStrip];
    symmetricStrip<kStrip>(k, radius, taps, x, sums);
    for (int j = 0; j < kStrip; ++j) out[x + j] = sums[j];
  }
  for (; x < count; ++x) symmetricStrip<1>(k, radius, taps, x, out + x);
}

void sumGeneral(const float* k, int radius, const float* const* taps, float* out, int count) {
  int x = 0;
  for (; x + kStrip <= count; x += kStrip) {
    float sums[kStrip];
    generalStrip<kStrip>(k, radius, taps, x, sums);
    for (int j = 0; j < kStrip; ++j) out[x + j] = sums[j];
  }
  for (; x < count; ++x) generalStrip<1>(k, radius, taps, x, out + x);
}

void sumFixed(const std::int32_t* k, int radius, const short* const* taps, short* out, int count) {
  int x = 0;
  for (; x + kStrip <= count; x += kStrip) {
    std::int32_t sums[kStrip];
    symmetricStrip<kStrip>(k, radius, taps, x, sums);
    for (int j = 0; j < kStrip; ++j) out[x + j] = fromFixed(sums[j]);
  }
  for (; x < count; ++x) {
    std::int32_t sum;
    symmetricStrip<1>(k, radius, taps, x, &sum);
    out[x] = fromFixed(sum);
  }
}

}  // namespace cve
