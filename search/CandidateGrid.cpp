#include "search/CandidateGrid.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <tuple>
#include <utility>

namespace twintrue {
namespace {

constexpr std::int32_t kExecUnsupported = 1;

struct Axis {
  const SweepRange& range;
  double limit;
};

// In nest order.
std::array<Axis, kPoseValues> axes_of(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits) {
  return {{{right.roll, kUnlimited},
           {left.roll, kUnlimited},
           {right.pan, limits.pan_max},
           {left.pan, limits.pan_max},
           {right.tilt, limits.tilt_max},
           {left.tilt, limits.tilt_max},
           {right.offset_y, limits.offset_y_max},
           {left.offset_y, limits.offset_y_max},
           {right.offset_x, limits.offset_x_max},
           {left.offset_x, limits.offset_x_max}}};
}

// The most values that a range can have within the limit, whatever its base.
std::int64_t most_values(const SweepRange& range, double limit) {
  if (range.div < 1 || limit < 0.0) return 0;
  // Ranges so wide that their ends overflow have values that aren't numbers and pass any limit.
  constexpr double kWidest = 1e300;
  const bool is_limited = std::abs(range.min) + std::abs(range.max) + limit < kWidest;
  if (range.div == 1 || !is_limited) return range.div;
  const double step = std::abs(range.max - range.min) / (range.div - 1);
  const double within = std::floor(2.0 * limit / step) + 1.0;  // not finite where all values are one
  return within < range.div ? static_cast<std::int64_t>(within) : range.div;
}

GridCoordinates coordinates_of(const SeedGrid& grid, std::int64_t place) {
  GridCoordinates at{};
  auto rest = static_cast<std::size_t>(place);
  for (std::size_t axis = kPoseValues; axis-- > 0;) {
    const std::size_t n = grid.values[axis].size();
    at[axis] = rest % n;
    rest /= n;
  }
  return at;
}

// The values of a row that are near one, as a half-open range of places. Rows rise or fall evenly, so those
// values stand side by side.
std::pair<std::size_t, std::size_t> near_values(const std::vector<double>& row, double value) {
  const bool rising = row.empty() || row.front() <= row.back();
  const auto before = [&](double v) { return rising ? v - value <= -kNearPose : v - value >= kNearPose; };
  const auto first = std::partition_point(row.begin(), row.end(), before);
  const auto past =
      std::partition_point(first, row.end(), [&](double v) { return std::abs(v - value) < kNearPose; });
  return {static_cast<std::size_t>(first - row.begin()), static_cast<std::size_t>(past - row.begin())};
}

}  // namespace

std::vector<double> walk_range(const SweepRange& range, double base, double limit) {
  const double lo = base + range.min;
  const double hi = base + range.max;
  const auto left_out = [limit](double value) { return std::abs(value) > limit; };
  if (range.div == 1) {
    const double middle = (lo + hi) * 0.5;
    return left_out(middle) ? std::vector<double>{} : std::vector<double>{middle};
  }
  if ((range.exec & kExecUnsupported) != 0) std::abort();
  if (range.div < 1) return {};
  const double step = (hi - lo) / (range.div - 1);
  const auto value_at = [&](std::int32_t i) { return lo + i * step; };
  // Values rise or fall, rounded as they are, so those within the limit stand side by side: from the first
  // that isn't in front of it on.
  const bool in_order = std::isfinite(step);
  std::int32_t first = 0;
  for (std::int32_t past = in_order ? range.div : 0; first < past;) {
    const std::int32_t middle = first + (past - first) / 2;
    const bool in_front = step < 0.0 ? value_at(middle) > limit : value_at(middle) < -limit;
    (in_front ? first : past) = in_front ? middle + 1 : middle;
  }
  std::vector<double> values;
  values.reserve(static_cast<std::size_t>(most_values(range, limit)));
  for (std::int32_t i = first; i < range.div; ++i) {
    if (!left_out(value_at(i))) {
      values.push_back(value_at(i));
    } else if (in_order) {
      break;
    }
  }
  return values;
}

std::int64_t most_candidates(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits,
                             std::int32_t seed_count) {
  const auto axes = axes_of(right, left, limits);
  const auto is_empty = [](const Axis& axis) { return most_values(axis.range, axis.limit) == 0; };
  if (seed_count < 1 || std::any_of(axes.begin(), axes.end(), is_empty)) return 0;
  std::int64_t candidates = seed_count;
  for (const Axis& axis : axes) {
    candidates *= most_values(axis.range, axis.limit);
    if (candidates > kMaxLevelCandidates) break;
  }
  return candidates;
}

SeedGrid::SeedGrid(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits,
                   const CalibResult& seed) {
  // A grid without values in one component is empty: leave the other rows out, they may be long.
  if (most_candidates(right, left, limits, 1) == 0) return;
  const auto axes = axes_of(right, left, limits);
  for (std::size_t i = 0; i < axes.size(); ++i) {
    const bool is_left = i % 2 == 1;
    const double base = is_left && left.mode != 0 ? 0.0 : seed.*kNestOrder[i];
    values[i] = walk_range(axes[i].range, base, axes[i].limit);
  }
}

std::int64_t SeedGrid::size() const {
  std::int64_t product = 1;
  for (const auto& row : values) product *= static_cast<std::int64_t>(row.size());
  return product;
}

void SeedGrid::pose(std::int64_t place, CalibResult* out) const {
  const GridCoordinates at = coordinates_of(*this, place);
  for (std::size_t axis = 0; axis < kPoseValues; ++axis) out->*kNestOrder[axis] = values[axis][at[axis]];
}

CandidateGrid::CandidateGrid(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits,
                             const Seeds& seeds, std::int32_t seed_count) {
  for (std::size_t k = 0; k < seeds.size() && static_cast<std::int32_t>(k) < seed_count; ++k) {
    grids_.emplace_back(right, left, limits, seeds[k]);
    listed_.emplace_back();
    const std::int64_t whole = grids_[k].size();
    if (k == 0) {
      size_ = whole;
      continue;
    }
    std::size_t places = 1;
    for (const auto& row : grids_[k].values) listed_[k].emplace_back(places *= row.size());
    for (std::int64_t place = 0; place < whole; ++place) {
      const GridCoordinates at = coordinates_of(grids_[k], place);
      if (near_listed(k, at)) continue;
      list(k, at);
      ++size_;
    }
  }
}

void CandidateGrid::list(std::size_t k, const GridCoordinates& at) {
  std::size_t prefix = 0;
  for (std::size_t axis = 0; axis < kPoseValues; ++axis) {
    prefix = prefix * grids_[k].values[axis].size() + at[axis];
    listed_[k][axis].insert(prefix);
  }
}

bool CandidateGrid::listed(std::size_t k, std::int64_t place) const {
  return k == 0 || listed_[k].back().contains(static_cast<std::size_t>(place));
}

// All poses of a grid that are near a given one form a product again: per component the values near to its
// value. So it is enough to look there instead of walking the list.
bool CandidateGrid::near_listed(std::size_t k, const GridCoordinates& at) const {
  for (std::size_t other = 0; other <= k; ++other) {
    Box box;
    bool any = true;
    for (std::size_t axis = 0; axis < kPoseValues && any; ++axis) {
      const double value = grids_[k].values[axis][at[axis]];
      std::tie(box.first[axis], box.past[axis]) = near_values(grids_[other].values[axis], value);
      any = box.first[axis] < box.past[axis];
    }
    if (any && (other == 0 || any_listed(other, box, 0, 0))) return true;
  }
  return false;
}

// Whether a listed place lies in the box, given the components in front of `axis` by their place. Steps far
// below the near distance put many thousand places into a box, and few that are listed.
bool CandidateGrid::any_listed(std::size_t k, const Box& box, std::size_t axis, std::size_t prefix) const {
  const PlaceSet& places = listed_[k][axis];
  const std::size_t row = prefix * grids_[k].values[axis].size();
  for (std::size_t at = places.next(row + box.first[axis]); at < row + box.past[axis];
       at = places.next(at + 1)) {
    if (axis + 1 == kPoseValues || any_listed(k, box, axis + 1, at)) return true;
  }
  return false;
}

bool CandidateGrid::next(Cursor& cursor, std::size_t limit, std::vector<Cursor>& out) const {
  while (cursor.grid < grids_.size()) {
    const std::int64_t whole = grids_[cursor.grid].size();
    for (; cursor.place < whole && limit > 0; ++cursor.place) {
      if (!listed(cursor.grid, cursor.place)) continue;
      out.push_back(cursor);
      --limit;
    }
    if (limit == 0) return true;
    cursor = {cursor.grid + 1, 0};
  }
  return false;
}

}  // namespace twintrue
