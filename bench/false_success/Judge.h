#pragma once

// How far a result is from the truth, in pixels.

#include <array>

#include "Inputs.h"
#include "SceneError.h"

namespace twintrue::false_success {

// Error of the rig that the input's lens file describes with ten corrections added (right eye first: pan,
// tilt, roll, offsets), judged through the true lens's own curve and scale: a lens file that is wrong in
// those is not what a calibration can mend. Circle centres that differ count as offsets.
//
// Where the frame shows the scene warped, the error is that of what is shown.
struct Error : accuracy::SceneError {
  // What the result adds (as squares) to the core error of the pose that fits best: no other could do better.
  double core_excess = 0.0;
};

// Needs an input that some lens file is true of.
Error error_of(const Input& input, const std::array<double, 10>& corrections);

}  // namespace twintrue::false_success
