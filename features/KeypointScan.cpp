#include "features/KeypointScan.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

#include "base/ParallelEach.h"
#include "features/ResponseRows.h"
#include "features/Selection.h"

namespace fpu {
namespace {

// Rows that one thread scans in one go, unless a cell is higher: many beside those that two neighbours both
// sum.
constexpr std::int32_t kBandRows = 64;

void provide_det(const Region& area, cve::XMat_<float>& det) {
  const bool fits = det.owner.use_count() == 1 && det.cols == area.width && det.rows == area.height &&
                    det.stride == (area.width + 2) * static_cast<std::int32_t>(sizeof(float));
  if (fits) return;
  det = {};
  det = cve::createWithMargin<float>({area.width, area.height}, 1);
}

}  // namespace

void scanKeypoints(const cve::XMat_<unsigned char>& working, const Region& area, float threshold,
                   cve::XMat_<float>* det, KeyPointStore& store, twintrue::InstructionSet set) {
  const GridIF& grid = *store.grid;
  const std::int32_t height = grid.cellHeight();
  const std::int32_t cell_rows = grid.numHorzCells() > 0 ? grid.numVertCells() : 0;
  if (det != nullptr) {
    provide_det(area, *det);
    fill_det_margin(working, area, *det);
  }
  const std::int32_t cell_rows_in_band = std::max(kBandRows / height, 1);
  const ResponseRowKernels kernels = response_row_kernels(set);
  const auto scan_band = [&](std::int32_t band) {
    ResponseRows rows(working, area, set);
    CellRow cells(threshold, store);
    std::vector<float> response(static_cast<std::size_t>(area.width));
    std::vector<std::int32_t> columns(static_cast<std::size_t>(area.width) + 1);
    const std::int32_t first = band * cell_rows_in_band;
    const std::int32_t last = std::min(first + cell_rows_in_band, cell_rows);
    for (std::int32_t cell_row = first; cell_row < last; ++cell_row) {
      for (std::int32_t y = 0; y < height; ++y) {
        const std::int32_t area_y = cell_row * height + y;
        float* det_row = det == nullptr ? nullptr : det->row(area_y);
        rows.make_row(area_y, cells.least() * 0.01f, response.data(), det_row);
        const std::int32_t count = kernels.reach(response.data(), area.width, cells.least(), columns.data());
        cells.add(y, response.data(), columns.data(), count);
      }
      cells.finish(cell_row);
    }
  };
  try {
    twintrue::parallel_rows(0, (cell_rows + cell_rows_in_band - 1) / cell_rows_in_band, scan_band);
  } catch (const std::bad_alloc&) {
    end_for_lack_of_scratch();
  }
  number_keypoints(store);
}

}  // namespace fpu
