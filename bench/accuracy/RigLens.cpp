#include "RigLens.h"

#include <stdexcept>

namespace twintrue::accuracy {
namespace {

void copy_eye(const EyeModel& eye, EyeSide side, PlainLens& lens) {
  for (const double value :
       {eye.shift_x, eye.shift_y, eye.translate[0], eye.translate[1], eye.translate[2]}) {
    if (value != 0.0) throw std::runtime_error("lens files with shear or translation can't be judged");
  }
  lens.format = static_cast<int>(eye.distortion.kind);
  lens.scale = eye.scale;
  lens.centre_x[side] = eye.center_x;
  lens.centre_y[side] = eye.center_y;
  lens.magnify_x[side] = eye.magnify_v;
  lens.magnify_y[side] = eye.magnify_h;
  lens.coeff = eye.distortion.coeff;
  lens.limit = eye.fov_degrees / 180.0;
  double* pose = &lens.pose[side * kEyeValues];
  pose[0] = eye.lambda;
  pose[1] = eye.psi;
  pose[2] = eye.roll;
  pose[3] = eye.offset_x;
  pose[4] = eye.offset_y;
}

}  // namespace

PlainLens plain_lens(const RigState& rig) {
  PlainLens lens;
  copy_eye(rig.current.left, kLeft, lens);
  copy_eye(rig.current.right, kRight, lens);
  lens.width = rig.frame_width;
  lens.height = rig.frame_height;
  lens.baseline = rig.current.baseline;
  return lens;
}

}  // namespace twintrue::accuracy
