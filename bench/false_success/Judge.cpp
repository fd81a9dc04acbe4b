#include "Judge.h"

#include "RigLens.h"
#include "Scene.h"

namespace twintrue::false_success {

using accuracy::EyeSide;
using accuracy::kEyeValues;
using accuracy::plain_lens;
using accuracy::PlainLens;

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
