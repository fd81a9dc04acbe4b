// All loaders of settings and the set-up of a feature unit. What a load lets through stays within the tables
// and the frame. The file is a complete one with the input's lines behind it, or the input alone.

#include <cmath>
#include <memory>

#include "LegalSettings.h"
#include "Support.h"
#include "features/FeatureFrame.h"
#include "features/FeatureUnit.h"
#include "features/RENO_Impl.h"
#include "features/TestPattern.h"
#include "matching/MatchSet.h"
#include "search/CalibContext.h"

namespace {

using namespace twintrue;
using fuzzing::require;

void check_context(const CalibContext& context) {
  require(context.retry_count < kMaxRetries, "retries stay within their tables");
  require(context.rank_last >= 0 && context.rank_last < kRankBins, "ranks stay within the histogram");
  require(context.score_tbl_size >= 0 && context.score_tbl_size <= kMaxScoreTable,
          "score tables are bounded");
  for (std::size_t r = 0; r < kMaxRetries && static_cast<std::int32_t>(r) <= context.retry_count; ++r) {
    require(context.num_levels[r] <= kMaxLevels, "levels stay within their tables");
  }
  for (const std::int32_t k : context.knn) require(k <= kMaxSeeds, "seeds stay within their list");
}

void check_unit(const fpu::FeatureUnit& unit) {
  const fpu::Grid& grid = unit.grid;
  require(grid.cellWidth() > 0 && grid.cellHeight() > 0, "cells have an area");
  require(grid.areaLeft() >= 0 && grid.areaTop() >= 0, "the raster starts inside the frame");
  require(grid.areaLeft() + grid.areaWidth() <= unit.frameWidth, "the raster is no wider than the frame");
  require(grid.areaTop() + grid.areaHeight() <= unit.frameHeight, "the raster is no higher than the frame");
  require(grid.numCells() >= 0 && grid.maxKpsInCell() > 0, "cells have room");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::MemoryFile file;
  fuzzing::Input input(data, size);
  const bool complete = input.pick(1) == 0;
  const std::int32_t width = 16 * static_cast<std::int32_t>(input.pick(20));
  const std::int32_t height = 16 * static_cast<std::int32_t>(input.pick(20));
  const std::string text = (complete ? fuzzing::small_settings() : "") + std::string(input.rest());
  file.write(text);

  const auto context = std::make_unique<CalibContext>();
  if (load_calib_settings(*context, file.path(), 2 * width)) check_context(*context);

  file.write(fuzzing::legal_settings(text));
  if (!fuzzing::settings_are_legal(file.path())) return 0;
  const auto unit = fpu::createFeatureUnit(file.path(), width, height);
  if (!unit) return 0;
  check_unit(*unit);
  fpu::FeatureFrame frame(*unit);
  require(frame.store.records.size() <= (std::size_t{1} << 23), "a small frame needs a small store");
  const fpu::MatchSet set(*unit, 2);
  const auto& detector = dynamic_cast<const fpu::RENO_Impl&>(*unit->detector);
  const auto chain = fpu::selectPattern(detector.candidates(), detector.settings());
  for (const fpu::PatternPoint& point : chain) {
    const std::int32_t half = detector.patchSize() / 2;
    require(std::abs(point.x) <= half && std::abs(point.y) <= half, "a pattern stays in its patch");
  }
  return 0;
}
