#pragma once

// The response of a working image, row after row: what the rows have in common stays in cache, and no image
// of a derivative is ever made.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/InstructionSet.h"
#include "features/Region.h"
#include "features/ResponseRowKernels.h"
#include "imaging/XMat.h"

namespace fpu {

class ResponseRows {
 public:
  // `area` must lie at least kResponseReach pixels inside the image, which must live as long as this.
  ResponseRows(const cve::XMat_<unsigned char>& working, const Region& area, twintrue::InstructionSet set);

  // Row y of the area, `area.width` values. Where the response is at least `least` it is what computeResponse
  // makes of it, elsewhere that or 0. With `det`, the row of the determinant image goes there. Going
  // downward, each row of pixels is summed once.
  void make_row(std::int32_t y, float least, float* response, float* det);

 private:
  static constexpr std::int32_t kRows = 2 * kDerivativeReach + 1;

  RowSums slot(std::int32_t y);

  const cve::XMat_<unsigned char>& working_;
  Region area_;
  ResponseRowKernels kernels_;
  std::size_t pitch_;
  std::vector<std::int16_t> bend_, slope_;  // of the pixel row y in the slot y modulo kRows
  std::vector<std::uint16_t> level_;
  std::int32_t next_ = 0;  // first row of pixels that has not been summed
};

// What a determinant image keeps outside its area: the smoothed vertical gradient of that pixel. Fills the
// margin of 1 round `det`, whose corner lies at the corner of `area`.
void fill_det_margin(const cve::XMat_<unsigned char>& working, const Region& area, cve::XMat_<float>& det);

}  // namespace fpu
