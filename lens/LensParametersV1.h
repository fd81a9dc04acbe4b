#pragma once

#include <cstdint>
#include <string>

#include "lens/LensParameters.h"

namespace twintrue {

// Format 1: millimetres, radians, ratios.
class LensParametersV1 : public LensParameters {
 public:
  static constexpr const char* kFormatVersion = "1.0";

  std::int32_t input_width = 0;  // the whole frame, pixels
  std::int32_t input_height = 0;
  std::int32_t output_width = 0;
  std::int32_t output_height = 0;
  double alpha = 0.0;  // not used, as is `beta`
  double beta = 0.0;
  double left_center_x = 0.0;  // not used, as are the other three
  double left_center_y = 0.0;
  double right_center_x = 0.0;
  double right_center_y = 0.0;
  std::int32_t separate_x = 0;
  double left_eye_lambda = 0.0;  // radians, as are `psi` and `roll`
  double right_eye_lambda = 0.0;
  double left_eye_psi = 0.0;
  double right_eye_psi = 0.0;
  double left_eye_roll = 0.0;
  double right_eye_roll = 0.0;
  double left_eye_magnify_v = 0.0;
  double right_eye_magnify_v = 0.0;
  double left_eye_magnify_h = 0.0;
  double right_eye_magnify_h = 0.0;
  double distortion_coeff1 = 0.0;  // percent of the radius, as are the others
  double distortion_coeff2 = 0.0;
  double distortion_coeff3 = 0.0;
  double distortion_coeff4 = 0.0;
  double distortion_coeff5 = 0.0;
  double distortion_coeff6 = 0.0;
  double left_eye_x0 = 0.0;  // offset as a fraction of `input_width`; so is `y0`
  double left_eye_y0 = 0.0;
  double right_eye_x0 = 0.0;
  double right_eye_y0 = 0.0;
  double right_eye_shift_x = 0.0;
  double right_eye_shift_y = 0.0;
  double left_eye_shift_x = 0.0;
  double left_eye_shift_y = 0.0;
  double right_eye_translate_x = 0.0;  // kept and written back, but both eyes take the left eye's
  double right_eye_translate_y = 0.0;
  double right_eye_translate_z = 0.0;
  double left_eye_translate_x = 0.0;
  double left_eye_translate_y = 0.0;
  double left_eye_translate_z = 0.0;
  double baseline = 0.06;                     // metres
  double sensor_pitch = 0.0044;               // mm per pixel
  double inter_image_circle_distance = 18.5;  // mm
  double image_circle_radius = 8.75;          // mm
  std::int32_t ideal_height_precision_bit = 12;
  double ideal_height_lut_max = 1.12;

  // Reads all keys of the current section. Returns false, after the message of the first one, if values are
  // out of range.
  bool read(ini_store& store);

  // The inverse of fill_rig(), as far as the rig holds what the file does.
  void from_rig(const RigModel& rig);

  void fill_rig(RigModel& rig) const override;

  // The values as a lens file of one section.
  std::string text(const std::string& section) const;

 private:
  void fill_eyes(EyeModel& left, EyeModel& right) const;
};

}  // namespace twintrue
