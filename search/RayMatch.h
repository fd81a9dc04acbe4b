#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace twintrue {

// One match on its way to the search. The first 24 words are those of a record that leaves the match stage.
// Frame A is the left half of the frame, so (x_a, y_a) is what the right eye sees; (x_b, y_b) is seen by the
// left eye and counts from the start of the right half. Pixels, x to the right and y downward.
struct RayMatch {
  float x_a = 0.0f;
  float y_a = 0.0f;
  float x_b = 0.0f;
  float y_b = 0.0f;
  float prev_dx = 0.0f;
  float prev_dy = 0.0f;
  std::int32_t octave_a = 0;
  std::int32_t octave_b = 0;
  float response_a = 0.0f;
  float response_b = 0.0f;
  std::int32_t dist_ratio = 0;
  std::int32_t prev_state = 0;
  std::int32_t cell = 0;
  std::int32_t rank = 0;  // place in the cell's sorted list; 0 is the best
  std::int32_t score[4] = {};
  std::int32_t prev_score[4] = {};
  std::int32_t accepted = 0;  // 1 when flagging accepted the record
  std::int32_t reserved = 0;

  // Distance of (x_a, y_a) from the middle of the right eye's picture in radii of the image circle. Written
  // by filter_and_search.
  double rratio = 0.0;
};

inline constexpr std::int32_t kRecordBytes = 24 * 4;
static_assert(std::is_trivially_copyable_v<RayMatch> && offsetof(RayMatch, rratio) == kRecordBytes);

}  // namespace twintrue
