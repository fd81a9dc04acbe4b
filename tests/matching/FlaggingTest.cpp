#include "matching/Flagging.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "matching/MatchScene.h"

namespace fpu {
namespace {

using namespace matching_tests;

// One strong record in a frame of 1240 x 1040, where a vector is long from 20.8 pixels on, and what a case
// changes of it.
struct Case {
  const char* what;
  bool accepted;
  std::array<CheckRule, 5> rules{{{100, 1, 16}}};
  std::int32_t ch_bg = 0;
  std::int32_t score_th_bg = 1000;
  std::int32_t res_th_bg = 0;
  std::int32_t res_th_bg_both = 0;
  std::int32_t res_th = 0;
  std::int32_t res_th_both = 0;
  std::int32_t rank_th = 10000;
  float near_gmv = 0.02f;  // long_mv_th_ratio_gmv
  float near_gmv_bg = 0.01f;
  std::int32_t night = 0;
  std::int32_t score1 = 100;
  std::int32_t dist_ratio = 20;
  float dx = 25;
  float dy = 0;
  std::int32_t gmv_x = 25;
  std::int32_t gmv_y = 0;
  bool upright = false;  // the frame is 1040 x 1240
};

// Scores are score1, 200, 300 and 400, the rank is 3, the responses are 1000 and 400, the start (500, 500).
bool accepts(const Case& c) {
  Scene scene(c.upright ? Raster{10, 12, 100, 100, 4} : Raster{12, 10, 100, 100, 4});
  MatchSet set(scene.unit, 1);
  CheckSettings settings;
  settings.enabled = true;
  settings.rules = c.rules;
  settings.ch_bg = c.ch_bg;
  settings.score_th_bg = c.score_th_bg;
  settings.res_th_bg = c.res_th_bg;
  settings.res_th_bg_both = c.res_th_bg_both;
  settings.res_th = c.res_th;
  settings.res_th_both = c.res_th_both;
  settings.rank_th = c.rank_th;
  settings.long_mv_th_ratio_gmv = c.near_gmv;
  settings.long_mv_th_ratio_gmv_bg = c.near_gmv_bg;
  settings.auto_night_mode = c.night;
  const KeyPointRecord* a = add_keypoint(*scene.a, 500, 500, 1000);
  const KeyPointRecord* b = add_keypoint(*scene.b, 500 + c.dx, 500 + c.dy, 400);
  MatchVector& vector = *set.cell(a->cell);
  vector.cell_a = static_cast<std::int16_t>(a->cell);
  vector.cell_b = static_cast<std::int16_t>(b->cell);
  vector.score1 = c.score1;
  vector.score2 = 200;
  vector.score3 = 300;
  vector.score4 = 400;
  vector.dist_ratio = c.dist_ratio;
  vector.rank = 3;
  set.count(a->cell) = set.total = 1;
  set.records.resize(1);
  set.records[0].accepted = 7;
  const std::int32_t count = flag_records(settings, *scene.a, *scene.b, set, c.gmv_x, c.gmv_y);
  EXPECT_EQ(set.records[0].accepted, count) << c.what;
  return count == 1;
}

TEST(FlagRecordsTest, ForegroundRules) {
  for (const Case& c : std::vector<Case>{
           {.what = "as it stands", .accepted = true},
           {.what = "score below the rule", .accepted = false, .score1 = 99},
           {.what = "ratio below the rule", .accepted = false, .dist_ratio = 15},
           {.what = "rule off", .accepted = false, .rules = {{{100, 0, 16}}}},
           {.what = "rule beyond the scores", .accepted = false, .rules = {{{100, 5, 16}}}},
           {.what = "fourth score", .accepted = true, .rules = {{{400, 4, 16}}}},
           {.what = "third score", .accepted = false, .rules = {{{301, 3, 16}}}},
           {.what = "last rule", .accepted = true, .rules = {{{}, {}, {}, {999, 1, 0}, {200, 2, 0}}}},
           {.what = "rank at the limit", .accepted = false, .rank_th = 3},
           {.what = "rank below the limit", .accepted = true, .rank_th = 4},
           {.what = "one response reaches", .accepted = true, .res_th = 1000},
           {.what = "no response reaches", .accepted = false, .res_th = 1001},
           {.what = "both responses reach", .accepted = true, .res_th_both = 400},
           {.what = "one response falls short", .accepted = false, .res_th_both = 401},
           // Up to 10 pixels the limits rise by half: to 1000, 1002 and 402.
           {.what = "short, one reaches", .accepted = true, .res_th = 667, .dx = 10, .gmv_x = 10},
           {.what = "short, none reaches", .accepted = false, .res_th = 668, .dx = 10, .gmv_x = 10},
           {.what = "short, one falls short", .accepted = false, .res_th_both = 268, .dx = 0, .dy = 10},
           {.what = "no longer short", .accepted = true, .res_th = 1000, .dx = 10, .dy = 1, .gmv_x = 10},
           {.what = "it is never night", .accepted = true, .night = 1},
       }) {
    EXPECT_EQ(accepts(c), c.accepted) << c.what;
  }
}

TEST(FlagRecordsTest, BorderAndDistanceFromTheGmv) {
  for (const Case& c : std::vector<Case>{
           {.what = "left, inside", .accepted = true, .near_gmv = 0.6f, .gmv_x = 16 - 500},
           {.what = "left, outside", .accepted = false, .near_gmv = 0.6f, .gmv_x = 15 - 500},
           {.what = "upper, outside", .accepted = false, .near_gmv = 0.6f, .gmv_y = 15 - 500},
           {.what = "right, inside", .accepted = true, .near_gmv = 0.7f, .gmv_x = 1223 - 500},
           {.what = "right, outside", .accepted = false, .near_gmv = 0.7f, .gmv_x = 1224 - 500},
           {.what = "lower, inside", .accepted = true, .near_gmv = 0.6f, .gmv_y = 1023 - 500},
           {.what = "lower, outside", .accepted = false, .near_gmv = 0.6f, .gmv_y = 1024 - 500},
           // 0.02 x 1040 squared is 432.64: 20 pixels off is near, 21 is far.
           {.what = "near", .accepted = true, .gmv_x = 5},
           {.what = "far and long", .accepted = false, .gmv_x = 4},
           {.what = "near, upright", .accepted = true, .gmv_x = 5, .upright = true},
           {.what = "far and long, upright", .accepted = false, .gmv_x = 4, .upright = true},
           {.what = "far and not long", .accepted = true, .dx = 20, .dy = 5, .gmv_x = -20},
           {.what = "limit beyond the integers", .accepted = false, .near_gmv = 1e9f},
           {.what = "rounded down", .accepted = true, .dx = 45.49f},
           {.what = "rounded up", .accepted = false, .dx = 45.5f},
       }) {
    EXPECT_EQ(accepts(c), c.accepted) << c.what;
  }
}

TEST(FlagRecordsTest, BackgroundRules) {
  for (Case c : std::vector<Case>{
           {.what = "alone", .accepted = true},
           {.what = "in spite of its rank", .accepted = true, .rank_th = 0},
           {.what = "score too small", .accepted = false, .score_th_bg = 101},
           {.what = "second score", .accepted = true, .ch_bg = 2, .score_th_bg = 200},
           {.what = "third score", .accepted = true, .ch_bg = 3, .score_th_bg = 300},
           {.what = "fourth score", .accepted = false, .ch_bg = 4, .score_th_bg = 401},
           {.what = "first for want of a fifth", .accepted = false, .ch_bg = 5, .score_th_bg = 200},
           {.what = "responses", .accepted = true, .res_th_bg = 1000, .res_th_bg_both = 400},
           {.what = "one response falls short", .accepted = false, .res_th_bg_both = 401},
           {.what = "no response reaches", .accepted = false, .res_th_bg = 1001},
           // 0.01 x 1040 squared is 108.16: 10 pixels off moves with the gmv, 11 does not.
           {.what = "moves with the gmv", .accepted = true, .gmv_x = 15},
           {.what = "moves by itself", .accepted = false, .gmv_x = 14},
           {.what = "no distance is near enough", .accepted = false, .near_gmv_bg = 0.0f},
       }) {
    c.rules = {};
    if (c.score_th_bg == 1000) c.score_th_bg = 100;  // not given: score1 just reaches it
    EXPECT_EQ(accepts(c), c.accepted) << c.what;
  }
}

TEST(ForegroundTestTest, NightAsksForStrongKeypoints) {
  struct Night {
    std::int32_t resp_a, resp_b, brightness, score;
    bool passes;
  };
  for (const Night& c : std::vector<Night>{{12000, 12000, 20, 50, true},
                                           {12000, 11999, 20, 50, false},
                                           {11999, 12000, 20, 50, false},
                                           {12000, 12000, 20, 49, false},
                                           {1, 1, 21, 50, true}}) {
    CheckSettings settings;
    settings.auto_night_mode = 1;
    settings.rules[2] = {50, 1, 0};
    MatchVector vector;
    vector.rank = 0;
    vector.score1 = c.score;
    EXPECT_EQ(foreground_test(settings, vector, c.resp_a, c.resp_b, c.brightness, 1000), c.passes)
        << c.resp_a << ' ' << c.resp_b << ' ' << c.brightness;
  }
}

TEST(FlagRecordsTest, TheNthVectorIsTheNthRecord) {
  Scene scene({10, 10, 100, 100, 4});
  MatchSet set(scene.unit, 1);
  CheckSettings settings;
  settings.rules[0] = {100, 1, 16};
  std::vector<std::int32_t> expected;
  for (const std::int32_t cell : {0, 7, 7, 55, 99}) {
    const auto x = static_cast<float>(kMargin + 50 + cell % 10 * 100);
    const auto y = static_cast<float>(kMargin + 50 + cell / 10 * 100);
    add_keypoint(*scene.a, x, y, 1000);
    add_keypoint(*scene.b, x + 25, y, 1000);
    MatchVector& v = set.cell(cell)[set.count(cell)];
    v.cell_a = v.cell_b = static_cast<std::int16_t>(cell);
    v.slot_a = v.slot_b = static_cast<std::int16_t>(set.count(cell)++);
    v.dist_ratio = 20;
    v.score1 = expected.size() % 2 == 0 ? 100 : 0;
    expected.push_back(v.score1 / 100);
  }
  set.records.resize(expected.size());
  EXPECT_EQ(flag_records(settings, *scene.a, *scene.b, set, 25, 0), 3);
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(set.records[i].accepted, expected[i]);
}

}  // namespace
}  // namespace fpu
