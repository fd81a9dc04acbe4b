#pragma once

#include <cstdint>
#include <string>

#include "lens/LensParameters.h"

namespace twintrue {

// Format 2: integers of the sensor's side.
class LensParametersV2 : public LensParameters {
 public:
  static constexpr double kVersion = 2.31;  // of files that are written

  std::int32_t PIX_input_width = 0;  // the whole frame, pixels
  std::int32_t PIX_input_height = 0;
  std::int32_t output_width = 0;
  std::int32_t output_height = 0;
  double alpha = 0.0;  // not used, as is `beta`
  double beta = 0.0;
  std::int32_t hard_compatible = 0;  // tolerated, without effect
  double AOV_input_width = 0.0;      // the whole frame, nanometres on the sensor
  double AOV_input_height = 0.0;
  double left_img_c_center_X = 0.0;  // nanometres from the sensor's centre, Y upward
  double left_img_c_center_Y = 0.0;
  double right_img_c_center_X = 0.0;
  double right_img_c_center_Y = 0.0;
  double img_c_diameter = 0.0;   // nanometres
  double FOV = 0.0;              // angle that the diameter spans, thousandths of a degree
  double left_eye_lambda = 0.0;  // thousandths of a degree, as are `psi` and `roll`
  double right_eye_lambda = 0.0;
  double left_eye_psi = 0.0;
  double right_eye_psi = 0.0;
  double left_eye_roll = 0.0;
  double right_eye_roll = 0.0;
  double left_eye_shift_x = 0.0;  // units of 2e-9
  double left_eye_shift_y = 0.0;
  double right_eye_shift_x = 0.0;
  double right_eye_shift_y = 0.0;
  double left_eye_magnify_v = 0.0;  // units of 1/16384
  double right_eye_magnify_v = 0.0;
  double left_eye_magnify_h = 0.0;
  double right_eye_magnify_h = 0.0;
  double distortion_coeff1 = 0.0;  // percent of the radius, as are the others
  double distortion_coeff2 = 0.0;
  double distortion_coeff3 = 0.0;
  double distortion_coeff4 = 0.0;
  double distortion_coeff5 = 0.0;
  double distortion_coeff6 = 0.0;
  double left_eye_x0 = 0.0;  // offset, nanometres
  double left_eye_y0 = 0.0;
  double right_eye_x0 = 0.0;
  double right_eye_y0 = 0.0;
  double camera_psi = 0.0;  // kept and not used, as is all up to `is_roll`
  double camera_roll = 0.0;
  double m_left_eye_x0 = 0.0;
  double m_left_eye_y0 = 0.0;
  double m_right_eye_x0 = 0.0;
  double m_right_eye_y0 = 0.0;
  double m_left_eye_lambda = 0.0;
  double m_left_eye_psi = 0.0;
  double m_left_eye_roll = 0.0;
  double m_right_eye_lambda = 0.0;
  double m_right_eye_psi = 0.0;
  double m_right_eye_roll = 0.0;
  double is_lambda = 0.0;
  double is_psi = 0.0;
  double is_roll = 0.0;

  std::int32_t ideal_height_precision_bit = 12;
  double ideal_height_lut_max = 1.12;
  double right_eye_translate_x = 0.0;  // kept and written back, but both eyes take the left eye's
  double right_eye_translate_y = 0.0;
  double right_eye_translate_z = 0.0;
  double left_eye_translate_x = 0.0;
  double left_eye_translate_y = 0.0;
  double left_eye_translate_z = 0.0;
  double baseline = 0.06;  // metres

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
