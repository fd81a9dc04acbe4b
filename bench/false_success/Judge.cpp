#include "Judge.h"

#include "Scene.h"

namespace twintrue::false_success {
namespace {

using accuracy::EyeSide;
using accuracy::kEyeValues;
using accuracy::PlainLens;

void copy_eye(const EyeModel& eye, EyeSide side, PlainLens& lens) {
  lens.format = static_cast<int>(eye.distortion.kind);
  lens.scale = eye.scale;
  lens.centre_x[side] = eye.center_x;
  lens.centre_y = eye.center_y;
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

PlainLens plain_lens(const RigState& rig) {
  PlainLens lens;
  copy_eye(rig.current.left, accuracy::kLeft, lens);
  copy_eye(rig.current.right, accuracy::kRight, lens);
  lens.width = rig.frame_width;
  lens.height = rig.frame_height;
  lens.baseline = rig.current.baseline;
  return lens;
}

}  // namespace

accuracy::SceneError error_of(const std::string& true_lens_text, const std::string& lens_text,
                              const std::array<double, 10>& corrections) {
  const PlainLens truth = plain_lens(rig_of(true_lens_text));
  const PlainLens given = plain_lens(rig_of(lens_text));
  accuracy::Pose pose = given.pose;
  for (std::size_t i = 0; i < pose.size(); ++i) pose[i] += corrections[i];
  for (const EyeSide side : {accuracy::kRight, accuracy::kLeft}) {
    pose[side * kEyeValues + 3] += given.centre_x[side] - truth.centre_x[side];
  }
  return accuracy::Scene(truth, truth.pose).judge(pose);
}

}  // namespace twintrue::false_success
