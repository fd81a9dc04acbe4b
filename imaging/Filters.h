#pragma once

// Separable filters over images and views, and the low-pass kernels that the settings name by number.
//
// All images are walked by their stride, so any may be a view. Rows run in parallel; every output pixel is
// summed in a fixed order in its own type, so a result depends neither on the thread count nor on how the
// loops are cut. Source and destination of a single pass must not overlap. Memory that runs short throws
// std::bad_alloc; what can't be carried out (a number beyond the table, a radius beyond the kernel's array,
// images of different sizes) throws std::invalid_argument.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "base/InstructionSet.h"
#include "base/ParallelEach.h"
#include "imaging/TapSums.h"
#include "imaging/XMat.h"

namespace cve {

// The longest reach of a kernel, in pixels.
inline constexpr int kMaxRadius = 63;

// A one-dimensional kernel of 32-bit floats.
// Symmetric: coefficients[0] is the centre, coefficients[i] applies at the distances i and -i.
// General: centre[i] applies at distance i, for i from -radius to radius.
// `centre` points into the kernel's own array; a copy's points to the same place of the copy's array.
struct FilterKernel {
  FilterKernel() = default;
  FilterKernel(const FilterKernel& other) { *this = other; }
  FilterKernel& operator=(const FilterKernel& other) {
    coefficients = other.coefficients;
    radius = other.radius;
    centre = coefficients.data() + (other.centre - other.coefficients.data());
    symmetric = other.symmetric;
    return *this;
  }

  std::array<float, kMaxRadius + 1> coefficients{};
  std::int32_t radius = 0;
  const float* centre = coefficients.data();
  bool symmetric = true;
};

// A symmetric kernel in units of 2^-kFixedBits, centre first.
struct FixedKernel {
  std::array<std::int32_t, kMaxRadius + 1> coefficients{};
  std::int32_t radius = 0;
};

// Kernels are numbered from 0; the sum of a kernel's weights is 1 whatever its number.
inline constexpr int kKernelCount = 24;

// Reach in pixels of the kernel of that number; 0 for a negative number, which means no filter.
int kernel_radius(int number);
FilterKernel make_float_kernel(int number);
// Weights are cut, not rounded, so their sum may fall short of 1.
FixedKernel make_fixed_kernel(int number);

// Images with fewer rows or columns than this are not filtered by number.
inline constexpr int kMinFilteredSize = 32;

// The three filters by number. A negative number or a source below kMinFilteredSize: nothing is filtered, the
// destination becomes one more header of the source's pixels.
//
// An empty destination is created; else it must have the source's size. With `clampToUnit` values end between
// 0 and 1. Without `borders` see convolveFloat. If both headers name the same pixels, the result reaches
// them only with `clampToUnit` and is lost otherwise.
void filterFloat(const XMat_<float>& source, XMat_<float>& destination, int number, bool clampToUnit,
                 bool borders, twintrue::InstructionSet set = twintrue::best_instruction_set());
// A new image, edges replicated.
XMat_<float> filterFloatImage(const XMat_<float>& source, int number);
// In integers, edges replicated. The destination is created anew; if it names the source's pixels the result
// is lost and nothing changes.
void filterFixed(const XMat_<short>& source, XMat_<short>& destination, int number);

// Row pass, then column pass, into a destination of the source's size (created if empty). An empty source
// changes nothing. Source and destination may overlap.
// With `borders` reads beyond the image take its nearest pixel. Without, the row pass reads on into the
// memory on both sides of a row, kernel.radius pixels that must be valid, and the column pass replicates the
// first and last filtered row, whatever lies above and below the view.
void convolveFloat(const FilterKernel& kernel, const XMat_<float>& source, XMat_<float>& destination,
                   bool borders, twintrue::InstructionSet set = twintrue::best_instruction_set());

// The two passes, into a destination that holds what they write. With `borders` the margins aren't used.
// Without, the pass covers rows -marginRows to rows + marginRows - 1 and columns likewise, of the source's
// rows and columns, and reads beyond them: that memory must be valid.
void convolveRows(const FilterKernel& kernel, const XMat_<float>& source, XMat_<float>& destination,
                  bool borders, int marginRows, int marginColumns);
void convolveColumns(const FilterKernel& kernel, const XMat_<float>& source, XMat_<float>& destination,
                     bool borders, int marginRows, int marginColumns);

// Fills the rim of `padded` round `image`, which is the view of it that starts `left` columns and `top` rows
// in: each rim pixel takes the image's nearest pixel.
template <typename T>
void padBorder(const XMat_<T>& image, XMat_<T>& padded, int top, int bottom, int left, int right) {
  const bool fits = std::min({top, bottom, left, right}) >= 0 && padded.rows - top - bottom == image.rows &&
                    padded.cols - left - right == image.cols && padded.pitch() == image.pitch();
  if (!fits || (!image.empty() && image.data != padded.row(top) + left)) {
    throw std::invalid_argument("the image is not the middle of the padded one");
  }
  if (image.empty() || image.rows <= 0 || image.cols <= 0) return;
  const int last = top + image.rows - 1;
  twintrue::parallel_rows(0, padded.rows, [&](int y) {
    T* row = padded.row(y);
    if (y < top || y > last) std::copy_n(padded.row(y < top ? top : last) + left, image.cols, row + left);
    std::fill_n(row, left, row[left]);
    std::fill_n(row + left + image.cols, right, row[left + image.cols - 1]);
  });
}

}  // namespace cve
