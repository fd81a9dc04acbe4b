#include "imaging/BandFilter.h"

namespace cve {
namespace {

// Rows of a power of two would all claim the same lines of the cache.
constexpr std::size_t kSparePixels = 32;

}  // namespace

BandFilter::BandFilter(const FilterKernel& kernel, int cols, int rows, bool borders,
                       twintrue::InstructionSet set)
    : kernel_(kernel),
      radius_(kernel.radius),
      cols_(cols),
      rows_(rows),
      borders_(borders),
      sums_(tap_sums(set)),
      pitch_(static_cast<std::size_t>(cols) + kSparePixels),
      ring_(pitch_ * static_cast<std::size_t>(2 * radius_ + 1)),
      rim_(3 * static_cast<std::size_t>(radius_)),
      taps_(static_cast<std::size_t>(2 * radius_ + 1)) {}

void BandFilter::sum(const float* const* taps, float* out, int count) const {
  if (kernel_.symmetric) {
    sums_.symmetric(kernel_.coefficients.data(), radius_, taps, out, count);
  } else {
    sums_.general(kernel_.centre, radius_, taps, out, count);
  }
}

void BandFilter::pass_along_rim(const float* source, int begin, int end, float* out) {
  const int count = end - begin;
  if (count <= 0) return;
  for (int i = 0; i < count + 2 * radius_; ++i) {
    rim_[static_cast<std::size_t>(i)] = source[std::clamp(begin - radius_ + i, 0, cols_ - 1)];
  }
  for (std::size_t d = 0; d < taps_.size(); ++d) taps_[d] = rim_.data() + d;
  sum(taps_.data() + radius_, out + begin, count);
}

void BandFilter::pass_along(const float* source, float* out) {
  const int left = borders_ ? std::min(radius_, cols_) : 0;
  const int right = borders_ ? std::max(cols_ - radius_, left) : cols_;
  if (borders_) {
    pass_along_rim(source, 0, left, out);
    pass_along_rim(source, right, cols_, out);
  }
  if (left >= right) return;
  for (std::size_t d = 0; d < taps_.size(); ++d) {
    taps_[d] = source + left + (static_cast<std::ptrdiff_t>(d) - radius_);
  }
  sum(taps_.data() + radius_, out + left, right - left);
}

void BandFilter::pass_down(int y, float* out) {
  for (int d = -radius_; d <= radius_; ++d) {
    taps_[static_cast<std::size_t>(d + radius_)] = slot(std::clamp(y + d, 0, rows_ - 1));
  }
  sum(taps_.data() + radius_, out, cols_);
}

}  // namespace cve
