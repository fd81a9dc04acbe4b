#include "features/ResponseRows.h"

#include <algorithm>

#include "features/ResponseKernels.h"

namespace fpu {
namespace {

// Rows of a power of two would all claim the same lines of the cache.
constexpr std::size_t kSparePixels = 64;

}  // namespace

ResponseRows::ResponseRows(const cve::XMat_<unsigned char>& working, const Region& area,
                           twintrue::InstructionSet set)
    : working_(working),
      area_(area),
      kernels_(response_row_kernels(set)),
      pitch_(static_cast<std::size_t>(area.width) + kSparePixels),
      bend_(kRows * pitch_),
      slope_(kRows * pitch_),
      level_(kRows * pitch_) {}

RowSums ResponseRows::slot(std::int32_t y) {
  const std::size_t at = static_cast<std::size_t>(y % kRows) * pitch_;
  return {bend_.data() + at, slope_.data() + at, level_.data() + at};
}

void ResponseRows::make_row(std::int32_t y, float least, float* response, float* det) {
  const std::int32_t middle = area_.y + y;
  const std::int32_t first = middle - kDerivativeReach;
  const std::int32_t last = middle + kDerivativeReach;
  if (next_ > last + 1 || next_ < first) next_ = first;
  for (; next_ <= last; ++next_) kernels_.along(working_.row(next_) + area_.x, area_.width, slot(next_));
  std::array<RowSums, kRows> rows;
  for (std::int32_t i = 0; i < kRows; ++i) rows[static_cast<std::size_t>(i)] = slot(first + i);
  kernels_.down(rows, area_.width, least, response, det);
}

void fill_det_margin(const cve::XMat_<unsigned char>& working, const Region& area, cve::XMat_<float>& det) {
  const auto fill = [&](std::int32_t x, std::int32_t y) {
    const unsigned char* pixel = working.row(area.y + y) + area.x + x - 1;
    std::array<float, 3> gradient{};
    gradient_y_row(pixel - working.pitch(), pixel + working.pitch(), gradient.data(), 3);
    det.row(y)[x] = gradient[1] * 0.3125f + (gradient[0] + gradient[2]) * 0.09375f;
  };
  for (std::int32_t x = -1; x <= area.width; ++x) {
    fill(x, -1);
    fill(x, area.height);
  }
  for (std::int32_t y = 0; y < area.height; ++y) {
    fill(-1, y);
    fill(area.width, y);
  }
}

}  // namespace fpu
