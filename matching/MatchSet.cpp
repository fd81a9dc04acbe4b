#include "matching/MatchSet.h"

#include <algorithm>
#include <limits>
#include <new>

namespace fpu {

MatchSet::MatchSet(FeatureUnit& unit_, std::int32_t candidates) : unit(&unit_), grid(&unit_.grid) {
  const std::int64_t per_cell =
      std::int64_t{std::max(grid->maxKpsInCell(), 0)} * std::clamp(candidates, 0, 2);
  if (per_cell > std::numeric_limits<std::int32_t>::max()) throw std::bad_alloc();
  capacity = static_cast<std::int32_t>(per_cell);
  const std::size_t entries =
      static_cast<std::size_t>(std::max(grid->numCells(), 0)) * static_cast<std::size_t>(capacity);
  vectors.resize(entries);
  counts.resize(std::max(entries, static_cast<std::size_t>(std::max(grid->numCells(), 0))));
}

const MatchRecord* MatchSet::linked_record(std::int32_t link) const {
  if (link < 0 || static_cast<std::size_t>(link) >= records.size()) return nullptr;
  return &records[static_cast<std::size_t>(link)];
}

}  // namespace fpu
