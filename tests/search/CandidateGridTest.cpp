#include "search/CandidateGrid.h"

#include <cmath>
#include <functional>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

namespace twintrue {
namespace {

using Pose = std::array<double, kPoseValues>;

// The list as ten nested loops and a walk over all that is listed would make it.
std::vector<Pose> nested_list(const EyeSweep& right, const EyeSweep& left, const PoseLimits& limits,
                              const Seeds& seeds, int seed_count) {
  std::vector<Pose> list;
  for (int k = 0; k < seed_count; ++k) {
    const PoseCandidate& s = seeds[static_cast<std::size_t>(k)];
    const auto b = [&](double v) { return left.mode == 0 ? v : 0.0; };
    struct Level {
      const SweepRange* range;
      double base;
      double limit;
    };
    const Level levels[kPoseValues] = {
        {&right.roll, s.right_roll, -1},
        {&left.roll, b(s.left_roll), -1},
        {&right.pan, s.right_pan, limits.pan_max},
        {&left.pan, b(s.left_pan), limits.pan_max},
        {&right.tilt, s.right_tilt, limits.tilt_max},
        {&left.tilt, b(s.left_tilt), limits.tilt_max},
        {&right.offset_y, s.right_offset_y, limits.offset_y_max},
        {&left.offset_y, b(s.left_offset_y), limits.offset_y_max},
        {&right.offset_x, s.right_offset_x, limits.offset_x_max},
        {&left.offset_x, b(s.left_offset_x), limits.offset_x_max},
    };
    Pose w{};
    const std::function<void(std::size_t)> sweep = [&](std::size_t depth) {
      if (depth == kPoseValues) {
        if (k != 0) {
          for (const Pose& listed : list) {
            bool near = true;
            for (std::size_t i = 0; i < kPoseValues; ++i) near = near && std::abs(listed[i] - w[i]) < 0.001;
            if (near) return;
          }
        }
        list.push_back(w);
        return;
      }
      const auto& [range, base, limit] = levels[depth];
      const double lo = base + range->min;
      const double hi = base + range->max;
      for (int i = 0; i < range->div; ++i) {
        const double v = range->div == 1 ? (lo + hi) * 0.5 : lo + i * ((hi - lo) / (range->div - 1));
        if (limit >= 0 && std::abs(v) > limit) continue;
        w[depth] = v;
        sweep(depth + 1);
      }
    };
    sweep(0);
  }
  return list;
}

TEST(CandidateGrid, ListsWhatNestedSweepsList) {
  std::mt19937 engine(7);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  // Steps from far above the near distance to far below it, and just as wide.
  const double widths[] = {0.0, 0.0004, 0.0005, 0.001, 0.0011, 0.003, 0.1};
  const auto width = [&] { return widths[engine() % std::size(widths)]; };
  std::int64_t dropped = 0;
  int reached = 0;  // by the number of candidates that settings are judged by
  for (int trial = 0; trial < 300; ++trial) {
    EyeSweep right, left;
    int product = 1;
    const bool in_a_plane = trial % 2 == 1;  // two components with more values
    for (EyeSweep* sweep : {&right, &left}) {
      for (SweepRange* range :
           {&sweep->offset_x, &sweep->offset_y, &sweep->pan, &sweep->tilt, &sweep->roll}) {
        if (in_a_plane) {
          if (sweep == &right && (range == &right.pan || range == &right.tilt))
            *range = {-0.002, 0.002, 4 + static_cast<int>(engine() % 7), 0};
          continue;
        }
        range->div = product > 60 ? 1 : 1 + static_cast<int>(unit(engine) * 3.5);
        if (unit(engine) < 0.01) range->div = 0;
        product *= std::max(range->div, 1);
        range->max = width() * (unit(engine) < 0.1 ? -1 : 1);
        range->min = -range->max;
      }
    }
    left.mode = unit(engine) < 0.3 ? 1 : 0;
    PoseLimits limits{0.05, in_a_plane ? 1.0 : 0.0015, 0.0008, 0.003};
    Seeds seeds;
    for (PoseCandidate& seed : seeds) {
      for (double CalibResult::*field : kPoseFields) {
        if (in_a_plane) {
          if (field == &CalibResult::right_pan || field == &CalibResult::right_tilt)
            seed.*field = 0.004 * (unit(engine) - 0.5);
          continue;
        }
        const double drawn = unit(engine);
        seed.*field = drawn < 0.5 ? 0.0 : width() * (drawn < 0.7 ? 1.0 : unit(engine) - 0.5);
      }
    }
    const int count = static_cast<int>(engine() % 4);
    const auto expected = nested_list(right, left, limits, seeds, count);
    const CandidateGrid grid(right, left, limits, seeds, count);
    ASSERT_EQ(grid.size(), static_cast<std::int64_t>(expected.size())) << trial;
    std::int64_t whole = 0;
    for (int k = 0; k < count; ++k) whole += grid.grid(static_cast<std::size_t>(k)).size();
    dropped += whole - grid.size();
    const std::int64_t most = most_candidates(right, left, limits, count);
    EXPECT_GE(most, whole) << trial;
    reached += whole > 1 && whole == most ? 1 : 0;

    std::vector<CandidateGrid::Cursor> places;
    CandidateGrid::Cursor cursor;
    while (grid.next(cursor, 5, places)) {
    }
    ASSERT_EQ(places.size(), expected.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
      PoseCandidate pose;
      grid.grid(places[i].grid).pose(places[i].place, &pose);
      for (std::size_t axis = 0; axis < kPoseValues; ++axis) {
        ASSERT_EQ(pose.*kNestOrder[axis], expected[i][axis]) << trial << ' ' << i << ' ' << axis;
      }
    }
  }
  EXPECT_GT(dropped, 1000) << "the trials should meet near candidates";
  EXPECT_GT(reached, 10);
}

// Steps this small put each place near thousands of others. Of three values a component the outer two aren't
// near each other, so of the second seed's grid their combinations are listed.
TEST(CandidateGrid, ThinsOutStepsFarBelowTheNearDistance) {
  const SweepRange range{-0.0006, 0.0006, 3, 0};
  const EyeSweep sweep{range, range, range, range, range, 0};
  Seeds seeds;
  seeds[1].right_pan = 5.0;
  const CandidateGrid grid(sweep, sweep, {9, 9, 9, 9}, seeds, 2);
  EXPECT_EQ(grid.size(), 59049 + 1024);  // 3^10 of the first seed and 2^10

  const SweepRange row{-0.55, 0.55, 100001, 0};
  EyeSweep one;
  one.roll = row;
  seeds[1] = PoseCandidate();
  seeds[1].right_roll = 5.0;
  const CandidateGrid long_row(one, EyeSweep(), {9, 9, 9, 9}, seeds, 2);
  EXPECT_EQ(long_row.size() - 100001, 1099);  // every 91st, the first that is far enough
}

TEST(PlaceSet, FindsTheNextMember) {
  std::mt19937 engine(3);
  for (const std::size_t size : {1u, 63u, 64u, 65u, 4096u, 4097u, 300000u}) {
    PlaceSet places(size);
    EXPECT_EQ(places.next(0), size);
    std::set<std::size_t> members;
    for (int i = 0; i < 40; ++i) {
      const std::size_t member = engine() % size;
      members.insert(member);
      places.insert(member);
    }
    for (int i = 0; i < 500; ++i) {
      const std::size_t from = i < 3 ? size - 1 : engine() % size;
      const auto next = members.lower_bound(from);
      EXPECT_EQ(places.next(from), next == members.end() ? size : *next) << from << " of " << size;
      EXPECT_EQ(places.contains(from), members.count(from) == 1);
    }
    EXPECT_EQ(places.next(size), size);
  }
}

// What a limit leaves out takes neither time nor memory, so that no number of values needs a bound of its
// own.
TEST(CandidateGrid, WalksOnlyWhatALimitLeaves) {
  constexpr std::int32_t kCount = 2000000001;
  for (double end : {1.0, -1.0}) {
    const auto values = walk_range({-end, end, kCount, 0}, 0.5, 1.05e-8);
    ASSERT_EQ(values.size(), 21u);
    for (std::size_t i = 0; i < values.size(); ++i) {
      EXPECT_NEAR(values[i], (static_cast<double>(i) * 1e-9 - 1e-8) * end, 1e-15);
    }
    EXPECT_EQ(walk_range({-end, end, kCount, 0}, 2.5, 1.05e-8).size(), 0u);
    EXPECT_EQ(walk_range({-end, end, kCount, 0}, -2.5, 1.05e-8).size(), 0u);
  }
  EXPECT_EQ(walk_range({0.3, 0.3, 5, 0}, 0.0, 0.5).size(), 5u);
  EXPECT_EQ(walk_range({0.3, 0.3, 1, 0}, 0.0, 0.2).size(), 0u);
  // An empty row leaves out the others.
  EyeSweep right, left;
  right.roll.div = left.roll.div = kCount;
  EXPECT_EQ(CandidateGrid(right, left, {0, -1, 0, 0}, Seeds(), 3).size(), 0);
}

TEST(CandidateGrid, ExecBitZeroEndsTheProcess) {
  SweepRange range{0, 1, 2, 1};
  EXPECT_DEATH(walk_range(range, 0.0), "");
  range.div = 1;
  EXPECT_EQ(walk_range(range, 0.0), std::vector<double>{0.5});
}

}  // namespace
}  // namespace twintrue
