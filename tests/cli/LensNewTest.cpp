// `twintrue lens new`: options to lens files, and what is refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"

namespace {

using cli_test::names_in;
using cli_test::Outcome;
using cli_test::run_program;
using testing::AllOf;
using testing::HasSubstr;
using testing_support::read_file;

using Words = std::vector<std::string>;

Outcome run_new(const Words& more) {
  Words all{"lens", "new", "--size", "2048x1024"};
  all.insert(all.end(), more.begin(), more.end());
  return run_program(all);
}

// What a file says, without the comments.
std::string values(const Outcome& outcome) {
  EXPECT_EQ(outcome.exit_code, 0) << outcome.error;
  const std::size_t begin = outcome.out.find("[OPTRA]");
  EXPECT_NE(begin, std::string::npos);
  return begin == std::string::npos ? "" : outcome.out.substr(begin);
}

TEST(LensNew, TakesTheSameLensInManyWords) {
  const Words expected{"--fov",          "180",          "--circle-left", "1540,500,1000",
                       "--circle-right", "510,505,1000", "--baseline",    "60mm"};
  const std::vector<Words> same{
      // In the halves; corners of pixels; lengths in other units; centres apart from diameters.
      {"--fov", "180", "--coordinates", "half", "--circle-left", "516,500,1000", "--circle-right",
       "510,505,1000"},
      {"--fov", "180", "--pixel-zero", "corner", "--circle-left", "1540.5,500.5,1000", "--circle-right",
       "510.5,505.5,1000", "--baseline", "6cm"},
      {"--fov", "180", "--diameter", "1000", "--centre-left", "1540,500", "--centre-right", "510,505",
       "--projection", "equidistant", "--format", "2", "--pixel-pitch", "0.0044mm"},
      {"--fov", "180", "--diameter", "1000", "--centre-left", "1540,500", "--centre-right", "510,505",
       "--pose-left", "0,0,0", "--baseline", "0.06m"},
  };
  const std::string wanted = values(run_new(expected));
  for (const Words& words : same) EXPECT_EQ(values(run_new(words)), wanted) << testing::PrintToString(words);

  // The middle of a half of 1024 pixels lies between its columns 511 and 512.
  EXPECT_EQ(values(run_new({"--fov", "180", "--diameter", "1000"})),
            values(run_new(
                {"--fov", "180", "--diameter", "1000", "--coordinates", "half", "--centre", "511.5,511.5"})));
  EXPECT_EQ(values(run_new({"--fov", "170", "--focal", "300,301", "--fisheye-k", "-0.02,0.003,0,0"})),
            values(run_new({"--fov", "170", "--focal-left", "300,301", "--focal-right", "300,301",
                            "--fisheye-k-left", "-0.02,0.003,0,0", "--fisheye-k-right", "-0.02,0.003,0,0"})));
  EXPECT_NE(values(run_new({"--fov", "180", "--diameter", "1000", "--pose-right", "0.5,0,0"})),
            values(run_new({"--fov", "180", "--diameter", "1000", "--pose-left", "0.5,0,0"})));
}

TEST(LensNew, MakesFilesThatCalibrateTakes) {
  const testing_support::TempDir dir;
  // The numbers of examples/nominal.lens: 8.75 mm at 90 degrees, 18.5 mm between the centres, 0.0176 mm a
  // pixel.
  for (const char* const format : {"1", "2"}) {
    const std::string lens = dir.file("first.lens");
    const Outcome made =
        run_new({"--fov", "190", "--circle-left", "1549.5682,512,1049.5581", "--circle-right",
                 "498.4318,512,1049.5581", "--format", format, "-o", lens});
    EXPECT_EQ(made.exit_code, 0) << made.error;
    EXPECT_THAT(made.out,
                AllOf(HasSubstr("px (rms)"), HasSubstr("px at worst"), HasSubstr("95 degrees off")));
    EXPECT_THAT(read_file(lens), AllOf(HasSubstr("// "), HasSubstr("px (rms)")));
    const Outcome run =
        run_program({"calibrate", cli_test::example("frame.jpg"), "--lens", lens, "--preset", "fast"});
    EXPECT_EQ(run.exit_code, 0) << run.error;
  }
}

TEST(LensNew, RefusesWhatMakesNoLensAndLeavesOldFiles) {
  const testing_support::TempDir dir;
  const std::string out = dir.write("first.lens", "old");
  const std::vector<std::pair<Words, std::string>> cases{
      {{"--diameter", "1000"}, "--fov"},
      {{"--fov", "180"}, "the left eye's scale"},
      {{"--fov", "wide", "--diameter", "1000"}, "--fov"},
      {{"--fov", "0", "--diameter", "1000"}, "--fov"},
      {{"--fov", "inf", "--diameter", "1000"}, "--fov"},
      {{"--fov", "180", "--diameter", "1000", "--focal", "300"}, "more than one"},
      {{"--fov", "180", "--diameter", "1500"}, "give the diameter, not the radius"},
      {{"--fov", "180", "--diameter", "-3"}, "--diameter"},
      {{"--fov", "180", "--focal", "0"}, "--focal"},
      {{"--fov", "180", "--focal", "300,301,302"}, "F or FX,FY"},
      {{"--fov", "180", "--diameter", "1000", "--baseline", "60"}, "um, mm, cm, m or in"},
      {{"--fov", "180", "--diameter", "1000", "--baseline", "0mm"}, "--baseline"},
      {{"--fov", "180", "--diameter", "1000", "--centre", "511,511"}, "--coordinates half"},
      {{"--fov", "180", "--circle-left", "512,512,1000", "--circle-right", "1536,512,1000"},
       "exchange the values of left and right"},
      {{"--fov", "180", "--circle-left", "1536,512", "--circle-right", "512,512,1000"}, "CX,CY,DIAMETER"},
      {{"--fov", "180", "--focal", "300", "--focal-left", "300"}, "--focal-left"},
      {{"--fov", "180", "--focal", "300", "--fisheye-k", "0,0,0"}, "K1,K2,K3,K4"},
      {{"--fov", "180", "--focal", "300", "--fisheye-k", "0,0,0,0", "--projection", "equisolid"},
       "--projection"},
      {{"--fov", "200", "--focal", "300", "--format", "1"}, "at most 190"},
      {{"--fov", "180", "--focal", "300", "--fisheye-k", "-0.2,0,0,0"}, "give --fov 147 or less"},
      {{"--fov", "180", "--focal", "300", "--size", "2047x1024"}, "--size"},
      {{"--fov", "180", "--focal", "300", "-o", dir.file("first.pin")}, "scrambled"},
  };
  const Words before = names_in(dir.path());
  for (const auto& [words, part] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    Words all = words;
    if (std::find(all.begin(), all.end(), "-o") == all.end()) all.insert(all.end(), {"-o", out});
    const Outcome outcome = run_new(all);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_THAT(outcome.error, HasSubstr(part));
    EXPECT_EQ(read_file(out), "old");
    EXPECT_EQ(names_in(dir.path()), before);
  }
  for (const std::string size : {"2048", "2048x", "x1024", "2048x1024x3", "-8x4", "99999999999x4"}) {
    const Outcome outcome = run_program({"lens", "new", "--size=" + size, "--fov", "180", "--focal", "300"});
    EXPECT_EQ(outcome.exit_code, 2) << size;
    EXPECT_THAT(outcome.error, HasSubstr("--size")) << size;
  }
}

}  // namespace
