#include "matching/Matching.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "matching/MatchScene.h"
#include "matching/MatchSet.h"
#include "matching/Rounding.h"

namespace fpu {
namespace {

using namespace matching_tests;

TEST(DescriptorSplitTest, SplitsAtHalfTheBitsOrTheCentralSquare) {
  EXPECT_EQ(descriptor_split_bit(32, 25, 0), 0);
  EXPECT_EQ(descriptor_split_bit(32, 25, 2), 128);
  EXPECT_EQ(descriptor_split_bit(32, 13, 2), 36);
  EXPECT_EQ(descriptor_split_bit(64, 2147483647, 2), 256);
}

TEST(CostRatioTest, FollowsTheFixedPoint) {
  struct Case {
    std::int32_t own, other, offset, shift, sat, ratio;
  };
  for (const Case& c : std::vector<Case>{
           {10, 10, 3, 4, 0, 16},
           {10, 10, 3, 4, 1, 16},
           {3, 3, 3, 4, 1, 15},
           {4, 4, 3, 4, 1, 16},
           {2, 8, 3, 4, 1, 35},
           {3, 3, 3, 4, 2, 16},
           {10, 23, 3, 4, 0, 32},
           {23, 10, 3, 4, 0, 8},
           {0, 8388607, 3, 4, 0, 255},
           {100, 8388607, 3, 31, 0, 255},
           {2, 8, 5, 4, 7, 25},
           {2, 8, 5, 4, -1, 25},
           {0, 9, 0, 4, 0, 255},
           {0, 0, 0, 4, 2, 255},
           {2, 7, -2, 4, 0, 255},
           {1, 7, -3, 4, 0, 0},
       }) {
    MatchVector vector;
    vector.cost = c.own;
    cost_ratio(vector, c.other, c.offset, c.shift, c.sat);
    EXPECT_EQ(vector.dist_ratio, c.ratio) << c.own << " against " << c.other << ", offset " << c.offset;
    EXPECT_EQ(vector.other_cost, c.other);
  }
}

// One keypoint of frame A at (100, 80), fillers far away so that there are more keypoints than k.
struct Pair {
  explicit Pair(const std::vector<std::pair<float, float>>& places_b, std::int32_t k, std::int32_t mode) {
    MatchingSettings& s = scene.unit.matchingSettings;
    s.k = k;
    s.out_mode = 2;
    s.penalty_mode = mode;
    s.penalty_rshift = 0;
    s.max_vector_h = s.max_vector_v = 20;
    add_keypoint(*scene.a, 100, 80, 500);
    add_keypoint(*scene.a, 250, 170, 500);
    add_keypoint(*scene.a, 251, 170, 500);
    for (const auto& [x, y] : places_b) add_keypoint(*scene.b, x, y, 500);
    set_descriptors(*scene.a, std::vector(3, Descriptor(8, 0)));
    set_descriptors(*scene.b, std::vector(places_b.size(), Descriptor(8, 0)));
  }

  // The vectors of the first keypoint's cell.
  std::vector<MatchVector> match() {
    MatchSet set(scene.unit, 1);
    match_cells(scene.unit.matchingSettings, *scene.a, *scene.b, set);
    const std::int32_t cell = scene.a->store.grid->numHorzCells() + 2;
    return {set.cell(cell), set.cell(cell) + set.count(cell)};
  }

  Scene scene;
};

TEST(MatchCellsTest, TooFewKeypointsClearTheSet) {
  Pair pair({{105, 80}, {106, 80}}, 2, 1);
  MatchSet set(pair.scene.unit, 1);
  ASSERT_GT(match_cells(pair.scene.unit.matchingSettings, *pair.scene.a, *pair.scene.b, set), 0);
  pair.scene.a->descriptors.rows = 2;
  EXPECT_EQ(match_cells(pair.scene.unit.matchingSettings, *pair.scene.a, *pair.scene.b, set), 0);
  EXPECT_EQ(set.total, 0);
  EXPECT_EQ(set.count(pair.scene.unit.grid.numHorzCells() + 2), 0);
}

TEST(MatchCellsTest, SettingsAtTheEndsOfTheirRangesStayInBounds) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  std::mt19937 random(3);
  for (const std::int32_t mode : {0, 1, 2, 3, 4, 5, 7}) {
    for (const std::int32_t extreme : {kMost, kLeast}) {
      Scene scene;
      fill_randomly(*scene.a, random, 60, 8);
      fill_randomly(*scene.b, random, 60, 8);
      scene.b->store.records[0].x = std::numeric_limits<float>::quiet_NaN();
      MatchingSettings& s = scene.unit.matchingSettings;
      s.penalty_mode = mode;
      s.penalty_rshift = mode == 1 ? -31 : 0;
      s.penalty_res_coeff = extreme > 0 ? 3e38f : -3e38f;
      s.max_vector_h = s.max_vector_v = extreme;
      s.check_circle = true;
      s.dist_ratio_offset = s.sat_offset = extreme;
      s.dist_ratio_shift = 31;
      s.weightDist = s.patchSize = extreme;
      MatchSet set(scene.unit, 1);  // smaller than k 2 asks for: the cells fill up and no more
      const std::int32_t total = match_cells(s, *scene.a, *scene.b, set);
      if (extreme == kLeast) {
        EXPECT_EQ(total, 0);
      }
      for (std::int32_t c = 0; c < set.grid->numCells(); ++c) {
        EXPECT_LE(set.count(c), set.capacity);
        for (std::int32_t i = 0; i < set.count(c); ++i) {
          EXPECT_GE(set.cell(c)[i].dist_ratio, 0);
          EXPECT_LE(set.cell(c)[i].dist_ratio, 255);
        }
      }
    }
  }
}

TEST(MatchCellsTest, ComparesWithThePreviousPair) {
  struct Case {
    std::int32_t link;
    bool keep_links;
    std::int32_t score3, score4;
    float previous_dx;  // of the linked record; the vector of this pair is (10, 0)
    std::int32_t state;
    float acc_th = MatchingSettings{}.acc_th;
  };
  for (const Case& c : std::vector<Case>{
           {0, true, 15, 0, 16.0f, 2},
           {0, true, 0, 15, 16.0f, 2},
           {0, true, 15, 0, 16.5f, 1},
           {0, true, 14, 14, 16.0f, 0},
           {0, false, 15, 15, 16.0f, 0},
           {-1, true, 15, 15, 16.0f, 0},
           {1, true, 15, 15, 16.0f, 0},
           {0, true, 15, 15, 100.0f, 1},
           // Of long vectors a fifth of the longer one is tolerated: 10 against 12.5 and just more.
           {0, true, 15, 0, 12.5f, 2, 0.0f},
           {0, true, 15, 0, 12.51f, 1, 0.0f},
       }) {
    Pair pair({{110, 80}, {115, 80}}, 2, 1);
    pair.scene.a->store.records[static_cast<std::size_t>((6 + 2) * 12)].link = c.link;
    MatchingSettings& s = pair.scene.unit.matchingSettings;
    s.keep_links = c.keep_links;
    s.acc_th = c.acc_th;
    s.out_mode = 0;
    MatchSet set(pair.scene.unit, 2);
    MatchRecord previous;
    previous.x_a = 50;
    previous.x_b = 50 + c.previous_dx;
    previous.score3 = c.score3;
    previous.score4 = c.score4;
    set.records = {previous};
    match_cells(s, *pair.scene.a, *pair.scene.b, set);
    ASSERT_EQ(set.count(8), 2);
    EXPECT_EQ(set.cell(8)[0].prev_state, c.state) << c.previous_dx;
    EXPECT_EQ(set.cell(8)[1].prev_state, c.state) << c.previous_dx;
  }
}

TEST(MatchCellsTest, ACostAsLargeAsTheBoundIsNoMatch) {
  for (const std::uint16_t score : {std::uint16_t{1}, std::uint16_t{2}}) {
    Scene scene({830, 1, 40, 32, 4});
    MatchingSettings& s = scene.unit.matchingSettings;
    s.k = 1;
    s.penalty_mode = 4;  // 65536 a pixel, and up to 65535 by the lower score
    s.penalty_rshift = 0;
    s.max_vector_h = 40000;
    s.max_vector_v = 0;
    add_keypoint(*scene.a, 30, 30, score);
    add_keypoint(*scene.a, 30, 45, score);  // finds nothing on its row
    add_keypoint(*scene.b, 30 + 32767, 30, score);
    set_descriptors(*scene.a, std::vector(2, Descriptor(8, 0)));
    set_descriptors(*scene.b, std::vector(1, Descriptor(8, 0)));
    MatchSet set(scene.unit, 1);
    EXPECT_EQ(match_cells(s, *scene.a, *scene.b, set), score == 1 ? 0 : 1) << score;
  }
}

TEST(RoundingTest, CoordinatesAreHeldToWhatDiffersWithinTheIntegers) {
  constexpr std::int32_t kMost = 1 << 28;
  const std::pair<float, std::int32_t> cases[] = {{0.5f, 1},       {-0.5f, -1},      {2.4f, 2},
                                                  {3e8f, kMost},   {1e30f, kMost},   {-1e30f, -kMost},
                                                  {-3e8f, -kMost}, {2e8f, 200000000}};
  for (const auto& [value, rounded] : cases) EXPECT_EQ(round_coordinate(value), rounded) << value;
  EXPECT_EQ(round_coordinate(std::numeric_limits<float>::quiet_NaN()), -kMost);
}

TEST(MatchCellsTest, ARasterTooFineToNameMatchesNothing) {
  Scene scene({300, 300, 1, 1, 1});
  for (int i = 0; i < 5; ++i) {
    add_keypoint(*scene.a, static_cast<float>(100 + i), 300.0f, 9);
    add_keypoint(*scene.b, static_cast<float>(100 + i), 300.0f, 9);
  }
  set_descriptors(*scene.a, std::vector(5, Descriptor(8, 0)));
  set_descriptors(*scene.b, std::vector(5, Descriptor(8, 0)));
  scene.unit.matchingSettings.max_vector_h = scene.unit.matchingSettings.max_vector_v = 5;
  MatchSet set(scene.unit, 2);
  EXPECT_EQ(match_cells(scene.unit.matchingSettings, *scene.a, *scene.b, set), 0);
}

TEST(MatchCellsTest, PlacesAbove32767AreReadBack) {
  Scene scene({200, 200, 2, 2, 1});
  for (int i = 0; i < 5; ++i) {
    add_keypoint(*scene.a, static_cast<float>(100 + 2 * i), 400.0f, 9);
    add_keypoint(*scene.b, static_cast<float>(102 + 2 * i), 402.0f, 9);
  }
  set_descriptors(*scene.a, std::vector(5, Descriptor(8, 0)));
  set_descriptors(*scene.b, std::vector(5, Descriptor(8, 0)));
  scene.unit.matchingSettings.max_vector_h = scene.unit.matchingSettings.max_vector_v = 2;
  scene.unit.matchingSettings.k = 1;
  MatchSet set(scene.unit, 1);
  ASSERT_EQ(match_cells(scene.unit.matchingSettings, *scene.a, *scene.b, set), 5);
  const std::int32_t cell = 190 * 200 + 40;
  ASSERT_EQ(set.count(cell), 1);
  EXPECT_EQ(keypoint_a(*scene.a, *set.cell(cell)).x, 100.0f);
  EXPECT_EQ(keypoint_b(*scene.b, *set.cell(cell)).y, 402.0f);
}

TEST(MatchCellsDeathTest, AnUnknownPenaltyEndsTheProcessAtTheFirstPair) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Pair pair({{105, 80}, {106, 80}}, 2, 6);
  EXPECT_EXIT(pair.match(), testing::KilledBySignal(SIGABRT), "");
  EXPECT_TRUE(Pair({}, 2, 6).match().empty());
}

}  // namespace
}  // namespace fpu
