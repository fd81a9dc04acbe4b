#pragma once

// A calibration that is small enough to be repeated many times, and yet goes through every stage: keypoints,
// matches, a search of two levels, a written lens.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/SmallSettings.h"
#include "support/TempDir.h"
#include "twintrue/calib.h"

#if defined(__has_feature)
#define TWINTRUE_HAS_FEATURE(name) __has_feature(name)
#else
#define TWINTRUE_HAS_FEATURE(name) 0
#endif

namespace testing_support {

// Whether a sanitizer watches: runs are several times slower then, and memory is its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    TWINTRUE_HAS_FEATURE(address_sanitizer) || TWINTRUE_HAS_FEATURE(thread_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

inline constexpr std::uint32_t kSmallWidth = 256;
inline constexpr std::uint32_t kSmallHeight = 128;

inline std::string small_lens(std::uint32_t width = kSmallWidth, std::uint32_t height = kSmallHeight) {
  return "[OPTRA]\nformat_version = \"1.0\";\ninput_width = " + std::to_string(width) +
         "; input_height = " + std::to_string(height) +
         ";\noutput_width = 1024; output_height = 512; separate_x = 512;\nbaseline = 0.06;\n"
         "sensor_pitch = 0.07; inter_image_circle_distance = 9.1875; image_circle_radius = 4.34875;\n"
         "left_eye_magnify_v = 1.0; left_eye_magnify_h = 1.0;\n"
         "right_eye_magnify_v = 1.0; right_eye_magnify_h = 1.0;\nideal_height_precision_bit = 8;\n";
}

// Grains of several sizes; the right half shows them some pixels further to the right. `seed` picks the
// picture.
inline std::uint8_t small_pixel(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t seed) {
  const std::uint32_t half = width / 2 == 0 ? 1 : width / 2;
  const std::uint32_t column = x % half + (x < half ? 4 : 0);
  std::uint32_t sum = 0;
  for (const std::uint32_t size : {3u, 7u, 13u}) {
    std::uint32_t h = (column / size) * 73856093u ^ (y / size) * 19349663u ^ (seed + 1) * 83492791u ^ size;
    h = (h ^ (h >> 13)) * 1274126177u;
    sum += (h ^ (h >> 16)) & 255u;
  }
  return static_cast<std::uint8_t>(sum / 3);
}

// A frame in memory of exactly the size that its record speaks of.
struct SmallFrame {
  explicit SmallFrame(std::uint32_t seed = 0, std::uint32_t width = kSmallWidth,
                      std::uint32_t height = kSmallHeight, std::uint32_t padding = 0,
                      bool bottom_up = false) {
    const std::size_t row = std::size_t{3} * width;
    const std::size_t stride = row + padding;
    bytes.resize(height == 0 ? 0 : stride * (height - 1) + row, 0xAA);
    for (std::uint32_t y = 0; y < height; ++y) {
      const std::size_t place = stride * (bottom_up ? height - 1 - y : y);
      for (std::size_t i = 0; i < row; ++i) {
        bytes[place + i] = small_pixel(static_cast<std::uint32_t>(i / 3), y, width, seed);
      }
    }
    const auto step = static_cast<std::int32_t>(stride);
    const std::size_t first = bottom_up && height > 0 ? stride * (height - 1) : 0;
    image = {width, height, bottom_up ? -step : step, bytes.data() + first, 0};
  }
  std::vector<std::uint8_t> bytes;
  CalibImage image{};
};

struct Outcome {
  std::int32_t status = 1;
  CalibResult result{};
  std::string lens;  // what the run wrote

  bool operator==(const Outcome& other) const {
    return status == other.status && lens == other.lens &&
           std::memcmp(&result, &other.result, sizeof result) == 0;
  }
};

// Runs the frame under files of a folder of its own.
class SmallRun {
 public:
  explicit SmallRun(const std::string& lens = small_lens(), const std::string& settings = small_settings())
      : lens_(dir_.write("small.lens", lens)), settings_(dir_.write("small.yaml", settings)) {}

  const TempDir& dir() const { return dir_; }

  std::int32_t status(const CalibImage& image, const std::string& out = "", CalibResult* result = nullptr,
                      int ignore = 1) const {
    return calib(&image, lens_.c_str(), settings_.c_str(), out.c_str(), ignore, result);
  }

  Outcome run(const CalibImage& image) const {
    Outcome outcome;
    const std::string out = dir_.file("out.lens");
    outcome.status = status(image, out, &outcome.result);
    outcome.lens = read_file(out);
    std::filesystem::remove(out);
    return outcome;
  }

 private:
  TempDir dir_;
  std::string lens_;
  std::string settings_;
};

}  // namespace testing_support
