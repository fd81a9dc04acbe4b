#include "search/CalibContext.h"

#include <cmath>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace twintrue {
namespace {

constexpr std::int32_t kWidth = 4096;
constexpr double kDegree = 0.017453292519943295;

std::unique_ptr<CalibContext> load(const std::string& text, bool expected = true) {
  auto context = std::make_unique<CalibContext>();
  EXPECT_EQ(load_calib_settings(*context, text, kWidth), expected) << text;
  return context;
}

TEST(CalibContext, ValuesOfAFile) {
  struct Case {
    const char* text;
    std::function<double(const CalibContext&)> value;
    double expected;
  };
  const Case cases[] = {
      {"grid:\n  a: 1", [](auto& c) { return c.mode; }, 4},
      {"calib:\n  mode: 28", [](auto& c) { return c.mode; }, 28},
      {"calib:\n  mode: x", [](auto& c) { return c.mode; }, 4},
      {"calib:\n  num_levels: x", [](auto& c) { return c.num_levels[0]; }, 1},
      {"calib:\n  num_levels: 20", [](auto& c) { return c.num_levels[0]; },
       20},  // read again without the cut
      {"calib:\n  num_levels: -3", [](auto& c) { return c.num_levels[0]; }, -3},
      // A list that ends early goes on with the first value; two keys with the last one.
      {"calib:\n  sigma: [2, 1]", [](auto& c) { return c.sigma[0][1]; }, 1},
      {"calib:\n  sigma: [2, 1]", [](auto& c) { return c.sigma[0][19]; }, 2},
      {"calib:\n  k_radius: [2, 1]", [](auto& c) { return c.k_radius[0][19]; }, 1},
      {"calib:\n  rradius_using_fps: [2, 1]", [](auto& c) { return c.rradius_using_fps[0][19]; }, 1},
      {"calib:\n  sigma: 3", [](auto& c) { return c.sigma[0][19]; }, 3},
      // A missing key spreads the first entry, or leaves the row alone.
      {"calib:\n  mode: 1", [](auto& c) { return c.num_of_using_feat[0][19]; }, 1000000},
      {"calib:\n  mode: 1", [](auto& c) { return c.rradius_using_fps[0][19]; }, 5},
      {"calib:\n  mode: 1", [](auto& c) { return c.knn[19]; }, 1},
      {"calib:\n  mode: 1", [](auto& c) { return c.rank[19]; }, 10000},
      {"calib:\n  mode: 1", [](auto& c) { return c.sigma[0][19]; }, 0},
      {"x: 1", [](auto& c) { return c.knn[1]; }, 0},
      {"x: 1", [](auto& c) { return c.num_of_using_feat[0][1] + c.num_of_using_feat[1][0]; }, 0},
      {"calib:\n  search_radius: 3", [](auto& c) { return c.search_radius; }, 1.5},
      {"calib:\n  mode: 1", [](auto& c) { return c.search_radius; }, 10000000},
      {"x: 1", [](auto& c) { return c.search_radius; }, 100000},
      {"calib:\n  depth:\n    max: 9", [](auto& c) { return c.depth_max; }, 9},
      {"calib:\n  depth:\n    max: 9", [](auto& c) { return c.depth_min; }, 0.1},
      {"calib:\n  dir_bias_mode: 0.25", [](auto& c) { return c.dir_bias; }, 0.25},
      // Ranges: symmetric by their max, offsets in units of the frame, the count scaled as well.
      {"calib:\n  right:\n    pan:\n      max: 3", [](auto& c) { return c.right_table[0][0].pan.min; }, -3},
      {"calib:\n  right:\n    pan:\n      max: 3", [](auto& c) { return c.right_table[0][0].pan.div; }, 1},
      {"calib:\n  right:\n    pan: 5", [](auto& c) { return c.right_table[0][0].pan.max; }, 0},
      {"calib:\n  right:\n    offset_x:\n      max: 100\n      div: 9",
       [](auto& c) { return c.right_table[0][0].offset_x.max; }, 50},
      {"calib:\n  right:\n    offset_x:\n      max: 100\n      div: 9",
       [](auto& c) { return c.right_table[0][0].offset_x.div; }, 4},
      {"calib:\n  unit: 1\n  right:\n    offset_y:\n      max: 0.5",
       [](auto& c) { return c.right_table[0][0].offset_y.max; }, 2048},
      {"calib:\n  unit: 0\n  offset_x_max: 7", [](auto& c) { return c.limits[0].offset_x_max; }, 7},
      {"calib:\n  offset_y_max: 7", [](auto& c) { return c.limits[0].offset_y_max; }, 3.5},
      {"calib:\n  unit: 7\n  offset_y_max: 7", [](auto& c) { return c.limits[0].offset_y_max; }, 7},
      {"calib:\n  unit_deg: 1\n  pan_max: 5", [](auto& c) { return c.limits[0].pan_max; }, 5 * kDegree},
      {"calib:\n  unit_deg: 0\n  tilt_max: 5", [](auto& c) { return c.limits[0].tilt_max; }, 5},
      {"calib:\n  unit_deg: 1\n  right:\n    roll:\n      max: 2\n      min: 1",
       [](auto& c) { return c.right_table[0][0].roll.min; }, 1 * kDegree},
      // Which section fills which table.
      {"calib:\n  left:\n    pan:\n      max: 2", [](auto& c) { return c.left_table[0][0].pan.max; }, 2},
      {"calib:\n  command: 3\n  left:\n    pan:\n      max: 2",
       [](auto& c) { return c.right_table[0][0].pan.max; }, 2},
      {"calib:\n  command: 1\n  right:\n    pan:\n      max: 2",
       [](auto& c) { return c.left_table[0][0].pan.max; }, 2},
      {"calib:\n  num_levels: 3\n  right2:\n    pan:\n      max: 2",
       [](auto& c) { return c.right_table[0][2].pan.max; }, 2},
      {"calib:\n  num_levels: 2\n  right2:\n    pan:\n      max: 2",
       [](auto& c) { return c.right_table[0][2].pan.max; }, 0},
      {"calib:\n  left:\n    mode: 1", [](auto& c) { return c.left_table[0][0].mode; }, 1},
  };
  for (const Case& one : cases) EXPECT_DOUBLE_EQ(one.value(*load(one.text)), one.expected) << one.text;
}

TEST(CalibContext, RetriesInheritAndExchange) {
  const std::string head =
      "calib:\n  retry_count: 2\n  num_levels: 2\n  sigma: [4, 2]\n  skip: [0, 1]\n  cont: 1\n  unit_deg: 1\n"
      "  pan_max: 5\n  right:\n    pan:\n      max: 1\n  left:\n    pan:\n      max: 2\n";
  struct Case {
    const char* command;
    double right_pan_max;
    double left_pan_max;
  };
  for (const Case& one :
       {Case{"command: 0", 0, 0}, Case{"command: 1", kDegree, 2 * kDegree},
        Case{"command: 2", 2 * kDegree, kDegree}, Case{"command: 3", 0, 0}, Case{"command: 9", 0, 0}}) {
    const auto c =
        load(head + "calib1:\n  " + one.command + "\ncalib2:\n  " + one.command + "\n  sigma: 7\n");
    EXPECT_DOUBLE_EQ(c->right_table[1][0].pan.max, one.right_pan_max) << one.command;
    EXPECT_DOUBLE_EQ(c->left_table[1][0].pan.max, one.left_pan_max) << one.command;
    EXPECT_EQ(c->num_levels[2], 2);
    EXPECT_EQ(c->sigma[1][1], 2);
    EXPECT_EQ(c->sigma[2][1], 7);
    EXPECT_EQ(c->skip[0][1], 1);
    EXPECT_EQ(c->skip[1][1], 0) << "a missing skip spreads the inherited first entry";
    EXPECT_EQ(c->cont[2], 1);
    EXPECT_DOUBLE_EQ(c->limits[2].pan_max, 5 * kDegree) << "inherited radians aren't turned again";
  }
}

TEST(CalibContext, AFileThatDoesNotParseGivesNothingOfItself) {
  // Text and file fail in different ways, and both have been read up to the mistake by then.
  const std::string text = "calib:\n  mode: 28\n  unit: \"\"\n";
  EXPECT_EQ(load(text)->mode, 4);
  const testing_support::TempDir dir;
  EXPECT_EQ(load(dir.write("broken.yaml", text))->mode, 4);
}

TEST(CalibContext, AnAbsentRightSectionStoresANegativeZero) {
  const auto c = load("calib:\n  mode: 28");
  EXPECT_TRUE(std::signbit(c->right_table[0][0].pan.min));
  EXPECT_FALSE(std::signbit(c->left_table[0][0].pan.min));
}

TEST(CalibContext, RefusesWhatLeadsOutsideTheTables) {
  const std::string grid = "calib:\n  unit: 0\n  right:\n    pan:\n      div: 10000\n    tilt:\n      div: ";
  const std::string refused[] = {
      "calib:\n  retry_count: 1",
      "calib:\n  retry_count: 20",
      "calib:\n  num_levels: 21",
      "calib:\n  retry_count: 1\ncalib1:\n  num_levels: 25",
      "calib:\n  knn: 4",
      "calib:\n  rank_last: 10",
      "calib:\n  rank_last: -1",
      "calib:\n  score_tbl_size: -1",
      "calib:\n  score_tbl_size: 16777217",
      grid + "10001",
      grid + "10000\n  knn: 2",
      grid + "2000000000\n    roll:\n      div: 2000000000",
      grid + "10001\n  retry_count: -1",  // the first retry runs all the same
  };
  for (const std::string& text : refused) load(text, false);
  for (const std::string& text : {grid + "10000", grid + "20000\n  skip: 1",
                                  grid + "20000\n    roll:\n      div: 0", grid + "20000\n  knn: 0"}) {
    load(text);
  }
}

}  // namespace
}  // namespace twintrue
