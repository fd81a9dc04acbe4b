#pragma once

#include <array>
#include <cstdint>

#include "twintrue/calib.h"

namespace twintrue {

// What one pass over the matches leaves. Errors are in squared pixels.
struct MatchScoreSums {
  double score_sum = 0.0;
  double sum4 = 0.0;  // errors below 16, that is 4 pixels squared, and their number
  std::int32_t count4 = 0;
  double sum16 = 0.0;  // errors below 256, 16 pixels squared
  std::int32_t count16 = 0;
};

// Ten corrections as the search tries them, right eye first, radians and pixels, relative to the lens file.
struct PoseCandidate : CalibResult {
  PoseCandidate() : CalibResult{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1.0, -1.0, -1.0, -1.0} {}

  double sigma = 0.0;            // under which the candidate was scored
  std::int32_t last_retry = 0;   // result only: the retry that ran last
  std::int32_t best_retry = -1;  // result only: the retry that gave the result
  MatchScoreSums sums;           // result only: of the final pass
};

inline constexpr int kPoseValues = 10;

// The ten values in the order of CalibResult.
inline constexpr std::array<double CalibResult::*, kPoseValues> kPoseFields{
    &CalibResult::right_pan,      &CalibResult::right_tilt,     &CalibResult::right_roll,
    &CalibResult::right_offset_x, &CalibResult::right_offset_y, &CalibResult::left_pan,
    &CalibResult::left_tilt,      &CalibResult::left_roll,      &CalibResult::left_offset_x,
    &CalibResult::left_offset_y};

}  // namespace twintrue
