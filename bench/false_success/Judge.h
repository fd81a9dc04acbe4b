#pragma once

// How far a result is from the truth, in pixels.

#include <array>
#include <string>

#include "SceneError.h"

namespace twintrue::false_success {

// Error of the rig that `lens_text` describes with ten corrections added (right eye first: pan, tilt, roll,
// offsets), judged through the true lens's own curve and scale: a lens file that is wrong in those is not
// what a calibration can mend. Circle centres that differ count as offsets.
accuracy::SceneError error_of(const std::string& true_lens_text, const std::string& lens_text,
                              const std::array<double, 10>& corrections);

}  // namespace twintrue::false_success
