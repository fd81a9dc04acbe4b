#include "apps/cli/SettingsSource.h"

#include <gtest/gtest.h>

#include "apps/cli/Preset.h"
#include "apps/cli/Problem.h"
#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"
#include "support/TempDir.h"

namespace twintrue::cli {
namespace {

TEST(KeyLines, FindsKeysUnderTheirSections) {
  const KeyLines lines(
      "# calib:\n"
      "calib:   # the search\n"
      "  mode: 28\n"
      "  right:\n"
      "    pan:\n"
      "      max: 1\n"
      "\n"
      "  \"div\": 3\n"
      "list:\n"
      "  - [1, 2]\n"
      "  mode: 1\n"
      "calib1:\n"
      "  mode: 4 # mode: 5\n"
      "  mode: 6");
  EXPECT_EQ(lines.line_of({"calib"}), 2);
  EXPECT_EQ(lines.line_of({"calib", "mode"}), 3);
  EXPECT_EQ(lines.line_of({"calib", "right", "pan", "max"}), 6);
  EXPECT_EQ(lines.line_of({"calib", "div"}), 8);
  EXPECT_EQ(lines.line_of({"list", "mode"}), 11);
  EXPECT_EQ(lines.line_of({"calib1", "mode"}), 14);  // the later value holds
  EXPECT_EQ(lines.line_of({"calib", "max"}), std::nullopt);
  EXPECT_EQ(lines.line_of({"mode"}), std::nullopt);
}

TEST(SettingsSource, HandsOnFilesByNameAndTextsAsTheyAre) {
  const testing_support::TempDir dir;
  const std::string file = dir.write("settings.yaml", "a: 1\n");
  const SettingsSource from_file{file};
  EXPECT_TRUE(from_file.is_file());
  EXPECT_EQ(from_file.path(), file);

  const std::string text = "a: 1\n" + std::string(5000, '#') + "\nb: 2\n";
  const SettingsSource from_text{text};
  EXPECT_FALSE(from_text.is_file());
  EXPECT_EQ(from_text.path(), text);
  EXPECT_EQ(from_text.name(), "PARAMS text");
  EXPECT_EQ(from_text.lines().line_of({"b"}), 3);

  const SettingsSource preset{std::nullopt};
  EXPECT_EQ(preset.path(), presets().front().text);
  EXPECT_THROW(SettingsSource{"no such file"}, Failure);
  EXPECT_THROW(SettingsSource{"/proc/self/mem"}, Failure);
}

// The library reads a text of any length, and says nothing of what is wrong with it.
TEST(SettingsSource, TextsOfTheCommandLineAreReadAsTheyAre) {
  const testing_support::TempDir dir;
  const std::string frame = dir.file("frame.png");
  cli_test::write_black_frame(frame);
  const std::string lens = dir.write("small.lens", cli_test::small_lens());
  const std::string settings = testing_support::read_file(TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml");
  for (const auto& [text, code, word] : {std::tuple{settings, 6, "PARAMS text"},
                                         std::tuple{settings + "b: \"\"\n", 4, "Invalid quote. Line"}}) {
    const cli_test::Outcome outcome =
        cli_test::run_program({"calibrate", frame, "--lens", lens, "--params", text, "--ignore-thresholds"});
    EXPECT_EQ(outcome.exit_code, code) << outcome.error;
    EXPECT_NE((outcome.out + outcome.error).find(word), std::string::npos) << outcome.out << outcome.error;
  }
}

}  // namespace
}  // namespace twintrue::cli
