// The program on real frames of known truth.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numbers>

#include "RigLens.h"
#include "SceneError.h"
#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/PictureFiles.h"
#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"
#include "twintrue/calib.h"

namespace {

namespace accuracy = twintrue::accuracy;
using cli_test::Outcome;
using cli_test::run_program;
using testing::AllOf;
using testing::HasSubstr;

// Of the other lens file against the true one, as the benchmark of accuracy judges poses: by a model of the
// rig that shares no code with the library.
accuracy::SceneError judge_lens(const std::string& true_lens, const std::string& other_lens) {
  const auto lens_of = [](const std::string& path) {
    twintrue::RigState rig;
    EXPECT_TRUE(twintrue::read_lens(rig, path)) << path;
    return accuracy::plain_lens(rig);
  };
  const accuracy::PlainLens truth = lens_of(true_lens);
  return accuracy::Scene(truth, truth.pose).judge(lens_of(other_lens).pose);
}

TEST(Calibrate, CorrectsTheExampleFrame) {
  const testing_support::TempDir dir;
  const std::string out = dir.file("corrected.lens");
  const std::string json_path = dir.file("result.json");
  const Outcome outcome = run_program({"calibrate", cli_test::example("frame.jpg"), "--lens",
                                       cli_test::example("nominal.lens"), "-o", out, "--json", json_path});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.out << outcome.error;
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("right eye"), HasSubstr("detection ratio"), HasSubstr("error16"),
                                 HasSubstr("score"), HasSubstr("ok"), HasSubstr(out)));

  // Refined matches are good to some hundredths of a pixel, in a picture that was compressed as well.
  const auto before = judge_lens(cli_test::example("truth.lens"), cli_test::example("nominal.lens"));
  const auto after = judge_lens(cli_test::example("truth.lens"), out);
  EXPECT_LT(after.rms, 0.05);
  EXPECT_GT(before.rms, 1.0);
  EXPECT_LE(after.lost, before.lost);

  // What matches can tell: how the eyes stand to each other.
  const auto json = nlohmann::json::parse(testing_support::read_file(json_path));
  EXPECT_EQ(json.at("schema"), 3);
  EXPECT_EQ(json.at("program"), "twintrue");
  EXPECT_EQ(json.at("outcome"), "calibrated");
  EXPECT_EQ(json.at("exit_code"), 0);
  EXPECT_EQ(json.at("calib_status"), 0);
  EXPECT_EQ(json.at("frame").at("width"), 2048);
  EXPECT_EQ(json.at("settings"), "built-in preset default");
  EXPECT_EQ(json.at("out_lens"), out);
  EXPECT_EQ(json.at("notes"), nlohmann::json::array());
  const auto& counts = json.at("counts");
  EXPECT_GE(counts.at("left_half_keypoints"), counts.at("matches"));
  EXPECT_NE(counts.at("left_half_keypoints"), counts.at("right_half_keypoints"));
  EXPECT_GT(counts.at("matches"), counts.at("accepted"));
  EXPECT_GE(counts.at("accepted"), counts.at("searched"));
  EXPECT_EQ(counts.at("searched"), json.at("verdict").at("evidence").at("matches"));
  const auto& right = json.at("corrections").at("right_eye");
  const auto& left = json.at("corrections").at("left_eye");
  const auto difference = [&](const char* key) {
    return right.at(key).get<double>() - left.at(key).get<double>();
  };
  constexpr double kTolerance = 0.05;  // degrees: 0.5 pixel of this frame
  // Pan and offset_x move pictures nearly alike, so only what they move together is certain.
  constexpr double kPanOfPixel = 0.154;  // degrees: a pixel's turn, averaged over the field of view
  EXPECT_NEAR(difference("pan_deg") - kPanOfPixel * difference("offset_x_px"), 0.15, kTolerance);
  EXPECT_NEAR(difference("tilt_deg"), 0.30, kTolerance);
  EXPECT_NEAR(difference("roll_deg"), -0.20, kTolerance);
  EXPECT_NEAR(right.at("tilt_rad").get<double>() * 180.0 / std::numbers::pi,
              right.at("tilt_deg").get<double>(), 1e-12);
  for (const char* measure : {"detection_ratio", "quality", "error16"}) {
    EXPECT_EQ(json.at("measures").at(measure).at("passed"), true) << measure;
  }
}

// A lens file that has the right eye's picture too small, and too high in its middle.
TEST(Calibrate, WritesTheShapesOfTheEyesPictures) {
  const testing_support::TempDir dir;
  std::string lens = testing_support::read_file(cli_test::example("nominal.lens"));
  for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
           {"right_eye_magnify_v = 1.0", "right_eye_magnify_v = 0.995"},
           {"right_eye_magnify_h = 1.0", "right_eye_magnify_h = 0.995"},
           {"left_eye_lambda = 0.0;", "left_eye_lambda = 0.0;\nright_eye_shift_y = 0.004;"}}) {
    lens.replace(lens.find(key), key.size(), value);
  }
  const std::string path = dir.file("odd.lens");
  std::ofstream(path) << lens;
  const std::string out = dir.file("corrected.lens");
  const std::string json_path = dir.file("result.json");
  const Outcome outcome = run_program({"calibrate", cli_test::example("frame.jpg"), "--lens", path, "-o", out,
                                       "--json", json_path, "--fit-scale"});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.out << outcome.error;
  const auto shapes =
      nlohmann::json::parse(testing_support::read_file(json_path)).at("polished").at("shapes");
  EXPECT_NEAR(shapes.at("scale_ratio").get<double>(), 1.0 / 0.995, 3e-4);
  EXPECT_NEAR(shapes.at("shift_y").get<double>(), -0.004, 3e-4);
  twintrue::RigState rig;
  ASSERT_TRUE(twintrue::read_lens(rig, out));
  EXPECT_NEAR(rig.current.right.magnify_v / rig.current.left.magnify_v, 1.0, 3e-4);
  EXPECT_NEAR(rig.current.right.magnify_h / rig.current.left.magnify_h, 1.0, 3e-4);
  EXPECT_NEAR(rig.current.right.shift_y - rig.current.left.shift_y, 0.0, 3e-4);
  EXPECT_NEAR(rig.current.right.psi - rig.current.left.psi, 0.30 * std::numbers::pi / 180.0, 1e-3);
  // Without it the best pose for the wrong shapes is written, and told to be that.
  const Outcome without = run_program({"calibrate", cli_test::example("frame.jpg"), "--lens", path});
  EXPECT_THAT(without.out, HasSubstr("--fit-scale"));
}

// The program and a host program get the same numbers to the last bit.
TEST(Calibrate, GivesWhatTheLibraryGives) {
  const testing_support::TempDir dir;
  const std::string lens = cli_test::example("nominal.lens");
  const std::string params = TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml";
  const std::string json_path = dir.file("result.json");
  const Outcome outcome =
      run_program({"calibrate", cli_test::example("frame.jpg"), "--lens", lens, "--params", params, "-o",
                   dir.file("program.lens"), "--json", json_path, "--no-refine"});
  const auto json = nlohmann::json::parse(testing_support::read_file(json_path));

  const twintrue::cli::Frame frame = twintrue::cli::read_frame(cli_test::example("frame.jpg"));
  const CalibImage image{frame.width, frame.height, static_cast<std::int32_t>(frame.width * 3),
                         frame.pixels.data(), 0};
  CalibResult result{};
  EXPECT_EQ(calib(&image, lens.c_str(), params.c_str(), dir.file("library.lens").c_str(), 0, &result),
            json.at("calib_status"));
  const auto& right = json.at("corrections").at("right_eye");
  const auto& left = json.at("corrections").at("left_eye");
  EXPECT_EQ(result.right_pan, right.at("pan_rad"));
  EXPECT_EQ(result.right_tilt, right.at("tilt_rad"));
  EXPECT_EQ(result.right_roll, right.at("roll_rad"));
  EXPECT_EQ(result.right_offset_x, right.at("offset_x_px"));
  EXPECT_EQ(result.right_offset_y, right.at("offset_y_px"));
  EXPECT_EQ(result.left_pan, left.at("pan_rad"));
  EXPECT_EQ(result.left_roll, left.at("roll_rad"));
  EXPECT_EQ(result.score, json.at("measures").at("score").at("value"));
  EXPECT_EQ(result.quality, json.at("measures").at("quality").at("value"));
  EXPECT_EQ(testing_support::read_file(dir.file("program.lens")),
            testing_support::read_file(dir.file("library.lens")));
}

// A sanitized build walks the same code on the example frame, in a tenth of the time.
#if defined(TWINTRUE_FRAMES_DIR) && !defined(TWINTRUE_SANITIZED)
class LargeFrame : public testing::TestWithParam<const char*> {};

TEST_P(LargeFrame, IsCorrected) {
  const std::string folder = std::string(TWINTRUE_FRAMES_DIR) + "/" + GetParam();
  const testing_support::TempDir dir;
  const std::string out = dir.file("corrected.lens");
  const Outcome outcome =
      run_program({"calibrate", folder + "/frame.png", "--lens", folder + "/nominal.lens", "-o", out});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.out << outcome.error;
  const auto before = judge_lens(folder + "/truth.lens", folder + "/nominal.lens");
  const auto after = judge_lens(folder + "/truth.lens", out);
  EXPECT_LT(after.rms, 1.0) << "before: " << before.rms;
  EXPECT_LE(after.lost, before.lost);
}

INSTANTIATE_TEST_SUITE_P(Frames, LargeFrame, testing::Values("room_distorted", "court_format2"),
                         [](const auto& frame) { return std::string(frame.param); });
#endif

}  // namespace
