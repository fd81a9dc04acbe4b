// The effective values of a parameter file, and the test pattern.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <numbers>
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
using inspect_test::numbers;
using inspect_test::run_inspect;
using testing_support::TempDir;

Json settings_of(const std::string& source, int width = 1024, int height = 768, int frame_width = 4096) {
  return inspect_json({"settings", source, "--width", std::to_string(width), "--height",
                       std::to_string(height), "--frame-width", std::to_string(frame_width)});
}

const std::string kSettings = TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml";

TEST(InspectSettings, ShowsWhatThePresetMakes) {
  const Json json = settings_of(kSettings);
  EXPECT_EQ(json.at("init"), 0);

  const Json& grid = json.at("grid");
  const int columns = (1024 - 2 * 40) / 64;
  const int rows = (768 - 2 * 40) / 64;
  EXPECT_EQ(grid.at("horz_cell_count"), columns);
  EXPECT_EQ(grid.at("vert_cell_count"), rows);
  EXPECT_EQ(grid.at("right"), 40 + 64 * columns);
  EXPECT_EQ(grid.at("bottom"), 40 + 64 * rows);
  EXPECT_EQ(grid.at("max_num_kps_in_frame"), 30 * columns * rows);

  const Json& detector = json.at("RENO");
  EXPECT_EQ(detector.at("desc_bits"), 256);
  EXPECT_EQ(detector.at("desc_length"), 32);
  EXPECT_EQ(detector.at("filter_type"), Json::parse("[14]"));
  EXPECT_EQ(detector.at("threshold"), Json::parse("[1000]"));
  EXPECT_EQ(detector.at("rotating"), false);

  EXPECT_EQ(json.at("matching").at("max_vector_h"), static_cast<int>(768 * 0.12));
  EXPECT_EQ(json.at("matching").at("patchSize"), detector.at("patchSize"));
  EXPECT_EQ(json.at("mvc").at("score_mode4"), json.at("mvc").at("score_mode"));
  EXPECT_EQ(json.at("mvc").at("candidates"), 1);
  EXPECT_EQ(json.at("vdet").at("enabled"), true);
  EXPECT_EQ(json.at("vdet").at("rules").size(), 5u);
  EXPECT_EQ(json.at("vdet").at("rules").at(1),
            Json::parse(R"({"score_th": 60, "ch": 1, "dist_ratio_th": 16})"));
  // A 32-bit float stands as the double that it is.
  EXPECT_EQ(json.at("vdet").at("long_mv_th_ratio_gmv_bg").get<double>(), static_cast<double>(0.01f));

  EXPECT_EQ(json.at("calib_loaded"), true);
  const Json& calib = json.at("calib");
  EXPECT_EQ(calib.at("mode"), 28);
  for (const char* table : {"sigma", "score_weight_mode", "score_div_mode", "use_mid_point", "k_radius",
                            "num_of_using_feat", "skip", "rradius_using_fps", "left_table", "right_table"}) {
    ASSERT_EQ(calib.at(table).size(), 20u) << table;
    for (const Json& row : calib.at(table)) EXPECT_EQ(row.size(), 20u) << table;
  }
  for (const char* table : {"knn", "rank", "num_levels", "cont", "limits"}) {
    EXPECT_EQ(calib.at(table).size(), 20u) << table;
  }
  const double degree = std::numbers::pi / 180.0;
  EXPECT_NEAR(calib.at("limits").at(0).at("pan_max").get<double>(), 6 * degree, 1e-12);
  const Json& sweep = calib.at("right_table").at(0).at(0);
  EXPECT_NEAR(sweep.at("tilt").at(0).get<double>(), -4 * degree, 1e-12);
  EXPECT_NEAR(sweep.at("tilt").at(1).get<double>(), 4 * degree, 1e-12);
  EXPECT_EQ(sweep.at("tilt").at(2), 9);
  EXPECT_EQ(sweep.at("tilt").at(3), 0);
  EXPECT_EQ(sweep.at("mode"), 0);
}

// What the file states is read over the defaults, by the rules of each key.
TEST(InspectSettings, ShowsEffectiveValuesAndNotTheFilesOwn) {
  const Json json = settings_of(
      "grid:\n  horz_cell_count: 3\n  num_kps_in_cell: 7\n"
      "RENO:\n  desc_bytes: 32\n  nlevels: 3\n  filter_type: 3\n  filter_types: [5, x]\n"
      "mvc:\n  normalizing_lshift: 9\n  num_kps_in_cell: 4\n"
      "vdet:\n  ch: 2\n"
      "calib:\n  unit: 2\n  sigma: [2, 1]\n  k_radius: [2, 1]\n  right:\n    offset_x:\n      max: 100\n"
      "      div: 9\n  removing_outlier_: 0.5\n  dir_bias_mode: 0.25\n");
  EXPECT_EQ(json.at("init"), 0);
  EXPECT_EQ(json.at("RENO").at("desc_bytes"), 32);
  EXPECT_EQ(json.at("RENO").at("desc_bits"), 128);
  EXPECT_EQ(json.at("RENO").at("desc_length"), 16);
  EXPECT_EQ(json.at("RENO").at("filter_type"), Json::parse("[5, 0, 3]"));
  EXPECT_EQ(json.at("mvc").at("normalizing_coeff"), 512);
  EXPECT_EQ(json.at("mvc").at("num_matching_in_cell_out"), 4);
  EXPECT_EQ(json.at("mvc").at("max_num_data_in_cell"), 7);
  EXPECT_EQ(json.at("mvc").at("candidates"), 2);
  EXPECT_EQ(json.at("vdet").at("rules").at(0),
            Json::parse(R"({"score_th": 10000, "ch": 2, "dist_ratio_th": -1})"));
  const Json& calib = json.at("calib");
  EXPECT_EQ(calib.at("unit_scale"), 0.5);
  EXPECT_EQ(calib.at("removing_outlier"), 0.5);
  EXPECT_EQ(calib.at("dir_bias"), 0.25);
  EXPECT_EQ(calib.at("sigma").at(0).at(2), 2.0);
  EXPECT_EQ(calib.at("sigma").at(1).at(0), 0.0);
  EXPECT_EQ(calib.at("k_radius").at(0).at(2), 1.0);
  EXPECT_EQ(calib.at("right_table").at(0).at(0).at("offset_x"), Json::parse("[-50.0, 50.0, 4, 0]"));
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
