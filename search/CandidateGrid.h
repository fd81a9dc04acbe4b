#pragma once

// The candidate poses of one level of the search.
//
// Around each seed stands a grid: the product of ten rows of values, one a pose component. The list of a
// level is the grids of its seeds one behind the other, each in nest order (right_roll varies slowest,
// left_offset_x fastest), less the candidates of later seeds that lie near one already listed. It is walked,
// never held: a level may have millions of candidates.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "search/CalibContext.h"
#include "search/PlaceSet.h"
#include "search/PoseCandidate.h"

namespace twintrue {

using Seeds = std::array<PoseCandidate, kMaxSeeds>;

// A pose is near another if all ten values differ by less than this, radians and pixels alike.
inline constexpr double kNearPose = 0.001;

// The pose components from the outermost sweep to the innermost.
inline constexpr std::array<double CalibResult::*, kPoseValues> kNestOrder{
    &CalibResult::right_roll,     &CalibResult::left_roll,     &CalibResult::right_pan,
    &CalibResult::left_pan,       &CalibResult::right_tilt,    &CalibResult::left_tilt,
    &CalibResult::right_offset_y, &CalibResult::left_offset_y, &CalibResult::right_offset_x,
    &CalibResult::left_offset_x};

// Stands for the limit of a component that has none.
inline constexpr double kUnlimited = std::numeric_limits<double>::infinity();

// Values that a range gives round `base` within +-limit, in order. Takes memory and time for those alone,
// however many the limit leaves out. Aborts if its `exec` has bit 0 set.
std::vector<double> walk_range(const SweepRange& range, double base, double limit = kUnlimited);

// The most candidates that a level of those ranges can list, wherever its seeds lie. What a limit leaves out
// is none and doesn't count. Above kMaxLevelCandidates the number stops at some larger one.
std::int64_t most_candidates(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits,
                             std::int32_t seed_count);

// A place in each row of a grid, outermost first.
using GridCoordinates = std::array<std::size_t, kPoseValues>;

// The full grid round one seed, values beyond the limits left out.
struct SeedGrid {
  SeedGrid(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits, const CalibResult& seed);

  std::int64_t size() const;
  // Writes the ten values of the pose at that place of the grid.
  void pose(std::int64_t place, CalibResult* out) const;

  std::array<std::vector<double>, kPoseValues> values;  // in nest order
};

class CandidateGrid {
 public:
  // `seed_count` of the seeds get a grid; at most three.
  CandidateGrid(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits, const Seeds& seeds,
                std::int32_t seed_count);

  // Number of candidates listed.
  std::int64_t size() const { return size_; }

  // A place in the walk. Default: the list's start.
  struct Cursor {
    std::size_t grid = 0;
    std::int64_t place = 0;
  };

  // Appends up to `limit` places of the list to `out` and moves the cursor behind them. False at the end.
  bool next(Cursor& cursor, std::size_t limit, std::vector<Cursor>& out) const;

  const SeedGrid& grid(std::size_t k) const { return grids_[k]; }

 private:
  // A range of places for each component.
  struct Box {
    GridCoordinates first{};
    GridCoordinates past{};
  };

  void list(std::size_t k, const GridCoordinates& at);
  bool near_listed(std::size_t k, const GridCoordinates& at) const;
  bool any_listed(std::size_t k, const Box& box, std::size_t axis, std::size_t prefix) const;
  bool listed(std::size_t k, std::int64_t place) const;

  std::vector<SeedGrid> grids_;
  // By grid and component: the places listed, cut behind that component. So a search for listed places enters
  // only where there are some. Empty for the first grid, which is whole.
  std::vector<std::vector<PlaceSet>> listed_;
  std::int64_t size_ = 0;
};

}  // namespace twintrue
