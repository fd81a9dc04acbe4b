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
    const float* from =
        &window.value[(y + kWindowMiddle - kPatchReach) * kWindow + kWindowMiddle - kPatchReach];
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

// A cubic B-spline and its slope, t pixels from its middle; 0 from 2 on.
TWINTRUE_INLINE float spline(float t) {
  const float a = t < 0.0f ? -t : t;
  const float outer = 2.0f - a > 0.0f ? 2.0f - a : 0.0f;
  const float inner = 1.0f - a > 0.0f ? 1.0f - a : 0.0f;
  return (outer * outer * outer - 4.0f * (inner * inner * inner)) * (1.0f / 6.0f);
}
TWINTRUE_INLINE float spline_slope(float t) {
  const float a = t < 0.0f ? -t : t;
  const float outer = 2.0f - a > 0.0f ? 2.0f - a : 0.0f;
  const float inner = 1.0f - a > 0.0f ? 1.0f - a : 0.0f;
  const float down = 2.0f * (inner * inner) - 0.5f * (outer * outer);
  return t < 0.0f ? -down : down;
}

// Columns of the window that a row of the template may need, and room on both sides of them for reads that
// count nothing.
constexpr std::size_t kColumns = 24;
constexpr std::size_t kRoom = 8;

std::int32_t whole_below(float x) {
  const auto whole = static_cast<std::int32_t>(x);
  return static_cast<float>(whole) > x ? whole - 1 : whole;
}

// What the window shows at the places of a row of the template.
struct SeenRow {
  alignas(64) Lane value;
  alignas(64) Lane by_x;
  alignas(64) Lane by_y;
};

TWINTRUE_INLINE void see_row(const PatchWindow& window, const PatchPlace& place, float v, SeenRow& seen) {
  constexpr float kFirst = -static_cast<float>(kPatchReach);
  constexpr float kLast = static_cast<float>(kPatchReach);
  const float step = place.by_column[0];
  const float incline = place.by_column[1] / step;
  const float middle_x = place.middle[0] + v * place.by_row[0];
  const float middle_y = place.middle[1] + v * place.by_row[1];
  const std::int32_t first_column = whole_below(middle_x + kFirst * step) - 1;

  // Downward: the line crosses column c at this row.
  const float at_first = middle_y + incline * (static_cast<float>(first_column) - middle_x);
  const float at_last = at_first + incline * static_cast<float>(kColumns - 1);
  const float upper = at_first < at_last ? at_first : at_last;
  const float lower = at_first < at_last ? at_last : at_first;
  std::int32_t row = whole_below(upper) - 1;
  std::int32_t past_row = whole_below(lower) + 3;
  row = row < 0 ? 0 : row;
  past_row = past_row > kWindowSide ? kWindowSide : past_row;
  alignas(64) std::array<float, kColumns + 2 * kRoom> value{};
  alignas(64) std::array<float, kColumns + 2 * kRoom> slope{};
  for (; row < past_row; ++row) {
    const float* __restrict from = &window.value[static_cast<std::size_t>(row * kWindowSide + first_column)];
    const float off = at_first - static_cast<float>(row);
    for (std::size_t i = 0; i < kColumns; ++i) {
      const float t = off + incline * static_cast<float>(static_cast<std::int32_t>(i));
      value[kRoom + i] += spline(t) * from[i];
      slope[kRoom + i] += spline_slope(t) * from[i];
    }
  }

  // Along: pixel i of the row lies this far from column `first_column + i + k`.
  const float start = middle_x + kFirst * step - static_cast<float>(first_column);
  const float drift = step - 1.0f;
  const float end = start + drift * (kLast - kFirst);
  std::int32_t k = whole_below(start < end ? start : end) - 1;
  const std::int32_t past_k = whole_below(start < end ? end : start) + 3;
  SeenRow sums{};
  for (; k < past_k; ++k) {
    const float* __restrict from = &value[static_cast<std::size_t>(static_cast<std::int32_t>(kRoom) + k)];
    const float* __restrict from_slope =
        &slope[static_cast<std::size_t>(static_cast<std::int32_t>(kRoom) + k)];
    const float off = start - static_cast<float>(k);
    for (std::size_t i = 0; i < kLanes; ++i) {
      const float t = off + drift * static_cast<float>(static_cast<std::int32_t>(i));
      const float weight = spline(t);
      sums.value[i] += weight * from[i];
      sums.by_x[i] += spline_slope(t) * from[i];
      sums.by_y[i] += weight * from_slope[i];
    }
  }
  for (std::size_t i = 0; i < kLanes; ++i) {
    seen.value[i] = sums.value[i];
    // To the right at the same height: the line's columns are read higher or lower by its incline.
    seen.by_x[i] = sums.by_x[i] - incline * sums.by_y[i];
    seen.by_y[i] = sums.by_y[i];
  }
}

TWINTRUE_INLINE void measure_patch(const PatchWindow& window, const PatchWeights& weights,
                                   const PatchTemplate& patch, const PatchPlace& place, PatchSums& sums) {
  LaneSums lanes;
  for (std::size_t y = 0; y < kSide; ++y) {
    const float* __restrict weight = &weights.weight.value[y * kLanes];
    const float* __restrict value = &patch.value.value[y * kLanes];
    const float* __restrict by_x = &patch.by_x.value[y * kLanes];
    const float* __restrict by_y = &patch.by_y.value[y * kLanes];
    const float v = static_cast<float>(static_cast<int>(y) - kPatchReach);
    SeenRow seen;
    see_row(window, place, v, seen);
    for (std::size_t i = 0; i < kLanes; ++i) {
      const float g = value[i];
      const float r = seen.value[i] - place.gain * g - place.level;
      const float s = 0.5f * (seen.by_x[i] * place.along[0] + seen.by_y[i] * place.along[1] +
                              by_x[i] * place.along_back[0] + by_y[i] * place.along_back[1]);
      const float t = 0.5f * (seen.by_x[i] * place.across[0] + seen.by_y[i] * place.across[1] +
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

bool place_fits(const PatchPlace& place) {
  // A step of a column between these keeps what a row needs within kColumns and its reads within kRoom.
  constexpr float kLeastStep = 0.7f;
  constexpr float kMostStep = 1.25f;
  constexpr float kMostIncline = 0.3f;
  constexpr float kFirst = 1.0f;
  constexpr float kLast = static_cast<float>(kWindowSide) - 2.1f;
  const auto small = [](float x) { return x > -kMostIncline && x < kMostIncline; };
  const auto step = [](float x) { return x > kLeastStep && x < kMostStep; };
  if (!step(place.by_column[0]) || !step(place.by_row[1]) || !small(place.by_column[1]) ||
      !small(place.by_row[0])) {
    return false;
  }
  for (std::size_t k = 0; k < 2; ++k) {
    const float reach =
        static_cast<float>(kPatchReach) * (std::abs(place.by_column[k]) + std::abs(place.by_row[k]));
    if (!(place.middle[k] - reach > kFirst && place.middle[k] + reach < kLast)) return false;
  }
  return true;
}

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
                              {cut_avx2, take_avx2, measure_avx2}, {cut_avx512, take_avx512, measure_avx512});
}

}  // namespace twintrue
