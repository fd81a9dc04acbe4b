#pragma once

// A room seen through a dual fisheye, by the plain model of the lens, which shares no code with the library.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "support/PlainLens.h"
#include "twintrue/calib.h"

namespace testing_support::room {

namespace accuracy = twintrue::accuracy;

inline constexpr double kHalfPi = 1.57079632679489661923;
inline constexpr double kDegree = kHalfPi / 90.0;
inline constexpr std::uint32_t kWidth = 1024;
inline constexpr std::uint32_t kHeight = 512;
inline constexpr double kScale = 248.5;  // pixels for 90 degrees
inline constexpr double kCentre = 262.5;
inline constexpr double kBaseline = 0.06;

inline const std::string kSettings = TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml";

inline std::string lens_text() {
  return "[OPTRA]\nformat_version = \"1.0\";\ninput_width = 1024; input_height = 512;\n"
         "output_width = 1024; output_height = 512; separate_x = 512;\nbaseline = 0.06;\n"
         "sensor_pitch = 0.01; inter_image_circle_distance = 5.25; image_circle_radius = 2.485;\n"
         "left_eye_magnify_v = 1.0; left_eye_magnify_h = 1.0;\n"
         "right_eye_magnify_v = 1.0; right_eye_magnify_h = 1.0;\n";
}

// Brightness of a wall at a place given in metres: noise of several grain sizes.
inline double texture(double u, double v, int wall) {
  double sum = 0.0;
  double weight = 0.5;
  for (double cells = 3.0; cells < 60.0; cells *= 2.0, weight *= 0.75) {
    const double fu = u * cells, fv = v * cells;
    const double iu = std::floor(fu), iv = std::floor(fv);
    const auto corner = [&](double du, double dv) {
      auto h = static_cast<std::uint32_t>(static_cast<std::int64_t>(iu + du) * 73856093 ^
                                          static_cast<std::int64_t>(iv + dv) * 19349663 ^ wall * 83492791);
      h = (h ^ (h >> 13)) * 1274126177u;
      return static_cast<double>((h ^ (h >> 16)) & 1023) / 1023.0;
    };
    const double a = fu - iu, b = fv - iv;
    sum += weight * ((1 - a) * (1 - b) * corner(0, 0) + a * (1 - b) * corner(1, 0) +
                     (1 - a) * b * corner(0, 1) + a * b * corner(1, 1));
  }
  return sum / 2.0;
}

// What stands in that direction in a room of 2.4 x 2 x 3 m round the rig.
inline double look(const double from[3], const double d[3]) {
  constexpr double kHalfRoom[3] = {1.2, 1.0, 1.5};
  double nearest = 1e9;
  int wall = 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (d[axis] == 0.0) continue;
    const double t = ((d[axis] > 0 ? kHalfRoom[axis] : -kHalfRoom[axis]) - from[axis]) / d[axis];
    if (t < nearest) {
      nearest = t;
      wall = 2 * axis + (d[axis] > 0 ? 1 : 0);
    }
  }
  const int axis = wall / 2;
  const auto at = [&](int i) { return from[i] + nearest * d[i]; };
  return texture(at((axis + 1) % 3) + 7.0, at((axis + 2) % 3) + 7.0, wall);
}

struct EyeError {
  double pan, tilt, roll;  // radians
};

// The frame that a rig with those errors takes of the room.
inline std::vector<std::uint8_t> take_frame(const EyeError& right, const EyeError& left) {
  accuracy::PlainLens lens;
  lens.width = kWidth;
  lens.height = kHeight;
  lens.scale = kScale;
  lens.centre_x = {kWidth / 2.0 - kCentre, kWidth / 2.0 + kCentre};
  lens.centre_y = {kHeight / 2.0, kHeight / 2.0};
  lens.limit = 1.02;
  const std::array<double, accuracy::kEyeValues> eyes[] = {{right.pan, right.tilt, right.roll},
                                                           {left.pan, left.tilt, left.roll}};
  std::vector<std::uint8_t> bytes(std::size_t{3} * kWidth * kHeight);
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const auto side = x >= kWidth / 2 ? accuracy::kLeft : accuracy::kRight;
      const double from[3] = {side == accuracy::kLeft ? -kBaseline / 2 : kBaseline / 2, 0, 0};
      double sum = 0.0;
      int hits = 0;
      for (int sample = 0; sample < 4; ++sample) {
        std::array<double, 3> ray{};
        if (!accuracy::pixel_to_ray(lens, side, eyes[side].data(), x + 0.25 * (2 * (sample % 2) - 1),
                                    y + 0.25 * (2 * (sample / 2) - 1), ray)) {
          continue;
        }
        sum += look(from, ray.data());
        ++hits;
      }
      const double value = hits == 0 ? 0.0 : 30 + 220 * sum / hits;
      for (int i = 0; i < 3; ++i)
        bytes[3 * (std::size_t{y} * kWidth + x) + static_cast<std::size_t>(i)] =
            static_cast<std::uint8_t>(std::min(value, 255.0));
    }
  }
  return bytes;
}

inline CalibImage image_over(const std::vector<std::uint8_t>& bytes) {
  return {kWidth, kHeight, 3 * static_cast<std::int32_t>(kWidth), bytes.data(), 0};
}

}  // namespace testing_support::room
