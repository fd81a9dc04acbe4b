// How true sampling is when it interpolates display values, and when it interpolates light: patterns of light
// are taken by the pixels of a frame and, for comparison, by those of frames that are shifted by parts of a
// pixel. Prints the error of a sampled frame in grey levels of 255.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "render/EyePicture.h"
#include "render/SampleKernel.h"
#include "render/ToneCode.h"

namespace {

using twintrue::EyeModel;
using twintrue::render::EyePicture;
using twintrue::render::FramePixels;
using twintrue::render::Light;
using twintrue::render::SampleType;

constexpr int kSide = 160;
constexpr int kMargin = 4;

struct Pattern {
  const char* name;
  double (*light)(double x, double y);
};

double from_cell(double x, double y) {
  constexpr double kCell = 31.0;
  return std::hypot(std::fmod(x + 10 * kCell, kCell) - kCell / 2,
                    std::fmod(y + 10 * kCell, kCell) - kCell / 2);
}

const std::vector<Pattern> kPatterns{
    {"waves",
     [](double x, double y) {
       return 0.5 + 0.19 * (std::sin(0.35 * x + 0.21 * y) + std::sin(0.17 * x - 0.4 * y));
     }},
    {"stripes",
     [](double x, double y) { return std::fmod(x * 0.92 + y * 0.39 + 230.0, 23.0) < 9.0 ? 0.9 : 0.02; }},
    {"lights in the dark", [](double x, double y) { return from_cell(x, y) < 2.5 ? 1.0 : 0.03; }},
    {"dark dots", [](double x, double y) { return from_cell(x, y) < 2.5 ? 0.02 : 0.7; }},
};

// What a pixel takes: the mean of the light over `width` pixels around (x, y), as a display value.
double taken(const Pattern& pattern, double x, double y, double width) {
  constexpr int kParts = 8;
  double sum = 0.0;
  for (int i = 0; i < kParts * kParts; ++i) {
    sum += pattern.light(x + ((i % kParts + 0.5) / kParts - 0.5) * width,
                         y + ((i / kParts + 0.5) / kParts - 0.5) * width);
  }
  return twintrue::render::display_of_light(static_cast<float>(sum / (kParts * kParts)));
}

// An eye that sees all of the frame.
EyeModel open_eye() {
  EyeModel eye;
  eye.distortion.kind = 1;
  twintrue::distortion_build_table(eye.distortion);
  eye.view_width = eye.view_height = eye.valid_x_end = kSide;
  eye.scale = 2.0 * kSide;
  eye.center_x = eye.center_y = kSide / 2.0;
  twintrue::eye_update_rotation(eye);
  return eye;
}

double rms_error(const Pattern& pattern, double width, Light light) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < kSide * kSide; ++i) {
    const auto byte = static_cast<std::uint8_t>(
        std::lround(255 * std::min(taken(pattern, i % kSide, i / kSide, width), 1.0)));
    bytes.insert(bytes.end(), 3, byte);
  }
  const FramePixels frame{kSide, kSide, SampleType::kByte, Light::kEncoded, bytes.data()};
  const EyePicture picture(frame, open_eye(), light, 1);
  double sum = 0.0;
  int count = 0;
  for (const double dx : {0.25, 0.5, 0.8}) {
    for (const double dy : {0.1, 0.5, 0.7}) {
      for (int row = kMargin; row < kSide - kMargin; ++row) {
        for (int column = kMargin; column < kSide - kMargin; ++column, ++count) {
          const double x = column + dx, y = row + dy;
          float pixel[4];
          twintrue::render::sample_row()(picture, &x, &y, 1, pixel);
          const float value = light == Light::kLinear
                                  ? twintrue::render::display_of_light(std::max(pixel[0], 0.0f))
                                  : pixel[0];
          const double error = std::clamp(value, 0.0f, 1.0f) - std::min(taken(pattern, x, y, width), 1.0);
          sum += error * error;
        }
      }
    }
  }
  return 255 * std::sqrt(sum / count);
}

}  // namespace

int main() {
  fmt::print("{:20} {:>12} {:>16} {:>8}\n", "pattern", "pixel width", "display values", "light");
  for (const double width : {1.0, 1.6}) {
    for (const Pattern& pattern : kPatterns) {
      fmt::print("{:20} {:12.1f} {:16.2f} {:8.2f}\n", pattern.name, width,
                 rms_error(pattern, width, Light::kEncoded), rms_error(pattern, width, Light::kLinear));
    }
  }
}
