#include "PlainFilter.h"

#include <algorithm>
#include <cstdint>

namespace plain {
namespace {

template <class At>
short sum_of(const cve::FixedKernel& kernel, At at) {
  std::int32_t sum = at(0) * kernel.coefficients[0];
  for (int i = 1; i <= kernel.radius; ++i) {
    sum += (at(-i) + at(i)) * kernel.coefficients[static_cast<std::size_t>(i)];
  }
  return static_cast<short>(sum >> 12);
}

template <class Kernel, typename T>
cve::XMat_<T> both_passes(const Kernel& kernel, const cve::XMat_<T>& source, bool borders) {
  using plain::sum_of;
  cve::XMat_<T> rows;
  cve::XMat_<T> result;
  rows.create(source.rows, source.cols);
  result.create(source.rows, source.cols);
  for (int y = 0; y < source.rows; ++y) {
    for (int x = 0; x < source.cols; ++x) {
      rows.at(y, x) = sum_of(kernel, [&](int d) {
        return source.at(y, borders ? std::clamp(x + d, 0, source.cols - 1) : x + d);
      });
    }
  }
  for (int y = 0; y < source.rows; ++y) {
    for (int x = 0; x < source.cols; ++x) {
      result.at(y, x) =
          sum_of(kernel, [&](int d) { return rows.at(std::clamp(y + d, 0, source.rows - 1), x); });
    }
  }
  return result;
}

}  // namespace

cve::XMat_<float> filter(const cve::FilterKernel& kernel, const cve::XMat_<float>& source, bool borders) {
  return both_passes(kernel, source, borders);
}

cve::XMat_<short> filter(const cve::FixedKernel& kernel, const cve::XMat_<short>& source, bool borders) {
  return both_passes(kernel, source, borders);
}

}  // namespace plain
