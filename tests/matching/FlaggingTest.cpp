#include "matching/Flagging.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "matching/MatchScene.h"

namespace fpu {
namespace {

using namespace matching_tests;

// One strong record, 25 pixels to the right, in a frame of 1040 x 1040 (the limit for long vectors is 20.8
// pixels). What a case changes decides over it. Responses are 1000 and 400; gmv is (25, 0).
struct Record {
  Record() : scene({10, 10, 100, 100, 4}), set(scene.unit, 1) {
    settings.enabled = true;
    settings.rules[0] = {100, 1, 16};
    vector.score1 = 100;
    vector.score2 = 200;
    vector.score3 = 300;
    vector.score4 = 400;
    vector.dist_ratio = 20;
    vector.rank = 3;
  }

  bool accepted() {
    const KeyPointRecord* a = add_keypoint(*scene.a, x_a, y_a, resp_a);
    const KeyPointRecord* b = add_keypoint(*scene.b, x_b, y_b, resp_b);
    vector.cell_a = static_cast<std::int16_t>(a->cell);
    vector.cell_b = static_cast<std::int16_t>(b->cell);
    set.cell(a->cell)[0] = vector;
    set.count(a->cell) = set.total = 1;
    set.records.resize(1);
    set.records[0].accepted = 7;
    const std::int32_t count = flag_records(settings, *scene.a, *scene.b, set, gmv_x, gmv_y);
    EXPECT_EQ(set.records[0].accepted, count);
    return count == 1;
  }

  void move_to(float dx, float dy) {
    x_b = x_a + dx;
    y_b = y_a + dy;
  }

  // Leaves the record to the background test, which it passes.
  void to_background() {
    settings.rules[0].ch = -1;
    settings.score_th_bg = 100;
  }

  Scene scene;
  MatchSet set;
  CheckSettings settings;
  MatchVector vector;
  float x_a = 500, y_a = 500, x_b = 525, y_b = 500;
  std::uint16_t resp_a = 1000, resp_b = 400;
  std::int32_t gmv_x = 25, gmv_y = 0;
};

TEST(FlagRecordsTest, Rules) {
  struct Case {
    const char* what;
    std::function<void(Record&)> change;
    bool accepted;
  };
  using R = Record&;
  for (const Case& c : std::vector<Case>{
           {"as it stands", [](R) {}, true},
           {"score below the rule", [](R r) { r.vector.score1 = 99; }, false},
           {"ratio below the rule", [](R r) { r.vector.dist_ratio = 15; }, false},
           {"rule off", [](R r) { r.settings.rules[0].ch = 0; }, false},
           {"rule beyond the scores", [](R r) { r.settings.rules[0].ch = 5; }, false},
           {"fourth score",
            [](R r) {
              r.settings.rules[0] = {400, 4, 16};
            },
            true},
           {"third score too small",
            [](R r) {
              r.settings.rules[0] = {301, 3, 16};
            },
            false},
           {"last rule hits",
            [](R r) {
              r.settings.rules = {{{}, {}, {}, {999, 1, 0}, {200, 2, 0}}};
            },
            true},
           {"rank at the limit", [](R r) { r.settings.rank_th = 3; }, false},
           {"rank below the limit", [](R r) { r.settings.rank_th = 4; }, true},
           {"one response reaches", [](R r) { r.settings.res_th = 1000; }, true},
           {"no response reaches", [](R r) { r.settings.res_th = 1001; }, false},
           {"both reach", [](R r) { r.settings.res_th_both = 400; }, true},
           {"one falls short", [](R r) { r.settings.res_th_both = 401; }, false},
           {"a short vector needs half more of one",
            [](R r) {
              r.move_to(10, 0);
              r.gmv_x = 10;
              r.settings.res_th = 667;  // 1000 when raised
            },
            true},
           {"a short vector lacks half more of one",
            [](R r) {
              r.move_to(10, 0);
              r.gmv_x = 10;
              r.settings.res_th = 668;  // 1002 when raised
            },
            false},
           {"a short vector lacks half more of both",
            [](R r) {
              r.move_to(0, 10);
              r.settings.res_th_both = 268;  // 402 when raised
            },
            false},
           {"no longer short",
            [](R r) {
              r.move_to(10, 1);
              r.gmv_x = 10;
              r.settings.res_th = 1000;
              r.settings.res_th_both = 400;
            },
            true},
           {"night is never", [](R r) { r.settings.auto_night_mode = 1; }, true},

           {"left border", [](R r) { r.gmv_x = 16 - 500; }, false},
           {"inside the left border",
            [](R r) {
              r.gmv_x = 16 - 500;
              r.settings.long_mv_th_ratio_gmv = 0.6f;
            },
            true},
           {"beyond the left border",
            [](R r) {
              r.gmv_x = 15 - 500;
              r.settings.long_mv_th_ratio_gmv = 0.6f;
            },
            false},
           {"inside the lower border",
            [](R r) {
              r.gmv_y = 1023 - 500;
              r.settings.long_mv_th_ratio_gmv = 0.6f;
            },
            true},
           {"at the lower border",
            [](R r) {
              r.gmv_y = 1024 - 500;
              r.settings.long_mv_th_ratio_gmv = 0.6f;
            },
            false},
           {"at the right border",
            [](R r) {
              r.gmv_x = 1024 - 500;
              r.settings.long_mv_th_ratio_gmv = 0.6f;
            },
            false},

           {"far from gmv and long", [](R r) { r.gmv_x = 4; }, false},
           // 0.02 x 1040 squared is 432.64: 20 pixels off is near, 21 is far.
           {"near gmv", [](R r) { r.gmv_x = 5; }, true},
           {"far from gmv and not long",
            [](R r) {
              r.move_to(20, 5);
              r.gmv_x = -20;
            },
            true},
           {"limit beyond the integers", [](R r) { r.settings.long_mv_th_ratio_gmv = 1e9f; }, false},

           {"background alone", [](R r) { r.to_background(); }, true},
           {"background in spite of its rank",
            [](R r) {
              r.to_background();
              r.settings.rank_th = 0;
            },
            true},
           {"background score too small",
            [](R r) {
              r.to_background();
              r.settings.score_th_bg = 101;
            },
            false},
           {"background takes the third score",
            [](R r) {
              r.to_background();
              r.settings.score_th_bg = 300;
              r.settings.ch_bg = 3;
            },
            true},
           {"background takes the first score for want of a fifth",
            [](R r) {
              r.to_background();
              r.settings.score_th_bg = 300;
              r.settings.ch_bg = 5;
            },
            false},
           {"background responses",
            [](R r) {
              r.to_background();
              r.settings.res_th_bg = 1000;
              r.settings.res_th_bg_both = 400;
            },
            true},
           {"background response of both",
            [](R r) {
              r.to_background();
              r.settings.res_th_bg_both = 401;
            },
            false},
           {"background response of one",
            [](R r) {
              r.to_background();
              r.settings.res_th_bg = 1001;
            },
            false},
           // 0.01 x 1040 squared is 108.16: 10 pixels off moves with the gmv, 11 does not.
           {"background moves with gmv",
            [](R r) {
              r.to_background();
              r.gmv_x = 15;
            },
            true},
           {"background moves by itself",
            [](R r) {
              r.to_background();
              r.gmv_x = 14;
            },
            false},
           {"background switched off",
            [](R r) {
              r.to_background();
              r.settings.long_mv_th_ratio_gmv_bg = 0.0f;
            },
            false},
           {"positions are rounded", [](R r) { r.move_to(45.49f, 0); }, true},
           {"away from zero", [](R r) { r.move_to(45.5f, 0); }, false},
       }) {
    Record record;
    c.change(record);
    EXPECT_EQ(record.accepted(), c.accepted) << c.what;
  }
}

TEST(ForegroundTestTest, NightAsksForStrongKeypoints) {
  struct Case {
    std::int32_t resp_a, resp_b, brightness, score;
    bool passes;
  };
  for (const Case& c : std::vector<Case>{{12000, 12000, 20, 50, true},
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
  Record record;
  record.move_to(25, 0);
  std::vector<std::int32_t> expected;
  for (const std::int32_t cell : {0, 7, 7, 55, 99}) {
    const std::int32_t slot = record.set.count(cell)++;
    const auto x = static_cast<float>(kMargin + 50 + cell % 10 * 100);
    const auto y = static_cast<float>(kMargin + 50 + cell / 10 * 100);
    add_keypoint(*record.scene.a, x, y, 1000);
    add_keypoint(*record.scene.b, x + 25, y, 1000);
    MatchVector& v = record.set.cell(cell)[slot];
    v = record.vector;
    v.cell_a = v.cell_b = static_cast<std::int16_t>(cell);
    v.slot_a = v.slot_b = static_cast<std::int16_t>(slot);
    if (expected.size() % 2 == 1) v.score1 = 0;
    expected.push_back(expected.size() % 2 == 0 ? 1 : 0);
  }
  record.set.records.resize(expected.size());
  EXPECT_EQ(flag_records(record.settings, *record.scene.a, *record.scene.b, record.set, 25, 0), 3);
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(record.set.records[i].accepted, expected[i]);
}

}  // namespace
}  // namespace fpu
