// The parameter files that stand in the program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/cli/Preset.h"
#include "apps/cli/SettingsSource.h"
#include "apps/cli/checks/LensCheck.h"
#include "apps/cli/checks/SettingsCheck.h"
#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"

namespace {

using cli_test::Outcome;
using cli_test::run_program;
using testing::HasSubstr;
using testing_support::read_file;
using twintrue::cli::Preset;
using twintrue::cli::presets;

std::string file_of(const Preset& preset) { return TWINTRUE_SOURCE_DIR "/presets/" + preset.name + ".yaml"; }

TEST(Presets, AreTheFilesAndNameThemselves) {
  EXPECT_EQ(presets().front().name, "default") << "what a run takes when nothing is named";
  for (const Preset& preset : presets()) {
    EXPECT_EQ(preset.text, read_file(file_of(preset)));
    EXPECT_EQ(preset.text.rfind("# " + preset.name + ": ", 0), 0u) << preset.name;
    EXPECT_FALSE(preset.summary().empty() || preset.summary().front() == ' ');
  }
}

TEST(Presets, PassTheChecksAtEveryUsualWidth) {
  const testing_support::TempDir dir;
  for (int width : {2048, 2880, 4096, 5760, 8192}) {
    std::string text = cli_test::small_lens();
    for (const auto& [from, to] : std::vector<std::pair<std::string, int>>{
             {"_width = 512", width}, {"_height = 256", width / 2}, {"separate_x = 256", width / 2}}) {
      const std::string key = from.substr(0, from.find('=') + 2);
      for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; ++at) {
        text.replace(at, from.size(), key + std::to_string(to));
      }
    }
    const auto facts = twintrue::cli::check_lens(dir.write("lens", text));
    for (const Preset& preset : presets()) {
      const twintrue::cli::SettingsSource source(preset);
      EXPECT_NO_THROW(twintrue::cli::check_settings(source, facts)) << preset.name << " at " << width;
    }
  }
}

TEST(Presets, AreListedShownAndTaken) {
  const Outcome listed = run_program({"presets"});
  EXPECT_EQ(listed.exit_code, 0);
  for (const Preset& preset : presets()) {
    EXPECT_THAT(listed.out, HasSubstr(preset.name));
    EXPECT_THAT(listed.out, HasSubstr(std::string(preset.summary())));
    EXPECT_EQ(run_program({"presets", "show", preset.name}).out, preset.text);
  }
  const Outcome unknown = run_program({"presets", "show", "sharp"});
  EXPECT_EQ(unknown.exit_code, 2);
  EXPECT_THAT(unknown.error, testing::AllOf(HasSubstr("sharp"), HasSubstr("default")));

  const std::vector<std::string> call{"calibrate", cli_test::example("frame.jpg"),
                                      "--lens",    cli_test::example("nominal.lens"),
                                      "--preset",  "fast"};
  const Outcome named = run_program(call);
  EXPECT_EQ(named.exit_code, 0);
  EXPECT_THAT(named.out, HasSubstr("built-in preset fast"));
  std::vector<std::string> both = call;
  both.insert(both.end(), {"--params", TWINTRUE_SOURCE_DIR "/presets/default.yaml"});
  EXPECT_EQ(run_program(both).exit_code, 2);
}

}  // namespace
