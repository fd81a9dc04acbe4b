#include "lens/LensParameters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/PlainLens.h"
#include "support/TempDir.h"

namespace twintrue {
namespace {

using testing_support::read_file;
using testing_support::TempDir;

constexpr double kPi = 3.141592653589793;

const char* const kFormat1 = R"([OPTRA]
format_version = "1.0";
input_width = 2048; input_height = 1024; output_width = 1921; output_height = 1080; separate_x = 900;
left_center_x = 11.0; alpha = 0.5;
left_eye_lambda = 0.011; left_eye_psi = -0.012; left_eye_roll = 0.013;
right_eye_lambda = -0.014; right_eye_psi = 0.015; right_eye_roll = -0.016;
left_eye_magnify_v = 1.01; left_eye_magnify_h = 1.02; right_eye_magnify_v = 0.99; right_eye_magnify_h = 0.98;
distortion_coeff1 = 1.2; distortion_coeff2 = -0.7; distortion_coeff3 = 0.9;
distortion_coeff4 = 0.4; distortion_coeff5 = -0.2; distortion_coeff6 = 0.1;
left_eye_x0 = 0.001; left_eye_y0 = -0.002; right_eye_x0 = 0.003; right_eye_y0 = 0.004;
left_eye_shift_x = 0.005; left_eye_shift_y = -0.006; right_eye_shift_x = 0.007; right_eye_shift_y = 0.008;
baseline = 0.07; sensor_pitch = 0.0176; inter_image_circle_distance = 18.4; image_circle_radius = 8.7;
left_eye_translate_x = 0.001; left_eye_translate_y = 0.002; left_eye_translate_z = 0.003;
right_eye_translate_x = 0.5; right_eye_translate_y = 0.6; right_eye_translate_z = 0.7;
)";

const char* const kFormat2 = R"([OPTRA]
version = 2.305;
PIX_input_width = 2048; PIX_input_height = 1024; AOV_input_width = 36044800.0; AOV_input_height = 18022400.0;
output_width = 1921; output_height = 1080; hard_compatible = 1; is_lambda = 3.0; camera_psi = 4.0;
left_img_c_center_X = 9250000.0; left_img_c_center_Y = 17600.0;
right_img_c_center_X = -9240000.0; right_img_c_center_Y = -8800.0;
img_c_diameter = 18472222.0; FOV = 190500.0; baseline = 0.07;
left_eye_lambda = 110.0; left_eye_psi = -120.0; left_eye_roll = 130.0;
right_eye_lambda = -140.0; right_eye_psi = 150.0; right_eye_roll = -160.0;
left_eye_magnify_v = 16500.0; left_eye_magnify_h = 16600.0;
right_eye_magnify_v = 16300.0; right_eye_magnify_h = 16200.0;
distortion_coeff1 = 1.2; distortion_coeff2 = -0.7; distortion_coeff3 = 0.9;
distortion_coeff4 = 0.4; distortion_coeff5 = -0.2; distortion_coeff6 = 0.1;
left_eye_x0 = 17600.0; left_eye_y0 = -22000.0; right_eye_x0 = 8800.0; right_eye_y0 = 4400.0;
left_eye_shift_x = 2500000.0; left_eye_shift_y = -3000000.0; right_eye_shift_x = 3500000.0;
left_eye_translate_x = 0.001; left_eye_translate_y = 0.002; left_eye_translate_z = 0.003;
)";

struct Loaded {
  RigState state;
  int result = 0;
  std::string output;
  std::string errors;
};

Loaded load_path(const std::string& path) {
  Loaded loaded;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  loaded.result = load_lens_description(loaded.state, path, "OPTRA");
  loaded.output = testing::internal::GetCapturedStdout();
  loaded.errors = testing::internal::GetCapturedStderr();
  return loaded;
}

Loaded load(const std::string& text) {
  const TempDir dir;
  return load_path(dir.write("test.lens", text));
}

// The text with one statement more, which wins over earlier ones.
std::string with(const char* text, const std::string& statement) { return text + statement + "\n"; }

// Keys and values of the `key = value;` statements of a text, in order.
std::vector<std::pair<std::string, std::string>> statements_of(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> statements;
  for (std::size_t at = text.find(" = "); at != std::string::npos; at = text.find(" = ", at + 1)) {
    const std::size_t begin = text.find_last_of(" \n", at - 1) + 1;
    statements.emplace_back(text.substr(begin, at - begin), text.substr(at + 3, text.find(';', at) - at - 3));
  }
  return statements;
}

// The lens of a file of plain `key = number;` statements, read by its units without the library.
accuracy::PlainLens plain_lens_of(const std::string& text) {
  std::map<std::string, double> numbers;
  for (const auto& [key, value] : statements_of(text)) {
    numbers[key] = std::stod(value[0] == '"' ? value.substr(1) : value);
  }
  const auto get = [&numbers](const std::string& key) {
    return numbers.count(key) != 0 ? numbers[key] : 0.0;
  };
  const bool first = numbers.count("format_version") != 0;
  accuracy::PlainLens lens;
  lens.format = first ? 1 : 2;
  lens.width = static_cast<int>(get(first ? "input_width" : "PIX_input_width"));
  lens.height = static_cast<int>(get(first ? "input_height" : "PIX_input_height"));
  const double px_per_offset = first ? lens.width : lens.width / get("AOV_input_width");
  lens.scale = first ? get("image_circle_radius") / get("sensor_pitch")
                     : 0.5 * get("img_c_diameter") * px_per_offset * 180000.0 / get("FOV");
  lens.limit = first ? 95.0 / 90.0 : get("FOV") / 180000.0;
  for (std::size_t i = 0; i < 6; ++i) lens.coeff[i] = get("distortion_coeff" + std::to_string(i + 1));
  lens.translation = {get("left_eye_translate_x"), get("left_eye_translate_y"), get("left_eye_translate_z")};
  for (const auto side : {accuracy::kLeft, accuracy::kRight}) {
    const bool left = side == accuracy::kLeft;
    const std::string name = left ? "left" : "right";
    const std::string eye = name + "_eye_";
    const double apart = 0.5 * get("inter_image_circle_distance") / get("sensor_pitch");
    lens.centre_x[side] =
        lens.width / 2 + (first ? (left ? apart : -apart) : get(name + "_img_c_center_X") * px_per_offset);
    lens.centre_y[side] = lens.height / 2 - (first ? 0.0 : get(name + "_img_c_center_Y") * px_per_offset);
    lens.magnify_x[side] = get(eye + "magnify_v") / (first ? 1.0 : 16384.0);
    lens.magnify_y[side] = get(eye + "magnify_h") / (first ? 1.0 : 16384.0);
    lens.shear_x[side] = get(eye + "shift_x") * (first ? 1.0 : 2e-9);
    lens.shear_y[side] = get(eye + "shift_y") * (first ? 1.0 : 2e-9);
    const double radian = first ? 1.0 : kPi / 180000.0;
    double* const pose = &lens.pose[side * accuracy::kEyeValues];
    pose[0] = get(eye + "lambda") * radian;
    pose[1] = get(eye + "psi") * radian;
    pose[2] = get(eye + "roll") * radian;
    pose[3] = get(eye + "x0") * px_per_offset;
    pose[4] = get(eye + "y0") * px_per_offset;
  }
  return lens;
}

// Rays all round the sphere, of several lengths and in both eyes, agree with the second way to 1e-5 pixels.
void expect_projection_of(const RigState& state, const std::string& text) {
  const accuracy::PlainLens plain = plain_lens_of(text);
  int seen = 0;
  for (int i = 1; i < 500; ++i) {
    const double z = -1.0 + i / 250.0;
    const double azimuth = 2.4 * i;
    const double r = std::sqrt(1.0 - z * z);
    const double length = 1 + i % 3;
    const std::array<double, 3> ray = {length * r * std::cos(azimuth), length * r * std::sin(azimuth),
                                       length * z};
    for (const auto side : {accuracy::kLeft, accuracy::kRight}) {
      const EyeModel& eye = side == accuracy::kLeft ? state.current.left : state.current.right;
      double px = 0, py = 0, plain_px = 0, plain_py = 0;
      const bool inside = eye_ray_to_image(eye, &px, &py, ray[0], ray[1], ray[2]);
      ASSERT_EQ(inside, accuracy::ray_to_pixel(plain, side, &plain.pose[side * accuracy::kEyeValues], ray,
                                               plain_px, plain_py))
          << side << " " << i;
      EXPECT_NEAR(px, plain_px, 1e-5) << side << " " << i;
      EXPECT_NEAR(py, plain_py, 1e-5) << side << " " << i;
      if (inside) ++seen;
    }
  }
  EXPECT_GT(seen, 400);
}

TEST(LensParameters, BothFormatsProjectAsTheirUnitsSay) {
  for (const char* text : {kFormat1, kFormat2}) {
    const Loaded loaded = load(text);
    EXPECT_EQ(loaded.result, 1);
    EXPECT_EQ(loaded.output, text == kFormat1 ? "format_version: 1.0\n" : "hard_compatible is ignored.\n");
    EXPECT_EQ(loaded.errors, "");
    EXPECT_TRUE(rig_is_usable(loaded.state));
    expect_projection_of(loaded.state, text);
  }
}

#ifdef TWINTRUE_FRAMES_DIR
TEST(LensParameters, OfLargerFrames) {
  const std::filesystem::path folder = TWINTRUE_FRAMES_DIR;
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() != ".lens") continue;
    SCOPED_TRACE(entry.path());
    const Loaded loaded = load_path(entry.path());
    EXPECT_EQ(loaded.result, 1);
    EXPECT_TRUE(rig_is_usable(loaded.state));
    expect_projection_of(loaded.state, read_file(entry.path()));
    ++files;
  }
  EXPECT_GT(files, 0);
}
#endif

TEST(LensParameters, TailOfTheRigAndTheState) {
  for (const char* text : {kFormat1, kFormat2}) {
    const RigState state = load(text).state;
    const RigModel& rig = state.current;
    const bool first = text == kFormat1;
    EXPECT_EQ(rig.input_width, 2048);
    EXPECT_EQ(rig.input_height, 1024);
    EXPECT_EQ(rig.output_width, 1921);
    EXPECT_EQ(rig.output_height, 1080);
    EXPECT_EQ(rig.baseline, 0.07);
    EXPECT_NEAR(rig.sensor_pitch, 0.0176, 1e-15);
    EXPECT_NEAR(rig.circle_distance, first ? 18.4 : 18.49, 1e-12);
    EXPECT_NEAR(rig.circle_radius, first ? 8.7 : 18.472222 / 2 * 180.0 / 190.5, 1e-12);
    EXPECT_EQ(state.frame_width, 2048);
    EXPECT_EQ(state.half_width, 1024);
    EXPECT_EQ(state.frame_height, 1024);
    EXPECT_NEAR(state.circle_radius_px, rig.circle_radius / 0.0176, 1e-9);
    EXPECT_EQ(rig.left.valid_x_begin, 1024);
    EXPECT_EQ(rig.left.valid_x_end, 2048);
    EXPECT_EQ(rig.right.valid_x_begin, 0);
    EXPECT_EQ(rig.right.valid_x_end, 1024);
    EXPECT_EQ(rig.left.view_width, 1024);
    EXPECT_EQ(rig.left.fov_degrees, first ? 190.0 : 190.5);
    // Half the baseline to either side of the translation, which is the left eye's for both.
    EXPECT_NEAR(rig.left.position[0], 0.001 - 0.035, 1e-15);
    EXPECT_NEAR(rig.right.position[0], 0.001 + 0.035, 1e-15);
    EXPECT_EQ(rig.right.translate, rig.left.translate);
    EXPECT_EQ(*rig.right.distortion.table, *rig.left.distortion.table);
    EXPECT_EQ(state.reference.right.offset_x, rig.right.offset_x);
    EXPECT_EQ(state.reference.left.rotation, rig.left.rotation);
  }
}

TEST(LensParameters, FormatIsTakenFromEitherVersionKey) {
  const std::string disagreement = "ERROR!: forma_versionかversionのどちらか一方を記述してください。\n";
  struct Case {
    const char* versions;
    std::uint32_t kind;
    std::string errors;
  };
  for (const Case& c :
       {Case{"format_version = \"1.0\";", 1, ""}, Case{"version = 1.0;", 1, ""}, Case{"version = 1;", 1, ""},
        Case{"version = \"1.0\";", 1, ""}, Case{"format_version = \"1.0\"; version = 1.0;", 1, ""},
        Case{"format_version = \"none\"; VERSION = 2.31;", 2, ""}, Case{"version = 2.3;", 2, ""},
        Case{"version = 2.305;", 2, ""}, Case{"version = 2.31001;", 2, ""},
        Case{"format_version = 2.31;", 2, ""}, Case{"format_version = \"2.31\"; version = 5.0;", 2, ""},
        Case{"version = 2.29;", 0, ""}, Case{"version = 2.32;", 0, ""}, Case{"version = \"nan\";", 0, ""},
        Case{"", 0, ""}, Case{"format_version = 1.0; version = 2.31;", 0, disagreement}}) {
    const Loaded loaded = load(std::string("[optra] ") + c.versions);
    EXPECT_EQ(loaded.result, c.kind == 0 ? 0 : 1) << c.versions;
    EXPECT_EQ(loaded.state.current.left.distortion.kind, c.kind) << c.versions;
    EXPECT_EQ(loaded.errors, c.errors) << c.versions;
    if (c.kind == 0) {
      EXPECT_FALSE(rig_is_usable(loaded.state)) << c.versions;
    }
  }
  EXPECT_THAT(
      load("[OPTRA] version = \"1.0\";").output,
      testing::StartsWith("WARNNING: ini_get() read string item OPTRA.version\nformat_version: 1.0\n"));
}

TEST(LensParameters, KeysThatNobodyUsesChangeNothing) {
  const TempDir dir;
  const auto written = [&dir](const Loaded& loaded) {
    write_lens_description(loaded.state.current, dir.file("out.lens"));
    return read_file(dir.file("out.lens"));
  };
  for (const char* text : {kFormat1, kFormat2}) {
    const Loaded without = load(text);
    const Loaded with_more =
        load("serial = \"A-7\"; lens.baseline = 9.0;\n" + std::string(text) +
             "note = \"a lens\"; left_eye = 3; left_eye_lambda2 = 0.5; distortion_coeff7 = 4.0;\n"
             "[OTHER] input_width = 7; baseline = 1.0;\n");
    EXPECT_EQ(with_more.result, 1);
    EXPECT_EQ(with_more.output, without.output);
    EXPECT_EQ(with_more.errors, without.errors);
    EXPECT_EQ(written(with_more), written(without));
  }
}

TEST(LensParameters, FailuresOfTheWholeRead) {
  const Loaded other = load("[other] x = 1;");
  EXPECT_EQ(other.result, 0);
  EXPECT_EQ(other.output, "");
  EXPECT_EQ(other.errors, "ERROR!: Cannot find OPTRA section in ini file.\n");
  EXPECT_EQ(other.state.frame_width, 0);

  const Loaded missing = load_path("no/such.lens");
  EXPECT_EQ(missing.result, 0);
  EXPECT_EQ(missing.output, "ERROR: Cannot read the \"no/such.lens\".\nERROR!: Cannot readno/such.lens\n");
}

TEST(LensParameters, OnlyTheFirstBadValueShows) {
  struct Case {
    const char* text;
    const char* statement;
    const char* message;
  };
  for (const Case& c :
       {Case{kFormat1, "input_width = 0; input_height = 0;", "input_width is invalid parameter: 0 \n"},
        Case{kFormat1, "input_height = -1;", "input_height is invalid parameter: -1 \n"},
        Case{kFormat1, "output_width = 0; separate_x = 0;", "output_width is invalid parameter: 0 \n"},
        Case{kFormat1, "output_height = 0;", "output_height is invalid parameter: 0 \n"},
        Case{kFormat1, "separate_x = 0; left_eye_magnify_h = 0;", "separate_x is invalid parameter: 0 \n"},
        Case{kFormat1, "left_eye_magnify_h = 0; left_eye_magnify_v = 0;",
             "left_eye_magnify_h is invalid parameter: 0.000000 \n"},
        Case{kFormat1, "left_eye_magnify_v = -0.5; right_eye_magnify_v = 0;",
             "left_eye_magnify_v is invalid parameter: -0.500000 \n"},
        Case{kFormat1, "right_eye_magnify_v = 0; right_eye_magnify_h = 0;",
             "right_eye_magnify_v is invalid parameter: 0.000000 \n"},
        Case{kFormat1, "right_eye_magnify_h = 0;", "right_eye_magnify_h is invalid parameter: 0.000000 \n"},
        // The notice of format 2 shows only if all is well.
        Case{kFormat2, "PIX_input_width = 0;", "input_width is invalid parameter: 0 \n"},
        Case{kFormat2, "output_height = 0;", "output_height is invalid parameter: 0 \n"},
        Case{kFormat2, "right_eye_magnify_h = 0;",
             "right_eye_magnify_h is invalid parameter: 0.000000 \n"}}) {
    const Loaded loaded = load(with(c.text, c.statement));
    EXPECT_EQ(loaded.result, 1) << c.statement;
    const std::string head = c.text == kFormat1 ? "format_version: 1.0\n" : "";
    EXPECT_EQ(loaded.output, head + c.message);
  }
  EXPECT_FALSE(rig_is_usable(load(with(kFormat2, "FOV = 0;")).state));
  EXPECT_FALSE(rig_is_usable(load(with(kFormat2, "AOV_input_width = 0;")).state));
}

TEST(LensParameters, LengthsThatAreMissingTakeTheirDefaults) {
  const std::string notice1 =
      "set baseline 0.06 [m]\nset sensor_pitch_mm 0.0044 [mm]\nset inter_image_circle_distance_mm 18.5 [mm]\n"
      "set image_circle_radius_mm 17.5 /2 [mm]\n";
  for (const char* value : {"0", "-1", "\"nan\""}) {
    std::string statements;
    for (const char* key :
         {"baseline", "sensor_pitch", "inter_image_circle_distance", "image_circle_radius"}) {
      statements += std::string(key) + " = " + value + ";";
    }
    const Loaded loaded = load(with(kFormat1, statements));
    if (value[0] != '"') {
      EXPECT_EQ(loaded.output, "format_version: 1.0\n" + notice1);
    }
    EXPECT_EQ(loaded.state.current.baseline, 0.06);
    EXPECT_EQ(loaded.state.current.sensor_pitch, 0.0044);
    EXPECT_EQ(loaded.state.current.circle_distance, 18.5);
    EXPECT_EQ(loaded.state.current.circle_radius, 8.75);
  }
  const Loaded second = load("[OPTRA] version = 2.31;");
  EXPECT_EQ(second.output, "set baseline 0.06 [m]\ninput_width is invalid parameter: 0 \n");
  EXPECT_EQ(second.state.current.baseline, 0.06);
}

TEST(LensParameters, SizeOfTheTable) {
  const RigState state =
      load(with(kFormat2,
                "ideal_height_precision_bit = 8.9; ideal_height_lut_max = 1.5; hard_compatible = 0;"))
          .state;
  EXPECT_EQ(state.current.right.distortion.table_size, 385);
  EXPECT_EQ(load(kFormat1).state.current.left.distortion.table_size, 4589);
  // A string is converted without a warning.
  EXPECT_EQ(load(with(kFormat2, "ideal_height_precision_bit = \"9\";")).output,
            "hard_compatible is ignored.\n");
  for (const char* statement :
       {"ideal_height_precision_bit = 0;", "ideal_height_precision_bit = 25;", "ideal_height_lut_max = 0;",
        "ideal_height_lut_max = 99999999.0;", "ideal_height_precision_bit = 99999999999.0;"}) {
    EXPECT_THROW(load(with(kFormat1, statement)), LensModelError) << statement;
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
  }
}

class WrittenFile : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Formats, WrittenFile, testing::Values(kFormat1, kFormat2));

// Ten decimals are written: 1e-10 in the file's units.
TEST_P(WrittenFile, ReadsBackAsTheSameRig) {
  const TempDir dir;
  RigState state = load(GetParam()).state;
  rig_apply_pose(state, CalibResult{0.01, -0.02, 0.03, 4, -5, -0.01, 0.02, -0.03, -4, 5, 0, 0, 0, 0});
  EXPECT_TRUE(write_lens_description(state.current, dir.file("out.lens")));
  const Loaded back = load_path(dir.file("out.lens"));
  EXPECT_EQ(back.result, 1);
  EXPECT_EQ(back.errors, "");
  EXPECT_EQ(back.output, GetParam() == kFormat1 ? "format_version: 1.0\n" : "");
  const std::string text = read_file(dir.file("out.lens"));
  expect_projection_of(state, text);
  expect_projection_of(back.state, text);
  const RigModel& before = state.current;
  const RigModel& after = back.state.current;
  EXPECT_NEAR(before.sensor_pitch, after.sensor_pitch, 1e-10);
  EXPECT_NEAR(before.circle_distance, after.circle_distance, 1e-10);
  EXPECT_NEAR(before.circle_radius, after.circle_radius, 1e-9);
  EXPECT_EQ(before.baseline, after.baseline);
  EXPECT_EQ(before.output_height, after.output_height);
}

// Every key of the format, in the file's order, and what stands in place of values that a rig doesn't hold.
TEST_P(WrittenFile, HoldsAllKeysInOrder) {
  const TempDir dir;
  const RigState state = load(GetParam()).state;
  write_lens_description(state.current, dir.file("out.lens"));
  const std::string text = read_file(dir.file("out.lens"));
  const bool first = GetParam() == kFormat1;
  const std::string eyes =
      "left_eye_lambda right_eye_lambda left_eye_psi right_eye_psi left_eye_roll right_eye_roll "
      "left_eye_magnify_v right_eye_magnify_v left_eye_magnify_h right_eye_magnify_h "
      "distortion_coeff1 distortion_coeff2 distortion_coeff3 distortion_coeff4 distortion_coeff5 "
      "distortion_coeff6 left_eye_x0 left_eye_y0 right_eye_x0 right_eye_y0 "
      "left_eye_shift_x left_eye_shift_y right_eye_shift_x right_eye_shift_y ";
  const std::string translations =
      "left_eye_translate_x left_eye_translate_y left_eye_translate_z "
      "right_eye_translate_x right_eye_translate_y right_eye_translate_z ";
  const std::string expected =
      first
          ? "format_version input_width input_height output_width output_height left_center_x left_center_y "
            "right_center_x right_center_y alpha beta separate_x " +
                eyes + "baseline sensor_pitch inter_image_circle_distance image_circle_radius " + translations
          : "PIX_input_width PIX_input_height AOV_input_width AOV_input_height output_width output_height "
            "alpha "
            "beta hard_compatible left_img_c_center_X left_img_c_center_Y right_img_c_center_X "
            "right_img_c_center_Y img_c_diameter FOV " +
                eyes +
                "camera_psi camera_roll m_left_eye_x0 m_left_eye_y0 m_right_eye_x0 m_right_eye_y0 "
                "m_left_eye_lambda m_left_eye_psi m_left_eye_roll m_right_eye_lambda m_right_eye_psi "
                "m_right_eye_roll is_lambda is_psi is_roll version separate_x baseline " +
                translations;
  std::string keys;
  for (const auto& [key, value] : statements_of(text)) {
    keys += key + " ";
    const std::size_t point = value.find('.');
    EXPECT_TRUE(key == "format_version" || point == std::string::npos || value.size() - point == 11) << value;
    EXPECT_EQ(value.find('e'), std::string::npos) << value;
  }
  EXPECT_EQ(keys, expected);
  EXPECT_EQ(text.substr(0, 8), "[OPTRA]\n");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'),
            1 + std::count(expected.begin(), expected.end(), ' '));
  const std::vector<std::string> lines =
      first ? std::vector<std::string>{"format_version = \"1.0\";",
                                       "separate_x = 961;",
                                       "alpha = 0.6250000000;",
                                       "left_center_x = 0.0000000000;",
                                       "left_eye_psi = -0.0120000000;",
                                       "right_eye_translate_x = 0.0010000000;",
                                       "input_width = 2048;"}
            : std::vector<std::string>{"version = 2.3100000000;", "separate_x = 960.5000000000;",
                                       "beta = 0.1250000000;",    "is_lambda = 0.0000000000;",
                                       "hard_compatible = 0;",    "left_eye_magnify_v = 16500.0000000000;",
                                       "PIX_input_width = 2048;"};
  for (const std::string& expected_line : lines) {
    EXPECT_NE(text.find("\n" + expected_line + "\n"), std::string::npos) << expected_line;
  }
}

TEST(LensParameters, FilesThatCannotBeWritten) {
  const RigState state = load(kFormat1).state;
  EXPECT_FALSE(write_lens_description(state.current, "no/such/folder/out.lens"));
  EXPECT_THROW(write_lens_description(RigModel(), "no/such/folder/out.lens"), LensModelError);
}

}  // namespace
}  // namespace twintrue
