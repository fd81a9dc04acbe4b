#include "features/SubPixel.h"

#include <cmath>
#include <cstdint>

#include "base/ParallelEach.h"

namespace fpu {
namespace {

// Of the second derivatives: below it the surface is flat, or a saddle.
constexpr float kLeastDeterminant = 0.0000001f;

}  // namespace

bool refine_point(const float* det, std::ptrdiff_t pitch, float& x, float& y) {
  const auto ix = static_cast<std::ptrdiff_t>(x);
  const auto iy = static_cast<std::ptrdiff_t>(y);
  const float* row = det + iy * pitch + ix;
  const float* above = row - pitch;
  const float* below = row + pitch;

  const float dx = (row[1] - row[-1]) * 0.5f;
  const float dy = (below[0] - above[0]) * 0.5f;
  const float dxx = row[-1] + row[1] - 2.0f * row[0];
  const float dyy = above[0] + below[0] - 2.0f * row[0];
  const float t = above[-1] + below[1] - above[1] - below[-1];
  const float dxy = t * 0.25f;
  const float den = dyy * dxx - t * t * 0.0625f;
  if (den < kLeastDeterminant) return false;

  const float inverse = 1.0f / den;
  const float ox = (dxy * dy - dyy * dx) * inverse;
  const float oy = (dxy * dx - dxx * dy) * inverse;
  if (std::fabs(ox) >= 0.5f || std::fabs(oy) >= 0.5f) return false;
  x += ox;
  y += oy;
  return true;
}

void refineKeypoints(const cve::XMat_<float>& det, bool drop, KeyPointStore& store) {
  const GridIF& grid = *store.grid;
  const auto left = static_cast<float>(grid.areaLeft());
  const auto top = static_cast<float>(grid.areaTop());
  const auto capacity = static_cast<std::size_t>(store.capacityPerCell);
  twintrue::parallel_rows(0, grid.numCells(), [&](std::int32_t c) {
    std::int32_t& live = store.cellCounts[static_cast<std::size_t>(c)];
    KeyPointRecord* records = store.records.data() + static_cast<std::size_t>(c) * capacity;
    std::int32_t kept = 0;
    for (std::int32_t slot = 0; slot < live; ++slot) {
      KeyPointRecord record = records[slot];
      record.x -= left;
      record.y -= top;
      const bool refined = refine_point(det.row(0), det.cols, record.x, record.y);
      record.refined = refined ? 1 : 0;
      record.x += left;
      record.y += top;
      if (refined || !drop) records[kept++] = record;
    }
    live = kept;
  });
}

}  // namespace fpu
