// What the program does to files: inputs stay, outputs are whole or not there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"

namespace {

namespace fs = std::filesystem;
using cli_test::names_in;
using cli_test::Outcome;
using cli_test::run_program;
using testing::AllOf;
using testing::HasSubstr;
using testing_support::read_file;

class Output : public testing::Test {
 protected:
  Output() {
    cli_test::write_black_frame(frame);
    dir.write("small.lens", cli_test::small_lens());
    dir.write("settings.yaml", read_file(TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml"));
  }

  // A run that gets as far as the search and writes a lens file: it ends with 6.
  std::vector<std::string> command(const std::vector<std::string>& more) const {
    std::vector<std::string> all{"calibrate",          frame, "--lens", lens, "--params", settings,
                                 "--ignore-thresholds"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  testing_support::TempDir dir;
  std::string frame = dir.file("frame.png");
  std::string lens = dir.file("small.lens");
  std::string settings = dir.file("settings.yaml");
};

TEST_F(Output, NeverTakesAnInputOrAnotherOutput) {
  fs::create_symlink(lens, dir.file("link.lens"));
  fs::create_hard_link(settings, dir.file("hard.yaml"));
  fs::create_directory(dir.path() / "sub");
  const std::string around = (dir.path() / "sub" / ".." / "frame.png").string();
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"-o", lens}, "--lens"},
      {{"-o", frame}, "FRAME"},
      {{"-o", around}, "FRAME"},
      {{"-o", settings}, "--params"},
      {{"-o", dir.file("link.lens")}, "--lens"},
      {{"--json", dir.file("hard.yaml")}, "--params"},
      {{"--json", frame}, "FRAME"},
      {{"-o", dir.file("new"), "--json", dir.file("new")}, "--json"},
      {{"-o", dir.file("new"), "--json", (dir.path() / "sub/../new").string()}, "--json"},
  };
  const std::string frame_bytes = read_file(frame);
  const std::string lens_bytes = read_file(lens);
  const std::string settings_bytes = read_file(settings);
  for (const auto& [arguments, owner] : cases) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const Outcome outcome = run_program(command(arguments));
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_THAT(outcome.error, HasSubstr("the file that " + owner + " names"));
  }
  EXPECT_EQ(read_file(frame), frame_bytes);
  EXPECT_EQ(read_file(lens), lens_bytes);
  EXPECT_EQ(read_file(settings), settings_bytes);
}

TEST_F(Output, RefusesNamesThatCouldNotBeReadBackAndMissingFolders) {
  const std::vector<std::string> before = names_in(dir.path());
  const std::vector<std::tuple<std::string, std::string>> cases{
      {dir.file("out.pin"), "scrambled"},
      {dir.file("out.PiN"), "scrambled"},
      {dir.file("no/folder/out.lens"), "no folder"},
      {dir.path().string(), "a folder"},
      {dir.path().string() + "/", "no file name"},
      {"/dev/null", "regular file"},
      {"/proc/out.lens", "folder /proc:"},  // where not even root can make a file
  };
  for (const auto& [path, word] : cases) {
    SCOPED_TRACE(path);
    const Outcome outcome = run_program(command({"-o", path}));
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr(path), HasSubstr(word)));
  }
  EXPECT_EQ(names_in(dir.path()), before);
}

TEST_F(Output, FailedRunsLeaveOldFilesWholeAndNoOthers) {
  const std::string out = dir.write("out.lens", "old");
  const std::vector<std::string> before = names_in(dir.path());
  const std::vector<std::vector<std::string>> failing{
      {"calibrate", frame, "--lens", lens, "-o", out},  // too few keypoints
      {"calibrate", frame, "--lens", settings, "-o", out},
      {"calibrate", lens, "--lens", lens, "-o", out},
      {"calibrate", frame, "--lens", lens, "-o", out, "--params", lens},
  };
  for (const auto& arguments : failing) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_NE(run_program(arguments).exit_code, 0);
    EXPECT_EQ(read_file(out), "old");
    EXPECT_EQ(names_in(dir.path()), before);
  }
}

TEST_F(Output, JsonGoesToStandardOutputInTheTablesPlace) {
  const Outcome outcome = run_program(command({"--json", "-"}));
  EXPECT_EQ(outcome.exit_code, 6);
  const auto json = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(json.at("outcome"), "quality_failed");
  EXPECT_EQ(json.at("ignore_thresholds"), true);
  // Without a match the quality is no number, which JSON can't hold: the test failed all the same.
  EXPECT_TRUE(json.at("measures").at("quality").at("value").is_null());
  EXPECT_EQ(json.at("measures").at("quality").at("passed"), false);
}

TEST_F(Output, ChatterStaysAwayUnlessAskedFor) {
  const Outcome quiet = run_program(command({}));
  EXPECT_EQ(quiet.error, "");
  EXPECT_THAT(quiet.out, testing::Not(HasSubstr("format_version")));
  const Outcome verbose = run_program(command({"-v"}));
  EXPECT_EQ(verbose.out, quiet.out);
  EXPECT_THAT(verbose.error,
              AllOf(HasSubstr("format_version: 1.0"), HasSubstr("Left image detection is failed(0)")));
}

TEST_F(Output, HelpDocumentsTheExitCodes) {
  const Outcome help = run_program({"calibrate", "--help"});
  EXPECT_EQ(help.exit_code, 0);
  for (const char* code : {"  0  ", "  1  ", "  2  ", "  3  ", "  4  ", "  5  ", "  6  "}) {
    EXPECT_THAT(help.out, HasSubstr(code));
  }
  EXPECT_EQ(run_program({"--help"}).exit_code, 0);
  const Outcome version = run_program({"--version"});
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_THAT(version.out, HasSubstr("twintrue " TWINTRUE_VERSION));
}

}  // namespace
