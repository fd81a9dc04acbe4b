// The effective values of a parameter file, and the test pattern.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cli/Fixtures.h"
#include "inspect/Inspection.h"
#include "support/TempDir.h"

namespace {

using cli_test::Outcome;
using cli_test::settings_with;
using inspect_test::inspect_json;
using inspect_test::Json;
using inspect_test::pairs_of;
using inspect_test::run_inspect;
using testing_support::TempDir;

Json settings_of(const std::string& source, int width = 1024, int height = 768, int frame_width = 4096) {
  return inspect_json({"settings", source, "--width", std::to_string(width), "--height",
                       std::to_string(height), "--frame-width", std::to_string(frame_width)});
}

const std::string kSettings = TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml";

// Values that no two keys of a section share come back under their own names.
TEST(InspectSettings, ShowsEachKeyUnderItsName) {
  struct Section {
    const char* name;
    const char* values;  // keys, each with its value
  };
  const Section sections[] = {
      {"grid", "num_kps_in_cell 7 horz_cell_count 3 vert_cell_count 2"},
      {"RENO",
       "nfeatures 101 scaleFactor 1.5 nlevels 2 edgeThreshold 102 firstLevel 103 wta_k 1 scoreType "
       "104 patchSize 27 refining 105 ds_mode 106 gamma_mode 107 desc_gaus_size 108 desc_bytes 32 "
       "desc_bits 256 filter_mode 109 det_type 6 no_extrema_suppression 110 h_sigma 2.5 "
       "desc_image_mode 111 lpf_bit 112 shift_abd 113 shift_det 114 shift_res 115 mul_subpixel 116 "
       "rnd_mode 0 rSigma 3.5 weightDist 0 posLimit 117 patchIntCalcPattern 118"},
      {"matching",
       "max_vector_ratio_h 0.25 max_vector_ratio_v 0.125 k 1 out_mode 2 penalty_mode 3 "
       "penalty_rshift 5 penalty_res_coeff 4.5 dist_ratio_offset 6 dist_ratio_shift 7 sat_offset 8 "
       "score_th3 9 score_th4 10 acc_th 11.5"},
      {"mvc",
       "th 1.5 th2 2.5 th3 3.5 th4 4.5 sort_mode 5 sshift 6 score_mode 7 score_mode2 8 score_mode3 9 "
       "score_mode4 10 max_score 111 count_rshift 12 normalizing_coeff 130 num_matching_in_cell_out "
       "4 normalizing_mode 15 dist_ratio_shift 16 neighbour_mode 1 bin_width 18 normalizing 0 "
       "ref_prev_frame_data_mode 20 res_th 21 res_th_both 22 diff_pt_th 23"},
      {"vdet",
       "ch_bg 1 res_th_bg 2 res_th_bg_both 3 score_th_bg 4 res_th 5 res_th_both 6 rank_th 7 "
       "long_mv_th_ratio_gmv 0.5 long_mv_th_ratio_gmv_bg 0.25"},
      {"calib",
       "mode 27 fast_mode 2 failure_score_th 0.25 detection_ratio_th 0.5 error16_th 5.5 "
       "score_diff_mode 6 score_weight_mode_last 7 score_div_mode_last 8 sigma_org_last 9.5 "
       "use_mid_point_last 10 rank_last 3 num_using_feat_last 12 removing_outer_feat_rratio 13.5 "
       "skip_num_using_feat_mode 14 unit 0 unit_deg 15 k_offset 16.5 score_tbl_size 17 "
       "score_tbl_coeff 18.5 retry_count 1 retry_break_th1 20 retry_break_err_th16 21.5 "
       "retry_break_err_th4 22.5 retry_break_score 23.5 search_radius 24.5"},
  };
  std::string text;
  for (const Section& section : sections) {
    text += std::string(section.name) + ":\n";
    for (const auto& [key, value] : pairs_of(section.values)) text += "  " + key + ": " + value + "\n";
  }
  // What a run makes of the other keys of the search, by retry and level.
  text +=
      "  removing_outlier_: 25.5\n  dir_bias_mode: 26.5\n  depth:\n    max: 27.5\n    min: 28.5\n"
      "  num_levels: 2\n  knn: [1, 2]\n  rank: [3, 4]\n  sigma: [1.5, 2.5]\n  score_weight_mode: [5, 6]\n"
      "  score_div_mode: [7, 8]\n  k_radius: [3.5, 4.5]\n  rradius_using_fps: [5.5, 6.5]\n  skip: [9, 10]\n"
      "  num_of_using_feat: [11, 12]\n  use_mid_point: [13, 14]\n  cont: 15\n  pan_max: 16.5\n"
      "  tilt_max: 17.5\n  offset_x_max: 18.5\n  offset_y_max: 19.5\n";
  for (const char* eye : {"right", "left"}) {
    text += std::string("  ") + eye + "1:\n    mode: " + (*eye == 'r' ? "3" : "4") + "\n";
    double value = *eye == 'r' ? 1.5 : 11.5;
    for (const char* key : {"offset_x", "offset_y", "pan", "tilt", "roll"}) {
      text += std::string("    ") + key + ":\n      max: " + Json(value++).dump() + "\n      div: 3\n";
    }
  }
  text += "calib1:\n  num_levels: 1\n";
  const TempDir dir;
  const Json json = settings_of(dir.write("all.yaml", text));
  EXPECT_EQ(json.at("init"), 0);
  for (const Section& section : sections) {
    for (const auto& [key, value] : pairs_of(section.values)) {
      EXPECT_EQ(json.at(section.name).at(key), std::stod(value)) << section.name << " " << key;
    }
  }
  EXPECT_EQ(json.at("grid").at("frameWidth"), 1024);
  EXPECT_EQ(json.at("grid").at("frameHeight"), 768);
  EXPECT_EQ(json.at("grid").at("max_num_kps_in_frame"), 7 * 3 * 2);
  EXPECT_LT(json.at("grid").at("left"), json.at("grid").at("right"));
  EXPECT_LT(json.at("grid").at("top"), json.at("grid").at("bottom"));
  EXPECT_EQ(json.at("RENO").at("desc_length"), 32);
  EXPECT_EQ(json.at("matching").at("max_vector_h"), 768 / 4);
  EXPECT_EQ(json.at("matching").at("max_vector_v"), 768 / 8);
  EXPECT_EQ(json.at("matching").at("patchSize"), 27);
  EXPECT_EQ(json.at("mvc").at("max_num_data_in_cell"), 7);
  EXPECT_EQ(json.at("mvc").at("candidates"), 1);

  EXPECT_EQ(json.at("calib_loaded"), true);
  const Json& calib = json.at("calib");
  EXPECT_EQ(calib.at("removing_outlier"), 25.5);
  EXPECT_EQ(calib.at("dir_bias"), 26.5);
  EXPECT_EQ(calib.at("depth_max"), 27.5);
  EXPECT_EQ(calib.at("depth_min"), 28.5);
  EXPECT_EQ(calib.at("num_levels").at(0), 2);
  EXPECT_EQ(calib.at("num_levels").at(1), 1);
  EXPECT_EQ(calib.at("cont").at(0), 15);
  EXPECT_EQ(
      calib.at("limits").at(0),
      Json::parse(R"({"pan_max": 16.5, "tilt_max": 17.5, "offset_x_max": 18.5, "offset_y_max": 19.5})"));
  EXPECT_EQ(calib.at("knn").at(1), 2);
  EXPECT_EQ(calib.at("rank").at(1), 4);
  const char* const second =
      "sigma 2.5 score_weight_mode 6 score_div_mode 8 k_radius 4.5 rradius_using_fps 6.5 skip 10 "
      "num_of_using_feat 12 use_mid_point 14";
  for (const auto& [table, value] : pairs_of(second)) {
    ASSERT_EQ(calib.at(table).size(), 20u) << table;
    EXPECT_EQ(calib.at(table).at(0).size(), 20u) << table;
    EXPECT_EQ(calib.at(table).at(0).at(1), std::stod(value)) << table;
  }
  for (const char* eye : {"right", "left"}) {
    const Json& sweep = calib.at(std::string(eye) + "_table").at(0).at(1);
    EXPECT_EQ(sweep.at("mode"), *eye == 'r' ? 3 : 4);
    double value = *eye == 'r' ? 1.5 : 11.5;
    for (const char* key : {"offset_x", "offset_y", "pan", "tilt", "roll"}) {
      EXPECT_EQ(sweep.at(key), Json({-value, value, 3, 0})) << eye << " " << key;
      ++value;
    }
  }
}

// The keys that are no numbers, and a preset by its name.
TEST(InspectSettings, ShowsTextsListsAndPresets) {
  const Json json = settings_of(
      "grid:\n  horz_cell_count: 3\n"
      "RENO:\n  desc_bytes: 32\n  nlevels: 3\n  filter_types: [5, x, 3]\n  res_ths: [7, 8, 9]\n  rotating: "
      "1\n"
      "  rndSeedMake: 11\n  rndSeedSelect: 12\nmatching:\n  check_circle: 1\n"
      "vdet:\n  check_params:\n    - [30, 1, 20]\n    - [2, 60, 16]\n  long_mv_th_ratio_gmv: 0.01\n");
  const Json& detector = json.at("RENO");
  EXPECT_EQ(detector.at("desc_bits"), 128);
  EXPECT_EQ(detector.at("desc_length"), 16);
  EXPECT_EQ(detector.at("filter_type"), Json::parse("[5, 0, 3]"));
  EXPECT_EQ(detector.at("threshold"), Json::parse("[7, 8, 9]"));
  EXPECT_EQ(detector.at("rotating"), true);
  EXPECT_EQ(detector.at("rndSeedMake"), "11");
  EXPECT_EQ(detector.at("rndSeedSelect"), "12");
  EXPECT_EQ(json.at("matching").at("check_circle"), true);
  EXPECT_EQ(json.at("vdet").at("enabled"), true);
  EXPECT_EQ(json.at("vdet").at("auto_night_mode"), settings_of(kSettings).at("vdet").at("auto_night_mode"));
  EXPECT_EQ(json.at("vdet").at("rules").at(1),
            Json::parse(R"({"score_th": 60, "ch": 2, "dist_ratio_th": 16})"));
  // A 32-bit float stands as the double that it is.
  EXPECT_EQ(json.at("vdet").at("long_mv_th_ratio_gmv").get<double>(), static_cast<double>(0.01f));

  const std::vector<std::string> size{"--width", "1024", "--height", "768", "--frame-width", "4096"};
  const auto shown = [&size](std::vector<std::string> source) {
    source.insert(source.begin(), "settings");
    source.insert(source.end(), size.begin(), size.end());
    return run_inspect(source);
  };
  EXPECT_EQ(shown({"--preset", "wide"}).out, shown({TWINTRUE_SOURCE_DIR "/presets/wide.yaml"}).out);
  EXPECT_EQ(shown({"--preset", "wide", kSettings}).exit_code, 2);
  EXPECT_EQ(shown({}).exit_code, 2);
}

TEST(InspectSettings, ShowsHowFarTheSetUpCame) {
  const TempDir dir;
  struct Case {
    std::string source;
    int width;
    const char* init;
    const char* error;  // on the other stream
    int patch_size;     // the reading of `RENO` comes first
    int frame_width;    // of the grid; 0: the set-up did not come to it
  };
  const std::string broken = dir.write("broken.yaml", "RENO:\n\tpatchSize: 15\n");
  const Case cases[] = {
      {"RENO:\n  patchSize: 15\n", 512, "-1", "\n", 15, 512},
      {"RENO:\n  patchSize: 15\n", 0, "null", "", 13, 0},
      {"RENO:\n  patchSize: 600\n", 512, "-1", "\n", 600, 0},
      {"RENO:\n  patchSize: 15\n  rndSeedMake: x\n", 512, "null", "invalid stoull argument\n", 15, 0},
      {"RENO:\n\tpatchSize: 15\n", 512, "null", "", 13, 0},
      {broken, 512, "null", "Tab found in offset. Line 2 column 0\n", 13, 0},
      // No set-up comes as far as an out_mode that ends the process.
      {"matching:\n  out_mode: 1\n", 512, "-1", "\n", 13, 512},
  };
  for (const Case& each : cases) {
    const Outcome outcome = run_inspect({"settings", each.source, "--width", std::to_string(each.width),
                                         "--height", "512", "--frame-width", "1024"});
    ASSERT_EQ(outcome.exit_code, 0) << each.source << outcome.error;
    EXPECT_EQ(outcome.error, each.error) << each.source;
    const Json json = Json::parse(outcome.out);
    EXPECT_EQ(json.at("init"), Json::parse(each.init)) << each.source;
    EXPECT_EQ(json.at("RENO").at("patchSize"), each.patch_size) << each.source;
    EXPECT_EQ(json.at("grid").at("frameWidth"), each.frame_width) << each.source;
    EXPECT_EQ(json.at("vdet").at("enabled"), false);
    EXPECT_EQ(json.at("calib_loaded"), true);
  }
  const Json refused = settings_of("calib:\n  retry_count: 1\n");
  EXPECT_EQ(refused.at("calib_loaded"), false);
  EXPECT_EQ(refused.at("calib").at("retry_count"), 1);

  const Outcome fatal = run_inspect({"settings", "grid:\n  a: 1\nmatching:\n  out_mode: 1\n", "--width",
                                     "512", "--height", "512", "--frame-width", "1024"});
  EXPECT_EQ(fatal.exit_code, 4);
  EXPECT_NE(fatal.error.find("out_mode"), std::string::npos);
}

TEST(InspectPattern, IsAChainOfDifferentCandidates) {
  const Json json = inspect_json({"pattern", kSettings, "--width", "512", "--height", "512"});
  using Point = std::pair<int, int>;
  const auto candidates = json.at("candidates").get<std::vector<Point>>();
  const auto chain = json.at("chain").get<std::vector<Point>>();
  EXPECT_EQ(candidates.size(), 512u);
  EXPECT_EQ(chain.size(), 257u);
  const std::set<Point> drawn(candidates.begin(), candidates.end());
  for (const auto& [x, y] : drawn) {
    EXPECT_LE(std::max(std::abs(x), std::abs(y)), 12);
  }
  EXPECT_EQ(std::set<Point>(chain.begin(), chain.end()).size(), chain.size());
  EXPECT_TRUE(std::all_of(chain.begin(), chain.end(), [&](const Point& p) { return drawn.count(p) == 1; }));

  // The other seed leaves the candidates and changes the chain.
  const Json other =
      inspect_json({"pattern", settings_with("  patchSize: 25", "  patchSize: 25\n  rndSeedSelect: 5"),
                    "--width", "512", "--height", "512"});
  EXPECT_EQ(other.at("candidates"), json.at("candidates"));
  EXPECT_NE(other.at("chain"), json.at("chain"));
}

TEST(InspectPattern, RefusesWhatCannotBeDrawn) {
  const std::pair<std::string, std::string> cases[] = {
      {"RENO:\n  rnd_mode: 2\n", "rnd_mode"},     {"RENO:\n  wta_k: 2\n", "wta_k"},
      {"RENO:\n  patchSize: 5\n", "patchSize"},   {"RENO:\n  rndSeedMake: z\n", "rndSeedMake"},
      {"RENO:\n  patchSize: 600\n", "patchSize"}, {"RENO:\n\tx: 1\n", "Tab found"},
  };
  for (const auto& [source, word] : cases) {
    const Outcome outcome = run_inspect({"pattern", source, "--width", "512", "--height", "512"});
    EXPECT_EQ(outcome.exit_code, 4) << source;
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.error.find(word), std::string::npos) << outcome.error;
  }
  EXPECT_EQ(run_inspect({"pattern", "presets.yaml", "--width", "512", "--height", "512"}).exit_code, 3);
  EXPECT_EQ(run_inspect({"pattern", kSettings, "--width", "512"}).exit_code, 2);
}

}  // namespace
