#include "features/Selection.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace fpu {
namespace {

constexpr std::int32_t kMaxScore = 65535;
constexpr unsigned kScoreShift = 32;  // below: the place in the cell, which has fewer than 2^31 pixels

}  // namespace

CellRow::CellRow(float threshold, KeyPointStore& store)
    : width_(store.grid->cellWidth()),
      // Scores are whole numbers: above the threshold means at least the next one.
      least_(std::floor(threshold) + 1.0f),
      store_(store),
      candidates_(static_cast<std::size_t>(std::max(store.grid->numHorzCells(), 0))) {}

void CellRow::add(std::int32_t y, const float* response, const std::int32_t* columns, std::int32_t count) {
  std::size_t cell = 0;
  std::int32_t left = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    const std::int32_t x = columns[i];
    for (; x - left >= width_; left += width_) ++cell;
    if (cell >= candidates_.size()) return;
    // Derivatives of bytes keep the response below 10^4, so the product fits an integer.
    const auto score = std::min(static_cast<std::int32_t>(response[x] * 100.0f), kMaxScore);
    const std::int64_t place = std::int64_t{y} * width_ + (x - left);
    candidates_[cell].push_back(static_cast<Candidate>(kMaxScore - score) << kScoreShift |
                                static_cast<Candidate>(place));
  }
}

void CellRow::finish(std::int32_t cell_row) {
  const GridIF& grid = *store_.grid;
  const auto capacity = static_cast<std::size_t>(store_.capacityPerCell);
  const std::int32_t top = grid.areaTop() + cell_row * grid.cellHeight();
  for (std::size_t column = 0; column < candidates_.size(); ++column) {
    std::vector<Candidate>& found = candidates_[column];
    if (found.size() > capacity) {
      const auto cut = found.begin() + static_cast<std::ptrdiff_t>(capacity);
      std::nth_element(found.begin(), cut, found.end());
      std::sort(found.begin(), cut);
      found.resize(capacity);
    }
    const std::size_t cell = static_cast<std::size_t>(cell_row) * candidates_.size() + column;
    const std::int32_t left = grid.areaLeft() + static_cast<std::int32_t>(column) * width_;
    KeyPointRecord* out = store_.records.data() + cell * capacity;
    for (const Candidate candidate : found) {
      const auto place = static_cast<std::int32_t>(candidate & ((Candidate{1} << kScoreShift) - 1));
      KeyPointRecord& record = *out++;
      record.x = static_cast<float>(left + place % width_);
      record.y = static_cast<float>(top + place / width_);
      record.cell = static_cast<std::int32_t>(cell);
      record.index = -1;
      record.link = -1;
      record.score =
          static_cast<std::uint16_t>(kMaxScore - static_cast<std::int32_t>(candidate >> kScoreShift));
      record.octave = 0;
      record.refined = 1;
    }
    store_.cellCounts[cell] = static_cast<std::int32_t>(found.size());
    found.clear();
  }
}

void number_keypoints(KeyPointStore& store) {
  const auto capacity = static_cast<std::size_t>(store.capacityPerCell);
  std::int32_t next = 0;
  for (std::size_t c = 0; c < static_cast<std::size_t>(store.grid->numCells()); ++c) {
    KeyPointRecord* records = store.records.data() + c * capacity;
    for (std::int32_t slot = 0; slot < store.cellCounts[c]; ++slot) records[slot].index = next++;
  }
  store.count = next;
}

void end_for_lack_of_scratch() {
  std::fputs("FastBuf new error\n", stdout);
  std::exit(-1);
}

}  // namespace fpu
