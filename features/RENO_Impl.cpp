#include "features/RENO_Impl.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "features/Description.h"
#include "features/KeypointScan.h"
#include "features/LevelBuild.h"
#include "features/Response.h"
#include "features/SubPixel.h"
#include "imaging/ToneCurves.h"

namespace fpu {
namespace {

// Typed header over the caller's pixels.
template <typename T>
cve::XMat_<T> borrow(const cve::XMat& image) {
  cve::XMat_<T> header;
  header.cols = image.cols;
  header.rows = image.rows;
  header.stride = image.stride;
  header.data = image.data;
  return header;
}

cve::XMat_<float> packed_copy(const cve::XMat_<float>& image) {
  cve::XMat_<float> copy;
  copy.create(image.rows, image.cols);
  const std::size_t bytes = static_cast<std::size_t>(image.cols) * sizeof(float);
  for (std::int32_t y = 0; y < image.rows; ++y) std::memcpy(copy.row(y), image.row(y), bytes);
  return copy;
}

// The grid's area, clipped to the image.
Region scan_area(const cve::XMat& image, const GridIF& grid) {
  Region area;
  area.x = std::max(grid.areaLeft(), 0);
  area.y = std::max(grid.areaTop(), 0);
  area.width = std::min(image.cols, grid.areaLeft() + grid.areaWidth()) - area.x;
  area.height = std::min(image.rows, grid.areaTop() + grid.areaHeight()) - area.y;
  return area;
}

void clear_store(KeyPointStore& store) {
  std::fill(store.cellCounts.begin(), store.cellCounts.end(), 0);
  store.count = 0;
}

}  // namespace

void RENO_Impl::read(const twintrue::ParamNode& node) {
  settings_.read(node);
  std::fputs("\n", stdout);
}

bool RENO_Impl::usable(std::int32_t frameWidth, std::int32_t frameHeight) const {
  if (!settings_.usable(frameWidth, frameHeight)) return false;
  const bool makes_chain = settings_.wta_k == 1 && (settings_.rnd_mode == 0 || settings_.rnd_mode == 1);
  return !makes_chain || chain_can_be_completed(candidates(), chain_rules(settings_));
}

CandidatePattern RENO_Impl::candidates() const {
  return makePattern(settings_.patchSize, settings_.rnd_mode, settings_.rSigma, settings_.seedMake);
}

void RENO_Impl::detect(std::int32_t slot, const cve::XMat& image, KeyPointStore& store) {
  if (image.empty()) return;
  if (slot < 0 || slot > 1) std::abort();
  scales_.resize(static_cast<std::size_t>(settings_.nlevels));
  build_levels(image, *store.grid);
  smoothed_ = false;

  switch (settings_.det_type) {
    case 6:
      find_keypoints(slot, image, store);
      break;
    case 8:
      std::abort();
    default:
      break;
  }
}

void RENO_Impl::build_levels(const cve::XMat& image, const GridIF& grid) {
  levels_ = {};
  cve::XMat_<float> linear;
  switch (image.type()) {
    case cve::kUint8: {
      const auto bytes = borrow<unsigned char>(image);
      if (settings_.lpf_bit != 0) {
        levels_ = buildPyramidLevels(bytes, settings_, pyramid_border());
        scales_[0] = levelScale(settings_, 0);
        return;
      }
      cve::bytesToLinear(bytes, linear);
      break;
    }
    case cve::kFloat32:
      if (settings_.lpf_bit != 0) std::abort();
      linear = borrow<float>(image);
      break;
    default:
      std::abort();
  }
  scales_[0] = 1.0f;
  const Region region = filter_region(image, grid);
  if (tap_ == nullptr) {
    levels_ = LevelImages(settings_.nlevels, false);
    levels_.images[0] = buildWorkingImage(linear, settings_, region);
    if (!levels_.images[0].empty()) return;
  }
  if (linear.owner == nullptr) linear = packed_copy(linear);
  levels_ = buildFloatLevels(std::move(linear), settings_, region, tap_);
}

Region RENO_Impl::filter_region(const cve::XMat& image, const GridIF& grid) const {
  const std::int32_t margin = settings_.patchSize / 2 + kReachBeyondPatch;
  const std::int32_t x0 = std::max(grid.areaLeft() - margin, 0);
  const std::int32_t y0 = std::max(grid.areaTop() - margin, 0);
  const std::int32_t x1 = std::min(grid.areaLeft() + grid.areaWidth() + margin, image.cols);
  const std::int32_t y1 = std::min(grid.areaTop() + grid.areaHeight() + margin, image.rows);
  return {x0, y0, x1 - x0, y1 - y0};
}

std::int64_t RENO_Impl::pyramid_border() const {
  double border = settings_.patchSize / 2;
  if (settings_.rotating) border = std::trunc(std::ceil(border * 1.4142135623730951));
  return std::max(static_cast<std::int64_t>(border), std::int64_t{settings_.edgeThreshold}) + 1;
}

void RENO_Impl::find_keypoints(std::int32_t slot, const cve::XMat& image, KeyPointStore& store) {
  const Region area = scan_area(image, *store.grid);
  const bool whole_area = area.width == store.grid->areaWidth() && area.height == store.grid->areaHeight();
  if (!whole_area || !lies_inside(area, image.cols, image.rows, kResponseReach)) {
    clear_store(store);
    return;
  }
  const cve::XMat_<unsigned char> working = levels_.levelImage(0);
  if (tap_ != nullptr) tap_->image("working", working, 0, 0);
  if (tap_ != nullptr) computeResponse(working, area, tap_);
  const bool refines = settings_.refining >= 1;
  cve::XMat_<float>& det = determinants_[static_cast<std::size_t>(slot)];
  if (!refines) det = {};
  const float threshold = std::max(settings_.threshold[0], 0.0f);
  scanKeypoints(working, area, threshold, refines ? &det : nullptr, store, twintrue::best_instruction_set());
  if (refines) refineKeypoints(det, settings_.refining == 1, store);
}

std::vector<PatternPoint> RENO_Impl::pattern() const {
  const CandidatePattern drawn = candidates();
  if (settings_.wta_k == 2) return {drawn.begin(), drawn.end()};
  return selectPattern(drawn, settings_);
}

void RENO_Impl::smooth_levels() {
  if (settings_.desc_gaus_size <= 0 || smoothed_) return;
  for (std::size_t level = 0; level < levels_.images.size(); ++level) {
    const cve::XMat_<unsigned char> image = levels_.levelImage(level);
    if (image.empty()) continue;
    levels_.images[level] = smoothForDescription(image, settings_.desc_gaus_size);
    levels_.spare = 0;
    if (tap_ != nullptr) tap_->image("smoothed", levels_.images[level], 0, 0);
  }
  smoothed_ = true;
}

void RENO_Impl::compute(std::int32_t /*slot*/, KeyPointStore& store, cve::XMat_<unsigned char>& descriptors) {
  if (store.count == 0) {
    descriptors.data = nullptr;
    return;
  }
  descriptors.create(store.count, settings_.desc_bytes);
  const std::vector<PatternPoint> chain = pattern();
  smooth_levels();
  if (settings_.desc_image_mode != 0) std::abort();

  const auto cells = static_cast<std::ptrdiff_t>(store.grid->numCells());
  const bool any = std::any_of(store.cellCounts.begin(), store.cellCounts.begin() + cells,
                               [](std::int32_t live) { return live > 0; });
  if (!any) return;
  if (settings_.wta_k != 1) std::abort();

  std::vector<DescribedLevel> described;
  for (std::size_t level = 0; level < levels_.images.size(); ++level) {
    described.push_back({levels_.levelImage(level), 1.0f / scales_[level]});
  }
  describeKeypoints(described, chain, store, descriptors);
}

}  // namespace fpu
