// What the program says to inputs that it can't use, and what it ends with.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "apps/cli/Problem.h"
#include "apps/cli/SettingsSource.h"
#include "apps/cli/checks/LensCheck.h"
#include "apps/cli/checks/SettingsCheck.h"
#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"
#include "features/FeatureUnit.h"

namespace {

using cli_test::Outcome;
using cli_test::run_program;
using cli_test::settings_with;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using twintrue::cli::Reach;

class BadInput : public testing::Test {
 protected:
  BadInput() {
    cli_test::write_black_frame(frame);
    dir.write("small.lens", cli_test::small_lens());
  }

  testing_support::TempDir dir;
  std::string frame = dir.file("frame.png");
  std::string lens = dir.file("small.lens");
};

struct Case {
  std::string name;
  std::vector<std::string> arguments;
  int exit_code;
  std::vector<std::string> words;  // all of them stand in the message
};

void expect_all(const std::vector<Case>& cases) {
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    const Outcome outcome = run_program(each.arguments);
    EXPECT_EQ(outcome.exit_code, each.exit_code) << outcome.error;
    EXPECT_EQ(outcome.out, "");
    for (const std::string& word : each.words) EXPECT_THAT(outcome.error, HasSubstr(word));
  }
}

TEST_F(BadInput, UsageEndsWithTwo) {
  expect_all({
      {"no command", {}, 2, {"twintrue: ", "subcommand"}},
      {"unknown command", {"calibrat"}, 2, {"twintrue: ", "calibrat"}},
      {"no lens", {"calibrate", frame}, 2, {"twintrue: ", "--lens", "required"}},
      {"unknown option", {"calibrate", frame, "--lens", lens, "--frob"}, 2, {"--frob"}},
      {"no thread", {"calibrate", frame, "--lens", lens, "--threads", "0"}, 2, {"--threads", "1 to 1024"}},
      {"many threads",
       {"inspect", "matches", frame, "--lens", lens, "--threads", "1025"},
       2,
       {"--threads", "1 to 1024"}},
  });
}

TEST_F(BadInput, UnreadableInputsEndWithThree) {
  const std::string missing = dir.file("missing");
  const std::string folder = dir.path().string();
  const std::string text = dir.write("text.png", "no picture");
  const std::string empty = dir.write("empty", "");
  expect_all({
      {"no frame", {"calibrate", missing, "--lens", lens}, 3, {"FRAME", missing, "no such file"}},
      {"frame is a folder", {"calibrate", folder, "--lens", lens}, 3, {"FRAME", folder, "a folder"}},
      {"frame is no picture", {"calibrate", text, "--lens", lens}, 3, {"FRAME", text, "PNG"}},
      {"no lens file", {"calibrate", frame, "--lens", missing}, 3, {"LENS", missing, "no such file"}},
      {"empty lens file", {"calibrate", frame, "--lens", empty}, 3, {"LENS", empty, "empty"}},
      {"no settings",
       {"calibrate", frame, "--lens", lens, "--params", missing},
       3,
       {"PARAMS", missing, "no such file"}},
      {"settings are a folder",
       {"calibrate", frame, "--lens", lens, "--params", folder},
       3,
       {"PARAMS", "a folder"}},
  });
}

TEST_F(BadInput, UnusableLensFilesEndWithFour) {
  const std::string other = dir.write("other.lens", "[OTHER]\nformat_version = \"1.0\";\n");
  const std::string version = dir.write("version.lens", "[OPTRA]\nformat_version = \"7.0\";\n");
  std::string no_width = cli_test::small_lens();
  no_width.replace(no_width.find("input_width = 512"), 17, "input_width = 0  ");
  const std::string zero = dir.write("zero.lens", no_width);
  const std::string no_field =
      dir.write("field.lens",
                "[OPTRA]\nversion = 2.31;\nPIX_input_width = 512;\nPIX_input_height = 256;\n"
                "AOV_input_width = 5120;\nimg_c_diameter = 2560;\nbaseline = 0.06;\n"
                "output_width = 512;\noutput_height = 256;\nleft_eye_magnify_v = 1;\n"
                "left_eye_magnify_h = 1;\nright_eye_magnify_v = 1;\nright_eye_magnify_h = 1;\n");
  std::string misspelt = testing_support::read_file(lens);
  misspelt.replace(misspelt.find("left_eye_magnify_h"), 18, "left_eye_magnifyh ");
  const std::string no_rays = dir.write("rays.lens", misspelt);
  const std::string binary = dir.write("binary.lens", std::string("\x7f"
                                                                  "ELF\x01\x02\x03\xff\xfe\x00\x01",
                                                                  11));
  const std::string small_frame = dir.file("small.png");
  cli_test::write_black_frame(small_frame, cli_test::kSmallWidth, cli_test::kSmallHeight - 1);
  expect_all({
      {"no section", {"calibrate", frame, "--lens", other}, 4, {"LENS", other, "OPTRA"}},
      {"unknown version", {"calibrate", frame, "--lens", version}, 4, {"LENS", version, "version"}},
      {"no width",
       {"calibrate", frame, "--lens", zero},
       4,
       {"LENS", zero, "input_width is invalid parameter: 0"}},
      {"a length missing",
       {"calibrate", frame, "--lens", no_field},
       4,
       {"LENS", no_field, "FOV", "misspelt"}},
      {"no magnification",
       {"calibrate", frame, "--lens", no_rays},
       4,
       {"LENS", no_rays, "left_eye_magnify_h", "misspelt"}},
      {"not a lens file", {"calibrate", frame, "--lens", binary}, 4, {"LENS", binary}},
      {"frame too small", {"calibrate", small_frame, "--lens", lens}, 4, {"512 x 255", "512 x 256"}},
  });
}

// Each row spoils the preset in one place. The message names the key, what was found and what to write. A
// look at the stages before is not refused.
TEST_F(BadInput, UnusableSettingsEndWithFour) {
  struct Row {
    std::string line;         // of the preset, by its beginning
    std::string replacement;  // "" takes the line out
    Reach stops;              // how far no run comes with it
    std::vector<std::string> words;
  };
  constexpr Reach kDetection = Reach::kDetection;
  constexpr Reach kMatching = Reach::kMatching;
  constexpr Reach kSearch = Reach::kSearch;
  constexpr Reach kResult = Reach::kResult;
  const std::vector<Row> rows{
      {"  mode: 28", "  mode: 27", kSearch, {"section `calib`", "`mode`", "27", "write `mode: 28`"}},
      {"  mode: 28", "", kSearch, {"section `calib`", "`mode`", "4 (the key is not given", "28"}},
      {"  score_weight_mode: 1",
       "  score_weight_mode: [1, 14]",
       kSearch,
       {"`score_weight_mode`", "14", "level 1", "0 to 13"}},
      {"  score_weight_mode_last: 1",
       "  score_weight_mode_last: -1",
       kSearch,
       {"`score_weight_mode_last`", "-1"}},
      {"  sigma: [", "", kResult, {"`sigma`", "level 0", "above 0"}},
      {"  num_levels: 10", "  num_levels: 21", kSearch, {"`num_levels`", "21", "at most 20"}},
      {"  knn: 1", "  knn: 4", kSearch, {"`knn`", "4"}},
      {"  rank_last: 1", "  rank_last: 10", kSearch, {"`rank_last`", "10", "0 to 9"}},
      {"  rank_last: 1",
       "  rank_last: 1\n  score_tbl_size: -1",
       kSearch,
       {"`score_tbl_size`", "0 to 16777216"}},
      {"  unit: 0",
       "  unit: 0\n  retry_count: 1",
       kSearch,
       {"section `calib1`", "no such section", "`retry_count` is 1"}},
      {"  unit: 0", "  unit: 0\n  retry_count: 20", kSearch, {"`retry_count`", "20", "0 to 19"}},
      {"      div: 9",
       "      div: 100000000",
       kSearch,
       {"section `calib`", "too many candidates at level 0"}},
      {"  out_mode: 2", "  out_mode: 1", kDetection, {"section `matching`", "`out_mode`", "0 (", "2 ("}},
      {"  k: 2", "  k: 3", kMatching, {"`k`", "3", "1 or 2"}},
      {"  k: 2", "  k: 2\n  penalty_mode: 6", kMatching, {"`penalty_mode`", "6", "0 to 5, or 7"}},
      {"  k: 2",
       "  k: 2\n  dist_ratio_shift: 32\n  penalty_rshift: 5",
       kDetection,
       {"section `matching`", "`penalty_rshift` 5 and `dist_ratio_shift` 32"}},
      {"  score_mode: 12", "  score_mode: 13", kMatching, {"section `mvc`", "`score_mode`", "13", "0 to 12"}},
      {"  score_mode: 12", "  score_mode: 12\n  score_mode3: -2", kMatching, {"`score_mode3`", "-2"}},
      {"  neighbour_mode: 3",
       "  neighbour_mode: 3\n  num_matching_in_cell_out: -1",
       kResult,
       {"`num_matching_in_cell_out`", "-1"}},
      {"  neighbour_mode: 3",
       "  neighbour_mode: 3\n  bin_width: 0",
       kDetection,
       {"section `mvc`", "`bin_width`"}},
      {"  det_type: 6",
       "  det_type: 8",
       kDetection,
       {"section `RENO`", "`det_type`", "8", "write `det_type: 6`"}},
      {"  det_type: 6", "", kResult, {"`det_type`", "0 (the key is not given", "6"}},
      {"  det_type: 6", "  det_type: 6\n  desc_image_mode: 1", kDetection, {"`desc_image_mode`", "1"}},
      {"  det_type: 6", "  det_type: 6\n  wta_k: 2", kDetection, {"`wta_k`", "2"}},
      {"  det_type: 6", "  det_type: 6\n  rnd_mode: 2", kDetection, {"`rnd_mode`", "0 or 1"}},
      {"  det_type: 6", "  det_type: 6\n  lpf_bit: 12", kDetection, {"`lpf_bit`", "12"}},
      {"  det_type: 6", "  det_type: 6\n  rndSeedMake: seed", kDetection, {"`rndSeedMake`", "no number"}},
      {"  nlevels: 1", "  nlevels: 21", kDetection, {"`nlevels`", "21"}},
      {"  filter_type: 14", "  filter_type: 24", kDetection, {"`filter_type`", "24", "0 to 23"}},
      {"  desc_bits: 256", "  desc_bits: 512", kDetection, {"`desc_bits`", "64 bytes", "8 to 504 bits"}},
      {"  patchSize: 25", "  patchSize: 15", kDetection, {"`patchSize`", "15", "256 bits"}},
      {"  patchSize: 25", "  patchSize: 0", kDetection, {"`patchSize`", "0", "1 to 256"}},
      {"  num_kps_in_cell: 30",
       "  num_kps_in_cell: 16777217",
       kDetection,
       {"`num_kps_in_cell`", "16777217", "16777216 in 4 cells", "512 x 256 pixels", "16777216` or less"}},
      {"  horz_cell_size: 64", "  horz_cell_size: 0", kDetection, {"section `grid`", "can't be laid"}},
      {"  vert_cell_size: 64", "  vert_cell_size: 400", kResult, {"section `grid`", "without a cell"}},
      {"grid:", "gird:", kDetection, {"section `grid`", "no such section"}},
      {"vdet:", "vdet0:", kDetection, {"section `vdet`", "no such section"}},
      {"calib:", "kalib:", kSearch, {"section `calib`", "no such section"}},
      {"  ch_bg: 1", "  ch_bg: 1\n  enabled: 0", kDetection, {"section `vdet`", "`enabled`", "1"}},
      {"  k: 2", "  k: 2\n k: 1", kDetection, {"Incorrect offset", "Line "}},
      {"  num_kps_in_cell: 30", "\tnum_kps_in_cell: 30", kDetection, {"Tab found", "Line "}},
  };
  // In this process, as there are many; TellsTheLineAndAllKeysAtOnce shows that the program asks for it all.
  const twintrue::cli::LensFacts facts = twintrue::cli::check_lens(lens);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.replacement + " for " + row.line);
    const std::string path = dir.write("settings.yaml", settings_with(row.line, row.replacement));
    const twintrue::cli::SettingsSource source(path);
    for (const Reach reach : {Reach::kDetection, Reach::kMatching, Reach::kSearch, Reach::kResult}) {
      try {
        twintrue::cli::check_settings(source, facts, reach);
        EXPECT_LT(reach, row.stops) << "was taken";
      } catch (const twintrue::cli::Failure& failure) {
        EXPECT_GE(reach, row.stops) << failure.what();
        EXPECT_EQ(failure.code(), twintrue::cli::ExitCode::kFileUnusable);
        EXPECT_EQ(failure.problems().size(), 1u) << failure.what();
        EXPECT_THAT(failure.what(), HasSubstr(path));
        for (const std::string& word : row.words) EXPECT_THAT(failure.what(), HasSubstr(word));
      }
    }
    if (row.stops == Reach::kDetection) continue;
    EXPECT_TRUE(fpu::createFeatureUnit(path, facts.view_width(), facts.view_height()))
        << "what may be looked at can be set up";
  }
}

TEST_F(BadInput, GoodSettingsPass) {
  const twintrue::cli::LensFacts facts = twintrue::cli::check_lens(lens);
  const std::string with_more =
      testing_support::read_file(TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml") +
      "\nnotes: this section is no section of ours\ncalibration: text\n";
  const twintrue::cli::SettingsFacts settings =
      twintrue::cli::check_settings(twintrue::cli::SettingsSource(with_more), facts);
  EXPECT_EQ(settings.detection_ratio_th, 0.4);
  EXPECT_EQ(settings.failure_score_th, 0.05);
  EXPECT_EQ(settings.error16_th, 3.0);
  EXPECT_EQ(settings.cells, 2 * 2);  // cells of 64 pixels in 256 without the margins of 40
  EXPECT_EQ(settings.places(), 2 * 2 * 2);
  EXPECT_EQ(settings.levels, 10);
  EXPECT_EQ(settings.last_retry, 0);

  twintrue::cli::LensFacts odd;
  odd.frame_width = 2 * 1087 + 1;
  odd.frame_height = 1624;
  EXPECT_EQ(odd.view_width(), 1072);  // whole multiples of 16
  EXPECT_EQ(odd.view_height(), 1616);

  // Values that mean something, however unusual.
  for (const char* line : {"  k: 2\n  dist_ratio_offset: 0", "  k: 2\n  penalty_mode: 7"}) {
    const twintrue::cli::SettingsSource source(settings_with("  k: 2", line));
    EXPECT_NO_THROW(twintrue::cli::check_settings(source, facts)) << line;
  }
}

TEST_F(BadInput, SectionsWithoutTheirColonsAreToldFirst) {
  const twintrue::cli::LensFacts facts = twintrue::cli::check_lens(lens);
  const twintrue::cli::SettingsSource source(settings_with("  num_kps_in_cell: 30", "  num_kps_in_cell 30"));
  try {
    twintrue::cli::check_settings(source, facts);
    ADD_FAILURE() << "was taken";
  } catch (const twintrue::cli::Failure& failure) {
    EXPECT_EQ(failure.problems().size(), 1u) << failure.what();
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("section `grid`"), HasSubstr("text: num_kps_in_cell 30"),
                                      HasSubstr("colon")));
  }
}

// A fault that only finds nothing must not hide one that ends the process.
TEST_F(BadInput, EachLevelsFaultsAreFound) {
  const twintrue::cli::LensFacts facts = twintrue::cli::check_lens(lens);
  const twintrue::cli::SettingsSource source(
      settings_with("  score_weight_mode: 1", "  score_weight_mode: [1, 1, 14]\n  sigma: [0]"));
  EXPECT_THROW(twintrue::cli::check_settings(source, facts, Reach::kSearch), twintrue::cli::Failure);
  twintrue::ParamDocument document = twintrue::cli::open_settings(source);
  EXPECT_THROW(twintrue::cli::check_search_settings(source, document, facts), twintrue::cli::Failure);
  const twintrue::cli::SettingsSource second(settings_with("  unit: 0", "  unit: 0\n  retry_count: 1") +
                                             "\ncalib1:\n  score_weight_mode: 14\n");
  try {
    twintrue::cli::check_settings(second, facts);
    ADD_FAILURE() << "was taken";
  } catch (const twintrue::cli::Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("section `calib1`, key `score_weight_mode`"));
  }
  // Mode 6 knows no sigma, and what is skipped does no harm.
  for (const char* line : {"  score_weight_mode: 6\n  sigma: 0", "  score_weight_mode: 14\n  skip: 1"}) {
    std::string text = settings_with("  score_weight_mode: 1", line);
    if (const std::size_t sigma = text.find("\n  sigma: ["); sigma != std::string::npos) {
      text.erase(sigma, text.find('\n', sigma + 1) - sigma);
    }
    EXPECT_NO_THROW(twintrue::cli::check_settings(twintrue::cli::SettingsSource(text), facts)) << line;
  }
  const twintrue::cli::SettingsSource idle(settings_with("  mode: 28", "  mode: 28\n  score_tbl_size: 0"));
  document = twintrue::cli::open_settings(idle);
  EXPECT_NO_THROW(twintrue::cli::check_search_settings(idle, document, facts));
}

TEST_F(BadInput, NoRuleThatCouldAcceptAMatchIsToldOf) {
  std::string text = settings_with("  score_th_bg: 60", "  score_th_bg: 1000");
  const std::size_t first = text.find("    - [1, 30, 20]");
  const std::size_t end = text.find('\n', text.find("    - [1, 60, 16]"));
  text.erase(first, end + 1 - first);
  const std::size_t head = text.find("  check_params:");
  text.replace(head, text.find('\n', head) - head, "  check_params: [[1, 30, 20], [1, 60, 16]]");
  const std::string path = dir.write("nested.yaml", text);
  expect_all({{"nested lists",
               {"calibrate", frame, "--lens", lens, "--params", path},
               4,
               {"section `vdet`", "`check_params`", "list within a list"}}});
}

TEST_F(BadInput, TellsTheLineAndAllKeysAtOnce) {
  const std::string text = settings_with("  mode: 28", "  mode: 3");
  const std::string path = dir.write("two.yaml", "# a line above\n" + text + "\nmatching:\n  k: 7\n");
  const auto line =
      2 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(text.find("  mode: 3")), '\n');
  const Outcome outcome = run_program({"calibrate", frame, "--lens", lens, "--params", path});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_THAT(outcome.error, AllOf(HasSubstr("two.yaml:" + std::to_string(line) + ": section `calib`"),
                                   HasSubstr("section `matching`, key `k`")));
}

TEST_F(BadInput, FeaturelessFramesEndWithFive) {
  const std::string json_path = dir.file("result.json");
  const Outcome outcome =
      run_program({"calibrate", frame, "--lens", lens, "-o", dir.file("out.lens"), "--json", json_path});
  EXPECT_EQ(outcome.exit_code, 5);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Too few keypoints in the left half"), HasSubstr("0 where"),
                                 HasSubstr("--ignore-thresholds"), HasSubstr("not reached"),
                                 Not(HasSubstr("correction"))));
  EXPECT_FALSE(std::filesystem::exists(dir.file("out.lens")));
  // What is not known is not told as zero.
  const auto json = nlohmann::json::parse(testing_support::read_file(json_path));
  EXPECT_EQ(json.at("outcome"), "too_few_matches");
  EXPECT_EQ(json.at("calib_status"), -999);
  EXPECT_TRUE(json.at("measures").at("quality").at("value").is_null());
  EXPECT_TRUE(json.at("out_lens").is_null());
  for (const auto& eye : json.at("corrections")) {
    EXPECT_EQ(eye.size(), 8u);
    for (const auto& value : eye) EXPECT_TRUE(value.is_null()) << json;
  }
  EXPECT_EQ(json.at("counts"),
            nlohmann::json::parse(R"({"left_half_keypoints": 0, "right_half_keypoints": null,
                                  "matches": null, "accepted": null, "searched": null})"));
}

// Whatever goes wrong once the command line is read stands in the JSON file too.
TEST_F(BadInput, FailuresAreToldAsJson) {
  const std::string tab = dir.write("tab.yaml", "grid:\n\tnum_kps_in_cell: 30\n");
  const std::string json_path = dir.file("result.json");
  for (const auto& [params, code] :
       {std::pair{tab, 4}, {std::string("calib:\n  a: \"b\n"), 4}, {lens, 4}, {dir.file("missing"), 3}}) {
    std::filesystem::remove(json_path);
    EXPECT_EQ(
        run_program({"calibrate", frame, "--lens", lens, "--params", params, "--json", json_path}).exit_code,
        code);
    const auto json = nlohmann::json::parse(testing_support::read_file(json_path));
    EXPECT_EQ(json.at("schema"), 3);
    EXPECT_EQ(json.at("outcome"), "error");
    EXPECT_EQ(json.at("exit_code"), code);
    EXPECT_THAT(json.at("problems").at(0).at("where").get<std::string>(), HasSubstr("PARAMS"));
  }
}

TEST_F(BadInput, FailedQualityEndsWithSixAndWritesTheLensFile) {
  const std::string out = dir.file("out.lens");
  const Outcome outcome = run_program({"calibrate", frame, "--lens", lens, "-o", out, "--ignore-thresholds"});
  EXPECT_EQ(outcome.exit_code, 6);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("FAILED"), HasSubstr("do not rely on it")));
  EXPECT_THAT(testing_support::read_file(out), HasSubstr("input_width = 512;"));
}

}  // namespace
