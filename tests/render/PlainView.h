#pragma once

// A view worked out afresh, in doubles and pixel by pixel: its own projections, cubic and curve.

#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "lens/RigModel.h"
#include "render/View.h"

namespace render_test {

inline constexpr double kPi = 3.141592653589793;

struct Direction {
  double x, y, z;
};

inline std::optional<Direction> plain_ray(const twintrue::render::View& view, int column, int row) {
  using twintrue::render::Projection;
  // -1 to 1 from edge to edge, y upward.
  const double u = (2.0 * column + 1.0 - view.width) / view.width;
  const double v = (view.height - 1.0 - 2.0 * row) / view.height;
  Direction d{};
  if (view.projection == Projection::kHalfEquirect) {
    const double lon = u * kPi / 2, lat = v * kPi / 2;
    d = {std::sin(lon) * std::cos(lat), std::sin(lat), -std::cos(lon) * std::cos(lat)};
  } else if (view.projection == Projection::kRectilinear) {
    const double half = std::tan(view.fov / 2);
    d = {u * half, v * half * view.height / view.width, -1.0};
  } else {
    const double side = std::min(view.width, view.height);
    const double a = u * view.width / side, b = v * view.height / side;
    const double r = std::hypot(a, b);
    if (r > 1.0) return std::nullopt;
    const double theta = r * view.fov / 2, phi = std::atan2(b, a);
    d = {std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), -std::cos(theta)};
  }
  // Looking up is a turn about x, then looking right one about the vertical.
  d = {d.x, d.y * std::cos(view.tilt) - d.z * std::sin(view.tilt),
       d.y * std::sin(view.tilt) + d.z * std::cos(view.tilt)};
  return Direction{d.x * std::cos(view.pan) - d.z * std::sin(view.pan), d.y,
                   d.x * std::sin(view.pan) + d.z * std::cos(view.pan)};
}

inline std::optional<std::array<double, 2>> plain_project(const twintrue::EyeModel& eye, Direction d) {
  const auto& m = eye.rotation;
  const Direction r{m[0] * d.x + m[1] * d.y + m[2] * d.z, m[3] * d.x + m[4] * d.y + m[5] * d.z,
                    m[6] * d.x + m[7] * d.y + m[8] * d.z};
  const double t = std::atan2(std::hypot(r.x, r.y), -r.z) / (kPi / 2);
  if (t > eye.fov_degrees / 180) return std::nullopt;
  const double phi = std::atan2(r.y, r.x);
  const auto percent = [&](double s) {
    double sum = 0.0;
    for (int i = 0; i < 6; ++i) sum += eye.distortion.coeff[static_cast<std::size_t>(i)] * std::pow(s, i + 1);
    return sum / 100;
  };
  double p = t * std::cos(phi) * eye.magnify_v, w = t * std::sin(phi) * eye.magnify_h;
  const double f = eye.distortion.kind == 1 ? 1.0 / (1.0 - percent(std::hypot(p, w))) : 1.0 + percent(t);
  return std::array<double, 2>{eye.center_x + eye.offset_x + eye.scale * p * f,
                               eye.center_y - eye.offset_y - eye.scale * w * f};
}

inline double plain_light(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }
inline double plain_display(double v) {
  return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
}

// The cubic of Keys at a distance of t pixels.
inline double plain_keys(double t) {
  t = std::fabs(t);
  if (t < 1) return 1.5 * t * t * t - 2.5 * t * t + 1;
  return t < 2 ? -0.5 * t * t * t + 2.5 * t * t - 4 * t + 2 : 0.0;
}

// One channel in doubles. At a point whose 4 x 4 pixels are all there.
struct PlainPicture {
  int width, height;
  std::vector<double> values;

  double sample(double x, double y) const {
    double sum = 0.0;
    for (int j = static_cast<int>(std::floor(y)) - 1; j <= std::floor(y) + 2; ++j) {
      for (int i = static_cast<int>(std::floor(x)) - 1; i <= std::floor(x) + 2; ++i) {
        sum += plain_keys(x - i) * plain_keys(y - j) * values[static_cast<std::size_t>(j * width + i)];
      }
    }
    return sum;
  }
};

}  // namespace render_test
