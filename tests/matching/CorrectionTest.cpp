#include "matching/Correction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <string>
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
    default:
      return r;
  }
}

std::int32_t reference_score(std::int32_t mode, const CorrectionSettings& s, std::int32_t n, std::int32_t sum,
                             const MatchVector& v, std::int32_t p, std::int32_t place) {
  std::int32_t base = sum >> s.dist_ratio_shift;
  if (mode == 0) base = sum;
  if (mode == 2) base += v.dist_ratio;
  if (mode == 6) base = sum >> s.count_rshift;
  if (mode == 8 || mode == 10) base = (sum / 16) >> s.count_rshift;
  if (mode != 5 && mode != 6 && mode != 8 && mode != 10) base = std::min(base, 255);
  const std::int32_t value = s.normalizing_mode == 0 ? base * s.normalizing_coeff / n
                                                     : (base * ((s.normalizing_coeff << 8) / n)) >> 8;
  std::map<std::int32_t, std::int32_t> raised{{1, 2 * value},
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
  return std::min(s.max_score, agrees ? raised[s.ref_prev_frame_data_mode] : value);
}

// The scores that every vector of the set is to get, by keypoint of frame A and candidate: every vector
// against every other, with no regard to how they are stored.
std::map<std::pair<std::int32_t, std::int32_t>, std::array<std::int32_t, 4>> reference_scores(
    const CorrectionSettings& s, const Scene& scene, const MatchSet& set) {
  const std::int32_t columns = set.grid->numHorzCells();
  const std::int32_t cells = set.grid->numCells();
  const std::pair<int, int> offsets[] = {{-1, 0},  {1, 0},  {0, -1}, {0, 1},
                                         {-1, -1}, {1, -1}, {1, 1},  {-1, 1}};
  const int offered = s.neighbour_mode <= 0 ? 0 : s.neighbour_mode == 1 ? 2 : s.neighbour_mode == 2 ? 4 : 8;
  std::map<std::pair<std::int32_t, std::int32_t>, std::array<std::int32_t, 4>> scores;
  for (std::int32_t cell = 0; cell < cells; ++cell) {
    std::vector<const MatchVector*> voters;
    const std::int32_t own = std::min(set.count(cell), 128);
    for (std::int32_t i = 0; i < own; ++i) voters.push_back(set.cell(cell) + i);
    std::int32_t around = 0;
    for (int i = 0; i < offered; ++i) {
      const std::int32_t column = cell % columns + offsets[i].first;
      const std::int32_t row = cell / columns + offsets[i].second;
      if (column < 0 || column >= columns || row < 0 || row >= cells / columns) continue;
      ++around;
      const std::int32_t other = row * columns + column;
      for (std::int32_t j = 0; j < set.count(other); ++j) voters.push_back(set.cell(other) + j);
    }
    std::int32_t n = static_cast<std::int32_t>(voters.size());
    if (s.normalizing == 0) n = 1;
    if (s.normalizing >= 2 && s.normalizing <= 4) n = around * s.max_num_data_in_cell;
    if (s.normalizing == 3) n *= s.candidates;
    if (s.normalizing == 4 && s.candidates != 1) n = n * 3 / 2;
    for (std::int32_t i = 0; i < own; ++i) {
      const MatchVector& v = set.cell(cell)[i];
      const auto eighths = [](float c) { return static_cast<std::int32_t>(std::lround(8.0 * c)); };
      const auto place = [&](const MatchVector& w) {
        const KeyPointRecord& a = keypoint_a(*scene.a, w);
        const KeyPointRecord& b = keypoint_b(*scene.b, w);
        return std::array{eighths(b.x) - eighths(a.x), eighths(b.y) - eighths(a.y),
                          static_cast<std::int32_t>(std::lround(a.x)),
                          static_cast<std::int32_t>(std::lround(a.y))};
      };
      const auto p = place(v);
      std::array<std::int32_t, 4> sums{};
      for (const MatchVector* w : voters) {
        const auto q = place(*w);
        const std::int32_t dd = (p[0] - q[0]) * (p[0] - q[0]) + (p[1] - q[1]) * (p[1] - q[1]);
        const std::int32_t pp = (p[2] - q[2]) * (p[2] - q[2]) + (p[3] - q[3]) * (p[3] - q[3]);
        const std::int32_t near2 = s.diff_pt_th * s.diff_pt_th;
        for (std::size_t k = 0; k < 4; ++k) {
          const auto r = static_cast<std::int32_t>(std::lround(8.0 * s.th[k]));
          const bool near = k == 1 ? pp < near2 : pp <= near2;
          if (dd <= r * r) sums[k] += reference_vote(s.score_mode[k], s.dist_ratio_shift, *w, near);
        }
      }
      const std::int32_t link = keypoint_a(*scene.a, v).link;
      for (std::size_t k = 0; k < 4; ++k) {
        std::int32_t prev = 0;
        if (link >= 0 && static_cast<std::size_t>(link) < set.records.size()) {
          const MatchRecord& r = set.records[static_cast<std::size_t>(link)];
          prev = std::array{r.score1, r.score2, r.score3, r.score4}[k];
        }
        scores[{v.id_a, v.candidate}][k] = reference_score(s.score_mode[k], s, n, sums[k], v, prev, i);
      }
    }
  }
  return scores;
}

TEST(CorrectCellsTest, ScoresAgreeWithEveryVectorAgainstEveryOther) {
  std::mt19937 random(21);
  const Raster rasters[] = {{}, {2, 3, 60, 50, 200}, {1, 4, 30, 30, 20}, {7, 7, 12, 9, 3}};
  for (int round = 0; round < 130; ++round) {
    Scene scene(rasters[round % 4]);
    CorrectionSettings& s = scene.unit.mvcSettings;
    for (auto& mode : s.score_mode) mode = uniform_int(random, 0, 12);
    s.score_mode[static_cast<std::size_t>(round % 4)] = round % 13;
    for (auto& th : s.th) th = static_cast<float>(uniform_int(random, 0, 24)) * 0.25f;
    s.diff_pt_th = uniform_int(random, 0, 8);
    s.dist_ratio_shift = uniform_int(random, 2, 6);
    s.count_rshift = uniform_int(random, 0, 2);
    s.normalizing_coeff = uniform_int(random, -50, 200);
    s.normalizing_mode = uniform_int(random, 0, 1);
    s.candidates = uniform_int(random, 1, 2);
    s.neighbour_mode = uniform_int(random, 1, 4);
    s.normalizing = uniform_int(random, -1, 5);
    if (s.normalizing < 2 || s.normalizing > 4) s.neighbour_mode = uniform_int(random, -1, 3);
    // A raster of one column has no neighbours in mode 1, and so nothing to divide by.
    if (round % 4 == 2) s.neighbour_mode = std::max(s.neighbour_mode, 2);
    s.ref_prev_frame_data_mode = uniform_int(random, 0, 12);
    s.max_score = uniform_int(random, 0, 1) == 0 ? 255 : 100000;
    s.sort_mode = 0;
    s.num_matching_in_cell_out = 1000;

    MatchSet set(scene.unit, 2);
    for (int i = 0; i < 5; ++i) {
      MatchRecord record;
      record.score1 = uniform_int(random, -5, 300);
      record.score2 = uniform_int(random, -5, 300);
      record.score3 = uniform_int(random, -5, 300);
      record.score4 = uniform_int(random, -5, 300);
      set.records.push_back(record);
    }
    const GridIF& grid = scene.unit.grid;
    for (int attempt = round % 4 == 1 ? 1500 : 150; attempt > 0; --attempt) {
      const auto x =
          static_cast<float>(uniform_int(random, 4 * kMargin, 4 * (kMargin + grid.areaWidth()) - 1));
      const auto y =
          static_cast<float>(uniform_int(random, 4 * kMargin, 4 * (kMargin + grid.areaHeight()) - 1));
      const auto dx = static_cast<float>(uniform_int(random, -8, 8));
      const auto dy = static_cast<float>(uniform_int(random, -8, 8));
      MatchVector* v =
          join(scene, set, x / 4, y / 4, (x + dx) / 4, (y + dy) / 4, uniform_int(random, 0, 255));
      if (v == nullptr) continue;
      v->cost = uniform_int(random, 0, 12);
      v->other_cost = uniform_int(random, 0, 12);
      v->candidate = uniform_int(random, 0, 1);
      v->prev_state = uniform_int(random, 0, 2);
      scene.a->store.records[static_cast<std::size_t>(v->cell_a * scene.a->store.capacityPerCell + v->slot_a)]
          .link = uniform_int(random, -1, 6);
    }

    const auto expected = reference_scores(s, scene, set);
    correct_cells(s, *scene.a, *scene.b, set);
    ASSERT_EQ(static_cast<std::size_t>(set.total), expected.size());
    for (std::int32_t cell = 0; cell < grid.numCells(); ++cell) {
      EXPECT_LE(set.count(cell), 128);
      for (std::int32_t i = 0; i < set.count(cell); ++i) {
        const MatchVector& v = set.cell(cell)[i];
        const auto found = expected.find({v.id_a, v.candidate});
        ASSERT_NE(found, expected.end());
        EXPECT_EQ((std::array{v.score1, v.score2, v.score3, v.score4}), found->second)
            << "round " << round << ", cell " << cell << ", vector " << i << ", modes " << s.score_mode[0]
            << ' ' << s.score_mode[1] << ' ' << s.score_mode[2] << ' ' << s.score_mode[3];
        EXPECT_EQ(v.rank, i);
      }
    }
  }
}

TEST(CorrectCellsTest, ACrowdedCellIsCutButVotesInFullElsewhere) {
  Scene scene({2, 1, 100, 100, 200});
  CorrectionSettings& s = scene.unit.mvcSettings;
  s.score_mode = {6, 6, 6, 6};
  s.normalizing_coeff = 1;
  s.max_score = 1000;
  MatchSet set(scene.unit, 1);
  for (int i = 0; i < 150; ++i) join(scene, set, 30, 50, 35, 50, 16);
  join(scene, set, 170, 50, 175, 50, 16);
  correct_cells(s, *scene.a, *scene.b, set);
  EXPECT_EQ(set.count(0), 128);
  EXPECT_EQ(set.cell(0)->score1, 128 + 1);
  EXPECT_EQ(set.cell(1)->score1, 150 + 1);
  EXPECT_EQ(set.total, 129);
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

TEST(CorrectCellsTest, AVectorIsNearItselfExceptInTheSecondScore) {
  Scene scene;
  CorrectionSettings& s = scene.unit.mvcSettings;
  s.score_mode = {8, 8, 8, 8};
  s.diff_pt_th = 0;
  s.normalizing_coeff = 32;
  MatchSet set(scene.unit, 1);
  for (int i = 0; i < 4; ++i) join(scene, set, 30, 30, 35, 30, 16);
  correct_cells(s, *scene.a, *scene.b, set);
  const MatchVector& v = *set.cell(0);
  // Four votes of 4 make one, four votes of 16 make four.
  EXPECT_EQ((std::array{v.score1, v.score2, v.score3, v.score4}), (std::array{32, 128, 32, 32}));
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

TEST(VoteKernelTest, BoundsAreFractionsOfTheFixedPointOne) {
  CorrectionSettings s;
  MatchVector w;
  w.dist_ratio = 255;
  for (const std::int32_t shift : {0, 1, 2, 4, 6}) {
    s.dist_ratio_shift = shift;
    const double one = std::ldexp(1.0, shift);
    EXPECT_EQ(vote_kernel(11, s, w, false), static_cast<std::int32_t>(1.5 * one)) << shift;
    EXPECT_EQ(vote_kernel(12, s, w, false), static_cast<std::int32_t>(2.0 * one)) << shift;
    EXPECT_EQ(vote_kernel(13, s, w, false), static_cast<std::int32_t>(1.25 * one)) << shift;
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

  DisplacementHistogram other(2, 8 * 8);
  for (int i = 0; i < 9; ++i) other.add(-48);
  histogram.add(other);
  EXPECT_EQ(histogram.total, 17);
  EXPECT_EQ(histogram.peak(), -48);
  histogram.smooth();
  // From 1 9 0 1 2 1 0 0 1.
  EXPECT_EQ(histogram.bins, (std::vector<std::int32_t>{1, 4, 2, 1, 1, 1, 0, 0, 1}));
}

}  // namespace
}  // namespace fpu
