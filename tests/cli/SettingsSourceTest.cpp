#include "apps/cli/SettingsSource.h"

#include <gtest/gtest.h>

#include "apps/cli/Preset.h"
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

TEST(SettingsSource, HoldsATextThatCanBeReadTwice) {
  const SettingsSource source{std::nullopt};
  EXPECT_EQ(testing_support::read_file(source.path()), presets().front().text);
  EXPECT_EQ(testing_support::read_file(source.path()), presets().front().text)
      << "a second reader has to start at the front again";
}

}  // namespace
}  // namespace twintrue::cli
