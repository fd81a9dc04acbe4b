#pragma once

// Small inputs for runs of the program.

#include <OpenImageIO/imageio.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace cli_test {

inline constexpr int kSmallWidth = 512;
inline constexpr int kSmallHeight = 256;

// A lens without distortion for frames of kSmallWidth x kSmallHeight.
inline std::string small_lens() {
  return R"([OPTRA]
format_version = "1.0";
input_width = 512;
input_height = 256;
output_width = 512;
output_height = 256;
separate_x = 256;
baseline = 0.06;
sensor_pitch = 0.0704;
inter_image_circle_distance = 18.5;
image_circle_radius = 8.75;
right_eye_magnify_v = 1.0;
right_eye_magnify_h = 1.0;
left_eye_magnify_v = 1.0;
left_eye_magnify_h = 1.0;
)";
}

// Writes a picture whose samples are `samples`, of the type that `format` names.
inline void write_picture(const std::string& path, int width, int height, int channels, OIIO::TypeDesc format,
                          const std::vector<float>& samples, const std::string& colour_space = "") {
  const std::unique_ptr<OIIO::ImageOutput> output = OIIO::ImageOutput::create(path);
  if (!output) throw std::runtime_error("no writer for " + path);
  OIIO::ImageSpec spec(width, height, channels, format);
  // Colours are stored as given, whatever the alpha beside them.
  spec.attribute("oiio:UnassociatedAlpha", 1);
  if (!colour_space.empty()) spec.attribute("oiio:ColorSpace", colour_space);
  if (!output->open(path, spec) || !output->write_image(OIIO::TypeFloat, samples.data()) ||
      !output->close()) {
    throw std::runtime_error("can't write " + path + ": " + output->geterror());
  }
}

inline void write_black_frame(const std::string& path, int width = kSmallWidth, int height = kSmallHeight) {
  write_picture(
      path, width, height, 3, OIIO::TypeUInt8,
      std::vector<float>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3, 0.0f));
}

// The settings of the tests with one line put in the place of another.
inline std::string settings_with(const std::string& line, const std::string& replacement) {
  std::string text = testing_support::read_file(TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml");
  const std::size_t at = text.find("\n" + line);
  if (at == std::string::npos) throw std::runtime_error("the settings have no line " + line);
  return text.replace(at + 1, text.find('\n', at + 1) - at - 1, replacement);
}

inline std::string example(const std::string& name) { return TWINTRUE_SOURCE_DIR "/examples/" + name; }

}  // namespace cli_test
