// Lens files: their text, the rig, its projection, the file written anew.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "cli/Fixtures.h"
#include "inspect/Inspection.h"
#include "support/TempDir.h"

namespace {

using cli_test::example;
using cli_test::Outcome;
using inspect_test::inspect_json;
using inspect_test::Json;
using inspect_test::numbers;
using inspect_test::pairs_of;
using inspect_test::run_inspect;
using testing::DoubleNear;
using testing::Pointwise;
using testing_support::TempDir;

TEST(InspectLensText, ShowsTheStoreAndKeepsMessagesApart) {
  const TempDir dir;
  const std::string file = dir.write("some.lens",
                                     "x = 2;\n[A]\nname = \"\xC9\";\ny = 1 / 0;\nprint(\"hi\");\n"
                                     "B.z = @default.x;\n");
  // As a process: the order of what C and C++ streams write is that of the program.
  const Outcome outcome = cli_test::run_program({"inspect", "lens-text", file});
  EXPECT_EQ(outcome.exit_code, 0);
  // All of the text is split into tokens first; there the @ begins none and ends the last statement.
  EXPECT_EQ(outcome.error,
            "ERROR: Unknown charactor in 6.\nERROR: Divided by zero in 4.\nhi"
            "ERROR: Not found ';' after expression in 0.\n");
  EXPECT_EQ(
      outcome.out,
      "{\"loaded\": 1, \"sections\": [{\"name\": \"@default\", \"items\": [{\"name\": \"x\", \"type\": 2, "
      "\"value\": \"2\"}]}, {\"name\": \"A\", \"items\": [{\"name\": \"name\", \"type\": 4, \"value\": "
      "\"\\u00c9\"}, {\"name\": \"y\", \"type\": 2, \"value\": \"1\"}]}, {\"name\": \"B\", \"items\": "
      "[{\"name\": \"z\", \"type\": 0, \"value\": \"0\"}]}]}\n");

  EXPECT_EQ(inspect_json({"lens-text", dir.write("empty.lens", "")}),
            Json::parse(R"({"loaded": 1, "sections": [{"name": "@default", "items": []}]})"));
}

// Values that no two fields share come back under their own names, of each eye and of the rig.
TEST(InspectLens, ShowsWhatTheFileDescribes) {
  const TempDir dir;
  const std::string lens = dir.write(
      "all.lens",
      "[OPTRA]\nformat_version = \"1.0\";\ninput_width = 2048; input_height = 1020;\n"
      "output_width = 2040; output_height = 1000; separate_x = 1022;\nbaseline = 0.0625;\n"
      "sensor_pitch = 0.0175; inter_image_circle_distance = 18.5; image_circle_radius = 8.75;\n"
      "right_eye_lambda = 0.001; right_eye_psi = 0.002; right_eye_roll = 0.003; right_eye_x0 = 0.0005;\n"
      "right_eye_y0 = 0.00025; right_eye_magnify_v = 1.01; right_eye_magnify_h = 1.02;\n"
      "left_eye_lambda = 0.004; left_eye_psi = 0.005; left_eye_roll = 0.006; left_eye_x0 = -0.001;\n"
      "left_eye_y0 = -0.002; left_eye_magnify_v = 1.03; left_eye_magnify_h = 1.04;\n"
      "distortion_coeff1 = 0.1; distortion_coeff2 = 0.2; distortion_coeff6 = 0.3;\n"
      "ideal_height_precision_bit = 10; ideal_height_lut_max = 1.25;\n");
  const Json json = inspect_json({"lens", lens});
  EXPECT_EQ(json.at("result"), 1);
  EXPECT_EQ(json.at("exception"), nullptr);
  const Json& state = json.at("rig_state");
  EXPECT_EQ(state.at("frame_width"), 2048);
  EXPECT_EQ(state.at("frame_height"), 1020);
  EXPECT_EQ(state.at("half_width"), 1024);
  EXPECT_DOUBLE_EQ(state.at("circle_radius_px").get<double>(), 500.0);

  const Json& model = state.at("current");
  const auto expect = [](const Json& of, const char* values) {
    for (const auto& [key, value] : pairs_of(values)) {
      EXPECT_NEAR(of.at(key).get<double>(), std::stod(value), 1e-12) << key;
    }
  };
  expect(model,
         "output_width 2040 output_height 1000 input_width 2048 input_height 1020 baseline 0.0625 "
         "sensor_pitch 0.0175 circle_distance 18.5 circle_radius 8.75");
  const Json& right = model.at("right");
  const Json& left = model.at("left");
  expect(right,
         "lambda 0.001 psi 0.002 roll 0.003 magnify_v 1.01 magnify_h 1.02 offset_x 1.024 offset_y 0.512 "
         "scale 500 center_y 510 valid_x_begin 0 valid_x_end 1024 fov_degrees 190");
  expect(left,
         "lambda 0.004 psi 0.005 roll 0.006 magnify_v 1.03 magnify_h 1.04 offset_x -2.048 offset_y -4.096 "
         "valid_x_begin 1024 valid_x_end 2048");
  EXPECT_LT(right.at("center_x"), left.at("center_x"));
  EXPECT_THAT(numbers(right.at("position")), Pointwise(DoubleNear(1e-15), std::vector{0.03125, 0.0, 0.0}));
  EXPECT_THAT(numbers(left.at("position")), Pointwise(DoubleNear(1e-15), std::vector{-0.03125, 0.0, 0.0}));
  const std::vector<double> rotation = numbers(right.at("rotation"));
  ASSERT_EQ(rotation.size(), 9u);
  EXPECT_NEAR(rotation[5], -std::sin(0.002), 1e-15);

  const Json& distortion = right.at("distortion");
  EXPECT_THAT(numbers(distortion.at("coeff")),
              Pointwise(DoubleNear(1e-15), std::vector{0.1, 0.2, 0.0, 0.0, 0.0, 0.3}));
  const int size = 1281;  // 1024 x 1.25, and one more
  expect(distortion, "kind 1 precision_bit 10 lut_max 1.25 table_scale 1024 table_size 1281");
  // Without distortion, entry i of the table is i / scale; the little there is bends it by 0.6 % at most.
  const double straight = (size - 1.0) / 1024;
  EXPECT_NEAR(distortion.at("table_last").get<double>(), straight, 0.02 * straight);
  EXPECT_NEAR(distortion.at("table_sum").get<double>(), 0.5 * size * straight, 0.01 * size * straight);
}

TEST(InspectLens, ShowsFailuresAsResults) {
  const TempDir dir;
  struct Case {
    const char* text;
    const char* document;
  };
  const Case cases[] = {
      {"[OTHER]\nx = 1;\n", R"({"result": 0, "exception": null, "rig_state": null})"},
      {"[OPTRA]\nversion = 7;\n", R"({"result": 0, "exception": null, "rig_state": null})"},
      {"[OPTRA]\nformat_version = \"1.0\";\nideal_height_precision_bit = 0;\n",
       R"({"result": null, "exception": "精度ビットが不正", "rig_state": null})"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(inspect_json({"lens", dir.write("bad.lens", each.text)}), Json::parse(each.document))
        << each.text;
  }
}

TEST(InspectRay, AndImageAreInverseAndTellWhatHasNone) {
  for (const std::string eye : {"left", "right"}) {
    const std::string px = eye == "left" ? "1700.5" : "300.25";
    const Json ray = inspect_json({"ray", example("nominal.lens"), "--eye", eye, px, "400"});
    EXPECT_EQ(ray.at("ok"), true);
    const Json image = inspect_json({"image", example("nominal.lens"), "--eye", eye, ray.at("x").dump(),
                                     ray.at("y").dump(), ray.at("z").dump()});
    EXPECT_EQ(image.at("ok"), true);
    EXPECT_NEAR(image.at("px").get<double>(), std::stod(px), 1e-4);
    EXPECT_NEAR(image.at("py").get<double>(), 400.0, 1e-4);
  }
  // Beyond the angular limit: a pixel has no ray of its own, a ray no pixel.
  EXPECT_EQ(inspect_json({"ray", example("nominal.lens"), "--eye", "left", "-5000", "-0.5"}),
            Json::parse(R"({"ok": false, "x": 0, "y": 0, "z": 1})"));
  EXPECT_EQ(inspect_json({"image", example("nominal.lens"), "--eye", "left", "0", "0", "1"}),
            Json::parse(R"({"ok": false, "px": null, "py": null})"));
  // Within the limit, but in a column of the other eye: the pixel is written all the same.
  const TempDir dir;
  const std::string shifted = dir.file("shifted.lens");
  inspect_json({"write", example("nominal.lens"), shifted, "--pose", "0,0,0,50,0,0,0,0,0,0"});
  const Json outside = inspect_json({"image", shifted, "--eye", "right", "1", "0", "0.08"});
  EXPECT_EQ(outside.at("ok"), false);
  EXPECT_GT(outside.at("px").get<double>(), 1024.0);
  EXPECT_NEAR(outside.at("py").get<double>(), 512.0, 1e-9);
}

TEST(InspectWrite, PutsThePoseIntoTheFile) {
  const TempDir dir;
  const std::string out = dir.file("posed.lens");
  const std::vector<double> pose{0.01, -0.02, 0.03, 1.5, -2.25, -0.04, 0.05, -0.06, 3.0, 0.125};
  std::string text;
  for (const double value : pose) {
    if (!text.empty()) text += ',';
    text += std::to_string(value);
  }
  EXPECT_EQ(inspect_json({"write", example("truth.lens"), out, "--pose", text}),
            Json::parse(R"({"written": true})"));

  const Json before = inspect_json({"lens", example("truth.lens")}).at("rig_state").at("current");
  const Json after = inspect_json({"lens", out}).at("rig_state").at("current");
  const char* const fields[] = {"lambda", "psi", "roll", "offset_x", "offset_y"};
  for (std::size_t i = 0; i < pose.size(); ++i) {
    const char* eye = i < 5 ? "right" : "left";
    const char* field = fields[i % 5];
    // The file holds ten digits behind the point: radians, and shares of the sensor for offsets.
    EXPECT_NEAR(after.at(eye).at(field).get<double>(), before.at(eye).at(field).get<double>() + pose[i],
                i % 5 < 3 ? 1e-9 : 1e-6)
        << eye << " " << field;
  }
  EXPECT_EQ(cli_test::names_in(dir.path()), std::vector<std::string>{"posed.lens"});
}

TEST(InspectLens, TellsUnusableInputByTheExitCode) {
  const TempDir dir;
  const std::string lens = example("nominal.lens");
  const std::string no_lens = dir.write("no.lens", "[OTHER]\n");
  const std::string thrower =
      dir.write("thrower.lens", "[OPTRA]\nformat_version = \"1.0\";\nideal_height_precision_bit = 30;\n");
  const std::string missing = dir.file("missing.lens");
  const std::string out = dir.file("out.lens");
  const std::string zeros = "0,0,0,0,0,0,0,0,0,0";
  const std::pair<std::vector<std::string>, int> cases[] = {
      {{"lens-text", missing}, 3},
      {{"lens", missing}, 3},
      {{"lens", dir.path().string()}, 3},
      {{"ray", missing, "--eye", "left", "1", "1"}, 3},
      {{"write", missing, out, "--pose", zeros}, 3},
      {{"ray", no_lens, "--eye", "left", "1", "1"}, 4},
      {{"image", thrower, "--eye", "left", "1", "1", "1"}, 4},
      {{"write", no_lens, out, "--pose", zeros}, 4},
      {{"ray", lens, "--eye", "middle", "1", "1"}, 2},
      {{"ray", lens, "--eye", "left", "1", "1x"}, 2},
      {{"ray", lens, "--eye", "left", "1", "+-1"}, 2},
      {{"ray", lens, "--eye", "left", "1"}, 2},
      {{"write", lens, out, "--pose", zeros + ",0"}, 2},
      {{"write", lens, out, "--pose", "0,0,0,0,0,0,0,0,,0"}, 2},
      {{"write", lens, dir.file("out.PIN"), "--pose", zeros}, 2},
      {{"write", lens, lens, "--pose", zeros}, 2},
      {{"lens-text", lens, "-o", lens}, 2},
  };
  for (const auto& [arguments, code] : cases) {
    const Outcome outcome = run_inspect(arguments);
    EXPECT_EQ(outcome.exit_code, code) << testing::PrintToString(arguments) << outcome.error;
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.error, "");
  }
  EXPECT_EQ(cli_test::names_in(dir.path()), (std::vector<std::string>{"no.lens", "thrower.lens"}));
}

}  // namespace
