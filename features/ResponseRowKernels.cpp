#include "features/ResponseRowKernels.h"

namespace fpu {
namespace {

constexpr std::int32_t kBlock = 64;

TWINTRUE_INLINE void sums_along(const unsigned char* __restrict p, std::int32_t count,
                                std::int16_t* __restrict bend, std::int16_t* __restrict slope,
                                std::uint16_t* __restrict level) {
  for (std::int32_t x = 0; x < count; ++x) {
    const auto a = static_cast<std::uint16_t>(p[x - 2]);
    const auto b = static_cast<std::uint16_t>(p[x - 1]);
    const auto c = static_cast<std::uint16_t>(p[x]);
    const auto d = static_cast<std::uint16_t>(p[x + 1]);
    const auto e = static_cast<std::uint16_t>(p[x + 2]);
    const auto outer = static_cast<std::uint16_t>(a + e);
    const auto inner = static_cast<std::uint16_t>(b + d);
    bend[x] = static_cast<std::int16_t>(outer - 2 * c);
    slope[x] = static_cast<std::int16_t>(3 * (e - a) + 10 * (d - b));
    level[x] = static_cast<std::uint16_t>(9 * outer + 60 * inner + 118 * c);
  }
}

// One block of pixels between the two halves of `down`.
struct Derivatives {
  alignas(64) std::array<float, kBlock> xx, xy, yy, det;
};

// Returns whether a determinant lies above the limit.
TWINTRUE_INLINE bool derivatives_of(const std::array<RowSums, 5>& rows, std::int32_t x, std::int32_t count,
                                    float limit, Derivatives& out) {
  constexpr float kUnit = 0.03125f;
  const std::int16_t* __restrict b0 = rows[0].bend + x;
  const std::int16_t* __restrict b1 = rows[1].bend + x;
  const std::int16_t* __restrict b2 = rows[2].bend + x;
  const std::int16_t* __restrict b3 = rows[3].bend + x;
  const std::int16_t* __restrict b4 = rows[4].bend + x;
  const std::int16_t* __restrict s0 = rows[0].slope + x;
  const std::int16_t* __restrict s1 = rows[1].slope + x;
  const std::int16_t* __restrict s3 = rows[3].slope + x;
  const std::int16_t* __restrict s4 = rows[4].slope + x;
  const std::uint16_t* __restrict l0 = rows[0].level + x;
  const std::uint16_t* __restrict l2 = rows[2].level + x;
  const std::uint16_t* __restrict l4 = rows[4].level + x;
  std::int32_t above = 0;
  for (std::int32_t j = 0; j < count; ++j) {
    // 9, 60, 118, 60, 9 as 3 * (3, 20, 0, 20, 3) + 2 * (0, 0, 59, 0, 0): both parts fit 16 bits.
    const auto outer = static_cast<std::int16_t>(b0[j] + b4[j]);
    const auto inner = static_cast<std::int16_t>(b1[j] + b3[j]);
    const auto sides = static_cast<std::int16_t>(3 * outer + 20 * inner);
    const auto middle = static_cast<std::int16_t>(59 * b2[j]);
    const auto far = static_cast<std::int16_t>(s4[j] - s0[j]);
    const auto near = static_cast<std::int16_t>(s3[j] - s1[j]);
    const std::int32_t levels = std::int32_t{l0[j]} - 2 * std::int32_t{l2[j]} + std::int32_t{l4[j]};
    const float xx = static_cast<float>(sides) * (3 * kUnit) + static_cast<float>(middle) * (2 * kUnit);
    const float xy = static_cast<float>(far) * (3 * kUnit) + static_cast<float>(near) * (10 * kUnit);
    const float yy = static_cast<float>(levels) * kUnit;
    const float det = xx * yy - xy * xy;
    out.xx[static_cast<std::size_t>(j)] = xx;
    out.xy[static_cast<std::size_t>(j)] = xy;
    out.yy[static_cast<std::size_t>(j)] = yy;
    out.det[static_cast<std::size_t>(j)] = det;
    above |= det > limit ? 1 : 0;
  }
  return above != 0;
}

TWINTRUE_INLINE void responses_of(const Derivatives& in, std::int32_t count, float* __restrict response) {
  for (std::int32_t j = 0; j < count; ++j) {
    const auto i = static_cast<std::size_t>(j);
    const float m = in.yy[i] * 0.5f + in.xx[i] * 0.5f;
    const float h = in.xx[i] * 0.5f - in.yy[i] * 0.5f;
    const float q = __builtin_sqrtf(h * h + in.xy[i] * in.xy[i]);
    const float low = __builtin_fabsf(m - q);
    const float high = __builtin_fabsf(q + m);
    const float smaller = low < high ? low : high;
    response[j] = in.det[i] > 0.0f ? smaller : 0.0f;
  }
}

TWINTRUE_INLINE void block_down(const std::array<RowSums, 5>& rows, std::int32_t x, std::int32_t count,
                                float limit, float* response, float* det) {
  Derivatives block;
  const bool above = derivatives_of(rows, x, count, limit, block);
  if (above) {
    responses_of(block, count, response + x);
  } else {
    for (std::int32_t j = 0; j < count; ++j) response[x + j] = 0.0f;
  }
  if (det == nullptr) return;
  for (std::int32_t j = 0; j < count; ++j) det[x + j] = block.det[static_cast<std::size_t>(j)];
}

TWINTRUE_INLINE void sums_down(const std::array<RowSums, 5>& rows, std::int32_t count, float least,
                               float* response, float* det) {
  // The smaller eigenvalue's square is at most the determinant. Derivatives stay below 2^13, so rounding
  // moves an eigenvalue and the quotient of the two by less than a thousandth: the slack is ten times that.
  const float root = least - 0.01f;
  const float limit = root > 0.0f ? root * root : 0.0f;
  std::int32_t x = 0;
  for (; x + kBlock <= count; x += kBlock) block_down(rows, x, kBlock, limit, response, det);
  if (x < count) block_down(rows, x, count - x, limit, response, det);
}

TWINTRUE_INLINE std::int32_t reaching(const float* __restrict response, std::int32_t count, float least,
                                      std::int32_t* __restrict columns) {
  std::int32_t found = 0;
  for (std::int32_t x = 0; x < count; x += kBlock) {
    const std::int32_t n = count - x < kBlock ? count - x : kBlock;
    std::int32_t any = 0;
    for (std::int32_t j = 0; j < n; ++j) any |= response[x + j] * 100.0f >= least ? 1 : 0;
    if (any == 0) continue;
    for (std::int32_t j = 0; j < n; ++j) {
      columns[found] = x + j;
      found += response[x + j] * 100.0f >= least ? 1 : 0;
    }
  }
  return found;
}

// Each kernel once for every instruction set.
void along_portable(const unsigned char* pixels, std::int32_t count, const RowSums& out) {
  sums_along(pixels, count, out.bend, out.slope, out.level);
}
TWINTRUE_TARGET_AVX2 void along_avx2(const unsigned char* pixels, std::int32_t count, const RowSums& out) {
  sums_along(pixels, count, out.bend, out.slope, out.level);
}
TWINTRUE_TARGET_AVX512 void along_avx512(const unsigned char* pixels, std::int32_t count,
                                         const RowSums& out) {
  sums_along(pixels, count, out.bend, out.slope, out.level);
}

void down_portable(const std::array<RowSums, 5>& rows, std::int32_t count, float least, float* response,
                   float* det) {
  sums_down(rows, count, least, response, det);
}
TWINTRUE_TARGET_AVX2 void down_avx2(const std::array<RowSums, 5>& rows, std::int32_t count, float least,
                                    float* response, float* det) {
  sums_down(rows, count, least, response, det);
}
TWINTRUE_TARGET_AVX512 void down_avx512(const std::array<RowSums, 5>& rows, std::int32_t count, float least,
                                        float* response, float* det) {
  sums_down(rows, count, least, response, det);
}

std::int32_t reach_portable(const float* response, std::int32_t count, float least, std::int32_t* columns) {
  return reaching(response, count, least, columns);
}
TWINTRUE_TARGET_AVX2 std::int32_t reach_avx2(const float* response, std::int32_t count, float least,
                                             std::int32_t* columns) {
  return reaching(response, count, least, columns);
}
TWINTRUE_TARGET_AVX512 std::int32_t reach_avx512(const float* response, std::int32_t count, float least,
                                                 std::int32_t* columns) {
  return reaching(response, count, least, columns);
}

}  // namespace

ResponseRowKernels response_row_kernels(twintrue::InstructionSet set) {
  return twintrue::for_set<ResponseRowKernels>(set, {along_portable, down_portable, reach_portable},
                                               {along_avx2, down_avx2, reach_avx2},
                                               {along_avx512, down_avx512, reach_avx512});
}

}  // namespace fpu
