// What the program says to inputs that it can't use, and what it ends with.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/cli/LensCheck.h"
#include "apps/cli/Problem.h"
#include "apps/cli/SettingsCheck.h"
#include "apps/cli/SettingsSource.h"
#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"

namespace {

using cli_test::Outcome;
using cli_test::run_program;
using cli_test::settings_with;
using testing::AllOf;
using testing::HasSubstr;

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
      {"no command", {}, 2, {"subcommand"}},
      {"unknown command", {"calibrat"}, 2, {"calibrat"}},
      {"no lens", {"calibrate", frame}, 2, {"--lens", "required"}},
      {"unknown option", {"calibrate", frame, "--lens", lens, "--frob"}, 2, {"--frob"}},
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
      {"not a lens file", {"calibrate", frame, "--lens", binary}, 4, {"LENS", binary}},
      {"frame too small", {"calibrate", small_frame, "--lens", lens}, 4, {"512 x 255", "512 x 256"}},
  });
}

// Each row spoils the preset in one place. The message names the key, what was found and what to write.
TEST_F(BadInput, UnusableSettingsEndWithFour) {
  struct Row {
    std::string line;         // of the preset, by its beginning
    std::string replacement;  // "" takes the line out
    std::vector<std::string> words;
  };
  const std::vector<Row> rows{
      {"  mode: 28", "  mode: 27", {"section `calib`", "`mode`", "27", "write `mode: 28`"}},
      {"  mode: 28", "", {"section `calib`", "`mode`", "4 (the key is not given", "28"}},
      {"  score_weight_mode: 1",
       "  score_weight_mode: [1, 14]",
       {"`score_weight_mode`", "14", "level 1", "0 to 13"}},
      {"  score_weight_mode_last: 1", "  score_weight_mode_last: -1", {"`score_weight_mode_last`", "-1"}},
      {"  sigma: [", "", {"`sigma`", "level 0", "above 0"}},
      {"  num_levels: 19", "  num_levels: 21", {"`num_levels`", "21", "at most 20"}},
      {"  knn: 1", "  knn: 4", {"`knn`", "4"}},
      {"  rank_last: 1", "  rank_last: 10", {"`rank_last`", "10", "0 to 9"}},
      {"  unit: 0",
       "  unit: 0\n  retry_count: 1",
       {"section `calib1`", "no such section", "`retry_count` is 1"}},
      {"  unit: 0", "  unit: 0\n  retry_count: 20", {"`retry_count`", "20", "0 to 19"}},
      {"      div: 9", "      div: 100000000", {"section `calib`", "too many candidates"}},
      {"  out_mode: 2", "  out_mode: 1", {"section `matching`", "`out_mode`", "0 (", "2 ("}},
      {"  k: 2", "  k: 3", {"`k`", "3", "1 or 2"}},
      {"  k: 2", "  k: 2\n  penalty_mode: 6", {"`penalty_mode`", "6", "0 to 5, or 7"}},
      {"  k: 2", "  k: 2\n  dist_ratio_offset: 0", {"`dist_ratio_offset`", "1 or more"}},
      {"  k: 2", "  k: 2\n  dist_ratio_shift: 32", {"section `matching`", "`dist_ratio_shift` 32"}},
      {"  score_mode: 12", "  score_mode: 13", {"section `mvc`", "`score_mode`", "13", "0 to 12"}},
      {"  score_mode: 12", "  score_mode: 12\n  score_mode3: -2", {"`score_mode3`", "-2"}},
      {"  neighbour_mode: 3", "  neighbour_mode: 3\n  bin_width: 0", {"section `mvc`", "`bin_width`"}},
      {"  det_type: 6", "  det_type: 8", {"section `RENO`", "`det_type`", "8", "write `det_type: 6`"}},
      {"  det_type: 6", "", {"`det_type`", "0 (the key is not given", "6"}},
      {"  det_type: 6", "  det_type: 6\n  desc_image_mode: 1", {"`desc_image_mode`", "1"}},
      {"  det_type: 6", "  det_type: 6\n  wta_k: 2", {"`wta_k`", "2"}},
      {"  det_type: 6", "  det_type: 6\n  rnd_mode: 2", {"`rnd_mode`", "0 or 1"}},
      {"  det_type: 6", "  det_type: 6\n  lpf_bit: 12", {"`lpf_bit`", "12"}},
      {"  det_type: 6", "  det_type: 6\n  rndSeedMake: seed", {"`rndSeedMake`", "no number"}},
      {"  nlevels: 1", "  nlevels: 21", {"`nlevels`", "21"}},
      {"  filter_type: 14", "  filter_type: 24", {"`filter_type`", "24", "0 to 23"}},
      {"  desc_bits: 256", "  desc_bits: 1024", {"`desc_bits`", "128 bytes"}},
      {"  patchSize: 25", "  patchSize: 15", {"`patchSize`", "15", "256 bits"}},
      {"  patchSize: 25", "  patchSize: 0", {"`patchSize`", "0", "1 to 256"}},
      {"  horz_cell_size: 64", "  horz_cell_size: 0", {"section `grid`", "can't be laid"}},
      {"  vert_cell_size: 64", "  vert_cell_size: 400", {"section `grid`", "without a cell"}},
      {"grid:", "gird:", {"section `grid`", "no such section"}},
      {"vdet:", "vdet0:", {"section `vdet`", "no such section"}},
      {"calib:", "kalib:", {"section `calib`", "no such section"}},
      {"  ch_bg: 1", "  ch_bg: 1\n  enabled: 0", {"section `vdet`", "`enabled`", "1"}},
      {"  num_kps_in_cell: 30",
       "  num_kps_in_cell 30",
       {"section `grid`", "text: num_kps_in_cell 30", "colon"}},
      {"  k: 2", "  k: 2\n k: 1", {"Incorrect offset", "Line "}},
      {"  num_kps_in_cell: 30", "\tnum_kps_in_cell: 30", {"Tab found", "Line "}},
  };
  // In this process, as there are many; TellsTheLineAndAllKeysAtOnce shows that the program asks for it all.
  const twintrue::cli::LensFacts facts = twintrue::cli::check_lens(lens);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.replacement + " for " + row.line);
    const std::string path = dir.write("settings.yaml", settings_with(row.line, row.replacement));
    try {
      twintrue::cli::check_settings(twintrue::cli::SettingsSource(path), facts);
      ADD_FAILURE() << "was taken";
    } catch (const twintrue::cli::Failure& failure) {
      EXPECT_EQ(failure.code(), twintrue::cli::ExitCode::kFileUnusable);
      EXPECT_EQ(failure.problems().size(), 1u) << failure.what();
      EXPECT_THAT(failure.what(), HasSubstr(path));
      for (const std::string& word : row.words) EXPECT_THAT(failure.what(), HasSubstr(word));
    }
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

// The search's settings may come as text in the place of a file's name, however long.
TEST_F(BadInput, TakesSettingsAsText) {
  expect_all({{"text",
               {"calibrate", frame, "--lens", lens, "--params", settings_with("  mode: 28", "  mode: 3")},
               4,
               {"PARAMS text", "`mode`", "3"}}});
}

TEST_F(BadInput, FeaturelessFramesEndWithFive) {
  const Outcome outcome = run_program({"calibrate", frame, "--lens", lens, "-o", dir.file("out.lens")});
  EXPECT_EQ(outcome.exit_code, 5);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Too few keypoints in the left half"), HasSubstr("0 where"),
                                 HasSubstr("--ignore-thresholds"), HasSubstr("not reached")));
  EXPECT_FALSE(std::filesystem::exists(dir.file("out.lens")));
}

TEST_F(BadInput, FailedQualityEndsWithSixAndWritesTheLensFile) {
  const std::string out = dir.file("out.lens");
  const Outcome outcome = run_program({"calibrate", frame, "--lens", lens, "-o", out, "--ignore-thresholds"});
  EXPECT_EQ(outcome.exit_code, 6);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("FAILED"), HasSubstr("do not rely on it")));
  EXPECT_THAT(testing_support::read_file(out), HasSubstr("input_width = 512;"));
}

}  // namespace
