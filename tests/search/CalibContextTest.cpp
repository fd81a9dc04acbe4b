#include "search/CalibContext.h"

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace twintrue {
namespace {

constexpr std::int32_t kWidth = 4096;
constexpr double kDegree = 0.017453292519943295;

std::unique_ptr<CalibContext> load(const std::string& text, bool expected = true,
                                   std::int32_t width = kWidth) {
  auto context = std::make_unique<CalibContext>();
  EXPECT_EQ(load_calib_settings(*context, text, width), expected) << text;
  return context;
}

enum class Kind { kNumber, kAngle, kLength };

// What lines of a section set: fields with their values, in the retry of the section and in those that
// inherit.
struct Lines {
  struct Field {
    std::function<double(const CalibContext&, std::size_t)> value;
    double expected;
    Kind kind;
  };
  std::string text;
  std::vector<Field> fields;
};

// One entry for each key.
std::vector<Lines> every_key() {
  std::vector<Lines> all;
  const auto add = [&](const std::string& text, std::vector<Lines::Field> fields) {
    all.push_back({text, std::move(fields)});
  };
  const auto scalar = [&](const std::string& key, auto CalibContext::*field, int value,
                          Kind kind = Kind::kNumber) {
    add(key + ": " + std::to_string(value),
        {{[field](auto& c, std::size_t) { return static_cast<double>(c.*field); }, value * 1.0, kind}});
  };
  const auto by_level = [&](const std::string& key, auto CalibContext::*field, int value) {
    add(key + ": " + std::to_string(value),
        {{[field](auto& c, std::size_t) { return (c.*field)[kMaxLevels - 1]; }, value * 1.0, Kind::kNumber}});
  };
  const auto by_retry = [&](const std::string& key, auto CalibContext::*field, int value) {
    add(key + ": " + std::to_string(value),
        {{[field](auto& c, std::size_t r) { return (c.*field)[r]; }, value * 1.0, Kind::kNumber}});
  };
  const auto by_both = [&](const std::string& key, auto CalibContext::*field, int value) {
    add(key + ": " + std::to_string(value),
        {{[field](auto& c, std::size_t r) { return (c.*field)[r][kMaxLevels - 1]; }, value * 1.0,
          Kind::kNumber}});
  };
  const auto limit = [&](const std::string& key, double PoseLimits::*field, int value, Kind kind) {
    add(key + ": " + std::to_string(value),
        {{[field](auto& c, std::size_t r) { return c.limits[r].*field; }, value * 1.0, kind}});
  };
  scalar("mode", &CalibContext::mode, 28);
  scalar("fast_mode", &CalibContext::fast_mode, 2);
  by_both("use_mid_point", &CalibContext::use_mid_point, 3);
  scalar("failure_score_th", &CalibContext::failure_score_th, 5);
  scalar("detection_ratio_th", &CalibContext::detection_ratio_th, 6);
  scalar("error16_th", &CalibContext::error16_th, 7);
  by_level("knn", &CalibContext::knn, 2);
  scalar("removing_outlier_", &CalibContext::removing_outlier, 9);
  by_both("sigma", &CalibContext::sigma, 10);
  by_both("score_weight_mode", &CalibContext::score_weight_mode, 11);
  by_both("score_div_mode", &CalibContext::score_div_mode, 12);
  scalar("score_diff_mode", &CalibContext::score_diff_mode, 13);
  scalar("dir_bias_mode", &CalibContext::dir_bias, 14);
  scalar("score_weight_mode_last", &CalibContext::score_weight_mode_last, 15);
  scalar("score_div_mode_last", &CalibContext::score_div_mode_last, 16);
  scalar("sigma_org_last", &CalibContext::sigma_org_last, 17);
  scalar("use_mid_point_last", &CalibContext::use_mid_point_last, 18);
  scalar("rank_last", &CalibContext::rank_last, 9);
  scalar("num_using_feat_last", &CalibContext::num_using_feat_last, 20);
  scalar("removing_outer_feat_rratio", &CalibContext::removing_outer_feat_rratio, 21);
  scalar("skip_num_using_feat_mode", &CalibContext::skip_num_using_feat_mode, 22);
  scalar("unit", &CalibContext::unit, 23);
  by_both("k_radius", &CalibContext::k_radius, 24);
  scalar("k_offset", &CalibContext::k_offset, 25);
  by_retry("num_levels", &CalibContext::num_levels, 4);
  scalar("score_tbl_size", &CalibContext::score_tbl_size, 27);
  scalar("score_tbl_coeff", &CalibContext::score_tbl_coeff, 28);
  by_retry("cont", &CalibContext::cont, 29);
  scalar("retry_break_th1", &CalibContext::retry_break_th1, 30);
  scalar("retry_break_err_th16", &CalibContext::retry_break_err_th16, 31);
  scalar("retry_break_err_th4", &CalibContext::retry_break_err_th4, 32);
  scalar("retry_break_score", &CalibContext::retry_break_score, 33);
  scalar("search_radius", &CalibContext::search_radius, 34, Kind::kLength);
  by_both("num_of_using_feat", &CalibContext::num_of_using_feat, 35);
  by_level("rank", &CalibContext::rank, 36);
  by_both("skip", &CalibContext::skip, 37);
  by_both("rradius_using_fps", &CalibContext::rradius_using_fps, 38);
  scalar("depth:\n    max", &CalibContext::depth_max, 39);
  scalar("depth:\n    min", &CalibContext::depth_min, 40);
  limit("pan_max", &PoseLimits::pan_max, 41, Kind::kAngle);
  limit("tilt_max", &PoseLimits::tilt_max, 42, Kind::kAngle);
  limit("offset_x_max", &PoseLimits::offset_x_max, 43, Kind::kLength);
  limit("offset_y_max", &PoseLimits::offset_y_max, 44, Kind::kLength);

  const std::pair<const char*, ByRetryAndLevel<EyeSweep> CalibContext::*> eyes[] = {
      {"right", &CalibContext::right_table}, {"left", &CalibContext::left_table}};
  const std::tuple<const char*, SweepRange EyeSweep::*, Kind> components[] = {
      {"offset_x", &EyeSweep::offset_x, Kind::kLength},
      {"offset_y", &EyeSweep::offset_y, Kind::kLength},
      {"pan", &EyeSweep::pan, Kind::kAngle},
      {"tilt", &EyeSweep::tilt, Kind::kAngle},
      {"roll", &EyeSweep::roll, Kind::kAngle}};
  for (const auto& [eye, table] : eyes) {
    const std::string head = std::string(eye) + ":\n    ";
    for (const auto& [component, range, kind] : components) {
      const auto end = [t = table, r = range](auto SweepRange::*field) {
        return [t, r, field](auto& c, std::size_t retry) { return ((c.*t)[retry][0].*r).*field; };
      };
      add(head + component + ":\n      max: 6\n      min: 3\n      div: 8",
          {{end(&SweepRange::max), 6, kind},
           {end(&SweepRange::min), 3, kind},
           {end(&SweepRange::div), 8, kind == Kind::kLength ? kind : Kind::kNumber}});
    }
    add(head + "mode: 5",
        {{[t = table](auto& c, std::size_t r) { return (c.*t)[r][0].mode; }, 5, Kind::kNumber}});
  }
  return all;
}

TEST(CalibContext, EveryKeyReachesItsOwnFieldInItsUnit) {
  const std::vector<Lines> all = every_key();
  for (bool in_degrees : {false, true}) {
    for (double scale : {1.0, 2.0}) {
      const auto with = [&](const std::string& text) {
        return load("calib:\n  retry_count: 1\n" + std::string(in_degrees ? "  unit_deg: 1\n  " : "  ") +
                        text + "\ncalib1:\n  command: 1\n",
                    true, static_cast<std::int32_t>(8192 * scale));
      };
      const auto without = with("x: 1");
      EXPECT_EQ(without->unit_deg, in_degrees ? 1 : 0);
      for (const Lines& lines : all) {
        const auto context = with(lines.text);
        for (const Lines& other : all) {
          for (const Lines::Field& field : other.fields) {
            const double factor = field.kind == Kind::kAngle && in_degrees ? kDegree
                                  : field.kind == Kind::kLength            ? scale
                                                                           : 1.0;
            for (std::size_t r : {0u, 1u}) {
              const bool is_own = &other == &lines;
              const double expected = is_own ? factor * field.expected : field.value(*without, r);
              EXPECT_DOUBLE_EQ(field.value(*context, r), expected) << lines.text << "\n and " << other.text;
              if (is_own) {
                EXPECT_NE(expected, field.value(*without, r)) << lines.text;
              }
            }
          }
        }
      }
    }
  }
}

TEST(CalibContext, ValuesOfAFile) {
  struct Case {
    const char* text;
    std::function<double(const CalibContext&)> value;
    double expected;
  };
  const Case cases[] = {
      {"grid:\n  a: 1", [](auto& c) { return c.mode; }, 4},
      {"calib:\n  mode: x", [](auto& c) { return c.mode; }, 4},
      {"calib:\n  num_levels: x", [](auto& c) { return c.num_levels[0]; }, 1},
      {"calib:\n  num_levels: 20", [](auto& c) { return c.num_levels[0]; }, 20},
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
      {"x: 1", [](auto& c) { return c.retry_break_th1; }, 1000000},
      {"x: 1", [](auto& c) { return c.num_of_using_feat[0][1] + c.num_of_using_feat[1][0]; }, 0},
      {"calib:\n  mode: 1", [](auto& c) { return c.search_radius; }, 10000000},
      {"x: 1", [](auto& c) { return c.search_radius; }, 100000},
      // Ranges: symmetric by their max, offsets in units of the frame, the count scaled as well.
      {"calib:\n  right:\n    pan:\n      max: 3", [](auto& c) { return c.right_table[0][0].pan.min; }, -3},
      {"calib:\n  right:\n    pan:\n      max: 3", [](auto& c) { return c.right_table[0][0].pan.div; }, 1},
      {"calib:\n  right:\n    pan: 5", [](auto& c) { return c.right_table[0][0].pan.max; }, 0},
      {"calib:\n  right:\n    offset_x:\n      max: 100\n      div: 9",
       [](auto& c) { return c.right_table[0][0].offset_x.div; }, 4},
      {"calib:\n  unit: 1\n  right:\n    offset_y:\n      max: 0.5",
       [](auto& c) { return c.right_table[0][0].offset_y.max; }, 2048},
      {"calib:\n  unit: 0\n  offset_x_max: 7", [](auto& c) { return c.limits[0].offset_x_max; }, 7},
      {"calib:\n  unit: 7\n  offset_y_max: 7", [](auto& c) { return c.limits[0].offset_y_max; }, 7},
      // Which section fills which table.
      {"calib:\n  command: 3\n  left:\n    pan:\n      max: 2",
       [](auto& c) { return c.right_table[0][0].pan.max; }, 2},
      {"calib:\n  command: 1\n  right:\n    pan:\n      max: 2",
       [](auto& c) { return c.left_table[0][0].pan.max; }, 2},
      {"calib:\n  retry_count: 1\ncalib1:\n  command: 3\n  right:\n    pan:\n      max: 2",
       [](auto& c) { return c.left_table[1][0].pan.max; }, 2},
      {"calib:\n  num_levels: 3\n  right2:\n    pan:\n      max: 2",
       [](auto& c) { return c.right_table[0][2].pan.max; }, 2},
      {"calib:\n  num_levels: 2\n  right2:\n    pan:\n      max: 2",
       [](auto& c) { return c.right_table[0][2].pan.max; }, 0},
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
  // 2,000,000 values of pan lie within the limit, whatever number is asked for.
  const std::string limited =
      "calib:\n  pan_max: 0.001\n  right:\n    pan:\n      max: 1\n      div: 2000000000\n    tilt:\n      "
      "div: ";
  const std::string retry = "\n  retry_count: 1\ncalib1:\n  command: 1\n  pan_max: ";
  load(limited + "51", false);
  load(limited + "50" + retry + "0.0011", false);
  std::string retries = "calib:\n  retry_count: 20\n";
  for (int r = 1; r <= 20; ++r) retries += "calib" + std::to_string(r) + ":\n  command: 1\n";
  const testing_support::TempDir dir;
  load(dir.write("retries.yaml", retries), false);
  for (const std::string& text :
       {grid + "10000", grid + "20000\n  skip: 1", grid + "20000\n    roll:\n      div: 0",
        grid + "20000\n  knn: 0", grid + "20000\n  tilt_max: -1", limited + "50" + retry + "0.0009",
        std::string("calib:\n  knn: 3"), std::string("calib:\n  score_tbl_size: 16777216")}) {
    load(text);
  }
}

}  // namespace
}  // namespace twintrue
