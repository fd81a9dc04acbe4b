#include "features/MatchSettings.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "FeatureTestSupport.h"

namespace fpu {
namespace {

using testing_support::document_of;

MatchingSettings fresh_matching() {
  MatchingSettings settings;
  settings.image_width = 1000;
  settings.image_height = 600;
  return settings;
}

CorrectionSettings fresh_correction() {
  CorrectionSettings settings;
  settings.max_num_data_in_cell = 30;
  return settings;
}

// What the keys set, in the order of the texts below.
template <class... T>
std::vector<double> values(T... value) {
  return {static_cast<double>(value)...};
}
std::vector<double> values_of(const MatchingSettings& m) {
  return values(m.max_vector_ratio_h, m.max_vector_ratio_v, m.check_circle, m.k, m.out_mode, m.penalty_mode,
                m.penalty_rshift, m.penalty_res_coeff, m.dist_ratio_offset, m.dist_ratio_shift, m.sat_offset,
                m.score_th3, m.score_th4, m.acc_th);
}
std::vector<double> values_of(const CorrectionSettings& c) {
  return values(c.th[0], c.th[1], c.th[2], c.th[3], c.sort_mode, c.sshift, c.score_mode[0], c.score_mode[1],
                c.score_mode[2], c.score_mode[3], c.max_score, c.count_rshift, c.normalizing_coeff,
                c.num_matching_in_cell_out, c.normalizing_mode, c.dist_ratio_shift, c.neighbour_mode,
                c.bin_width, c.normalizing, c.ref_prev_frame_data_mode, c.res_th, c.res_th_both,
                c.diff_pt_th);
}
std::vector<double> values_of(const CheckSettings& v) {
  return values(v.ch_bg, v.res_th_bg, v.res_th_bg_both, v.score_th_bg, v.res_th, v.res_th_both, v.rank_th,
                v.long_mv_th_ratio_gmv, v.long_mv_th_ratio_gmv_bg, v.auto_night_mode);
}

TEST(MatchSettingsTest, EveryKeyReachesItsFieldAndNeedNotBeThere) {
  auto document = document_of(
      "matching:\n  max_vector_ratio_h: 0.75\n  max_vector_ratio_v: 0.25\n  check_circle: 1\n  k: 7\n  "
      "out_mode: 2\n"
      "  penalty_mode: 5\n  penalty_rshift: 8\n  penalty_res_coeff: 1.5\n  dist_ratio_offset: 18\n"
      "  dist_ratio_shift: 9\n  sat_offset: 10\n  score_th3: 11\n  score_th4: 12\n  acc_th: 13.5\n"
      "mvc:\n  th: 1\n  th2: 2.5\n  th3: 3.5\n  th4: 4.5\n  sort_mode: 5\n  sshift: 6\n  score_mode: 7\n"
      "  score_mode2: 8\n  score_mode3: 9\n  score_mode4: 10\n  max_score: 11\n  count_rshift: 12\n"
      "  normalizing_coeff: 13\n  num_matching_in_cell_out: 14\n  normalizing_mode: 15\n"
      "  dist_ratio_shift: 16\n  neighbour_mode: 17\n  bin_width: 18\n  normalizing: 19\n"
      "  ref_prev_frame_data_mode: 20\n  res_th: 21\n  res_th_both: 22\n  diff_pt_th: 23\n"
      "vdet:\n  ch_bg: 1\n  res_th_bg: 2\n  res_th_bg_both: 3\n  score_th_bg: 4\n  res_th: 5\n"
      "  res_th_both: 6\n  rank_th: 7\n  long_mv_th_ratio_gmv: 8.5\n  long_mv_th_ratio_gmv_bg: 9.5\n"
      "  auto_night_mode: 10\n");
  auto bare = document_of("matching:\n  x: 1\nmvc:\n  x: 1\nvdet:\n  x: 1\n");
  auto m = fresh_matching();
  ASSERT_TRUE(load_matching_settings(m, bare, 0));
  EXPECT_EQ(values_of(m), values(0.4, 0.2, 0, 2, 0, 1, 6, 2, 3, 4, 0, 15, 15, 6));
  ASSERT_TRUE(load_matching_settings(m, document, 0));
  EXPECT_EQ(values_of(m), values(0.75, 0.25, 1, 7, 2, 5, 8, 1.5, 18, 9, 10, 11, 12, 13.5));

  auto c = fresh_correction();
  ASSERT_TRUE(load_correction_settings(c, bare, 0));
  EXPECT_EQ(values_of(c), values(4, 2, 3, 3, 1, 8, 1, 1, 1, 1, 255, 0, 128, 30, 0, 4, 2, 8, 0, 1, 0, 0, 2));
  ASSERT_TRUE(load_correction_settings(c, document, 0));
  EXPECT_EQ(values_of(c),
            values(1, 2.5, 3.5, 4.5, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23));

  CheckSettings v;
  ASSERT_TRUE(load_check_settings(v, bare, "vdet", false));
  EXPECT_EQ(values_of(v), values(0, 0, 0, 1000, 0, 0, 10000, 0.02f, 0.01f, 0));
  ASSERT_TRUE(load_check_settings(v, document, "vdet", false));
  EXPECT_EQ(values_of(v), values(1, 2, 3, 4, 5, 6, 7, 8.5, 9.5, 10));
  EXPECT_EQ(v.section, "vdet");
}

TEST(MatchSettingsTest, DisplacementLimitsFollowTheShorterSide) {
  constexpr std::int32_t kNothing = std::numeric_limits<std::int32_t>::min();
  struct Case {
    const char* text;
    std::int32_t h;
    std::int32_t v;
  };
  for (const Case& c : std::vector<Case>{
           {"other: 1\n", 240, 120},
           {"matching:\n  k: 1\n", 240, 120},
           {"matching:\n  max_vecor_ratio_h: 0.1\n  max_vecor_ratio_v: 0.05\n", 60, 30},
           {"matching:\n  max_vector_ratio_h: 0.3\n  max_vecor_ratio_h: 0.1\n", 180, 120},
           {"matching:\n  max_vector_ratio_h: none\n  max_vecor_ratio_h: 0.1\n", 60, 120},
           {"matching:\n  max_vector_ratio_h: 0.0116\n  max_vector_ratio_v: -0.0116\n", 6, -7},
           {"matching:\n  max_vector_ratio_h: 1e300\n  max_vector_ratio_v: -1e300\n", kNothing, kNothing},
       }) {
    auto document = document_of(c.text);
    auto settings = fresh_matching();
    ASSERT_TRUE(load_matching_settings(settings, document, 0)) << c.text;
    EXPECT_EQ(settings.max_vector_h, c.h) << c.text;
    EXPECT_EQ(settings.max_vector_v, c.v) << c.text;
  }
}

TEST(MatchSettingsTest, CorrectionKeysThatDependOnEachOther) {
  struct Case {
    const char* keys;
    std::function<bool(const CorrectionSettings&)> holds;
  };
  using S = const CorrectionSettings&;
  for (const Case& c : std::vector<Case>{
           {"th: 4\n", [](S s) { return s.normalizing_coeff == 128 && s.num_matching_in_cell_out == 30; }},
           {"normalizing_lshift: 9\n", [](S s) { return s.normalizing_coeff == 512; }},
           {"normalizing_coeff: 5\n  normalizing_lshift: 9\n", [](S s) { return s.normalizing_coeff == 5; }},
           {"num_kps_in_cell: 3\n", [](S s) { return s.num_matching_in_cell_out == 3; }},
           {"num_matching_in_cell_out: 4\n  num_kps_in_cell: 3\n",
            [](S s) { return s.num_matching_in_cell_out == 4; }},
           {"score_mode: 4\n",
            [](S s) {
              return s.score_mode == std::array{4, 4, 4, 4};
            }},
           {"score_mode3: -1\n  score_mode2: -2\n  score_mode4: 6\n  score_mode: 4\n",
            [](S s) {
              return s.score_mode == std::array{4, -2, 4, 6};
            }},
           {"neighbour_mode: -3\n", [](S s) { return s.neighbour_mode == -3; }},
       }) {
    auto document = document_of(std::string("mvc:\n  ") + c.keys);
    auto settings = fresh_correction();
    ASSERT_TRUE(load_correction_settings(settings, document, 0)) << c.keys;
    EXPECT_TRUE(c.holds(settings)) << c.keys;
  }
  auto without_section = document_of("other: 1\n");
  auto settings = fresh_correction();
  ASSERT_TRUE(load_correction_settings(settings, without_section, 0));
  EXPECT_EQ(settings.score_mode, (std::array{1, 1, 1, 1}));
  twintrue::ParamDocument unread;
  EXPECT_FALSE(load_correction_settings(settings, unread, 0));
}

TEST(MatchSettingsTest, RefusesWhatNoStepCanCarryOutAndKeepsTheRecord) {
  struct Case {
    const char* keys;
    bool loads;
  };
  for (const Case& c : std::vector<Case>{{"dist_ratio_shift: 31", true},
                                         {"dist_ratio_shift: 32", false},
                                         {"dist_ratio_shift: -1", false},
                                         {"penalty_rshift: -31", true},
                                         {"penalty_rshift: -32", false},
                                         {"penalty_rshift: 32", false},
                                         {"penalty_mode: 2\n  penalty_rshift: -1", false},
                                         {"penalty_mode: 4\n  penalty_rshift: -1", false},
                                         {"dist_ratio_offset: 0", true}}) {
    auto document = document_of(std::string("matching:\n  k: 1\n  ") + c.keys + "\n");
    auto settings = fresh_matching();
    EXPECT_EQ(load_matching_settings(settings, document, 0), c.loads) << c.keys;
    EXPECT_EQ(settings.k, c.loads ? 1 : 2) << c.keys;
  }
  for (const Case& c : std::vector<Case>{{"bin_width: 0", false},
                                         {"bin_width: -8", false},
                                         {"bin_width: 536870911", true},
                                         {"bin_width: 536870912", false},
                                         {"sshift: 32", false},
                                         {"count_rshift: -1", false},
                                         {"dist_ratio_shift: 40", false},
                                         {"normalizing_lshift: 31", true},
                                         {"normalizing_lshift: 32", false},
                                         {"normalizing: 3\n  neighbour_mode: 0", false},
                                         {"normalizing: 2\n  neighbour_mode: -1", false},
                                         {"normalizing: 5\n  neighbour_mode: 0", true},
                                         {"normalizing: 4\n  neighbour_mode: 1", true}}) {
    auto document = document_of(std::string("mvc:\n  max_score: 7\n  ") + c.keys + "\n");
    auto settings = fresh_correction();
    EXPECT_EQ(load_correction_settings(settings, document, 0), c.loads) << c.keys;
    EXPECT_EQ(settings.max_score, c.loads ? 7 : 255) << c.keys;
  }
}

TEST(MatchSettingsTest, RulesComeAsRowsOrAsFlatKeys) {
  using Row = std::array<std::int32_t, 3>;  // ch, score_th, dist_ratio_th
  struct Case {
    const char* keys;
    std::vector<Row> rows;  // those behind the last given one are `rest`
    Row rest;
  };
  CheckSettings settings;  // loaded again and again: no rule of an earlier load is left
  constexpr Row kOff{0, 0, 0};
  constexpr Row kFlat{-1, 10000, -1};
  for (const Case& c : std::vector<Case>{
           {"rank_th: 3", {}, kFlat},
           {"ch: 1\n  score_th: 5\n  dist_ratio_th_d: 9\n  ch_d: 4",
            {{1, 5, -1}, kFlat, kFlat, kFlat, {4, 10000, 9}},
            kFlat},
           {"ch: 1\n  check_params:\n    - [1, 30, 20]\n    - [2, 60]\n    - [3, x, 7, 8]",
            {{1, 30, 20}, {2, 60, 0}, {3, 0, 7}},
            kOff},
           {"check_params:\n    - [1, 1, 1]\n    - 5\n    - [2, 2, 2]", {{1, 1, 1}, {2, 2, 2}}, kOff},
           {"check_params:\n    - [1, 1, 1]\n    - [1, 1, 2]\n    - [1, 1, 3]\n    - [1, 1, 4]\n"
            "    - [1, 1, 5]\n    - [1, 1, 6]",
            {{1, 1, 1}, {1, 1, 2}, {1, 1, 3}, {1, 1, 4}, {1, 1, 5}},
            kOff},
           {"check_params:\n    - 1\n    - 2\n    - 3\n    - 4\n    - 5\n    - 6\n    - 7\n    - 8\n"
            "    - 9\n    - [1, 1, 1]\n    - [2, 2, 2]",
            {{1, 1, 1}},
            kOff},
           {"ch: 1\n  check_params: 4", {}, kOff},
       }) {
    auto document = document_of(std::string("vdet:\n  ") + c.keys + "\n");
    ASSERT_TRUE(load_check_settings(settings, document, "vdet", false)) << c.keys;
    for (std::size_t i = 0; i < settings.rules.size(); ++i) {
      const CheckRule& rule = settings.rules[i];
      EXPECT_EQ((Row{rule.ch, rule.score_th, rule.dist_ratio_th}), i < c.rows.size() ? c.rows[i] : c.rest)
          << c.keys << " rule " << i;
    }
  }
  // A missing entry ends the list.
  auto document = document_of("vdet:\n  check_params:\n    - [1, 1, 1]\n");
  auto& rows = document.root["vdet"]["check_params"];
  rows.push_back();
  auto& late = rows.push_back();
  late.push_back().make_scalar("2");
  ASSERT_TRUE(load_check_settings(settings, document, "vdet", false));
  EXPECT_EQ(settings.rules[0].ch, 1);
  EXPECT_EQ(settings.rules[1].ch, 0);
}

TEST(MatchSettingsTest, NumberedSectionsAndSwitchedOffChecks) {
  EXPECT_EQ(numbered_section("matching", 0), "matching");
  EXPECT_EQ(numbered_section("mvc", 12), "mvc12");
  EXPECT_EQ(numbered_section("vdet", -3), "vdet-3");

  auto document = document_of(
      "matching:\n  k: 1\nmatching3:\n  acc_th: 2\nvdet:\n  rank_th: 4\nvdet3:\n  enabled: 0\n"
      "  rank_th: 9\n");
  auto settings = fresh_matching();
  ASSERT_TRUE(load_matching_settings(settings, document, 0));
  ASSERT_TRUE(load_matching_settings(settings, document, 3));
  EXPECT_EQ(settings.acc_th, 2.0f);
  EXPECT_EQ(settings.index, 3);
  EXPECT_EQ(settings.k, 1);

  CheckSettings checks;
  ASSERT_TRUE(load_check_settings(checks, document, "vdet", false));
  EXPECT_FALSE(load_check_settings(checks, document, "vdet7", false));
  EXPECT_TRUE(checks.enabled);
  EXPECT_EQ(checks.section, "vdet");
  EXPECT_FALSE(load_check_settings(checks, document, "vdet3", false));
  EXPECT_FALSE(checks.enabled);
  EXPECT_EQ(checks.section, "vdet3");
  EXPECT_EQ(checks.rank_th, 4);
}

}  // namespace
}  // namespace fpu
