#include "Judge.h"

#include <algorithm>
#include <cmath>

#include "Optimum.h"
#include "RigLens.h"
#include "Scene.h"

namespace twintrue::false_success {
namespace {

using accuracy::EyeSide;
using accuracy::kEyeValues;
using accuracy::PixelPair;
using accuracy::plain_lens;
using accuracy::PlainLens;

// To where a warp brings a pixel of an eye: the place that is taken from there.
void follow(const Warp& warp, bool left_eye, double height, double half_width, double& x, double& y) {
  const double from_x = x, from_y = y;
  constexpr int kRounds = 5;  // a warp changes by a hundredth of a pixel a pixel at most
  for (int i = 0; i < kRounds; ++i) {
    const auto way = warp(left_eye, (x - (left_eye ? half_width : 0.0)) / height - 0.5, y / height - 0.5);
    x = from_x - way[0];
    y = from_y - way[1];
  }
}

}  // namespace

Error error_of(const Input& input, const std::array<double, 10>& corrections) {
  const PlainLens truth = plain_lens(rig_of(input.true_lens));
  const PlainLens given = plain_lens(rig_of(input.lens));
  accuracy::Pose pose = given.pose;
  for (std::size_t i = 0; i < pose.size(); ++i) pose[i] += corrections[i];
  for (const EyeSide side : {accuracy::kRight, accuracy::kLeft}) {
    pose[side * kEyeValues + 3] += given.centre_x[side] - truth.centre_x[side];
  }
  const accuracy::Scene scene(truth, truth.pose, [&](PixelPair& pair) {
    for (const Warp& warp : input.warps) {
      follow(warp, false, truth.height, truth.half_width(), pair.right_x, pair.right_y);
      follow(warp, true, truth.height, truth.half_width(), pair.left_x, pair.left_y);
    }
  });
  Error error{scene.judge(pose)};
  error.core_excess = error.core;
  if (input.warps.empty()) return error;
  accuracy::OptimumSettings settings;
  settings.sigma = 1000.0;  // pixels: as good as least squares
  const accuracy::Pose best = find_optimum(truth, scene.core_pairs(), {truth.pose}, settings);
  const double least = scene.judge(best).core;
  error.core_excess = std::sqrt(std::max(error.core * error.core - least * least, 0.0));
  return error;
}

}  // namespace twintrue::false_success
