#include "matching/Correction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <vector>

#include "matching/DisplacementHistogram.h"
#include "matching/MatchScene.h"

namespace fpu {
namespace {

using namespace matching_tests;

// Puts a vector between two keypoints into the cell of frame A's. Null if the cell or a keypoint's is full.
MatchVector* join(Scene& scene, MatchSet& set, float x_a, float y_a, float x_b, float y_b,
                  std::int32_t dist_ratio) {
  const KeyPointRecord* a = add_keypoint(*scene.a, x_a, y_a, 100);
  if (a == nullptr) return nullptr;
  const KeyPointRecord* b = add_keypoint(*scene.b, x_b, y_b, 100);
  if (b == nullptr || set.count(a->cell) == set.capacity) {
    --scene.a->store.cellCounts[static_cast<std::size_t>(a->cell)];
    --scene.a->store.count;
    return nullptr;
  }
  MatchVector& vector = set.cell(a->cell)[set.count(a->cell)++];
  vector = {};
  vector.id_a = a->index;
  vector.id_b = b->index;
  vector.cell_a = static_cast<std::int16_t>(a->cell);
  vector.slot_a = static_cast<std::int16_t>(scene.a->store.cellCounts[static_cast<std::size_t>(a->cell)] - 1);
  vector.cell_b = static_cast<std::int16_t>(b->cell);
  vector.slot_b = static_cast<std::int16_t>(scene.b->store.cellCounts[static_cast<std::size_t>(b->cell)] - 1);
  vector.dist_ratio = dist_ratio;
  ++set.total;
  return &vector;
}

std::int32_t reference_vote(std::int32_t mode, std::int32_t s, const MatchVector& w, bool near) {
  const std::int32_t r = w.dist_ratio;
  const auto fixed = [&](double value) {
    return static_cast<std::int32_t>(std::min<double>(value * (1 << s), r));
  };
  switch (mode) {
    case 0:
      if (w.candidate == 0) return w.cost > w.other_cost / 2 || w.other_cost - w.cost < 3 ? 1 : 2;
      return w.other_cost > w.cost / 2 || w.cost - w.other_cost < 3 ? 1 : 0;
    case 3:
      return r * r / (1 << s);
    case 4:
      return std::max(r * r / (1 << s), r);
    case 6:
      return 1;
    case 7:
      return fixed(2.0) / (near ? 2 : 1);
    case 8:
      return near ? 4 : 16;
    case 9:
      return (r < 16 ? 8 : r) / (near ? 4 : 1);
    case 10:
      return (r < 16 ? 1 : 2) * (near ? 2 : 8);
    case 11:
      return fixed(1.5);
    case 12:
      return fixed(2.0);
    case 13:
      return fixed(1.25);
    default:
      return r;
  }
}

TEST(VoteKernelTest, EveryModeByItsFormula) {
  std::mt19937 random(21);
  CorrectionSettings s;
  for (std::int32_t mode = 0; mode <= 13; ++mode) {
    for (s.dist_ratio_shift = 0; s.dist_ratio_shift <= 6; ++s.dist_ratio_shift) {
      for (int i = 0; i < 200; ++i) {
        MatchVector w;
        w.dist_ratio = uniform_int(random, 0, 255);
        w.cost = uniform_int(random, 0, 12);
        w.other_cost = uniform_int(random, 0, 12);
        w.candidate = uniform_int(random, 0, 1);
        for (const bool near : {false, true}) {
          EXPECT_EQ(vote_kernel(mode, s, w, near), reference_vote(mode, s.dist_ratio_shift, w, near))
              << "mode " << mode << ", shift " << s.dist_ratio_shift << ", ratio " << w.dist_ratio;
        }
      }
    }
  }
}

std::int64_t reference_score(std::int32_t mode, const CorrectionSettings& s, std::int64_t n, std::int64_t sum,
                             const MatchVector& v, std::int64_t p, std::int32_t place) {
  std::int64_t base = sum >> s.dist_ratio_shift;
  if (mode == 0) base = sum;
  if (mode == 2) base += v.dist_ratio;
  if (mode == 6) base = sum >> s.count_rshift;
  if (mode == 8 || mode == 10) base = (sum / 16) >> s.count_rshift;
  if (mode != 5 && mode != 6 && mode != 8 && mode != 10) base = std::min<std::int64_t>(base, 255);
  const std::int64_t value = s.normalizing_mode == 0 ? base * s.normalizing_coeff / n
                                                     : (base * (s.normalizing_coeff * 256 / n)) >> 8;
  std::map<std::int32_t, std::int64_t> raised{{1, 2 * value},
                                              {2, 3 * value / 2},
                                              {3, std::min(3 * value, value + p / 2)},
                                              {4, std::min(3 * value, value + p)},
                                              {5, std::min(4 * value, value + p)},
                                              {6, value + p / 2},
                                              {7, value + p},
                                              {8, std::min(2 * value, value + p / 2)},
                                              {9, std::min(2 * value, value + p)},
                                              {10, 3 * value},
                                              {11, place < 2 ? 2 * value : value}};
  const bool agrees = v.prev_state == 2 && raised.count(s.ref_prev_frame_data_mode) != 0;
  return std::min<std::int64_t>(s.max_score, agrees ? raised[s.ref_prev_frame_data_mode] : value);
}

TEST(FinishScoreTest, EveryModeByItsFormula) {
  std::mt19937 random(22);
  for (int round = 0; round < 50000; ++round) {
    CorrectionSettings s;
    s.dist_ratio_shift = uniform_int(random, 2, 6);
    s.count_rshift = uniform_int(random, 0, 2);
    s.normalizing_coeff = uniform_int(random, -50, 200);
    s.normalizing_mode = uniform_int(random, 0, 1);
    s.normalizing = uniform_int(random, -1, 5);
    s.candidates = uniform_int(random, 1, 2);
    s.max_num_data_in_cell = uniform_int(random, 1, 60);
    s.ref_prev_frame_data_mode = uniform_int(random, 0, 12);
    s.max_score = uniform_int(random, 0, 1) == 0 ? 255 : 100000;
    const std::int32_t voters = uniform_int(random, 1, 300);
    const std::int32_t around = uniform_int(random, 0, 8);
    std::int64_t n = voters;
    if (s.normalizing == 0) n = 1;
    if (s.normalizing >= 2 && s.normalizing <= 4) n = around * s.max_num_data_in_cell;
    if (s.normalizing == 3) n *= s.candidates;
    if (s.normalizing == 4 && s.candidates != 1) n = n * 3 / 2;
    if (n == 0) n = 1;  // nothing to divide by

    MatchVector v;
    v.dist_ratio = uniform_int(random, 0, 255);
    v.prev_state = uniform_int(random, 0, 2);
    const std::int32_t mode = uniform_int(random, 0, 12);
    const std::int32_t sum = uniform_int(random, 0, 1 << uniform_int(random, 0, 14));
    const std::int32_t prev = uniform_int(random, -5, 300);
    const std::int32_t place = uniform_int(random, 0, 3);
    ASSERT_EQ(finish_score(mode, s, ScoreScale(s, voters, around), sum, v, prev, place),
              reference_score(mode, s, n, sum, v, prev, place))
        << "mode " << mode << ", normalizing " << s.normalizing << ", raised by "
        << s.ref_prev_frame_data_mode;
  }
}

// Whoever lacks a partner neither votes, nor counts as a voter, nor stays.
TEST(CorrectCellsTest, VectorsWithoutAPartnerTakeNoPart) {
  Scene scene({2, 1, 100, 100, 20});
  CorrectionSettings& s = scene.unit.mvcSettings;
  s.score_mode = {6, 6, 6, 6};
  s.normalizing = 1;
  s.normalizing_coeff = 100;
  s.max_score = 1000;
  MatchSet set(scene.unit, 1);
  for (int i = 0; i < 4; ++i) join(scene, set, 30, 50, 35, 50, 16);
  join(scene, set, 30, 50, 55, 50, 16);
  for (int i = 0; i < 3; ++i) join(scene, set, 170, 50, 175, 50, 16);
  for (MatchVector* v : {set.cell(0), set.cell(0) + 4, set.cell(1) + 1}) {
    v->id_b = v->cell_b = v->slot_b = -1;
  }
  correct_cells(s, *scene.a, *scene.b, set);
  EXPECT_EQ(set.total, 5);
  EXPECT_EQ(set.count(0), 3);
  EXPECT_EQ(set.cell(0)[0].id_a, 1);
  // Three of the cell and two beside it, all alike.
  EXPECT_EQ(set.cell(0)[0].score1, 100);
  EXPECT_EQ(set.cell(1)[1].score1, 100);
}

TEST(CorrectCellsTest, GmvIsThePlantedDisplacement) {
  std::mt19937 random(31);
  for (const std::int32_t bin_width : {1, 2, 8, 13, 64, 1 << 28}) {
    for (const auto& [dx, dy] : std::vector<std::pair<float, float>>{{0, 0}, {17.5f, -9.25f}, {-30, 22}}) {
      Scene scene;
      CorrectionSettings& s = scene.unit.mvcSettings;
      s.bin_width = bin_width;
      MatchSet set(scene.unit, 1);
      const GridIF& grid = scene.unit.grid;
      const auto anywhere = [&](double length) { return uniform(random, kMargin, kMargin + length); };
      for (int i = 0; i < 150; ++i) {
        const float x = anywhere(grid.areaWidth());
        const float y = anywhere(grid.areaHeight());
        const bool stray = i % 4 == 0;
        join(scene, set, x, y, stray ? anywhere(grid.areaWidth()) : x + dx,
             stray ? anywhere(grid.areaHeight()) : y + dy, 16);
      }
      // Too far for a bin, and so for the gmv.
      for (auto& keypoint : scene.b->store.records) {
        if (keypoint.index % 5 == 4) keypoint.x += 10000.0f;
      }
      ASSERT_GT(set.total, 60);
      correct_cells(s, *scene.a, *scene.b, set);
      std::int32_t width = 1;
      while (2 * width <= bin_width && width < 512) width *= 2;
      EXPECT_NEAR(s.gmv_x, dx, width + 1) << "bins of " << bin_width;
      EXPECT_NEAR(s.gmv_y, dy, width + 1) << "bins of " << bin_width;
      if (width == 8 && dx == 17.5f) {
        // Bins from 16 to 24 and from -16 to -8: their lower edges.
        EXPECT_EQ(s.gmv_x, 16);
        EXPECT_EQ(s.gmv_y, -16);
      }
    }
  }
}

TEST(CorrectCellsTest, AnEmptySetPeaksInTheFirstBin) {
  Scene scene;  // 280 x 200
  MatchSet set(scene.unit, 1);
  correct_cells(scene.unit.mvcSettings, *scene.a, *scene.b, set);
  EXPECT_EQ(set.total, 0);
  EXPECT_EQ(scene.unit.mvcSettings.gmv_x, -144);  // round(140 / 8) = 18 bins of 8
  EXPECT_EQ(scene.unit.mvcSettings.gmv_y, -104);
}

TEST(CorrectCellsTest, SettingsAtTheEndsOfTheirRangesAreDefined) {
  for (const std::int32_t extreme :
       {std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::min()}) {
    for (std::int32_t mode = 0; mode <= 12; ++mode) {
      for (std::int32_t ref_mode = 0; ref_mode <= 11; ++ref_mode) {
        Scene scene;
        CorrectionSettings& s = scene.unit.mvcSettings;
        s.score_mode = {mode, mode, mode, mode};
        s.th = {3e38f, -3e38f, 1e9f, 6000.0f};
        s.normalizing_coeff = s.diff_pt_th = s.neighbour_mode = extreme;
        s.normalizing_mode = ref_mode % 2;
        s.ref_prev_frame_data_mode = ref_mode;
        s.dist_ratio_shift = ref_mode % 3 == 0 ? 31 : 0;
        s.max_score = std::numeric_limits<std::int32_t>::max();
        MatchSet set(scene.unit, 1);
        set.records.resize(1);
        set.records[0].score1 = set.records[0].score2 = extreme;
        for (int i = 0; i < 6; ++i) {
          MatchVector* v = join(scene, set, 30 + static_cast<float>(i), 30, 90, 90, 255);
          ASSERT_NE(v, nullptr);
          v->prev_state = 2;
          scene.a->store.records[static_cast<std::size_t>(i)].link = 0;
        }
        correct_cells(s, *scene.a, *scene.b, set);
        EXPECT_EQ(set.count(0), 6);
        EXPECT_EQ(set.cell(0)[0].rank, 0);
      }
    }
  }
}

TEST(CorrectionDeathTest, AnUnknownScoreModeEndsTheProcessWithTheFirstVector) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const std::int32_t mode : {-1, 13, 14}) {
    Scene scene;
    scene.unit.mvcSettings.score_mode[3] = mode;
    MatchSet set(scene.unit, 1);
    correct_cells(scene.unit.mvcSettings, *scene.a, *scene.b, set);  // nothing to score yet
    join(scene, set, 30, 30, 35, 30, 16);
    EXPECT_EXIT(correct_cells(scene.unit.mvcSettings, *scene.a, *scene.b, set),
                testing::KilledBySignal(SIGABRT), "")
        << mode;
  }
}

TEST(DisplacementHistogramTest, CountsSmoothsAndFindsThePeak) {
  DisplacementHistogram histogram(2, 8 * 8);  // bins of 16 eighths, 9 of them
  EXPECT_EQ(histogram.shift, 4);
  EXPECT_EQ(histogram.center, 4);
  ASSERT_EQ(histogram.bins.size(), 9u);
  for (const std::int32_t d : {-64, -65, 79, 80, -1, 0, 15, 16}) histogram.add(d);
  EXPECT_EQ(histogram.total, 8);
  EXPECT_EQ(histogram.bins, (std::vector<std::int32_t>{1, 0, 0, 1, 2, 1, 0, 0, 1}));
  EXPECT_EQ(histogram.peak(), 0);

  for (int i = 0; i < 9; ++i) histogram.add(-48);
  EXPECT_EQ(histogram.total, 17);
  EXPECT_EQ(histogram.peak(), -48);
  histogram.smooth();
  // From 1 9 0 1 2 1 0 0 1.
  EXPECT_EQ(histogram.bins, (std::vector<std::int32_t>{1, 4, 2, 1, 1, 1, 0, 0, 1}));
}

}  // namespace
}  // namespace fpu
