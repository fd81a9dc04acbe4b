#include "features/FeatureFrame.h"

#include "features/FeatureUnit.h"

namespace fpu {

FeatureFrame::FeatureFrame(FeatureUnit& unit_) : unit(&unit_) {
  store.grid = &unit_.grid;
  store.capacityPerCell = unit_.grid.maxKpsInCell();
  const std::size_t slots =
      static_cast<std::size_t>(unit_.grid.numCells()) * static_cast<std::size_t>(store.capacityPerCell);
  store.records.resize(slots);
  store.cellCounts.resize(slots);
}

}  // namespace fpu
