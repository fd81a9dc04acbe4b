#pragma once

// The pose to be written: what the search found, less what the frame does not tell.

#include <array>
#include <vector>

#include "lens/RigModel.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"
#include "verdict/PairView.h"
#include "verdict/Spread.h"

namespace twintrue {

struct Settled {
  CalibResult pose{};  // the ten values; the other fields are those of the search's result
  EyeShapes shapes;    // for with_shapes(); all 0 unless they were asked for
  bool moved = false;  // false: the search's own pose, which nothing fits better
  // Standard deviations of what the eyes differ by and of what both have in common, as PoseFit has them, but
  // with the lens file believed. All 0 if nothing moved.
  std::array<double, 5> difference_sd{};
  std::array<double, 5> common_sd{};
  EyeShapes shapes_sd;  // 0 unless they were asked for
  // Values of which the matches tell next to nothing: what the lens file says is kept.
  std::array<bool, 5> difference_kept{};
  std::array<bool, 5> common_kept{};
};

// Keypoints are whole pixels; a lens's curve is no better known.
inline constexpr FitNoise kWholePixelNoise{0.3, 0.1};

// Settles the result of a search over `matches`; `rig` is as read from the lens file.
//
// A value that the matches fix goes where they fit best: a least-squares fit in which wrong matches count
// next to nothing. What they leave open stays at the lens file's own value, be it that the search ended
// elsewhere, or at its limit: the tilt and offset that both eyes have in common above all. What the eyes
// differ by is shared out between both, so that the horizon stays where it is.
//
// The result fits the matches as well as the search's: the sum of their squared errors in standard
// deviations, wrong ones counting no more than a pixel or two and each field of the picture as the few
// independent matches that it is, is larger by 10 at most, which is how far ten
// values lie off their best fit by noise alone. Where the lens file stands against that, it is believed less;
// where nothing helps, the search's pose stays. With `fit_shapes` the shapes of the eyes' pictures are fitted
// as well. Matches on graphics that are burned into both halves are left out. `least_noise`: of the matches,
// where less is found. A pure function: safe on any number of threads.
Settled settle_pose(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& result,
                    bool fit_shapes = false, const FitNoise& least_noise = kWholePixelNoise);

}  // namespace twintrue
