#include "refine/PairGeometry.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::kBaseline;
using testing_support::kDegree;
using testing_support::nominal_rig;
using testing_support::see;

CalibResult some_pose() {
  return {0.4 * kDegree,
          -0.3 * kDegree,
          0.5 * kDegree,
          1.5,
          -2.0,
          -0.2 * kDegree,
          0.6 * kDegree,
          -0.4 * kDegree,
          -0.7,
          0.9,
          -1,
          -1,
          -1,
          -1};
}

// Points 0.5 to 4.5 metres away within 60 degrees of the axis.
std::vector<testing_support::Point> points(int count) {
  std::mt19937 engine(3);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<testing_support::Point> all;
  for (int i = 0; i < count; ++i) {
    const double theta = 60.0 * kDegree * std::sqrt(unit(engine)), phi = 6.28 * unit(engine);
    const double distance = 0.5 + 4.0 * unit(engine);
    all.push_back({distance * std::sin(theta) * std::cos(phi), distance * std::sin(theta) * std::sin(phi),
                   -distance * std::cos(theta)});
  }
  return all;
}

std::array<double, 2> seen_by(bool left, const CalibResult& p, const testing_support::Point& at) {
  return left ? see(true, p.left_pan, p.left_tilt, p.left_roll, p.left_offset_x, p.left_offset_y, at)
              : see(false, p.right_pan, p.right_tilt, p.right_roll, p.right_offset_x, p.right_offset_y, at);
}

TEST(PairGeometry, TruePairsAreWithoutDisparityAcrossAndTellTheirDistance) {
  const CalibResult pose = some_pose();
  const PairGeometry geometry(nominal_rig(), pose);
  for (const auto& point : points(50)) {
    const auto r = seen_by(false, pose, point);
    const auto l = seen_by(true, pose, point);
    Vec3 right{}, left{};
    ASSERT_TRUE(geometry.right_in_rig(r[0], r[1], right) && geometry.left_in_rig(l[0], l[1], left));
    // The table that inverts the distortion is linear between its entries, hence not exact.
    EXPECT_NEAR(geometry.across_in_rig(left, right), 0.0, 1e-6);
    const double distance = std::hypot(point[0] - kBaseline / 2, point[1], point[2]);
    EXPECT_NEAR(geometry.inverse_distance(left, right), 1.0 / distance, 1e-6);
    Vec2 pixel{};
    ASSERT_TRUE(geometry.left_pixel(right, 1.0 / distance, pixel));
    EXPECT_NEAR(pixel[0], l[0], 1e-6);
    EXPECT_NEAR(pixel[1], l[1], 1e-6);
    // Farther along the baseline the right eye would see it there.
    const auto beside = seen_by(false, pose, {point[0] + 1e-4, point[1], point[2]});
    const double size = std::hypot(beside[0] - r[0], beside[1] - r[1]);
    const Vec2 along = geometry.right_along(right);
    EXPECT_NEAR(along[0], (beside[0] - r[0]) / size, 0.01);
    EXPECT_NEAR(along[1], (beside[1] - r[1]) / size, 0.01);
  }
}

TEST(PairGeometry, SlopesAreThoseOfTheDisparity) {
  const RigState rig = nominal_rig();
  const CalibResult pose = some_pose();
  const PairGeometry geometry(rig, pose);
  for (const auto& point : points(10)) {
    const auto r = seen_by(false, pose, point);
    auto l = seen_by(true, pose, point);
    l[1] += 3.0;  // off the plane, where all terms count
    PoseVector slopes{};
    geometry.across(geometry.left_ray(l[0], l[1]), geometry.right_ray(r[0], r[1]), slopes);
    for (std::size_t i = 0; i < kPoseValues; ++i) {
      const double step = is_offset(i) ? 0.1 : 1e-4;
      double difference = 0.0;
      for (const double side : {1.0, -1.0}) {
        CalibResult moved = pose;
        moved.*kPoseFields[i] += side * step;
        const PairGeometry other(rig, moved);
        Vec3 right{}, left{};
        ASSERT_TRUE(other.right_in_rig(r[0], r[1], right) && other.left_in_rig(l[0], l[1], left));
        difference += side * other.across_in_rig(left, right) / (2.0 * step);
      }
      EXPECT_NEAR(slopes[i], difference, 1e-4 * (is_offset(i) ? 1.0 : geometry.pixels_per_radian())) << i;
    }
  }
}

}  // namespace
}  // namespace twintrue
