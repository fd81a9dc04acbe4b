// First lens files, read back as every run reads them, against the formulas that the lenses were described
// by.

#include "lens/FirstLens.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace twintrue {
namespace {

using Fault = FirstLensError::Fault;

constexpr double kDegree = std::numbers::pi / 180.0;
// What ten digits behind the point and an arc cosine near its end leave.
constexpr double kExactPx = 1e-4;
constexpr double kBackPx = 0.01;

RigState read_back(const std::string& text) {
  const testing_support::TempDir dir;
  RigState rig;
  EXPECT_EQ(load_lens_description(rig, dir.write("first.lens", text), kLensSection), 1);
  EXPECT_TRUE(rig_is_usable(rig));
  return rig;
}

struct Point {
  double x;
  double y;
};

// Where a camera that looks along +z, y downward, has a point, by the formulas of the text books.
Point camera_pixel(const FirstEye& eye, double theta, double phi) {
  const std::array<double, 4>& k = eye.curve.k;
  double radius = 0.0;
  switch (eye.curve.kind) {
    case FisheyeKind::kEquidistant:
      radius = theta;
      break;
    case FisheyeKind::kEquisolid:
      radius = 2 * std::sin(theta / 2);
      break;
    case FisheyeKind::kStereographic:
      radius = 2 * std::tan(theta / 2);
      break;
    case FisheyeKind::kOrthographic:
      radius = std::sin(theta);
      break;
    case FisheyeKind::kPolynomial:
      radius = theta + k[0] * std::pow(theta, 3) + k[1] * std::pow(theta, 5) + k[2] * std::pow(theta, 7) +
               k[3] * std::pow(theta, 9);
      break;
  }
  return {eye.center_x + eye.focal_x * radius * std::cos(phi),
          eye.center_y + eye.focal_y * radius * std::sin(phi)};
}

// The same point in the rig's axes: rolled clockwise, tilted down, panned to the right.
std::array<double, 3> rig_ray(const FirstEye& eye, double theta, double phi) {
  double x = std::sin(theta) * std::cos(phi);
  double y = std::sin(theta) * std::sin(phi);
  double z = std::cos(theta);
  const auto turn = [](double& from, double& to, double angle) {
    const double turned = std::cos(angle) * from - std::sin(angle) * to;
    to = std::sin(angle) * from + std::cos(angle) * to;
    from = turned;
  };
  turn(x, y, eye.roll);
  turn(z, y, eye.tilt);
  turn(z, x, eye.pan);
  return {x, -y, -z};
}

void expect_agreement(const EyeModel& model, const FirstEye& eye, double fov_degrees, double within_px) {
  const double limit = 0.5 * fov_degrees * (1 - 1e-3);
  for (int i = 0; i <= 57; ++i) {
    for (double phi = 0.1; phi < 6.3; phi += 0.5) {
      const double theta = limit * i / 57 * kDegree;
      const std::array<double, 3> ray = rig_ray(eye, theta, phi);
      const Point wanted = camera_pixel(eye, theta, phi);
      double px = NAN;
      double py = NAN;
      eye_ray_to_image(model, &px, &py, ray[0], ray[1], ray[2]);
      ASSERT_LE(std::hypot(px - wanted.x, py - wanted.y), within_px + kExactPx) << theta / kDegree;
      std::array<double, 3> back{};
      ASSERT_TRUE(eye_image_to_ray(model, &back[0], &back[1], &back[2], px, py)) << theta / kDegree;
      double back_x = NAN;
      double back_y = NAN;
      eye_ray_to_image(model, &back_x, &back_y, back[0], back[1], back[2]);
      ASSERT_LE(std::hypot(px - back_x, py - back_y), kBackPx) << theta / kDegree;
    }
  }
}

FirstLensInput plain_input() {
  FirstLensInput input;
  input.frame_width = 4096;
  input.frame_height = 2048;
  input.fov_degrees = 180.0;
  input.baseline = 0.064;  // not what readers take without one
  input.left = {3071.5, 1023.5, 560.0, 560.0, {}, 0.0, 0.0, 0.0};
  input.right = {1023.5, 1023.5, 560.0, 560.0, {}, 0.0, 0.0, 0.0};
  return input;
}

FirstLensInput with_curves(const FisheyeCurve& left, const FisheyeCurve& right, double fov_degrees) {
  FirstLensInput input = plain_input();
  input.fov_degrees = fov_degrees;
  input.left.curve = left;
  input.right.curve = right;
  return input;
}

FirstLensInput turned_and_unequal() {
  FirstLensInput input = plain_input();
  const FisheyeCurve measured{FisheyeKind::kPolynomial, {0.021, -0.004, 0.0007, 0.0}};
  input.left = {3080.25, 1015.5, 561.0, 562.5, measured, 0.02, -0.03, 0.1};
  input.right = {1011.0, 1030.75, 558.0, 557.0, measured, -0.3, 0.2, -0.25};
  return input;
}

TEST(FirstLens, FollowsTheCurveThatItWasMadeOf) {
  struct Case {
    const char* name;
    FirstLensInput input;
    double worst_px[2];  // that is tolerated in format 1 and 2
  };
  const FisheyeCurve equisolid{FisheyeKind::kEquisolid, {}};
  const FisheyeCurve stereographic{FisheyeKind::kStereographic, {}};
  const FisheyeCurve measured{FisheyeKind::kPolynomial, {0.021, -0.004, 0.0007, -0.0001}};
  const FisheyeCurve other{FisheyeKind::kPolynomial, {0.022, -0.0042, 0.0006, -0.0001}};
  const Case cases[] = {
      {"equidistant", plain_input(), {kExactPx, kExactPx}},
      {"equidistant, 190", with_curves({}, {}, 190), {kExactPx, kExactPx}},
      {"equisolid", with_curves(equisolid, equisolid, 190), {1e-3, 1e-3}},
      {"stereographic", with_curves(stereographic, stereographic, 190), {1e-3, 0.02}},
      {"orthographic",
       with_curves({FisheyeKind::kOrthographic, {}}, {FisheyeKind::kOrthographic, {}}, 165),
       {-1, 1e-3}},
      {"measured", with_curves(measured, measured, 180), {0.01, 0.01}},
      {"an exact polynomial, eyes unequal and turned", turned_and_unequal(), {0.4, kExactPx}},
      {"each eye its own curve", with_curves(measured, other, 160), {0.3, 0.3}},
  };
  for (const Case& one : cases) {
    for (const int format : {1, 2}) {
      SCOPED_TRACE(std::string(one.name) + ", format " + std::to_string(format));
      const double tolerated = one.worst_px[format - 1];
      if (tolerated < 0) continue;  // turns back below the 190 degrees that format 1 always has
      FirstLensInput input = one.input;
      input.format = format == 1 ? LensFormat::k1 : LensFormat::k2;
      const FirstLens lens = make_first_lens(input);
      EXPECT_LE(lens.left.worst_px, tolerated);
      EXPECT_LE(lens.right.worst_px, tolerated);
      EXPECT_LE(lens.left.rms_px, lens.left.worst_px);
      const RigState rig = read_back(lens.text);
      // The test's angles lie between those of the fit.
      expect_agreement(rig.current.left, input.left, input.fov_degrees, 1.1 * lens.left.worst_px);
      expect_agreement(rig.current.right, input.right, input.fov_degrees, 1.1 * lens.right.worst_px);
      EXPECT_EQ(rig.current.left.distortion.kind, static_cast<std::uint32_t>(format));
      EXPECT_EQ(rig.frame_width, input.frame_width);
      EXPECT_EQ(rig.frame_height, input.frame_height);
      EXPECT_NEAR(rig.current.baseline, input.baseline, 1e-10);
      EXPECT_NEAR(rig.current.left.fov_degrees, format == 1 ? 190.0 : input.fov_degrees, 1e-9);
    }
  }
}

TEST(FirstLens, IsTheExampleWhenMadeOfItsNumbers) {
  RigState example;
  ASSERT_EQ(load_lens_description(example, TWINTRUE_SOURCE_DIR "/examples/nominal.lens", kLensSection), 1);
  FirstLensInput input;
  input.frame_width = 2048;
  input.frame_height = 1024;
  input.fov_degrees = 190.0;
  const double pitch = 0.0176;
  const double diameter = 2 * 8.75 / pitch * 190 / 180;  // 8.75 mm at 90 degrees
  const double focal = focal_of_circle({}, diameter, 190.0);
  input.left = {1024 + 9.25 / pitch, 512, focal, focal, {}, 0, 0, 0};
  input.right = {1024 - 9.25 / pitch, 512, focal, focal, {}, 0, 0, 0};
  for (const LensFormat format : {LensFormat::k1, LensFormat::k2}) {
    input.format = format;
    const RigState made = read_back(make_first_lens(input).text);
    for (const auto eye : {&RigModel::left, &RigModel::right}) {
      for (double px = 100; px < 2048; px += 97) {
        for (double py = 40; py < 1024; py += 89) {
          double ray[3], x = NAN, y = NAN;
          if (!eye_image_to_ray(example.current.*eye, &ray[0], &ray[1], &ray[2], px, py)) continue;
          eye_ray_to_image(made.current.*eye, &x, &y, ray[0], ray[1], ray[2]);
          ASSERT_NEAR(x, px, 0.01);
          ASSERT_NEAR(y, py, 0.01);
        }
      }
    }
  }
}

// A wide stereographic field ends beyond the table that readers build unless the file asks for a larger one.
TEST(FirstLens, AsksForALargerTableWhereTheFieldNeedsIt) {
  const FisheyeCurve stereographic{FisheyeKind::kStereographic, {}};
  const FirstLensInput input = with_curves(stereographic, stereographic, 190);
  const FirstLens lens = make_first_lens(input);
  ASSERT_TRUE(lens.lut_max.has_value());
  EXPECT_THAT(lens.text, testing::HasSubstr("ideal_height_lut_max"));
  const auto back_error = [&](const std::string& text) {
    const RigState rig = read_back(text);
    const Point edge = camera_pixel(input.left, 94.5 * kDegree, 0.3);
    double ray[3], x = NAN, y = NAN;
    eye_image_to_ray(rig.current.left, &ray[0], &ray[1], &ray[2], edge.x, edge.y);
    eye_ray_to_image(rig.current.left, &x, &y, ray[0], ray[1], ray[2]);
    return std::hypot(x - edge.x, y - edge.y);
  };
  EXPECT_LE(back_error(lens.text), 2 * kBackPx);
  // No number, where the pixel has no ray at all.
  const std::string shorter = lens.text.substr(0, lens.text.find("ideal_height_lut_max"));
  EXPECT_FALSE(back_error(shorter) <= 2 * kBackPx);
  EXPECT_FALSE(make_first_lens(plain_input()).lut_max.has_value());
}

TEST(FirstLens, TellsWhyThereIsNone) {
  struct Case {
    const char* name;
    std::function<void(FirstLensInput&)> spoil;
    Fault fault;
    EyeSide side;
    double limit;
  };
  const EyeSide left = EyeSide::kLeft;
  const EyeSide right = EyeSide::kRight;
  const Case cases[] = {
      {"odd width", [](FirstLensInput& i) { i.frame_width = 4095; }, Fault::kFrame, left, 0},
      {"no height", [](FirstLensInput& i) { i.frame_height = 0; }, Fault::kFrame, left, 0},
      {"huge", [](FirstLensInput& i) { i.frame_width = 65538; }, Fault::kFrame, left, 0},
      {"no pitch", [](FirstLensInput& i) { i.sensor_pitch = 0; }, Fault::kNumber, left, 0},
      {"endless baseline", [](FirstLensInput& i) { i.baseline = INFINITY; }, Fault::kNumber, left, 0},
      {"no focal length", [](FirstLensInput& i) { i.right.focal_y = 0; }, Fault::kNumber, right, 0},
      {"no number", [](FirstLensInput& i) { i.right.tilt = NAN; }, Fault::kNumber, right, 0},
      {"exchanged", [](FirstLensInput& i) { std::swap(i.left.center_x, i.right.center_x); }, Fault::kCentre,
       left, 0},
      {"above the frame", [](FirstLensInput& i) { i.right.center_y = -1; }, Fault::kCentre, right, 0},
      {"no field", [](FirstLensInput& i) { i.fov_degrees = 0; }, Fault::kField, left, 360},
      {"wide field", [](FirstLensInput& i) { i.fov_degrees = 361; }, Fault::kField, left, 360},
      {"wide field in format 1",
       [](FirstLensInput& i) {
         i.fov_degrees = 191;
         i.format = LensFormat::k1;
       },
       Fault::kField, left, 190},
      {"behind the orthographic edge",
       [](FirstLensInput& i) {
         i.right.curve.kind = FisheyeKind::kOrthographic;
         i.fov_degrees = 200;
       },
       Fault::kCurveTurnsBack, right, 90},
      // 1 - 0.6 theta^2 ends at 1.29 radians.
      {"turning polynomial",
       [](FirstLensInput& i) {
         i.left.curve = {FisheyeKind::kPolynomial, {-0.2, 0, 0, 0}};
       },
       Fault::kCurveTurnsBack, left, std::sqrt(1 / 0.6) / kDegree},
      {"pole of the tangent",
       [](FirstLensInput& i) {
         i.left.curve.kind = i.right.curve.kind = FisheyeKind::kStereographic;
         i.fov_degrees = 358;
       },
       Fault::kFit, left, 0},
      {"turning back beyond the field, where format 1 still looks",
       [](FirstLensInput& i) {
         i.left.curve.kind = i.right.curve.kind = FisheyeKind::kOrthographic;
         i.fov_degrees = 160;
         i.format = LensFormat::k1;
       },
       Fault::kFit, left, 0},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    FirstLensInput input = plain_input();
    one.spoil(input);
    try {
      make_first_lens(input);
      ADD_FAILURE() << "made";
    } catch (const FirstLensError& error) {
      EXPECT_EQ(error.fault(), one.fault);
      EXPECT_EQ(error.side(), one.side);
      EXPECT_NEAR(error.limit(), one.limit, 0.1);  // a two-thousandth of the field
    }
  }
}

}  // namespace
}  // namespace twintrue
