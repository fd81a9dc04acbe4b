#include "render/View.h"

#include <algorithm>
#include <cmath>

namespace twintrue::render {
namespace {

constexpr double kPi = 3.141592653589793;

// Off the middle of the picture, pixels to the right and upward.
struct Offset {
  double right, up;
};

Offset offset_of(const View& view, double x, double y) {
  return {x + 0.5 - 0.5 * view.width, 0.5 * view.height - (y + 0.5)};
}

double circle_radius(const View& view) { return 0.5 * std::min(view.width, view.height); }

std::array<double, 3> turned(const View& view, const std::array<double, 3>& ray) {
  const double cos_tilt = std::cos(view.tilt), sin_tilt = std::sin(view.tilt);
  const double y = ray[1] * cos_tilt - ray[2] * sin_tilt;
  const double z = ray[1] * sin_tilt + ray[2] * cos_tilt;
  const double cos_pan = std::cos(view.pan), sin_pan = std::sin(view.pan);
  return {ray[0] * cos_pan - z * sin_pan, y, ray[0] * sin_pan + z * cos_pan};
}

}  // namespace

bool is_possible(const View& view) {
  if (view.width < 1 || view.height < 1 || !std::isfinite(view.pan) || !std::isfinite(view.tilt))
    return false;
  if (view.projection == Projection::kHalfEquirect) return true;
  const double largest =
      view.projection == Projection::kRectilinear ? kLargestRectilinearFov : kLargestFisheyeFov;
  return view.fov >= kSmallestFov && view.fov <= largest;
}

bool view_ray(const View& view, double x, double y, std::array<double, 3>& ray) {
  const Offset offset = offset_of(view, x, y);
  bool shown = true;
  if (view.projection == Projection::kHalfEquirect) {
    const double longitude = offset.right / view.width * kPi;
    const double latitude = offset.up / view.height * kPi;
    const double level = std::cos(latitude);
    ray = {level * std::sin(longitude), std::sin(latitude), -level * std::cos(longitude)};
  } else if (view.projection == Projection::kRectilinear) {
    const double focal = 0.5 * view.width / std::tan(0.5 * view.fov);
    const double length = std::hypot(offset.right, offset.up, focal);
    ray = {offset.right / length, offset.up / length, -focal / length};
  } else {
    const double radius = std::hypot(offset.right, offset.up);
    const double theta = 0.5 * view.fov * radius / circle_radius(view);
    const double across = radius > 0.0 ? std::sin(theta) / radius : 0.0;
    ray = {offset.right * across, offset.up * across, -std::cos(theta)};
    shown = radius <= circle_radius(view);
  }
  if (view.pan != 0.0 || view.tilt != 0.0) ray = turned(view, ray);
  return shown;
}

double view_density(const View& view) {
  switch (view.projection) {
    case Projection::kHalfEquirect:
      return std::max(view.width, view.height) / kPi;
    case Projection::kRectilinear:
      return view.width / view.fov;
    default:
      return 2.0 * circle_radius(view) / view.fov;
  }
}

}  // namespace twintrue::render
