#include "LensText.h"

#include <cstddef>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fmt/format.h>

namespace twintrue::false_success {
namespace {

constexpr double kDegree = 0.017453292519943295;

// The value behind `key = `.
struct Place {
  std::size_t begin;
  std::size_t size;
};
Place place_of(const std::string& lens, const std::string& key) {
  const std::string start = "\n" + key + " = ";
  const std::size_t at = lens.find(start);
  if (at == std::string::npos) throw std::runtime_error("no " + key + " in the lens file");
  const std::size_t begin = at + start.size();
  return {begin, lens.find(';', begin) - begin};
}

}  // namespace

std::string read_text(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("can't read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool is_format_1(const std::string& lens) { return lens.find("format_version") != std::string::npos; }

double value_of(const std::string& lens, const std::string& key) {
  const Place place = place_of(lens, key);
  return std::stod(lens.substr(place.begin, place.size));
}
std::string with(std::string lens, const std::string& key, double value) {
  const Place place = place_of(lens, key);
  std::string text = fmt::format("{:.15f}", value);  // the language knows no exponents
  if (lens[place.begin] != '"' && place.size > 0 &&
      lens.substr(place.begin, place.size).find('.') == std::string::npos) {
    text = fmt::format("{:.0f}", value);
  }
  return lens.replace(place.begin, place.size, text);
}
std::string plus(const std::string& lens, const std::string& key, double amount) {
  return with(lens, key, value_of(lens, key) + amount);
}
std::string times(const std::string& lens, const std::string& key, double factor) {
  return with(lens, key, value_of(lens, key) * factor);
}

std::string with_turn(std::string lens, const std::string& eye, double pan, double tilt, double roll) {
  constexpr double kMilliDegrees = 1000.0;
  const double unit = is_format_1(lens) ? kDegree : kMilliDegrees;
  lens = plus(lens, eye + "_eye_lambda", pan * unit);
  lens = plus(lens, eye + "_eye_psi", tilt * unit);
  return plus(lens, eye + "_eye_roll", roll * unit);
}

std::string with_offset(std::string lens, const std::string& eye, double x, double y) {
  const double unit = is_format_1(lens)
                          ? 1.0 / value_of(lens, "input_width")
                          : value_of(lens, "AOV_input_width") / value_of(lens, "PIX_input_width");
  lens = plus(lens, eye + "_eye_x0", x * unit);
  return plus(lens, eye + "_eye_y0", y * unit);
}

std::string of_width(std::string lens, double factor) {
  if (is_format_1(lens)) {
    for (const char* key : {"input_width", "input_height", "output_width", "output_height", "separate_x"}) {
      lens = times(lens, key, factor);
    }
    return times(lens, "sensor_pitch", 1.0 / factor);
  }
  for (const char* key : {"PIX_input_width", "PIX_input_height", "output_width", "output_height"}) {
    lens = times(lens, key, factor);
  }
  return lens;
}

std::string of_scale(const std::string& lens, double factor) {
  return times(lens, is_format_1(lens) ? "image_circle_radius" : "img_c_diameter", factor);
}

// Format 1 said in the words of format 2, and the other way round, with the same numbers for the curve.
std::string in_other_format(const std::string& lens) {
  const auto coefficients = [&lens] {
    std::string lines;
    for (int i = 1; i <= 6; ++i) {
      const std::string key = fmt::format("distortion_coeff{}", i);
      lines += fmt::format("{} = {:.9f};\n", key, value_of(lens, key));
    }
    return lines;
  };
  const auto eyes = [](double magnify) {
    std::string lines;
    for (const char* eye : {"right", "left"}) {
      for (const char* key : {"lambda", "psi", "roll", "x0", "y0"})
        lines += fmt::format("{}_eye_{} = 0.0;\n", eye, key);
      for (const char* key : {"magnify_v", "magnify_h"})
        lines += fmt::format("{}_eye_{} = {:.1f};\n", eye, key, magnify);
    }
    return lines;
  };
  constexpr double kNanometres = 1e6;  // in a millimetre
  if (is_format_1(lens)) {
    const double width = value_of(lens, "input_width");
    const double height = value_of(lens, "input_height");
    const double pitch = value_of(lens, "sensor_pitch");
    const double centre = value_of(lens, "inter_image_circle_distance") / 2.0 * kNanometres;
    // The diameter is that of the whole field, here 190 degrees.
    const double diameter = value_of(lens, "image_circle_radius") * 2.0 * 190.0 / 180.0 * kNanometres;
    return fmt::format(
               "[OPTRA]\nversion = 2.31;\nPIX_input_width = {:.0f};\nPIX_input_height = "
               "{:.0f};\nAOV_input_width = {:.1f};\n"
               "AOV_input_height = {:.1f};\noutput_width = {:.0f};\noutput_height = "
               "{:.0f};\nleft_img_c_center_X = {:.1f};\n"
               "left_img_c_center_Y = 0.0;\nright_img_c_center_X = {:.1f};\nright_img_c_center_Y = "
               "0.0;\nimg_c_diameter = "
               "{:.6f};\nFOV = 190000.0;\nbaseline = 0.06;\n",
               width, height, width * pitch * kNanometres, height * pitch * kNanometres, width, height,
               centre, -centre, diameter) +
           eyes(16384.0) + coefficients();
  }
  const double width = value_of(lens, "PIX_input_width");
  const double height = value_of(lens, "PIX_input_height");
  return fmt::format(
             "[OPTRA]\nformat_version = \"1.0\";\ninput_width = {:.0f};\ninput_height = "
             "{:.0f};\noutput_width = {:.0f};\n"
             "output_height = {:.0f};\nseparate_x = {:.0f};\nbaseline = 0.06;\nsensor_pitch = {:.9f};\n"
             "inter_image_circle_distance = {:.6f};\nimage_circle_radius = {:.6f};\n",
             width, height, width, height, width / 2, value_of(lens, "AOV_input_width") / kNanometres / width,
             2.0 * value_of(lens, "left_img_c_center_X") / kNanometres,
             value_of(lens, "img_c_diameter") / 2.0 * 180.0 / 190.0 / kNanometres) +
         eyes(1.0) + coefficients();
}

}  // namespace twintrue::false_success
