#pragma once

// Lens files for targets to start from, small enough that a run on them is quick.

#include <cstdint>
#include <string>

#include "lens/LensLanguage.h"
#include "lens/LensParameters.h"

namespace fuzzing {

inline std::string lens_of_format_1(std::int32_t width, std::int32_t height) {
  return "[OPTRA]\nformat_version = \"1.0\";\ninput_width = " + std::to_string(width) +
         "; input_height = " + std::to_string(height) +
         ";\noutput_width = 1024; output_height = 512; separate_x = 512; baseline = 0.06;\n"
         "sensor_pitch = 17.92 / input_width; inter_image_circle_distance = 9.1875;\n"
         "image_circle_radius = 4.34875; ideal_height_precision_bit = 8;\n"
         "left_eye_magnify_v = 1.0; left_eye_magnify_h = 1.0;\n"
         "right_eye_magnify_v = 1.0; right_eye_magnify_h = 1.0;\n";
}

inline std::string lens_of_format_2(std::int32_t width, std::int32_t height) {
  return "[OPTRA]\nversion = 2.31;\nPIX_input_width = " + std::to_string(width) +
         "; PIX_input_height = " + std::to_string(height) +
         ";\nAOV_input_width = 17920000.0; AOV_input_height = 8960000.0;\n"
         "output_width = 1024; output_height = 512; baseline = 0.06; FOV = 190000.0;\n"
         "img_c_diameter = 9180.7; left_img_c_center_X = 4593750.0; right_img_c_center_X = -4593750.0;\n"
         "left_eye_magnify_v = 16384.0; left_eye_magnify_h = 16384.0; ideal_height_precision_bit = 8;\n"
         "right_eye_magnify_v = 16384.0; right_eye_magnify_h = 16384.0;\n";
}

// Whether the file asks for a table of the inverse curve that many executions a second can afford.
inline bool has_small_table(const std::string& path) {
  twintrue::ini_store store;
  store.current = &twintrue::ini_open_section(store, "@default");
  twintrue::ini_load(store, path);
  twintrue::ini_section* const section = twintrue::ini_find_section(store, "OPTRA");
  if (section == nullptr) return true;
  store.current = section;
  const bool asks_length = twintrue::ini_find_item(*section, "ideal_height_lut_max") != nullptr;
  const bool asks_fineness = twintrue::ini_find_item(*section, "ideal_height_precision_bit") != nullptr;
  return (!asks_length || twintrue::ini_get_double(store, "ideal_height_lut_max") <= 4.0) &&
         (asks_fineness && twintrue::ini_get_double(store, "ideal_height_precision_bit") <= 9.0);
}

}  // namespace fuzzing
