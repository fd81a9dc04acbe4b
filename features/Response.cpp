#include "features/Response.h"

#include <utility>

#include "base/ParallelEach.h"
#include "features/ResponseKernels.h"
#include "imaging/Filters.h"

namespace fpu {
namespace {

// Central difference.
cve::FilterKernel derivative_kernel() {
  cve::FilterKernel kernel;
  kernel.radius = 1;
  kernel.symmetric = false;
  kernel.coefficients[0] = -1.0f;
  kernel.coefficients[1] = 0.0f;
  kernel.coefficients[2] = 1.0f;
  kernel.centre = &kernel.coefficients[1];
  return kernel;
}

// Half of the weights 3, 10, 3 of the first derivatives, brought to a sum of 1/2.
cve::FilterKernel smoothing_kernel() {
  cve::FilterKernel kernel;
  kernel.radius = 1;
  kernel.symmetric = true;
  kernel.coefficients[0] = 0.3125f;
  kernel.coefficients[1] = 0.09375f;
  kernel.centre = &kernel.coefficients[0];
  return kernel;
}

// Margins of the gradients and of what lies between the two passes over them: each pass reads one pixel
// beyond what it makes.
constexpr std::int32_t kGradientMargin = 2;
constexpr std::int32_t kPassMargin = 1;

// Row pass into `between`, margin included, then column pass into a new image without margin.
cve::XMat_<float> filter_gradient(const cve::XMat_<float>& gradient, const cve::FilterKernel& along_row,
                                  const cve::FilterKernel& along_column, cve::XMat_<float>& between) {
  cve::convolveRows(along_row, gradient, between, false, kPassMargin, kPassMargin);
  cve::XMat_<float> filtered;
  filtered.create(gradient.rows, gradient.cols);
  cve::convolveColumns(along_column, between, filtered, false, 0, 0);
  return filtered;
}

}  // namespace

ResponseImages computeResponse(const cve::XMat_<unsigned char>& working, const Region& area, StageTap* tap) {
  const auto show = [&](const char* name, const cve::XMat_<float>& image) {
    if (tap != nullptr) tap->image(name, image, area.x, area.y);
  };
  const cve::XMat_<unsigned char> scan = working.view(area.x, area.y, area.width, area.height);
  const cve::Size size{area.width, area.height};
  const std::ptrdiff_t wide = std::ptrdiff_t{area.width} + 2 * kGradientMargin;
  const cve::FilterKernel derivative = derivative_kernel();
  const cve::FilterKernel smoothing = smoothing_kernel();
  auto between = cve::createWithMargin<float>(size, kPassMargin);

  // One gradient at a time, in the same memory.
  auto gradient = cve::createWithMargin<float>(size, kGradientMargin);
  twintrue::parallel_rows(-kGradientMargin, area.height + kGradientMargin, [&](int y) {
    gradient_x_row(scan.row(y - 1) - kGradientMargin, scan.row(y) - kGradientMargin,
                   scan.row(y + 1) - kGradientMargin, gradient.row(y) - kGradientMargin, wide);
  });
  show("gx", gradient);
  cve::XMat_<float> lxx = filter_gradient(gradient, derivative, smoothing, between);
  show("lxx", lxx);
  cve::XMat_<float> lxy = filter_gradient(gradient, smoothing, derivative, between);
  show("lxy", lxy);

  twintrue::parallel_rows(-kGradientMargin, area.height + kGradientMargin, [&](int y) {
    gradient_y_row(scan.row(y - 1) - kGradientMargin, scan.row(y + 1) - kGradientMargin,
                   gradient.row(y) - kGradientMargin, wide);
  });
  show("gy", gradient);
  // The last row pass must be this one: its rim is what the determinant image keeps.
  const cve::XMat_<float> lyy = filter_gradient(gradient, smoothing, derivative, between);
  show("lyy", lyy);
  gradient = {};

  twintrue::parallel_rows(0, area.height, [&](int y) {
    response_row(lxx.row(y), lxy.row(y), lyy.row(y), between.row(y), area.width);
  });
  show("det", between);
  show("response", lxx);
  return {std::move(lxx), std::move(between)};
}

}  // namespace fpu
