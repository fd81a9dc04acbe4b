// The ten corrections move what an eye sees to where the interface says.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

#include "lens/LensParameters.h"
#include "lens/RigModel.h"
#include "search/RenderedRoom.h"
#include "support/TempDir.h"
#include "twintrue/calib.h"

namespace {

using testing_support::TempDir;

struct Pixel {
  double column;
  double row;
};

Pixel pixel_of(const twintrue::EyeModel& eye, std::array<double, 3> ray) {
  Pixel pixel{};
  EXPECT_TRUE(twintrue::eye_ray_to_image(eye, &pixel.column, &pixel.row, ray[0], ray[1], ray[2]));
  return pixel;
}

constexpr const char* kSecondFormat = R"([OPTRA]
version = 2.31;
PIX_input_width = 1024; PIX_input_height = 512; AOV_input_width = 9011200.0; AOV_input_height = 4505600.0;
output_width = 1024; output_height = 512; baseline = 0.06;
left_img_c_center_X = 2300000.0; left_img_c_center_Y = 0.0;
right_img_c_center_X = -2300000.0; right_img_c_center_Y = 0.0;
img_c_diameter = 4600000.0; FOV = 190000.0;
right_eye_magnify_v = 16384.0; right_eye_magnify_h = 16384.0;
left_eye_magnify_v = 16384.0; left_eye_magnify_h = 16384.0;
)";

TEST(PoseSigns, AreThoseOfTheHeader) {
  constexpr std::array<double, 3> kAhead{0.0, 0.0, -1.0};
  constexpr std::array<double, 3> kRight{0.5, 0.0, -1.0};
  // Which way the picture of what is ahead moves, columns to the right and rows down; for roll, of what lies
  // to the right.
  struct Case {
    const char* name;
    double CalibResult::*right;
    double CalibResult::*left;
    double by;
    std::array<double, 3> ray;
    int columns;
    int rows;
  };
  const Case cases[] = {
      {"pan", &CalibResult::right_pan, &CalibResult::left_pan, 0.01, kAhead, -1, 0},
      {"tilt", &CalibResult::right_tilt, &CalibResult::left_tilt, 0.01, kAhead, 0, -1},
      {"roll", &CalibResult::right_roll, &CalibResult::left_roll, 0.01, kRight, 0, -1},
      {"offset x", &CalibResult::right_offset_x, &CalibResult::left_offset_x, 2.0, kAhead, 1, 0},
      {"offset y", &CalibResult::right_offset_y, &CalibResult::left_offset_y, 2.0, kAhead, 0, -1},
  };
  const TempDir dir;
  for (const std::string& text : {testing_support::room::lens_text(), std::string(kSecondFormat)}) {
    twintrue::RigState rig;
    ASSERT_NE(twintrue::load_lens_description(rig, dir.write("some.lens", text), "OPTRA"), 0) << text;
    for (const bool left : {false, true}) {
      for (const Case& one : cases) {
        SCOPED_TRACE(std::string(one.name) + (left ? " of the left eye" : " of the right eye") + text);
        const auto& eye = left ? rig.current.left : rig.current.right;
        const auto& other = left ? rig.current.right : rig.current.left;
        twintrue::rig_apply_pose(rig, CalibResult{});
        const Pixel before = pixel_of(eye, one.ray);
        const Pixel other_before = pixel_of(other, one.ray);
        CalibResult pose{};
        pose.*(left ? one.left : one.right) = one.by;
        twintrue::rig_apply_pose(rig, pose);
        const Pixel after = pixel_of(eye, one.ray);
        // An angle moves the picture by about its share of 90 degrees; what is left over is of second order.
        const double step = one.by < 1.0 ? one.by * eye.scale / testing_support::room::kHalfPi : one.by;
        const double expected = std::abs(one.ray[0]) > 0.0 ? step * std::atan2(0.5, 1.0) : step;
        EXPECT_NEAR(after.column - before.column, one.columns * expected, 0.02 * step);
        EXPECT_NEAR(after.row - before.row, one.rows * expected, 0.02 * step);
        EXPECT_EQ(pixel_of(other, one.ray).column, other_before.column);
        EXPECT_EQ(pixel_of(other, one.ray).row, other_before.row);
      }
    }
  }
}

}  // namespace
