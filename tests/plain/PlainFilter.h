#pragma once

// The separable filters by their definition, pixel by pixel and pass by pass: what the fast forms are held
// against, in results and in speed.

#include "imaging/Filters.h"
#include "imaging/XMat.h"

namespace plain {

// Both passes into a new packed image. The vertical direction always replicates the first and last row, the
// horizontal one replicates with `borders` and reads on beside the rows without.
cve::XMat_<float> filter(const cve::FilterKernel& kernel, const cve::XMat_<float>& source, bool borders);
cve::XMat_<short> filter(const cve::FixedKernel& kernel, const cve::XMat_<short>& source, bool borders);

// One output pixel from at(d), the pixel at distance d: one addition after the other.
template <class At>
float sum_of(const cve::FilterKernel& kernel, At at) {
  if (kernel.symmetric) {
    float sum = at(0) * kernel.coefficients[0];
    for (int i = 1; i <= kernel.radius; ++i) {
      sum += (at(-i) + at(i)) * kernel.coefficients[static_cast<std::size_t>(i)];
    }
    return sum;
  }
  float sum = 0;
  for (int i = -kernel.radius; i <= kernel.radius; ++i) sum += kernel.centre[i] * at(i);
  return sum;
}

}  // namespace plain
