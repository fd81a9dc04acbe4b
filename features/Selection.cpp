#include "features/Selection.h"

#include <fmt/core.h>
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "imaging/RowLoop.h"

namespace fpu {

FastBuf::FastBuf(std::size_t threads, std::size_t room) : vectors_(local_.data()) {
  try {
    if (threads > local_.size()) {
      heap_ = std::make_unique<std::vector<KeyPointRecord>[]>(threads);
      vectors_ = heap_.get();
    }
    for (std::size_t thread = 0; thread < threads; ++thread) vectors_[thread].resize(room);
  } catch (const std::bad_alloc&) {
    fmt::print(stdout, "FastBuf new error\n");
    std::exit(-1);
  }
}

std::size_t collect_candidates(const CellScan& scan, KeyPointRecord* out) {
  constexpr std::int32_t kMaxScore = 65535;
  std::size_t count = 0;
  for (std::int32_t y = 0; y < scan.cell.height; ++y) {
    const float* row = scan.response + y * scan.pitch;
    for (std::int32_t x = 0; x < scan.cell.width; ++x) {
      // Derivatives of bytes keep the response below 10^4, so the product fits an integer.
      const auto value = static_cast<std::int32_t>(row[x] * 100.0f);
      if (!(static_cast<float>(value) > scan.threshold)) continue;
      KeyPointRecord& record = out[count++];
      record.x = static_cast<float>(scan.cell.x + x);
      record.y = static_cast<float>(scan.cell.y + y);
      record.cell = scan.index;
      record.index = -1;
      record.link = -1;
      record.score = static_cast<std::uint16_t>(std::min(value, kMaxScore));
      record.octave = 0;
      record.refined = 1;
    }
  }
  return count;
}

void keep_best(KeyPointRecord* records, std::size_t count, std::size_t capacity) {
  std::partial_sort(records, records + capacity, records + count,
                    [](const KeyPointRecord& a, const KeyPointRecord& b) {
                      if (a.score != b.score) return a.score > b.score;
                      if (a.y != b.y) return a.y < b.y;
                      return a.x < b.x;
                    });
}

void selectKeypoints(const cve::XMat_<float>& response, float threshold, KeyPointStore& store) {
  const GridIF& grid = *store.grid;
  const std::int32_t cells = grid.numCells();
  const std::int32_t horz = grid.numHorzCells();
  const std::int32_t width = grid.cellWidth();
  const std::int32_t height = grid.cellHeight();
  const auto capacity = static_cast<std::size_t>(store.capacityPerCell);

  // A static schedule gives no cell to threads beyond the number of cells.
  const auto threads = static_cast<std::size_t>(std::max(std::min(omp_get_max_threads(), cells), 0));
  FastBuf buffers(threads, static_cast<std::size_t>(grid.cellArea()));
  cve::parallel_rows(0, cells, [&](std::int32_t c) {
    const std::int32_t x = (c % horz) * width;
    const std::int32_t y = (c / horz) * height;
    const CellScan scan{response.row(y) + x, response.pitch(),
                        Region{grid.areaLeft() + x, grid.areaTop() + y, width, height}, c, threshold};
    KeyPointRecord* found = buffers.of_thread(static_cast<std::size_t>(omp_get_thread_num()));
    std::size_t count = collect_candidates(scan, found);
    if (count > capacity) {
      keep_best(found, count, capacity);
      count = capacity;
    }
    store.cellCounts[static_cast<std::size_t>(c)] = static_cast<std::int32_t>(count);
    std::copy_n(found, count,
                store.records.begin() + static_cast<std::ptrdiff_t>(static_cast<std::size_t>(c) * capacity));
  });

  std::int32_t next = 0;
  for (std::size_t c = 0; c < static_cast<std::size_t>(cells); ++c) {
    KeyPointRecord* records = store.records.data() + c * capacity;
    for (std::int32_t slot = 0; slot < store.cellCounts[c]; ++slot) records[slot].index = next++;
  }
  store.count = next;
}

}  // namespace fpu
