#include "lens/LensParametersV2.h"

#include <cmath>

#include "lens/LensKeys.h"
#include "lens/LensNumbers.h"
#include "lens/LensReport.h"

namespace twintrue {
namespace {

using P = LensParametersV2;

constexpr double kRadians = 1.7453292519943296e-5;          // in a thousandth of a degree
constexpr double kThousandthsOfDegree = 57295.77951308232;  // in a radian
constexpr double kDegrees = 0.001;                          // in a thousandth of a degree
constexpr double kThousandths = 1000.0;                     // in one
constexpr double kMillimetres = 1e-6;                       // in a nanometre
constexpr double kNanometres = 1e6;                         // in a millimetre
constexpr double kShiftUnit = 2e-9;
constexpr double kShiftUnits = 5e8;              // in 1
constexpr double kMagnifyUnit = 6.103515625e-5;  // 1 / 16384
constexpr double kMagnifyUnits = 16384.0;        // in 1

// What a diameter in nanometres per thousandth of a degree is times 90 degrees, in millimetres and from the
// centre, and its inverse.
constexpr double kRightAngle = 0.09;
constexpr double kOneOverRightAngle = 11.111111111111112;

constexpr LensKey<P> kKeys[] = {
    {"PIX_input_width", &P::PIX_input_width},
    {"PIX_input_height", &P::PIX_input_height},
    {"AOV_input_width", &P::AOV_input_width},
    {"AOV_input_height", &P::AOV_input_height},
    {"output_width", &P::output_width},
    {"output_height", &P::output_height},
    {"alpha", &P::alpha},
    {"beta", &P::beta},
    {"hard_compatible", &P::hard_compatible},
    {"left_img_c_center_X", &P::left_img_c_center_X},
    {"left_img_c_center_Y", &P::left_img_c_center_Y},
    {"right_img_c_center_X", &P::right_img_c_center_X},
    {"right_img_c_center_Y", &P::right_img_c_center_Y},
    {"img_c_diameter", &P::img_c_diameter},
    {"FOV", &P::FOV},
    {"left_eye_lambda", &P::left_eye_lambda},
    {"right_eye_lambda", &P::right_eye_lambda},
    {"left_eye_psi", &P::left_eye_psi},
    {"right_eye_psi", &P::right_eye_psi},
    {"left_eye_roll", &P::left_eye_roll},
    {"right_eye_roll", &P::right_eye_roll},
    {"left_eye_magnify_v", &P::left_eye_magnify_v},
    {"right_eye_magnify_v", &P::right_eye_magnify_v},
    {"left_eye_magnify_h", &P::left_eye_magnify_h},
    {"right_eye_magnify_h", &P::right_eye_magnify_h},
    {"distortion_coeff1", &P::distortion_coeff1},
    {"distortion_coeff2", &P::distortion_coeff2},
    {"distortion_coeff3", &P::distortion_coeff3},
    {"distortion_coeff4", &P::distortion_coeff4},
    {"distortion_coeff5", &P::distortion_coeff5},
    {"distortion_coeff6", &P::distortion_coeff6},
    {"left_eye_x0", &P::left_eye_x0},
    {"left_eye_y0", &P::left_eye_y0},
    {"right_eye_x0", &P::right_eye_x0},
    {"right_eye_y0", &P::right_eye_y0},
    {"left_eye_shift_x", &P::left_eye_shift_x},
    {"left_eye_shift_y", &P::left_eye_shift_y},
    {"right_eye_shift_x", &P::right_eye_shift_x},
    {"right_eye_shift_y", &P::right_eye_shift_y},
    {"camera_psi", &P::camera_psi},
    {"camera_roll", &P::camera_roll},
    {"m_left_eye_x0", &P::m_left_eye_x0},
    {"m_left_eye_y0", &P::m_left_eye_y0},
    {"m_right_eye_x0", &P::m_right_eye_x0},
    {"m_right_eye_y0", &P::m_right_eye_y0},
    {"m_left_eye_lambda", &P::m_left_eye_lambda},
    {"m_left_eye_psi", &P::m_left_eye_psi},
    {"m_left_eye_roll", &P::m_left_eye_roll},
    {"m_right_eye_lambda", &P::m_right_eye_lambda},
    {"m_right_eye_psi", &P::m_right_eye_psi},
    {"m_right_eye_roll", &P::m_right_eye_roll},
    {"is_lambda", &P::is_lambda},
    {"is_psi", &P::is_psi},
    {"is_roll", &P::is_roll},
};

// Behind the keys of the table, and in a file also behind `version` and `separate_x`.
constexpr LensKey<P> kLastKeys[] = {
    {"baseline", &P::baseline, 0.06, "set baseline 0.06 [m]\n"},
    {"left_eye_translate_x", &P::left_eye_translate_x},
    {"left_eye_translate_y", &P::left_eye_translate_y},
    {"left_eye_translate_z", &P::left_eye_translate_z},
    {"right_eye_translate_x", &P::right_eye_translate_x},
    {"right_eye_translate_y", &P::right_eye_translate_y},
    {"right_eye_translate_z", &P::right_eye_translate_z},
};

}  // namespace

bool LensParametersV2::read(ini_store& store) {
  read_keys(store, *this, kKeys);
  read_ideal_height(store, ideal_height_precision_bit, ideal_height_lut_max);
  read_keys(store, *this, kLastKeys);
  // Where the picture is parted is half of `output_width`, which is above 0 as soon as that is.
  if (!(check_positive("input_width", PIX_input_width) && check_positive("input_height", PIX_input_height) &&
        check_positive("output_width", output_width) && check_positive("output_height", output_height) &&
        check_positive("left_eye_magnify_h", left_eye_magnify_h) &&
        check_positive("left_eye_magnify_v", left_eye_magnify_v) &&
        check_positive("right_eye_magnify_v", right_eye_magnify_v) &&
        check_positive("right_eye_magnify_h", right_eye_magnify_h))) {
    return false;
  }
  if (hard_compatible != 0) {
    report("hard_compatible is ignored.\n");
    hard_compatible = 0;
  }
  return true;
}

void LensParametersV2::fill_eyes(EyeModel& left, EyeModel& right) const {
  fill_commons(left, right,
               {LensFormat::k2,
                PIX_input_width,
                PIX_input_height,
                {left_eye_translate_x, left_eye_translate_y, left_eye_translate_z},
                {distortion_coeff1, distortion_coeff2, distortion_coeff3, distortion_coeff4,
                 distortion_coeff5, distortion_coeff6},
                ideal_height_precision_bit,
                ideal_height_lut_max});
  const double width = PIX_input_width;
  const double height = PIX_input_height;
  const double px_per_nm = width / AOV_input_width;
  for (EyeModel* eye : {&left, &right}) {
    eye->scale = kRightAngle / FOV * img_c_diameter * (kNanometres / (AOV_input_width / width));
    eye->fov_degrees = FOV * kDegrees;
  }

  left.lambda = left_eye_lambda * kRadians;
  left.psi = left_eye_psi * kRadians;
  left.roll = left_eye_roll * kRadians;
  left.shift_x = left_eye_shift_x * kShiftUnit;
  left.shift_y = left_eye_shift_y * kShiftUnit;
  left.center_x = px_per_nm * left_img_c_center_X + width * 0.5;
  left.center_y = height * 0.5 - px_per_nm * left_img_c_center_Y;
  left.magnify_v = left_eye_magnify_v * kMagnifyUnit;
  left.magnify_h = left_eye_magnify_h * kMagnifyUnit;
  left.offset_x = px_per_nm * left_eye_x0;
  left.offset_y = px_per_nm * left_eye_y0;

  right.lambda = right_eye_lambda * kRadians;
  right.psi = right_eye_psi * kRadians;
  right.roll = right_eye_roll * kRadians;
  right.shift_x = right_eye_shift_x * kShiftUnit;
  right.shift_y = right_eye_shift_y * kShiftUnit;
  right.center_x = px_per_nm * right_img_c_center_X + width * 0.5;
  right.center_y = height * 0.5 - px_per_nm * right_img_c_center_Y;
  right.magnify_v = right_eye_magnify_v * kMagnifyUnit;
  right.magnify_h = right_eye_magnify_h * kMagnifyUnit;
  right.offset_x = px_per_nm * right_eye_x0;
  right.offset_y = px_per_nm * right_eye_y0;

  finish_eyes(left, right);
}

void LensParametersV2::fill_rig(RigModel& rig) const {
  fill_eyes(rig.left, rig.right);
  rig.baseline = baseline;
  rig.output_width = output_width;
  rig.output_height = output_height;
  rig.input_width = PIX_input_width;
  rig.input_height = PIX_input_height;
  rig.sensor_pitch = AOV_input_width / PIX_input_width * kMillimetres;
  rig.circle_distance = (left_img_c_center_X - right_img_c_center_X) * kMillimetres;
  rig.circle_radius = img_c_diameter * kRightAngle / FOV;
  eye_update_rotation(rig.left);
  eye_update_rotation(rig.right);
  rig_update_positions(rig);
}

void LensParametersV2::from_rig(const RigModel& rig) {
  alpha = kWrittenAlpha;
  beta = kWrittenBeta;
  baseline = rig.baseline;
  output_width = rig.output_width;
  output_height = rig.output_height;
  PIX_input_width = rig.input_width;
  PIX_input_height = rig.input_height;
  const double width = rig.input_width;
  const double height = rig.input_height;
  AOV_input_width = width * rig.sensor_pitch * kNanometres;
  AOV_input_height = height * rig.sensor_pitch * kNanometres;
  const double pitch_mm = AOV_input_width / width * kMillimetres;
  FOV = rig.left.fov_degrees * kThousandths;
  img_c_diameter = rig.circle_radius * kOneOverRightAngle * FOV;

  const EyeModel& left = rig.left;
  left_eye_lambda = left.lambda * kThousandthsOfDegree;
  left_eye_psi = left.psi * kThousandthsOfDegree;
  left_eye_roll = left.roll * kThousandthsOfDegree;
  left_eye_shift_x = left.shift_x * kShiftUnits;
  left_eye_shift_y = left.shift_y * kShiftUnits;
  left_eye_translate_x = left.translate[0];
  left_eye_translate_y = left.translate[1];
  left_eye_translate_z = left.translate[2];
  left_eye_magnify_v = left.magnify_v * kMagnifyUnits;
  left_eye_magnify_h = left.magnify_h * kMagnifyUnits;
  left_eye_x0 = pitch_mm * left.offset_x * kNanometres;
  left_eye_y0 = pitch_mm * left.offset_y * kNanometres;
  left_img_c_center_X = (left.center_x - width * 0.5) * pitch_mm * kNanometres;
  left_img_c_center_Y = (height * 0.5 - left.center_y) * pitch_mm * kNanometres;
  distortion_coeff1 = left.distortion.coeff[0];
  distortion_coeff2 = left.distortion.coeff[1];
  distortion_coeff3 = left.distortion.coeff[2];
  distortion_coeff4 = left.distortion.coeff[3];
  distortion_coeff5 = left.distortion.coeff[4];
  distortion_coeff6 = left.distortion.coeff[5];

  const EyeModel& right = rig.right;
  right_eye_lambda = right.lambda * kThousandthsOfDegree;
  right_eye_psi = right.psi * kThousandthsOfDegree;
  right_eye_roll = right.roll * kThousandthsOfDegree;
  right_eye_shift_x = right.shift_x * kShiftUnits;
  right_eye_shift_y = right.shift_y * kShiftUnits;
  right_eye_translate_x = right.translate[0];
  right_eye_translate_y = right.translate[1];
  right_eye_translate_z = right.translate[2];
  right_eye_magnify_v = right.magnify_v * kMagnifyUnits;
  right_eye_magnify_h = right.magnify_h * kMagnifyUnits;
  right_eye_x0 = pitch_mm * right.offset_x * kNanometres;
  right_eye_y0 = pitch_mm * right.offset_y * kNanometres;
  right_img_c_center_X = (right.center_x - width * 0.5) * pitch_mm * kNanometres;
  right_img_c_center_Y = (height * 0.5 - right.center_y) * pitch_mm * kNanometres;
}

std::string LensParametersV2::text(const std::string& section) const {
  LensTextWriter writer;
  writer.write_section(section);
  write_keys(writer, *this, kKeys);
  writer.write("version", kVersion);
  writer.write("separate_x", output_width * 0.5);
  write_keys(writer, *this, kLastKeys);
  return writer.take();
}

}  // namespace twintrue
