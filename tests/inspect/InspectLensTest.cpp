// Lens files: their text, the rig, its projection, the file written anew.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
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

// The example lens has no distortion, so all that is derived has a closed form.
TEST(InspectLens, ShowsWhatTheFileDescribes) {
  const Json json = inspect_json({"lens", example("truth.lens")});
  EXPECT_EQ(json.at("result"), 1);
  EXPECT_EQ(json.at("exception"), nullptr);
  const Json& state = json.at("rig_state");
  EXPECT_EQ(state.at("frame_width"), 2048);
  EXPECT_EQ(state.at("frame_height"), 1024);
  EXPECT_EQ(state.at("half_width"), 1024);
  EXPECT_DOUBLE_EQ(state.at("circle_radius_px").get<double>(), 8.75 / 0.0176);

  const Json& model = state.at("current");
  EXPECT_DOUBLE_EQ(model.at("baseline").get<double>(), 0.06);
  const Json& right = model.at("right");
  EXPECT_THAT(numbers(right.at("position")), Pointwise(DoubleNear(1e-15), std::vector{0.03, 0.0, 0.0}));
  EXPECT_THAT(numbers(model.at("left").at("position")),
              Pointwise(DoubleNear(1e-15), std::vector{-0.03, 0.0, 0.0}));
  EXPECT_EQ(right.at("valid_x_begin"), 0);
  EXPECT_EQ(model.at("left").at("valid_x_begin"), 1024);

  // Format 1 turns about z first, then x, then y. Angles of some milliradians.
  const double l = right.at("lambda").get<double>();
  const double p = right.at("psi").get<double>();
  const double r = right.at("roll").get<double>();
  EXPECT_DOUBLE_EQ(l, 0.002617993877991);
  const std::vector<double> rotation = numbers(right.at("rotation"));
  ASSERT_EQ(rotation.size(), 9u);
  EXPECT_NEAR(rotation[2], std::sin(l) * std::cos(p), 1e-15);
  EXPECT_NEAR(rotation[5], -std::sin(p), 1e-15);
  EXPECT_NEAR(rotation[3], std::cos(p) * std::sin(r), 1e-15);

  const Json& distortion = right.at("distortion");
  const int scale = distortion.at("table_scale").get<int>();
  const int size = distortion.at("table_size").get<int>();
  EXPECT_EQ(scale, 1 << distortion.at("precision_bit").get<int>());
  EXPECT_EQ(size, static_cast<int>(std::ceil(scale * distortion.at("lut_max").get<double>())) + 1);
  // Entry i is i / scale.
  EXPECT_NEAR(distortion.at("table_sum").get<double>(), 0.5 * size * (size - 1.0) / scale, 1e-6);
  EXPECT_NEAR(distortion.at("table_last").get<double>(), (size - 1.0) / scale, 1e-12);
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

TEST(InspectRay, IsTheEquidistantLensAndInvertsImage) {
  const double scale = 8.75 / 0.0176;
  const Json rig = inspect_json({"lens", example("nominal.lens")}).at("rig_state").at("current");
  for (const std::string eye : {"left", "right"}) {
    const double cx = rig.at(eye).at("center_x").get<double>();
    const double cy = rig.at(eye).at("center_y").get<double>();
    for (const auto& [dx, dy] : {std::pair{0.0, 0.0}, {200.5, 0.0}, {-300.25, 100.0}, {3.0, -490.0}}) {
      const std::string px = std::to_string(cx + dx);
      const std::string py = std::to_string(cy + dy);
      const Json ray = inspect_json({"ray", example("nominal.lens"), "--eye", eye, px, py});
      EXPECT_EQ(ray.at("ok"), true);
      const double u = std::stod(px) - cx;
      const double v = cy - std::stod(py);
      const double theta = std::hypot(u, v) / scale * std::numbers::pi / 2.0;
      EXPECT_NEAR(ray.at("z").get<double>(), -std::cos(theta), 1e-9);
      EXPECT_NEAR(ray.at("x").get<double>() * v, ray.at("y").get<double>() * u, 1e-6);
      EXPECT_GE(ray.at("x").get<double>() * u, 0.0);

      const Json image = inspect_json({"image", example("nominal.lens"), "--eye", eye, ray.at("x").dump(),
                                       ray.at("y").dump(), ray.at("z").dump()});
      EXPECT_EQ(image.at("ok"), true);
      EXPECT_NEAR(image.at("px").get<double>(), cx + u, 1e-4);
      EXPECT_NEAR(image.at("py").get<double>(), cy - v, 1e-4);
    }
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
