#include "lens/LensParametersV1.h"

#include <cmath>

#include "lens/LensKeys.h"
#include "lens/LensReport.h"

namespace twintrue {
namespace {

using P = LensParametersV1;

constexpr LensKey<P> kKeys[] = {
    {"input_width", &P::input_width},
    {"input_height", &P::input_height},
    {"output_width", &P::output_width},
    {"output_height", &P::output_height},
    {"left_center_x", &P::left_center_x},
    {"left_center_y", &P::left_center_y},
    {"right_center_x", &P::right_center_x},
    {"right_center_y", &P::right_center_y},
    {"alpha", &P::alpha},
    {"beta", &P::beta},
    {"separate_x", &P::separate_x},
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
    {"baseline", &P::baseline, 0.06, "set baseline 0.06 [m]\n"},
    {"sensor_pitch", &P::sensor_pitch, 0.0044, "set sensor_pitch_mm 0.0044 [mm]\n"},
    {"inter_image_circle_distance", &P::inter_image_circle_distance, 18.5,
     "set inter_image_circle_distance_mm 18.5 [mm]\n"},
    {"image_circle_radius", &P::image_circle_radius, 8.75, "set image_circle_radius_mm 17.5 /2 [mm]\n"},
    {"left_eye_translate_x", &P::left_eye_translate_x},
    {"left_eye_translate_y", &P::left_eye_translate_y},
    {"left_eye_translate_z", &P::left_eye_translate_z},
    {"right_eye_translate_x", &P::right_eye_translate_x},
    {"right_eye_translate_y", &P::right_eye_translate_y},
    {"right_eye_translate_z", &P::right_eye_translate_z},
};

}  // namespace

bool LensParametersV1::read(ini_store& store) {
  report("format_version: {}\n", kFormatVersion);
  read_keys(store, *this, kKeys);
  read_ideal_height(store, ideal_height_precision_bit, ideal_height_lut_max);
  return check_positive("input_width", input_width) && check_positive("input_height", input_height) &&
         check_positive("output_width", output_width) && check_positive("output_height", output_height) &&
         check_positive("separate_x", separate_x) &&
         check_positive("left_eye_magnify_h", left_eye_magnify_h) &&
         check_positive("left_eye_magnify_v", left_eye_magnify_v) &&
         check_positive("right_eye_magnify_v", right_eye_magnify_v) &&
         check_positive("right_eye_magnify_h", right_eye_magnify_h);
}

void LensParametersV1::fill_eyes(EyeModel& left, EyeModel& right) const {
  fill_commons(left, right,
               {LensFormat::k1,
                input_width,
                input_height,
                {left_eye_translate_x, left_eye_translate_y, left_eye_translate_z},
                {distortion_coeff1, distortion_coeff2, distortion_coeff3, distortion_coeff4,
                 distortion_coeff5, distortion_coeff6},
                ideal_height_precision_bit,
                ideal_height_lut_max});
  const double width = input_width;
  const double sensor_widths = 1.0 / (width * sensor_pitch);  // per millimetre
  const double half_distance_px = (width * inter_image_circle_distance) * sensor_widths * 0.5;
  for (EyeModel* eye : {&left, &right}) {
    eye->scale = (width * image_circle_radius) * sensor_widths;
    eye->center_y = input_height * 0.5;
  }

  left.lambda = left_eye_lambda;
  left.psi = left_eye_psi;
  left.roll = left_eye_roll;
  left.shift_x = left_eye_shift_x;
  left.shift_y = left_eye_shift_y;
  left.center_x = width * 0.5 + half_distance_px;
  left.magnify_v = left_eye_magnify_v;
  left.magnify_h = left_eye_magnify_h;
  left.offset_x = width * left_eye_x0;
  left.offset_y = width * left_eye_y0;

  right.lambda = right_eye_lambda;
  right.psi = right_eye_psi;
  right.roll = right_eye_roll;
  right.shift_x = right_eye_shift_x;
  right.shift_y = right_eye_shift_y;
  right.center_x = width * 0.5 - half_distance_px;
  right.magnify_v = right_eye_magnify_v;
  right.magnify_h = right_eye_magnify_h;
  right.offset_x = width * right_eye_x0;
  right.offset_y = width * right_eye_y0;

  finish_eyes(left, right);
}

void LensParametersV1::fill_rig(RigModel& rig) const {
  fill_eyes(rig.left, rig.right);
  rig.baseline = baseline;
  rig.output_width = output_width;
  rig.output_height = output_height;
  rig.input_width = input_width;
  rig.input_height = input_height;
  rig.sensor_pitch = sensor_pitch;
  rig.circle_distance = inter_image_circle_distance;
  rig.circle_radius = image_circle_radius;
  eye_update_rotation(rig.left);
  eye_update_rotation(rig.right);
  rig_update_positions(rig);
}

void LensParametersV1::from_rig(const RigModel& rig) {
  alpha = kWrittenAlpha;
  beta = kWrittenBeta;
  separate_x = static_cast<std::int32_t>(std::lround(rig.output_width * 0.5));
  baseline = rig.baseline;
  output_width = rig.output_width;
  output_height = rig.output_height;
  input_width = rig.input_width;
  input_height = rig.input_height;
  sensor_pitch = rig.sensor_pitch;
  inter_image_circle_distance = rig.circle_distance;
  image_circle_radius = rig.circle_radius;

  const EyeModel& left = rig.left;
  distortion_coeff1 = left.distortion.coeff[0];
  distortion_coeff2 = left.distortion.coeff[1];
  distortion_coeff3 = left.distortion.coeff[2];
  distortion_coeff4 = left.distortion.coeff[3];
  distortion_coeff5 = left.distortion.coeff[4];
  distortion_coeff6 = left.distortion.coeff[5];

  const double widths = 1.0 / rig.input_width;  // per pixel
  left_eye_lambda = left.lambda;
  left_eye_psi = left.psi;
  left_eye_roll = left.roll;
  left_eye_shift_x = left.shift_x;
  left_eye_shift_y = left.shift_y;
  left_eye_translate_x = left.translate[0];
  left_eye_translate_y = left.translate[1];
  left_eye_translate_z = left.translate[2];
  left_eye_magnify_v = left.magnify_v;
  left_eye_magnify_h = left.magnify_h;
  left_eye_x0 = widths * left.offset_x;
  left_eye_y0 = widths * left.offset_y;

  const EyeModel& right = rig.right;
  right_eye_lambda = right.lambda;
  right_eye_psi = right.psi;
  right_eye_roll = right.roll;
  right_eye_shift_x = right.shift_x;
  right_eye_shift_y = right.shift_y;
  right_eye_translate_x = right.translate[0];
  right_eye_translate_y = right.translate[1];
  right_eye_translate_z = right.translate[2];
  right_eye_magnify_v = right.magnify_v;
  right_eye_magnify_h = right.magnify_h;
  right_eye_x0 = widths * right.offset_x;
  right_eye_y0 = widths * right.offset_y;
}

std::string LensParametersV1::text(const std::string& section) const {
  LensTextWriter writer;
  writer.write_section(section);
  writer.write("format_version", std::string(kFormatVersion));
  write_keys(writer, *this, kKeys);
  return writer.take();
}

}  // namespace twintrue
