#include "features/LevelBuild.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "imaging/BandFilter.h"
#include "imaging/ByteCurve.h"
#include "imaging/Filters.h"
#include "imaging/ToneCurves.h"

namespace fpu {
namespace {

// Pixels that modes 3, 6 and 7 leave out on each side of the region: it is wider than description needs.
constexpr std::int32_t kInset = 7;

struct FilterMode {
  bool whole_image;
  bool clamp;
  bool borders;
};

FilterMode filter_mode_of(std::int32_t number) {
  switch (number) {
    case 0:
    case 1:
      return {true, false, true};
    case 2:
      return {true, true, true};
    case 6:
      return {false, false, true};
    default:
      return {false, false, false};
  }
}

// Start and length of the widened views along one axis: `radius` pixels stay free for the kernel on both
// sides of the frame.
std::pair<std::int32_t, std::int32_t> widened(std::int32_t start, std::int32_t length, std::int32_t inset,
                                              std::int32_t radius, std::int32_t frame) {
  const std::int32_t from = std::max(start + inset - radius, radius);
  const std::int32_t to = std::min(length - 2 * inset + 2 * radius + from, frame - radius);
  return {from, to - from};
}

unsigned char working_byte(float light, std::int32_t gamma_mode) {
  return cve::byteFromTone10(cve::tone10FromLinear(light, gamma_mode));
}

Region inset_by(const Region& region, std::int32_t inset) {
  return {region.x + inset, region.y + inset, region.width - 2 * inset, region.height - 2 * inset};
}

}  // namespace

Region filterView(std::int32_t filter_mode, const Region& region, std::int32_t radius, std::int32_t cols,
                  std::int32_t rows) {
  switch (filter_mode) {
    case 0:
    case 1:
    case 2:
      return {0, 0, cols, rows};
    case 3:
    case 6:
      return inset_by(region, kInset);
    case 4:
      return inset_by(region, radius);
    case 5:
    case 7: {
      const std::int32_t inset = filter_mode == 7 ? kInset : 0;
      const auto [x, width] = widened(region.x, region.width, inset, radius, cols);
      const auto [y, height] = widened(region.y, region.height, inset, radius, rows);
      return {x, y, width, height};
    }
    default:
      return {};
  }
}

LevelImages buildFloatLevels(cve::XMat_<float> linear, const DetectorSettings& settings, const Region& region,
                             StageTap* tap) {
  LevelImages levels(settings.nlevels, false);
  const std::int32_t cols = linear.cols;
  const std::int32_t rows = linear.rows;
  const std::int32_t number = settings.filter_type[0];
  if (tap != nullptr) tap->image("linear", linear, 0, 0);

  cve::XMat_<float> filtered;
  filtered.create(rows, cols);
  const Region view = filterView(settings.filter_mode, region, cve::kernel_radius(number), cols, rows);
  const FilterMode mode = filter_mode_of(settings.filter_mode);
  if (mode.whole_image) {
    cve::filterFloat(linear, filtered, number, mode.clamp, mode.borders);
  } else if (lies_inside(view, cols, rows, 0)) {
    const cve::XMat_<float> source = linear.view(view.x, view.y, view.width, view.height);
    cve::XMat_<float> destination = filtered.view(view.x, view.y, view.width, view.height);
    cve::filterFloat(source, destination, number, mode.clamp, mode.borders);
  }
  linear = {};
  if (tap != nullptr) tap->image("filtered", filtered, 0, 0);

  cve::linearToTone10(filtered, levels.fixedImages[0], settings.gamma_mode);
  if (tap != nullptr) tap->image("fixed", levels.fixedImages[0], 0, 0);
  return levels;
}

cve::XMat_<unsigned char> buildWorkingImage(const cve::XMat_<float>& linear, const DetectorSettings& settings,
                                            const Region& region, twintrue::InstructionSet set) {
  const std::int32_t number = settings.filter_type[0];
  const std::int32_t radius = cve::kernel_radius(number);
  const Region view = filterView(settings.filter_mode, region, radius, linear.cols, linear.rows);
  const FilterMode mode = filter_mode_of(settings.filter_mode);
  const bool inside = lies_inside(view, linear.cols, linear.rows, 0);
  const bool filtered =
      inside && number >= 0 && view.width >= cve::kMinFilteredSize && view.height >= cve::kMinFilteredSize;
  if (filtered && !mode.borders && (view.x < radius || view.x + view.width > linear.cols - radius)) return {};

  cve::XMat_<unsigned char> working;
  working.create(linear.rows, linear.cols);
  // What isn't filtered stays dark, unless it is the whole image, which is then taken as it is.
  if (!filtered && !(mode.whole_image && inside)) return working;
  const cve::ByteCurve curve(working_byte, settings.gamma_mode);
  const auto source_row = [&](std::int32_t y) { return linear.row(view.y + y) + view.x; };
  const cve::FilterKernel kernel = filtered ? cve::make_float_kernel(number) : cve::FilterKernel();
  const auto width = static_cast<std::size_t>(view.width);
  cve::parallel_bands(view.height, [&](std::int32_t begin, std::int32_t end) {
    cve::BandFilter filter(kernel, view.width, view.height, mode.borders, set);
    std::vector<float> light(width);
    for (std::int32_t y = begin; y < end; ++y) {
      if (filtered) filter.make_row(y, source_row, light.data());
      if (filtered && mode.clamp) {
        std::transform(light.begin(), light.end(), light.begin(),
                       [](float value) { return std::clamp(value, 0.0f, 1.0f); });
      }
      curve.convert(filtered ? light.data() : source_row(y), width, working.row(view.y + y) + view.x, set);
    }
  });
  return working;
}

float levelScale(const DetectorSettings& settings, std::int32_t level) {
  return static_cast<float>(std::pow(settings.scaleFactor, level - settings.firstLevel));
}

LevelImages buildPyramidLevels(const cve::XMat_<unsigned char>& image, const DetectorSettings& settings,
                               std::int64_t border) {
  // Tested before anything is allocated: the sizes of other levels may be anything.
  if (settings.nlevels != 1 || settings.firstLevel != 0) std::abort();
  if (border < 0 || border > std::numeric_limits<std::int32_t>::max() / 4) throw std::bad_alloc();
  const auto margin = static_cast<std::int32_t>(border);

  LevelImages levels(1, true);
  const float inverse = 1.0f / levelScale(settings, 0);
  const auto cols = static_cast<std::int32_t>(std::round(static_cast<float>(image.cols) * inverse));
  const auto rows = static_cast<std::int32_t>(std::round(static_cast<float>(image.rows) * inverse));
  cve::XMat_<unsigned char> padded;
  padded.create(rows + 2 * margin, cols + 2 * margin);
  levels.images[0] = padded.view(margin, margin, cols, rows);

  cve::XMat_<short> linear;
  cve::bytesToLinear12(image, linear);
  cve::XMat_<short> filtered;
  cve::filterFixed(linear, filtered, settings.filter_type[0]);
  linear = {};
  cve::linear12ToBytes(filtered, levels.images[0]);
  cve::padBorder(levels.images[0], padded, margin, margin, margin, margin);
  return levels;
}

}  // namespace fpu
