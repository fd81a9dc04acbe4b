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

// Files as OpenCV's FileStorage writes them.
std::string calibration(const std::string& size, const std::string& data = "0.02, -4.0e-03, 7.0e-04, 0.") {
  return "%YAML:1.0\n---\n" + size +
         "camera_matrix: !!opencv-matrix\n   rows: 3\n   cols: 3\n   dt: d\n"
         "   data: [ 3.005e+02, 0., 5.13e+02, 0., 301.,\n       510., 0., 0., 1. ]\n"
         "distortion_coefficients: !!opencv-matrix\n   rows: 4\n   cols: 1\n   dt: d\n   data: [ " +
         data + " ]\n";
}

TEST(LensNew, ReadsFisheyeCalibrations) {
  const testing_support::TempDir dir;
  const std::string plain = dir.write("plain.yml", calibration(""));
  const std::string half = dir.write("half.yml", calibration("image_width: 1024\nimage_height: 1024\n"));
  const std::string json = dir.write("half.json", R"({"K": {"type_id": "opencv-matrix", "rows": 3, "cols": 3,
      "dt": "d", "data": [ 300.5, 0.0, 513.0, 0.0, 301.0, 510.0, 0.0, 0.0, 1.0 ]},
      "D": {"type_id": "opencv-matrix", "rows": 4, "cols": 1, "dt": "d", "data": [ 0.02, -4e-3, 7e-4, 0.0 ]}})");
  const std::string wanted = values(run_new({"--fov", "180", "--coordinates", "half", "--focal", "300.5,301",
                                             "--centre", "513,510", "--fisheye-k", "0.02,-0.004,0.0007,0"}));
  const std::vector<Words> same{
      {"--opencv", half},
      {"--opencv", plain, "--coordinates", "half"},
      {"--opencv-left", json, "--opencv-right", half, "--coordinates", "half"},
  };
  for (Words words : same) {
    words.insert(words.end(), {"--fov", "180"});
    EXPECT_EQ(values(run_new(words)), wanted) << testing::PrintToString(words);
  }

  const std::vector<std::tuple<Words, int, std::string>> refused{
      {{"--opencv", plain}, 2, "--coordinates half"},
      {{"--opencv", half, "--focal", "300"}, 2, "leave the others out"},
      {{"--opencv", half, "-o", half}, 2, "the file that --opencv names"},
      {{"--opencv", dir.file("absent.yml")}, 3, "no such file"},
      {{"--opencv", dir.write("broken.yml", "%YAML:1.0\n---\nK: [ 1, ")}, 3, "broken.yml:3"},
      {{"--opencv", dir.write("list.yml", "- 1\n")}, 4, "no named values"},
      {{"--opencv", dir.write("other.yml", calibration("image_width: 1000\n"))}, 4, "1024 x 1024"},
      {{"--opencv", dir.write("five.yml", calibration("", "0, 0, 0, 0, 0"))}, 4, "with 5 elements"},
      {{"--opencv", dir.write("nan.yml", calibration("", "0, 0, .nan, 0"))}, 4, "no finite number"},
      {{"--opencv", dir.write("pinhole.yml", calibration("fisheye_model: 0\n"))}, 4, "fisheye_model"},
      {{"--opencv", dir.write("flat.yml", "K: 3\n")}, 4, "K, which is no matrix"},
  };
  for (auto [words, code, part] : refused) {
    SCOPED_TRACE(testing::PrintToString(words));
    words.insert(words.end(), {"--fov", "180"});
    const Outcome outcome = run_new(words);
    EXPECT_EQ(outcome.exit_code, code);
    EXPECT_THAT(outcome.error, HasSubstr(part));
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
