#include "base/ThreadTeam.h"
#include "lens/RigModel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace twintrue {
namespace {

constexpr double kPi = 3.141592653589793;

template <typename Call>
std::string error_of(Call&& call) {
  try {
    call();
  } catch (const LensModelError& error) {
    return error.what();
  }
  return "";
}

// An arc cosine near its ends is good to about 1.5e-8, which is 1e-5 of the pixels of the eyes below.
constexpr double kPixelTolerance = 2e-5;

// An eye with everything that bends a ray. No translation along z: that breaks the round trip.
EyeModel bent_eye(std::uint32_t kind) {
  EyeModel eye;
  eye.distortion.kind = kind;
  eye.distortion.coeff = {1.2, -0.7, 0.9, 0.4, -0.2, 0.1};
  eye.lambda = 0.02;
  eye.psi = -0.03;
  eye.roll = 0.05;
  eye.shift_x = 0.01;
  eye.shift_y = -0.02;
  eye.scale = 500.0;
  eye.center_x = 1530.0;
  eye.center_y = 515.0;
  eye.magnify_v = 1.01;
  eye.magnify_h = 0.98;
  eye.offset_x = 3.25;
  eye.offset_y = -2.5;
  eye.valid_x_begin = 1024;
  eye.valid_x_end = 2048;
  eye_update_rotation(eye);
  distortion_build_table(eye.distortion);
  return eye;
}

// An eye without distortion that looks straight ahead.
EyeModel plain_eye(std::uint32_t kind) {
  EyeModel eye;
  eye.distortion.kind = kind;
  eye.scale = 500.0;
  eye.center_x = 512.0;
  eye.center_y = 512.0;
  eye.valid_x_end = 1100;
  eye_update_rotation(eye);
  distortion_build_table(eye.distortion);
  return eye;
}

// Inverse of the curve by halving an interval, for curves that rise.
double bisect(const LensDistortion& distortion, double y) {
  double low = 0.0;
  double high = 2.0;
  for (int i = 0; i < 200; ++i) {
    const double middle = 0.5 * (low + high);
    (distortion_forward(distortion, middle) < y ? low : high) = middle;
  }
  return low;
}

class BothKinds : public testing::TestWithParam<std::uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Kinds, BothKinds, testing::Values(1u, 2u));

TEST_P(BothKinds, PixelsComeBackFromTheirRays) {
  const EyeModel eye = bent_eye(GetParam());
  int seen = 0;
  for (double px = 1024.0; px < 2048.0; px += 31.0) {
    for (double py = 0.0; py < 1024.0; py += 29.0) {
      double x = 0, y = 0, z = 0, px_back = 0, py_back = 0;
      if (!eye_image_to_ray(eye, &x, &y, &z, px, py)) continue;
      ASSERT_TRUE(eye_ray_to_image(eye, &px_back, &py_back, x, y, z)) << px << " " << py;
      EXPECT_NEAR(px_back, px, kPixelTolerance);
      EXPECT_NEAR(py_back, py, kPixelTolerance);
      ++seen;
    }
  }
  EXPECT_GT(seen, 700);
}

TEST_P(BothKinds, AngularLimitAndColumns) {
  const EyeModel eye = plain_eye(GetParam());
  const double limit_px = 500.0 * 95.0 / 90.0;
  double x = 0, y = 0, z = 0;
  EXPECT_TRUE(eye_image_to_ray(eye, &x, &y, &z, 512.0, 512.0 + limit_px - 1e-6));
  EXPECT_FALSE(eye_image_to_ray(eye, &x, &y, &z, 512.0, 512.0 + limit_px + 1e-6));
  EXPECT_EQ(std::vector<double>({x, y, z}), std::vector<double>({0, 0, 1}));

  double px = -1, py = -2;
  EXPECT_FALSE(eye_ray_to_image(eye, &px, &py, 0.0, 0.0, 1.0));
  EXPECT_EQ(px, -1);
  EXPECT_EQ(py, -2);
  // Inside the limit, outside the eye's columns: stored all the same.
  EyeModel narrow = plain_eye(GetParam());
  narrow.valid_x_begin = 512;
  narrow.valid_x_end = 600;
  EXPECT_TRUE(eye_ray_to_image(narrow, &px, &py, 0.0, 0.0, -1.0));
  EXPECT_EQ(px, 512);
  EXPECT_FALSE(eye_ray_to_image(narrow, &px, &py, -1e-3, 0.0, -1.0));
  EXPECT_LT(px, 512);
  EXPECT_FALSE(eye_ray_to_image(narrow, &px, &py, 1.0, 0.0, -1.0));
  EXPECT_NEAR(px, 512.0 + 250.0, 1e-9);
  EXPECT_NEAR(py, 512.0, 1e-9);
}

TEST_P(BothKinds, TranslationIsAddedToTheRay) {
  EyeModel eye = plain_eye(GetParam());
  eye.translate = {0.1, -0.2, 0.3};
  double x = 0, y = 0, z = 0;
  ASSERT_TRUE(eye_image_to_ray(eye, &x, &y, &z, 512.0, 512.0));
  EXPECT_NEAR(x, 0.1, 1e-15);
  EXPECT_NEAR(y, -0.2, 1e-15);
  EXPECT_NEAR(z, -0.7, 1e-15);
  // On the way back the shear takes z with the translation still in it.
  eye.shift_x = 0.5;
  double px = 0, py = 0;
  ASSERT_TRUE(eye_ray_to_image(eye, &px, &py, 0.1, -0.2, -0.7));
  EXPECT_NEAR(px, 512.0 - 500.0 * std::atan2(0.35, 1.0) / (kPi / 2), 1e-9);
}

// The solver stops within 1e-14 of its target, where the curve is about as steep as 1.
TEST_P(BothKinds, TableInvertsTheCurve) {
  const EyeModel eye = bent_eye(GetParam());
  const LensDistortion& distortion = eye.distortion;
  EXPECT_EQ(distortion.table_scale, 4096);
  ASSERT_EQ(distortion.table_size, 4589);
  ASSERT_EQ(distortion.table->size(), 4589u);
  for (std::size_t i = 0; i < 4589; i += 17) {
    EXPECT_NEAR((*distortion.table)[i], bisect(distortion, static_cast<double>(i) / 4096.0), 2e-14) << i;
  }
  // At entries, between two of them, and beyond the last on the line through the last two.
  const std::vector<double>& table = *distortion.table;
  EXPECT_DOUBLE_EQ(distortion_inverse_lookup(distortion, 100.0 / 4096.0), table[100]);
  EXPECT_NEAR(distortion_inverse_lookup(distortion, -100.25 / 4096.0), 0.75 * table[100] + 0.25 * table[101],
              1e-15);
  EXPECT_NEAR(distortion_inverse_lookup(distortion, 2.0),
              table[4588] + (table[4588] - table[4587]) * (2.0 * 4096.0 - 4588.0), 1e-9);
  EXPECT_TRUE(std::isnan(distortion_inverse_lookup(distortion, std::nan(""))));
  EXPECT_FALSE(std::isfinite(distortion_inverse_lookup(distortion, std::numeric_limits<double>::infinity())));
}

TEST(LensDistortion, TableIsTheSameForEveryThreadCount) {
  LensDistortion one = bent_eye(2).distortion;
  LensDistortion many = one;
  {
    const ThreadTeam alone(1);
    distortion_build_table(one);
  }
  const ThreadTeam team(5);
  distortion_build_table(many);
  EXPECT_EQ(*one.table, *many.table);
}

TEST(LensDistortion, SizesOfTables) {
  LensDistortion distortion;
  distortion.precision_bit = 1;
  distortion.lut_max = 1e-300;
  distortion_build_table(distortion);
  EXPECT_EQ(distortion.table_size, 2);
  EXPECT_EQ(distortion.table_scale, 2);
  distortion.lut_max = 3.0;
  distortion_build_table(distortion);
  EXPECT_EQ(distortion.table_size, 7);
}

TEST(LensDistortion, ImpossibleFieldsAreRefused) {
  const double nan = std::nan("");
  const double infinity = std::numeric_limits<double>::infinity();
  struct Case {
    std::int32_t precision_bit;
    double lut_max;
    const char* text;
  };
  for (const Case& c :
       {Case{0, 1.0, "精度ビットが不正"}, Case{-5, 1.0, "精度ビットが不正"},
        Case{25, 1e-9, "精度ビットが不正"}, Case{12, 20000.0, "精度ビットが不正"},
        Case{12, infinity, "精度ビットが不正"}, Case{0, -1.0, "精度ビットが不正"},
        Case{12, 0.0, "最大値が不正"}, Case{12, -1.0, "最大値が不正"}, Case{12, nan, "最大値が不正"}}) {
    LensDistortion distortion;
    distortion.precision_bit = c.precision_bit;
    distortion.lut_max = c.lut_max;
    EXPECT_EQ(error_of([&] { distortion_build_table(distortion); }), c.text)
        << c.precision_bit << " " << c.lut_max;
    EXPECT_EQ(error_of([&] { distortion_copy_table(distortion, LensDistortion()); }), c.text);
    EXPECT_EQ(error_of([&] { LensDistortion copy(distortion); }), c.text);
  }
  EXPECT_EQ(error_of([] { distortion_inverse_lookup(LensDistortion(), 0.5); }), "distortionが未初期化");

  LensDistortion endless;
  endless.precision_bit = 20;
  endless.coeff[2] = nan;
  distortion_build_table(endless);
  EXPECT_TRUE(std::isnan(endless.table->at(5)));
}

// A few lines of a lens file could ask for hours of search.
TEST(LensDistortion, TablesThatWouldTakeLongAreRefusedForEveryThreadCount) {
  LensDistortion distortion;
  distortion.kind = 2;
  distortion_build_table(distortion);
  const auto kept = distortion.table;
  distortion.precision_bit = 16;
  distortion.coeff = {0, -200.0};  // no inverse beyond a radius of 1/8
  for (const int threads : {1, 5}) {
    const ThreadTeam team(threads);
    EXPECT_EQ(error_of([&] { distortion_build_table(distortion); }), "精度ビットが不正");
    EXPECT_EQ(distortion.table, kept);
  }
  // The usual fineness is always granted, whatever the curve.
  distortion.precision_bit = 12;
  EXPECT_EQ(error_of([&] { distortion_build_table(distortion); }), "");
}

TEST(LensDistortion, CopiesTakeTheTableOnlyOfTheSameCurve) {
  const LensDistortion from = bent_eye(1).distortion;
  LensDistortion same;
  same.kind = from.kind;
  same.coeff = from.coeff;
  distortion_copy_table(same, from);
  EXPECT_EQ(*same.table, *from.table);

  LensDistortion other = from;
  other.coeff[5] = 0.3;
  distortion_copy_table(other, from);
  EXPECT_NE(*other.table, *from.table);
  EXPECT_NEAR(other.table->at(4000), bisect(other, 4000.0 / 4096.0), 2e-14);

  // A table outlives the record that it came from, and a rebuilt one is nobody else's.
  const std::vector<double> before = *same.table;
  distortion_build_table(other);
  other = same;
  same.coeff = {};
  distortion_build_table(same);
  EXPECT_EQ(*other.table, before);
  EXPECT_NE(*same.table, before);

  LensDistortion itself;
  distortion_copy_table(itself, itself);
  EXPECT_EQ(itself.table_size, 4589);
  const double* const entries = itself.table->data();
  distortion_copy_table(itself, itself);
  EXPECT_EQ(itself.table->data(), entries);
}

TEST(EyeModel, OtherKindsAreRefused) {
  EyeModel eye;
  double a = 0, b = 0, c = 0;
  EXPECT_EQ(error_of([&] { eye_update_rotation(eye); }), "バージョンが不正");
  EXPECT_EQ(error_of([&] { eye_image_to_ray(eye, &a, &b, &c, 0, 0); }), "バージョンが不正");
  EXPECT_EQ(error_of([&] { eye_ray_to_image(eye, &a, &b, 0, 0, -1); }), "バージョンが不正");
}

RigState filled_state() {
  RigState state;
  state.current.left = bent_eye(1);
  state.current.right = bent_eye(1);
  state.current.right.lambda = -0.1;
  state.current.baseline = 0.06;
  state.current.sensor_pitch = 0.5;
  state.current.circle_radius = 8.0;
  state.current.input_width = 2048;
  state.current.input_height = 1024;
  state.reference = state.current;
  state.half_width = 1024;
  state.frame_width = 2048;
  state.frame_height = 1024;
  state.circle_radius_px = 16.0;
  return state;
}

const CalibResult kPose = {0.01, 0.02, 0.03, 4, 5, -0.01, -0.02, -0.03, -4, -5, 0.5, 0.6, 0.7, 0.8};

TEST(RigState, PosesAreRelativeToTheReference) {
  RigState state = filled_state();
  rig_apply_pose(state, CalibResult{9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9});
  rig_apply_pose(state, kPose);
  const EyeModel& right = state.current.right;
  const EyeModel& left = state.current.left;
  EXPECT_DOUBLE_EQ(right.lambda, -0.1 + 0.01);
  EXPECT_DOUBLE_EQ(right.psi, -0.03 + 0.02);
  EXPECT_DOUBLE_EQ(right.roll, 0.05 + 0.03);
  EXPECT_DOUBLE_EQ(right.offset_x, 3.25 + 4);
  EXPECT_DOUBLE_EQ(right.offset_y, -2.5 + 5);
  EXPECT_DOUBLE_EQ(left.lambda, 0.02 - 0.01);
  EXPECT_DOUBLE_EQ(left.psi, -0.03 - 0.02);
  EXPECT_DOUBLE_EQ(left.roll, 0.05 - 0.03);
  EXPECT_DOUBLE_EQ(left.offset_x, 3.25 - 4);
  EXPECT_DOUBLE_EQ(left.offset_y, -2.5 - 5);
  EXPECT_DOUBLE_EQ(left.position[0], -0.03);
  EXPECT_DOUBLE_EQ(right.position[0], 0.03);
  EXPECT_EQ(std::memcmp(&state.pose, &kPose, sizeof kPose), 0);

  EyeModel expected = right;
  eye_update_rotation(expected);
  EXPECT_EQ(right.rotation, expected.rotation);
  EXPECT_EQ(right.rotation_t, expected.rotation_t);
}

TEST(RigState, ACopyStartsAnewFromTheCurrentModel) {
  RigState state = filled_state();
  rig_apply_pose(state, kPose);
  RigState assigned;
  assigned = state;
  for (const RigState& copy : {RigState(state), assigned}) {
    EXPECT_EQ(copy.current.right.lambda, state.current.right.lambda);
    EXPECT_EQ(copy.reference.right.lambda, state.current.right.lambda);
    EXPECT_EQ(copy.reference.left.offset_y, state.current.left.offset_y);
    EXPECT_EQ(*copy.reference.left.distortion.table, *state.current.left.distortion.table);
    EXPECT_EQ(copy.reference.baseline, 0.0);
    EXPECT_EQ(copy.reference.input_width, 0);
    EXPECT_EQ(copy.current.baseline, 0.06);
    EXPECT_EQ(copy.pose.right_pan, 0.0);
    EXPECT_EQ(copy.pose.left_offset_y, 0.0);
    EXPECT_EQ(copy.pose.score, -1.0);
    EXPECT_EQ(copy.pose.error16, -1.0);
    EXPECT_EQ(copy.half_width, 1024);
    EXPECT_EQ(copy.frame_width, 2048);
    EXPECT_EQ(copy.frame_height, 1024);
    EXPECT_EQ(copy.circle_radius_px, 16.0);
  }
}

TEST(RigState, UsableOnlyWithFiniteNumbersAndAFrame) {
  EXPECT_FALSE(rig_is_usable(RigState()));
  RigState good = filled_state();
  EXPECT_TRUE(rig_is_usable(good));
  const auto refused = [&](auto&& spoil) {
    RigState state = filled_state();
    spoil(state);
    return !rig_is_usable(state);
  };
  EXPECT_TRUE(refused([](RigState& s) { s.frame_width = 0; }));
  EXPECT_TRUE(refused([](RigState& s) { s.frame_height = 65537; }));
  EXPECT_TRUE(refused([](RigState& s) { s.current.input_width = 65537; }));
  EXPECT_TRUE(refused([](RigState& s) { s.current.left.scale = 0.0; }));
  EXPECT_TRUE(refused([](RigState& s) { s.current.right.distortion.kind = 3; }));
  EXPECT_TRUE(refused([](RigState& s) { s.current.right.distortion.coeff[3] = std::nan(""); }));
  EXPECT_TRUE(refused([](RigState& s) { s.current.left.position[0] = HUGE_VAL; }));
  EXPECT_TRUE(refused([](RigState& s) { s.current.left.offset_y = std::nan(""); }));
  EXPECT_TRUE(refused([](RigState& s) { s.circle_radius_px = HUGE_VAL; }));
}

}  // namespace
}  // namespace twintrue
