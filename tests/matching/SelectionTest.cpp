#include "matching/Selection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <map>
#include <random>
#include <tuple>
#include <vector>

#include "matching/MatchScene.h"

namespace fpu {
namespace {

using namespace matching_tests;

// A scene with one strong and one weak keypoint in each frame, all in cell 0, and vectors between them.
struct Cell {
  Cell() {
    for (const std::uint16_t score : {std::uint16_t{500}, std::uint16_t{100}}) {
      add_keypoint(*scene.a, 30, 30, score);
      add_keypoint(*scene.b, 30, 30, score);
    }
  }

  std::int32_t select(std::vector<MatchVector>& vectors, std::int32_t limit) {
    return select_cell(settings, *scene.a, *scene.b, vectors.data(),
                       static_cast<std::int32_t>(vectors.size()), limit);
  }

  Scene scene;
  CorrectionSettings& settings = scene.unit.mvcSettings;
};

// id_a tells the vectors apart. Few different values, so that many keys are equal.
std::vector<MatchVector> random_vectors(std::mt19937& random, std::size_t count, std::int32_t largest) {
  std::vector<MatchVector> vectors(count);
  for (std::size_t i = 0; i < count; ++i) {
    MatchVector& v = vectors[i];
    v.id_a = static_cast<std::int32_t>(i);
    v.dist_ratio = uniform_int(random, 20, 27);
    v.score1 = uniform_int(random, 0, largest);
    v.score2 = uniform_int(random, 0, largest);
    v.score3 = uniform_int(random, 0, largest);
    v.score5 = uniform_int(random, 0, 2);
    v.prev_state = uniform_int(random, 0, 2);
  }
  return vectors;
}

std::vector<std::int32_t> ids_of(const std::vector<MatchVector>& vectors) {
  std::vector<std::int32_t> ids;
  for (const MatchVector& v : vectors) ids.push_back(v.id_a);
  return ids;
}

TEST(SelectCellTest, StrictModesSortLikeAStableSortByTheirKey) {
  using Values = std::vector<std::int64_t>;  // compared one after the other
  using Key = std::function<Values(const MatchVector&)>;
  constexpr int kShift = 5;
  const Key none = [](auto&) -> Values { return {}; };
  const Key fifth = [](auto& v) -> Values { return {v.score5}; };
  const Key first = [](auto& v) -> Values { return {v.score1}; };
  const std::map<std::int32_t, Key> keys{
      {0, none},
      {1, fifth},
      {2, first},
      {3, fifth},
      {4, first},
      {7,
       [](auto& v) -> Values {
         return {v.dist_ratio, v.score5};
       }},
      {8,
       [](auto& v) -> Values {
         return {v.dist_ratio, v.score1};
       }},
      {9, [](auto& v) -> Values { return {v.score1 * (1 << kShift) + v.score2}; }},
      {10, [](auto& v) -> Values { return {v.score2 * (1 << kShift) + v.score1}; }},
      {11, [](auto& v) -> Values { return {v.score2 * 65536 + v.score1 * 256 + v.score3}; }},
      {12, [](auto& v) -> Values { return {(v.score2 * 256 + v.score1) * (v.prev_state != 0 ? 2 : 1)}; }},
      {13, none},
  };
  std::mt19937 random(11);
  for (const auto& [mode, key] : keys) {
    for (const std::size_t count : std::initializer_list<std::size_t>{1, 2, 5, 31, 32, 33, 64, 100, 128}) {
      for (const std::int32_t largest : {2, 300}) {
        Cell cell;
        cell.settings.sort_mode = mode;
        cell.settings.sshift = kShift;
        auto vectors = random_vectors(random, count, largest);
        auto expected = vectors;
        std::stable_sort(expected.begin(), expected.end(),
                         [&key = key](const auto& a, const auto& b) { return key(a) > key(b); });
        ASSERT_EQ(cell.select(vectors, 1000), static_cast<std::int32_t>(count));
        EXPECT_EQ(ids_of(vectors), ids_of(expected)) << "mode " << mode << ", " << count << " vectors";
        for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(vectors[i].rank, static_cast<std::int32_t>(i));
      }
    }
  }
}

TEST(SelectCellTest, KeysWrapInsteadOfOverflowing) {
  Cell cell;
  cell.settings.sort_mode = 9;
  cell.settings.sshift = 31;
  std::vector<MatchVector> vectors(2);
  vectors[0].score1 = 1;  // key: the smallest integer
  vectors[1].score1 = 2;  // key: 0
  vectors[1].id_a = 1;
  cell.select(vectors, 2);
  EXPECT_EQ(vectors[0].id_a, 1);
}

TEST(SelectCellTest, ModesFiveAndSixSurviveTheirOwnOrder) {
  std::mt19937 random(12);
  for (const std::int32_t mode : {5, 6}) {
    for (const std::size_t count : std::initializer_list<std::size_t>{2, 31, 32, 33, 97, 128}) {
      for (const bool all_alike : {false, true}) {
        Cell cell;
        cell.settings.sort_mode = mode;
        auto vectors = random_vectors(random, count, 300);
        for (MatchVector& v : vectors) {
          if (all_alike) v.dist_ratio = 30;
          v.score5 = 0;
        }
        const auto before = vectors;
        ASSERT_EQ(cell.select(vectors, 1000), static_cast<std::int32_t>(count));
        auto ids = ids_of(vectors);
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(ids, ids_of(before)) << "mode " << mode << ", " << count << " vectors";
        if (mode == 6) continue;
        // Without a fifth score mode 5 is an order: distinct vectors by ratio, then the others as they came.
        EXPECT_TRUE(std::is_sorted(vectors.begin(), vectors.end(), [](const auto& a, const auto& b) {
          const auto place = [](const MatchVector& v) {
            return v.dist_ratio >= 24 ? std::tuple(-v.dist_ratio, 0) : std::tuple(0, v.id_a);
          };
          return place(a) < place(b);
        }));
      }
    }
  }
  // Vectors that go before each other pass each other: up to 32 of them come out reversed.
  Cell few;
  few.settings.sort_mode = 6;
  std::vector<MatchVector> alike(4);
  for (std::int32_t i = 0; i < 4; ++i) {
    alike[static_cast<std::size_t>(i)].id_a = i;
    alike[static_cast<std::size_t>(i)].dist_ratio = 24;
  }
  few.select(alike, 4);
  EXPECT_EQ(ids_of(alike), (std::vector<std::int32_t>{3, 2, 1, 0}));
  few.settings.sort_mode = 5;
  few.select(alike, 4);
  EXPECT_EQ(ids_of(alike), (std::vector<std::int32_t>{0, 1, 2, 3}));

  // Where no ratio reaches 24, mode 6 sorts by the first score.
  Cell cell;
  cell.settings.sort_mode = 6;
  auto vectors = random_vectors(random, 90, 300);
  for (MatchVector& v : vectors) v.dist_ratio = 23;
  cell.select(vectors, 90);
  EXPECT_TRUE(std::is_sorted(vectors.begin(), vectors.end(),
                             [](const auto& a, const auto& b) { return a.score1 > b.score1; }));
}

TEST(SelectCellTest, FiltersByResponseAndCuts) {
  // Vectors 0 to 3 join strong and strong, strong and weak, weak and strong, weak and weak.
  struct Case {
    std::int32_t res_th, res_th_both, limit;
    std::vector<std::int32_t> left;
  };
  for (const Case& c : std::vector<Case>{
           {0, 0, 10, {0, 1, 2, 3}},
           {500, 0, 10, {0, 1, 2}},
           {501, 0, 10, {}},
           {0, 101, 10, {0}},
           {500, 100, 10, {0, 1, 2}},
           {0, 501, 10, {}},
           {0, 0, 1, {0}},
           {0, 0, 0, {}},
           {0, 0, -5, {}},
       }) {
    Cell cell;
    cell.settings.res_th = c.res_th;
    cell.settings.res_th_both = c.res_th_both;
    std::vector<MatchVector> vectors(4);
    for (std::int16_t i = 0; i < 4; ++i) {
      auto& v = vectors[static_cast<std::size_t>(i)];
      v.id_a = i;
      v.slot_a = static_cast<std::int16_t>(i / 2);
      v.slot_b = static_cast<std::int16_t>(i % 2);
    }
    vectors.resize(static_cast<std::size_t>(cell.select(vectors, c.limit)));
    EXPECT_EQ(ids_of(vectors), c.left) << c.res_th << ", " << c.res_th_both << ", limit " << c.limit;
  }
}

}  // namespace
}  // namespace fpu
