#pragma once

// The pose to be written: what the search found, less what the frame does not tell.

#include <array>
#include <vector>

#include "lens/RigModel.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"

namespace twintrue {

struct Settled {
  CalibResult pose{};  // the ten values; the other fields are those of the search's result
  double scale_ratio =
      1.0;             // of the eyes, right over left, for with_scale_ratio(); 1 unless it was asked for
  bool moved = false;  // false: the search's own pose, which nothing fits better
  // Standard deviations of what the eyes differ by and of what both have in common, as PoseFit has them, but
  // with the lens file believed. All 0 if nothing moved.
  std::array<double, 5> difference_sd{};
  std::array<double, 5> common_sd{};
  double scale_ratio_sd = 0.0;  // 0 unless the ratio was asked for
  // Values of which the matches tell next to nothing: what the lens file says is kept.
  std::array<bool, 5> difference_kept{};
  std::array<bool, 5> common_kept{};
};

// Settles the result of a search over `matches`; `rig` is as read from the lens file.
//
// A value that the matches fix goes where they fit best: a least-squares fit in which wrong matches count
// next to nothing. What they leave open stays at the lens file's own value, be it that the search ended
// elsewhere, or at its limit: the tilt and offset that both eyes have in common above all. What the eyes
// differ by is shared out between both, so that the horizon stays where it is.
//
// The result fits the matches as well as the search's: the sum of their squared errors in standard
// deviations, wrong ones counting no more than a pixel or two and each field of the picture as the few
// independent matches that it is, is larger by 4 at most, which is what two standard deviations of one value
// make. Where the lens file stands against that, it is believed less; where nothing helps, the search's pose
// stays. With `fit_scale` the ratio of the eyes' scales is fitted as well. Matches on graphics that are
// burned into both halves are left out. A pure function: safe on any number of threads.
Settled settle_pose(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& result,
                    bool fit_scale = false);

}  // namespace twintrue
