#pragma once

// How well a pose describes a rig, in pixels: scene points are projected with the true pose, and the perfect
// pairs that come of it are judged under the other one.

#include <functional>
#include <vector>

#include "Reprojection.h"
#include "support/PlainLens.h"

namespace twintrue::accuracy {

struct SceneError {
  double rms = 0.0;     // of the root of a pair's error, pixels, over the pairs that have one
  double median = 0.0;  // likewise
  double core = 0.0;    // rms over the points within 64 degrees of the axis and 3 metres of the rig
  double lost = 0.0;    // share of the pairs that have no error: rays that meet behind the rig
};

// Points evenly over the picture to 80 degrees off the axis, 0.5 to 10 metres away, always the same ones.
class Scene {
 public:
  // `shown`: what else happens to a pair's pixels before they are judged.
  Scene(const PlainLens& lens, const Pose& truth, const std::function<void(PixelPair&)>& shown = {});
  SceneError judge(const Pose& pose) const;
  std::vector<PixelPair> core_pairs() const;  // those that `core` is over

 private:
  struct View {
    PixelPair pair;
    bool core;
  };
  const PlainLens& lens_;
  std::vector<View> views_;
};

}  // namespace twintrue::accuracy
