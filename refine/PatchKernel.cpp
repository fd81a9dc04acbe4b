#include "refine/PatchKernel.h"

#include <cmath>

#include "refine/CodedPicture.h"

namespace twintrue {
namespace {

constexpr std::size_t kLanes = kPatchLanes;
constexpr std::size_t kSide = kPatchSide;
constexpr std::size_t kWindow = kWindowSide;
using Lane = std::array<float, kLanes>;

TWINTRUE_INLINE void cut_window(const std::int16_t* pixel, std::ptrdiff_t pitch, PatchWindow& window) {
  constexpr std::size_t kRows = kWindow + 2 * kSmoothReach;
  // 1 4 6 4 1 over 16 each way, and the steps of the code.
  constexpr float kScale = 1.0f / (256.0f * static_cast<float>(kCodeSteps));
  alignas(64) std::array<float, kRows * kWindow> rows;
  for (std::size_t y = 0; y < kRows; ++y) {
    const std::int16_t* from = pixel + (static_cast<std::ptrdiff_t>(y) - kCutBefore) * pitch - kCutBefore;
    float* __restrict to = &rows[y * kWindow];
    for (std::size_t x = 0; x < kWindow; ++x) {
      // Whole numbers: 16 times a code fits with room to spare.
      const std::int32_t sum = from[x] + from[x + 4] + 4 * (from[x + 1] + from[x + 3]) + 6 * from[x + 2];
      to[x] = static_cast<float>(sum);
    }
  }
  for (std::size_t y = 0; y < kWindow; ++y) {
    const float* a = &rows[y * kWindow];
    float* __restrict to = &window.value[y * kWindow];
    for (std::size_t x = 0; x < kWindow; ++x) {
      const float outer = a[x] + a[x + 4 * kWindow];
      const float inner = a[x + kWindow] + a[x + 3 * kWindow];
      to[x] = (outer + 4.0f * inner + 6.0f * a[x + 2 * kWindow]) * kScale;
    }
  }
}

TWINTRUE_INLINE void take_template(const PatchWindow& window, const PatchWeights& weights,
                                   PatchTemplate& patch) {
  Lane sum{};
  for (std::size_t y = 0; y < kSide; ++y) {
    const float* from = &window.value[(y + kWindowMiddle - kPatchReach) * kWindow + kWindowMiddle - kPatchReach];
    const float* above = from - kWindow;
    const float* below = from + kWindow;
    const float* __restrict weight = &weights.weight.value[y * kLanes];
    float* __restrict value = &patch.value.value[y * kLanes];
    float* __restrict by_x = &patch.by_x.value[y * kLanes];
    float* __restrict by_y = &patch.by_y.value[y * kLanes];
    for (std::size_t i = 0; i < kLanes; ++i) {
      const float* a = above + i;
      const float* b = from + i;
      const float* c = below + i;
      const float middle = a[0] + 4.0f * b[0] + c[0];
      const float left = a[-1] + 4.0f * b[-1] + c[-1];
      const float right = a[1] + 4.0f * b[1] + c[1];
      value[i] = (left + right + 4.0f * middle) * (1.0f / 36.0f);
      by_x[i] = (right - left) * (1.0f / 12.0f);
      const float up = a[-1] + 4.0f * a[0] + a[1];
      const float down = c[-1] + 4.0f * c[0] + c[1];
      by_y[i] = (down - up) * (1.0f / 12.0f);
      sum[i] += weight[i] * value[i];
    }
  }
  double mean = 0.0;
  for (const float part : sum) mean += static_cast<double>(part);
  const auto level = static_cast<float>(mean);
  Lane squares{};
  for (std::size_t y = 0; y < kSide; ++y) {
    const float* __restrict weight = &weights.weight.value[y * kLanes];
    float* __restrict value = &patch.value.value[y * kLanes];
    for (std::size_t i = 0; i < kLanes; ++i) {
      value[i] -= level;
      squares[i] += weight[i] * value[i] * value[i];
    }
  }
  patch.square = 0.0;
  for (const float part : squares) patch.square += static_cast<double>(part);
}

// Sums of a lane's column of pixels. A name's letters are the factors: s and t the slopes of the shifts along
// and across, g the template, r the residual, v the row.
struct LaneSums {
  Lane ss{}, ssv{}, ssvv{}, st{}, stv{}, sg{}, sgv{}, s{}, sv{}, sr{}, srv{};
  Lane tt{}, tg{}, t{}, tr{}, gr{}, r{}, rr{};
};

// Sum over the lanes times the column's powers 0, 1 and 2.
struct Moments {
  double one = 0.0;
  double u = 0.0;
  double uu = 0.0;
};
TWINTRUE_INLINE Moments moments_of(const Lane& lane) {
  Moments m;
  for (std::size_t i = 0; i < kLanes; ++i) {
    const double u = static_cast<double>(i) - kPatchReach;
    const auto value = static_cast<double>(lane[i]);
    m.one += value;
    m.u += u * value;
    m.uu += u * u * value;
  }
  return m;
}
TWINTRUE_INLINE double sum_of(const Lane& lane) {
  double sum = 0.0;
  for (const float value : lane) sum += static_cast<double>(value);
  return sum;
}

TWINTRUE_INLINE void collect(const LaneSums& lanes, const PatchTemplate& patch, PatchSums& sums) {
  auto& n = sums.normal;
  const Moments ss = moments_of(lanes.ss), ssv = moments_of(lanes.ssv), st = moments_of(lanes.st);
  const Moments sg = moments_of(lanes.sg), s = moments_of(lanes.s), sr = moments_of(lanes.sr);
  n[0][0] = ss.one;
  n[1][0] = ss.u;
  n[1][1] = ss.uu;
  n[2][0] = ssv.one;
  n[2][1] = ssv.u;
  n[2][2] = sum_of(lanes.ssvv);
  n[3][0] = st.one;
  n[3][1] = st.u;
  n[3][2] = sum_of(lanes.stv);
  n[3][3] = sum_of(lanes.tt);
  n[4][0] = sg.one;
  n[4][1] = sg.u;
  n[4][2] = sum_of(lanes.sgv);
  n[4][3] = sum_of(lanes.tg);
  n[4][4] = patch.square;
  n[5][0] = s.one;
  n[5][1] = s.u;
  n[5][2] = sum_of(lanes.sv);
  n[5][3] = sum_of(lanes.t);
  n[5][4] = 0.0;  // the template is about its mean
  n[5][5] = 1.0;
  sums.pull = {sr.one, sr.u, sum_of(lanes.srv), sum_of(lanes.tr), sum_of(lanes.gr), sum_of(lanes.r)};
  sums.square = sum_of(lanes.rr);
}

// Weights of a cubic B-spline's four taps at a phase, and of its derivative.
struct Taps {
  float w0, w1, w2, w3;
  float d0, d1, d2, d3;
};
TWINTRUE_INLINE Taps taps_at(float f) {
  const float g = 1.0f - f;
  const float ff = f * f;
  const float gg = g * g;
  constexpr float kSixth = 1.0f / 6.0f;
  Taps taps;
  taps.w0 = gg * g * kSixth;
  taps.w3 = ff * f * kSixth;
  taps.w1 = (4.0f - 3.0f * ff * (2.0f - f)) * kSixth;
  taps.w2 = (4.0f - 3.0f * gg * (2.0f - g)) * kSixth;
  taps.d0 = -0.5f * gg;
  taps.d3 = 0.5f * ff;
  taps.d1 = f * (1.5f * f - 2.0f);
  taps.d2 = -g * (1.5f * g - 2.0f);
  return taps;
}

TWINTRUE_INLINE void measure_patch(const PatchWindow& window, const PatchWeights& weights,
                                   const PatchTemplate& patch, const PatchPlace& place, PatchSums& sums) {
  constexpr float kFirst = 1.0f;
  constexpr float kLast = static_cast<float>(kWindowSide) - 2.01f;
  const float* __restrict pixels = window.value.data();
  LaneSums lanes;
  for (std::size_t y = 0; y < kSide; ++y) {
    const float* __restrict weight = &weights.weight.value[y * kLanes];
    const float* __restrict value = &patch.value.value[y * kLanes];
    const float* __restrict by_x = &patch.by_x.value[y * kLanes];
    const float* __restrict by_y = &patch.by_y.value[y * kLanes];
    const float v = static_cast<float>(static_cast<int>(y) - kPatchReach);
    const float row_x = place.middle[0] + v * place.by_row[0];
    const float row_y = place.middle[1] + v * place.by_row[1];
    for (std::size_t i = 0; i < kLanes; ++i) {
      const float u = static_cast<float>(static_cast<std::int32_t>(i) - kPatchReach);
      float px = row_x + u * place.by_column[0];
      float py = row_y + u * place.by_column[1];
      px = px > kFirst ? px : kFirst;
      px = px < kLast ? px : kLast;
      py = py > kFirst ? py : kFirst;
      py = py < kLast ? py : kLast;
      const auto ix = static_cast<std::int32_t>(px);
      const auto iy = static_cast<std::int32_t>(py);
      const Taps h = taps_at(px - static_cast<float>(ix));
      const Taps w = taps_at(py - static_cast<float>(iy));
      const float* p = pixels + ((iy - 1) * kWindowSide + ix - 1);
      const float* q = p + kWindowSide;
      const float* m = q + kWindowSide;
      const float* n = m + kWindowSide;
      const float p_v = h.w0 * p[0] + h.w1 * p[1] + h.w2 * p[2] + h.w3 * p[3];
      const float q_v = h.w0 * q[0] + h.w1 * q[1] + h.w2 * q[2] + h.w3 * q[3];
      const float m_v = h.w0 * m[0] + h.w1 * m[1] + h.w2 * m[2] + h.w3 * m[3];
      const float n_v = h.w0 * n[0] + h.w1 * n[1] + h.w2 * n[2] + h.w3 * n[3];
      const float p_d = h.d0 * p[0] + h.d1 * p[1] + h.d2 * p[2] + h.d3 * p[3];
      const float q_d = h.d0 * q[0] + h.d1 * q[1] + h.d2 * q[2] + h.d3 * q[3];
      const float m_d = h.d0 * m[0] + h.d1 * m[1] + h.d2 * m[2] + h.d3 * m[3];
      const float n_d = h.d0 * n[0] + h.d1 * n[1] + h.d2 * n[2] + h.d3 * n[3];
      const float seen = w.w0 * p_v + w.w1 * q_v + w.w2 * m_v + w.w3 * n_v;
      const float seen_x = w.w0 * p_d + w.w1 * q_d + w.w2 * m_d + w.w3 * n_d;
      const float seen_y = w.d0 * p_v + w.d1 * q_v + w.d2 * m_v + w.d3 * n_v;

      const float g = value[i];
      const float r = seen - place.gain * g - place.level;
      const float s = 0.5f * (seen_x * place.along[0] + seen_y * place.along[1] +
                              by_x[i] * place.along_back[0] + by_y[i] * place.along_back[1]);
      const float t = 0.5f * (seen_x * place.across[0] + seen_y * place.across[1] +
                              by_x[i] * place.across_back[0] + by_y[i] * place.across_back[1]);
      const float ws = weight[i] * s;
      const float wt = weight[i] * t;
      const float wr = weight[i] * r;
      const float wss = ws * s;
      const float wst = ws * t;
      const float wsg = ws * g;
      const float wsr = ws * r;
      lanes.ss[i] += wss;
      lanes.ssv[i] += v * wss;
      lanes.ssvv[i] += v * v * wss;
      lanes.st[i] += wst;
      lanes.stv[i] += v * wst;
      lanes.sg[i] += wsg;
      lanes.sgv[i] += v * wsg;
      lanes.s[i] += ws;
      lanes.sv[i] += v * ws;
      lanes.sr[i] += wsr;
      lanes.srv[i] += v * wsr;
      lanes.tt[i] += wt * t;
      lanes.tg[i] += wt * g;
      lanes.t[i] += wt;
      lanes.tr[i] += wt * r;
      lanes.gr[i] += wr * g;
      lanes.r[i] += wr;
      lanes.rr[i] += wr * r;
    }
  }
  collect(lanes, patch, sums);
}

void cut_portable(const std::int16_t* pixel, std::ptrdiff_t pitch, PatchWindow& window) {
  cut_window(pixel, pitch, window);
}
TWINTRUE_TARGET_AVX2 void cut_avx2(const std::int16_t* pixel, std::ptrdiff_t pitch, PatchWindow& window) {
  cut_window(pixel, pitch, window);
}
TWINTRUE_TARGET_AVX512 void cut_avx512(const std::int16_t* pixel, std::ptrdiff_t pitch, PatchWindow& window) {
  cut_window(pixel, pitch, window);
}

void take_portable(const PatchWindow& window, const PatchWeights& weights, PatchTemplate& patch) {
  take_template(window, weights, patch);
}
TWINTRUE_TARGET_AVX2 void take_avx2(const PatchWindow& window, const PatchWeights& weights,
                                    PatchTemplate& patch) {
  take_template(window, weights, patch);
}
TWINTRUE_TARGET_AVX512 void take_avx512(const PatchWindow& window, const PatchWeights& weights,
                                        PatchTemplate& patch) {
  take_template(window, weights, patch);
}

void measure_portable(const PatchWindow& window, const PatchWeights& weights, const PatchTemplate& patch,
                      const PatchPlace& place, PatchSums& sums) {
  measure_patch(window, weights, patch, place, sums);
}
TWINTRUE_TARGET_AVX2 void measure_avx2(const PatchWindow& window, const PatchWeights& weights,
                                       const PatchTemplate& patch, const PatchPlace& place, PatchSums& sums) {
  measure_patch(window, weights, patch, place, sums);
}
TWINTRUE_TARGET_AVX512 void measure_avx512(const PatchWindow& window, const PatchWeights& weights,
                                           const PatchTemplate& patch, const PatchPlace& place,
                                           PatchSums& sums) {
  measure_patch(window, weights, patch, place, sums);
}

}  // namespace

PatchWeights::PatchWeights() {
  constexpr double kSigma = 3.5;
  weight.value.fill(0.0f);
  std::array<double, kSide * kLanes> raw{};
  double sum = 0.0;
  for (int y = -kPatchReach; y <= kPatchReach; ++y) {
    for (int x = -kPatchReach; x <= kPatchReach; ++x) {
      const double square = x * x + y * y;
      if (square > (kPatchReach + 0.5) * (kPatchReach + 0.5)) continue;
      const auto at = static_cast<std::size_t>((y + kPatchReach) * kPatchLanes + x + kPatchReach);
      raw[at] = std::exp(-0.5 * square / (kSigma * kSigma));
      sum += raw[at];
    }
  }
  for (std::size_t i = 0; i < raw.size(); ++i) weight.value[i] = static_cast<float>(raw[i] / sum);
}

PatchKernel patch_kernel(InstructionSet set) {
  return for_set<PatchKernel>(set, {cut_portable, take_portable, measure_portable},
                              {cut_avx2, take_avx2, measure_avx2},
                              {cut_avx512, take_avx512, measure_avx512});
}

}  // namespace twintrue
