#include "Scene.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>

#include "apps/TwinTrue/RunDriver.h"

namespace twintrue::false_success {
namespace {

using Vec3 = std::array<double, 3>;

const EyeModel& eye_at(const RigState& rig, int x) {
  return x < rig.half_width ? rig.current.right : rig.current.left;
}

// Brightness of a wall, 0 to 1: noise of grains from 30 cm down to `finest` a metre.
double paint(double u, double v, std::size_t wall, double finest = 200.0) {
  double sum = 0.0;
  double weight = 0.5;
  for (double grains = 3.0; grains < finest; grains *= 2.0, weight *= 0.8) {
    const double iu = std::floor(u * grains);
    const double iv = std::floor(v * grains);
    const double a = u * grains - iu;
    const double b = v * grains - iv;
    const auto corner = [&](int du, int dv) {
      auto h = static_cast<std::uint64_t>(static_cast<std::int64_t>(iu) + du) * 0x9E3779B97F4A7C15u;
      h ^= static_cast<std::uint64_t>(static_cast<std::int64_t>(iv) + dv) * 0xC2B2AE3D27D4EB4Fu;
      h ^= (wall + 1) * 0x165667B19E3779F9u;
      h = (h ^ (h >> 29)) * 0xBF58476D1CE4E5B9u;
      return static_cast<double>((h ^ (h >> 32)) & 1023) / 1023.0 - 0.5;
    };
    sum += weight * ((1 - a) * ((1 - b) * corner(0, 0) + b * corner(0, 1)) +
                     a * ((1 - b) * corner(1, 0) + b * corner(1, 1)));
  }
  return 0.5 + 0.6 * sum;
}

constexpr std::size_t kWalls = 8;  // of one paint
std::size_t surface(int paint_of, std::size_t wall) {
  return kWalls * static_cast<std::size_t>(paint_of) + wall;
}

// Paint on a plane seen from that far: no grain finer than a pixel or two.
double paint_at(double u, double v, double distance, std::size_t of) {
  constexpr double kGrainsARadian = 150.0;
  return paint(u, v, of, kGrainsARadian / distance);
}

template <typename ColourOf>
Picture fill(const RigState& rig, const ColourOf& colour_of) {
  Picture picture(rig.frame_width, rig.frame_height);
#pragma omp parallel for schedule(dynamic, 16)
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) picture.at(x, y) = colour_of(x, y);
  }
  return picture;
}

bool ray_at(const EyeModel& eye, double x, double y, Vec3& ray) {
  return eye_image_to_ray(eye, &ray[0], &ray[1], &ray[2], x, y);
}

}  // namespace

RigState rig_of(const std::string& lens_text) {
  const std::string path = temporary_path(".lens");
  std::ofstream(path) << lens_text;
  RigState rig;
  const bool read = read_lens(rig, path);
  std::filesystem::remove(path);
  if (!read) throw std::runtime_error("the lens text describes no lens");
  return rig;
}

Picture render(const RigState& rig, const Look& look) {
  return fill(rig, [&](int x, int y) {
    const EyeModel& eye = eye_at(rig, x);
    double sum = 0.0;
    for (const double dy : {-0.25, 0.25}) {
      for (const double dx : {-0.25, 0.25}) {
        Vec3 ray{};
        if (ray_at(eye, x + dx, y + dy, ray)) sum += look(eye.position, ray);
      }
    }
    const auto value = static_cast<float>(sum / 4.0);
    return Colour{value, value, value};
  });
}

Look room(const RoomLook& look) {
  return [look](const Vec3& from, const Vec3& ray) {
    double nearest = std::numeric_limits<double>::infinity();
    std::size_t wall = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (ray[axis] == 0.0) continue;
      const double t = ((ray[axis] > 0 ? look.half[axis] : -look.half[axis]) - from[axis]) / ray[axis];
      if (t >= nearest) continue;
      nearest = t;
      wall = 2 * axis + (ray[axis] > 0 ? 1 : 0);
    }
    constexpr double kUsualDepth = 1.6;
    const double size = look.half[2] / kUsualDepth;  // walls farther off have coarser grains
    const auto place = [&](std::size_t axis) {
      const double at = (from[axis] + nearest * ray[axis]) / size + 10.0;
      return look.period > 0.0 ? std::fmod(at, look.period) : at;
    };
    const double shade =
        paint(place((wall / 2 + 1) % 3), place((wall / 2 + 2) % 3), surface(look.paint, wall), look.finest);
    return 255.0 * (0.5 + look.contrast * (shade - 0.5));
  };
}

Look wall(double distance, int paint_of) {
  return [=](const Vec3& from, const Vec3& ray) {
    constexpr double kNothing = 110.0;
    if (ray[2] >= -0.05) return kNothing;
    const double t = (-distance - from[2]) / ray[2];
    return 255.0 *
           paint_at(from[0] + t * ray[0] + 50.0, from[1] + t * ray[1] + 50.0, t, surface(paint_of, 0));
  };
}

Look outdoors(int paint_of) {
  return [=](const Vec3& from, const Vec3& ray) {
    constexpr double kEyeHeight = 1.5;
    constexpr double kHorizonDistance = 40.0;
    constexpr double kHighest = 6.0;
    constexpr double kSky = 215.0;
    const double across = std::hypot(ray[0], ray[2]);
    const double t_ground = ray[1] < 0.0 ? -(kEyeHeight + from[1]) / ray[1] : 1e9;
    if (t_ground * across < kHorizonDistance) {
      return 255.0 * paint_at(from[0] + t_ground * ray[0] + 500.0, from[2] + t_ground * ray[2] + 500.0,
                              t_ground, surface(paint_of, 1));
    }
    const double height = kHorizonDistance * ray[1] / across;
    const double along = kHorizonDistance * std::atan2(ray[0], -ray[2]);
    const double top = kHighest * paint(0.05 * along + 100.0, 0.5, surface(paint_of, 2), 24.0);
    if (height > top) return kSky;
    return 200.0 * paint(0.1 * along + 100.0, 0.1 * height + 100.0, surface(paint_of, 3), 24.0);
  };
}

Picture far_scene(const Picture& picture, const RigState& taken, const RigState& rig) {
  return fill(rig, [&](int x, int y) {
    Vec3 ray{};
    double px = 0.0, py = 0.0;
    if (!ray_at(eye_at(rig, x), x, y, ray) ||
        !eye_ray_to_image(taken.current.right, &px, &py, ray[0], ray[1], ray[2])) {
      return Colour{};
    }
    return sample(picture, px, py, 0, taken.half_width);
  });
}

Picture turned(const Picture& picture, const RigState& taken, const RigState& rig) {
  return fill(rig, [&](int x, int y) {
    Vec3 ray{};
    double px = 0.0, py = 0.0;
    if (!ray_at(eye_at(rig, x), x, y, ray) ||
        !eye_ray_to_image(eye_at(taken, x), &px, &py, ray[0], ray[1], ray[2])) {
      return Colour{};
    }
    return x < rig.half_width ? sample(picture, px, py, 0, rig.half_width)
                              : sample(picture, px, py, rig.half_width, picture.width);
  });
}

}  // namespace twintrue::false_success
