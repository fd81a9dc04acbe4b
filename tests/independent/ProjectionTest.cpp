// The projection of an eye against OpenCV's fisheye model, which is equidistant with a distortion in even
// powers of the angle. OpenCV's camera looks along +z with y downward.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <opencv2/calib3d.hpp>
#include <random>
#include <vector>

#include "lens/RigModel.h"

namespace twintrue {
namespace {

// An arc cosine near its ends is good to about 1.5e-8, times some hundred pixels.
constexpr double kPixelTolerance = 2e-5;

cv::Matx33d about(double x, double y, double z) {
  cv::Matx33d rotation;
  cv::Rodrigues(cv::Vec3d(x, y, z), rotation);
  return rotation;
}

struct Camera {
  cv::Vec3d rotation;
  cv::Vec3d translation;
  cv::Matx33d intrinsic;
  cv::Vec4d distortion;
};

// The camera that an eye without shear is. Only format 2, and of its coefficients the even ones, have a
// counterpart there.
Camera camera_of(const EyeModel& eye) {
  const cv::Matx33d pan = about(0, eye.lambda, 0);
  const cv::Matx33d tilt = about(eye.psi, 0, 0);
  const cv::Matx33d roll = about(0, 0, eye.roll);
  const cv::Matx33d eye_from_rig = eye.distortion.kind == 1 ? pan * tilt * roll : roll * tilt * pan;
  const cv::Matx33d camera_from_eye(1, 0, 0, 0, -1, 0, 0, 0, -1);
  Camera camera;
  cv::Rodrigues(camera_from_eye * eye_from_rig, camera.rotation);
  camera.translation = camera_from_eye * cv::Vec3d(-eye.translate[0], -eye.translate[1], -eye.translate[2]);
  const double per_radian = eye.scale / (CV_PI / 2);
  camera.intrinsic = cv::Matx33d(per_radian * eye.magnify_v, 0, eye.center_x + eye.offset_x, 0,
                                 per_radian * eye.magnify_h, eye.center_y - eye.offset_y, 0, 0, 1);
  for (int i = 0; i < 3; ++i) {
    const auto power = static_cast<std::size_t>(2 * i + 1);
    camera.distortion[i] = 0.01 * eye.distortion.coeff[power] / std::pow(CV_PI / 2, 2 * (i + 1));
  }
  return camera;
}

std::vector<cv::Point2d> project(const Camera& camera, const std::vector<cv::Point3d>& points) {
  std::vector<cv::Point2d> pixels;
  cv::fisheye::projectPoints(points, pixels, camera.rotation, camera.translation, camera.intrinsic,
                             camera.distortion);
  return pixels;
}

// An eye turned and moved at random. The left eye's columns are those of the right half.
EyeModel random_eye(std::mt19937_64& engine, std::uint32_t kind, bool distorted) {
  std::uniform_real_distribution<double> spread(-1.0, 1.0);
  EyeModel eye;
  eye.distortion.kind = kind;
  if (distorted) eye.distortion.coeff = {0, 3 * spread(engine), 0, 2 * spread(engine), 0, spread(engine)};
  distortion_build_table(eye.distortion);
  eye.lambda = 0.3 * spread(engine);
  eye.psi = 0.3 * spread(engine);
  eye.roll = 0.6 * spread(engine);
  eye.scale = 500 + 50 * spread(engine);
  eye.center_x = 1536 + 9 * spread(engine);
  eye.center_y = 512 + 9 * spread(engine);
  eye.offset_x = 20 * spread(engine);
  eye.offset_y = 20 * spread(engine);
  eye.magnify_v = 1 + 0.1 * spread(engine);
  eye.magnify_h = 1 + 0.1 * spread(engine);
  eye.valid_x_begin = 1024;
  eye.valid_x_end = 2048;
  eye_update_rotation(eye);
  return eye;
}

// Random points before the eye, 1 to 80 degrees off its axis, in the rig's axes.
std::vector<cv::Point3d> points_before(const EyeModel& eye, std::mt19937_64& engine) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<cv::Point3d> points;
  for (int i = 0; i < 200; ++i) {
    const double theta = (1 + 79 * unit(engine)) * CV_PI / 180;
    const double phi = 2 * CV_PI * unit(engine);
    const double length = 0.2 + 5 * unit(engine);
    const cv::Vec3d in_eye(length * std::sin(theta) * std::cos(phi) + eye.translate[0],
                           length * std::sin(theta) * std::sin(phi) + eye.translate[1],
                           -length * std::cos(theta) + eye.translate[2]);
    points.emplace_back(cv::Matx33d(eye.rotation_t.data()) * in_eye);
  }
  return points;
}

struct Variant {
  std::uint32_t kind;
  bool distorted;
  bool translated;
};

class Projection : public testing::TestWithParam<Variant> {};
INSTANTIATE_TEST_SUITE_P(Variants, Projection,
                         testing::Values(Variant{1, false, false}, Variant{2, false, false},
                                         Variant{1, false, true}, Variant{2, true, false},
                                         Variant{2, true, true}));

TEST_P(Projection, RaysMeetTheSamePixels) {
  std::mt19937_64 engine(11);
  int inside = 0;
  for (int trial = 0; trial < 20; ++trial) {
    EyeModel eye = random_eye(engine, GetParam().kind, GetParam().distorted);
    if (GetParam().translated) eye.translate = {0.02, -0.03, 0.05};
    const auto points = points_before(eye, engine);
    const auto pixels = project(camera_of(eye), points);
    for (std::size_t i = 0; i < points.size(); ++i) {
      double px = 0, py = 0;
      const bool seen = eye_ray_to_image(eye, &px, &py, points[i].x, points[i].y, points[i].z);
      ASSERT_NEAR(px, pixels[i].x, kPixelTolerance);
      ASSERT_NEAR(py, pixels[i].y, kPixelTolerance);
      ASSERT_EQ(seen, px >= 1024 && px < 2048);
      inside += seen ? 1 : 0;
    }
  }
  EXPECT_GT(inside, 3000);
}

TEST_P(Projection, PixelsComeFromTheSameRays) {
  std::mt19937_64 engine(12);
  int rays = 0;
  for (int trial = 0; trial < 10; ++trial) {
    const EyeModel eye = random_eye(engine, GetParam().kind, GetParam().distorted);
    const Camera camera = camera_of(eye);
    std::vector<cv::Point3d> found;
    std::vector<cv::Point2d> pixels;
    for (double px = 1124; px < 1950; px += 41) {
      for (double py = 100; py < 930; py += 41) {
        // OpenCV sees what lies before its camera only.
        if (std::hypot(px - 1536, py - 512) > 380) continue;
        cv::Point3d ray;
        ASSERT_TRUE(eye_image_to_ray(eye, &ray.x, &ray.y, &ray.z, px, py));
        ASSERT_NEAR(cv::norm(ray), 1.0, 1e-12);
        found.push_back(ray);
        pixels.emplace_back(px, py);
      }
    }
    const auto back = project(camera, found);
    for (std::size_t i = 0; i < found.size(); ++i) {
      ASSERT_NEAR(back[i].x, pixels[i].x, kPixelTolerance);
      ASSERT_NEAR(back[i].y, pixels[i].y, kPixelTolerance);
      ++rays;
    }
  }
  EXPECT_GT(rays, 2000);
}

}  // namespace
}  // namespace twintrue
