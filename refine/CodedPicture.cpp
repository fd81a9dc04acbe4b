#include "refine/CodedPicture.h"

#include <algorithm>
#include <cmath>

#include "base/InstructionSet.h"
#include "base/ParallelEach.h"

namespace twintrue {
namespace {

constexpr std::int32_t kBandRows = 64;

TWINTRUE_INLINE void code_row(const float* __restrict from, std::int32_t count, std::int16_t* __restrict to) {
  constexpr float kScale = static_cast<float>(255.0 * kCodeSteps);
  constexpr float kMost = 4.0f;
  for (std::int32_t i = 0; i < count; ++i) {
    // In this order a NaN becomes 0.
    const float positive = from[i] > 0.0f ? from[i] : 0.0f;
    const float bounded = positive < kMost ? positive : kMost;
    to[i] = static_cast<std::int16_t>(static_cast<std::int32_t>(std::sqrt(bounded) * kScale + 0.5f));
  }
}

void code_portable(const float* from, std::int32_t count, std::int16_t* to) { code_row(from, count, to); }
TWINTRUE_TARGET_AVX2 void code_avx2(const float* from, std::int32_t count, std::int16_t* to) {
  code_row(from, count, to);
}
TWINTRUE_TARGET_AVX512 void code_avx512(const float* from, std::int32_t count, std::int16_t* to) {
  code_row(from, count, to);
}

}  // namespace

cve::XMat_<std::int16_t> code_picture(const cve::XMat_<float>& linear) {
  cve::XMat_<std::int16_t> coded;
  coded.create(linear.rows, linear.cols);
  const auto code = for_set(best_instruction_set(), code_portable, code_avx2, code_avx512);
  const std::int32_t bands = (linear.rows + kBandRows - 1) / kBandRows;
  parallel_each(static_cast<std::size_t>(bands), [&](std::size_t band) {
    const auto begin = static_cast<std::int32_t>(band) * kBandRows;
    for (std::int32_t y = begin; y < std::min(begin + kBandRows, linear.rows); ++y) {
      code(linear.row(y), linear.cols, coded.row(y));
    }
  });
  return coded;
}

}  // namespace twintrue
