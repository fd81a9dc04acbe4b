#include "matching/Flagging.h"

#include <algorithm>

#include "base/Saturate.h"
#include "matching/Rounding.h"

namespace fpu {
namespace {

constexpr std::int64_t kBorder = 16;       // pixels
constexpr float kLongRatio = 0.02f;        // of the shorter side: from here on a vector is long
constexpr std::int32_t kBrightness = 256;  // nothing measures the picture's, so it counts as bright
constexpr std::int32_t kNightBrightness = 20;
constexpr std::int32_t kNightResponse = 12000;
constexpr std::int64_t kShortVector2 = 101;  // squared pixels; below it a vector is very short

std::int64_t squared_limit(float side, float ratio) {
  const float limit = side * ratio;
  return twintrue::truncate_to_int32(limit * limit);
}

// At least one response reaches `one`, and both reach `both`.
bool responses_reach(std::int32_t resp_a, std::int32_t resp_b, std::int64_t one, std::int64_t both) {
  return std::max(resp_a, resp_b) >= one && std::min(resp_a, resp_b) >= both;
}

bool hits_rule(const CheckRule& rule, const MatchVector& vector) {
  const std::int32_t scores[] = {vector.score1, vector.score2, vector.score3, vector.score4};
  if (rule.ch < 1 || rule.ch > 4) return false;
  return scores[rule.ch - 1] >= rule.score_th && vector.dist_ratio >= rule.dist_ratio_th;
}

std::int32_t background_score(const CheckSettings& settings, const MatchVector& vector) {
  switch (settings.ch_bg) {
    case 2:
      return vector.score2;
    case 3:
      return vector.score3;
    case 4:
      return vector.score4;
    default:
      return vector.score1;
  }
}

bool background_test(const CheckSettings& settings, const MatchVector& vector, std::int32_t resp_a,
                     std::int32_t resp_b, std::int64_t e2, std::int64_t bg_th2) {
  if (e2 >= bg_th2) return false;
  if (background_score(settings, vector) < settings.score_th_bg) return false;
  return responses_reach(resp_a, resp_b, settings.res_th_bg, settings.res_th_bg_both);
}

}  // namespace

bool foreground_test(const CheckSettings& settings, const MatchVector& vector, std::int32_t resp_a,
                     std::int32_t resp_b, std::int32_t brightness, std::int64_t mv2) {
  if (vector.rank >= settings.rank_th) return false;
  const bool hit = std::any_of(settings.rules.begin(), settings.rules.end(),
                               [&](const CheckRule& rule) { return hits_rule(rule, vector); });
  if (settings.auto_night_mode != 0 && brightness <= kNightBrightness) {
    return hit && responses_reach(resp_a, resp_b, kNightResponse, kNightResponse);
  }
  // A very short vector is easily a chance match, so its keypoints must be stronger.
  std::int64_t one = settings.res_th;
  std::int64_t both = settings.res_th_both;
  if (mv2 < kShortVector2) {
    one = 3 * one / 2;
    both = 3 * both / 2;
  }
  return hit && responses_reach(resp_a, resp_b, one, both);
}

std::int32_t flag_records(const CheckSettings& settings, const FeatureFrame& frame_a,
                          const FeatureFrame& frame_b, MatchSet& match_set, std::int32_t gmv_x,
                          std::int32_t gmv_y) {
  const std::int32_t width = match_set.unit->grid.frameWidth;
  const std::int32_t height = match_set.unit->grid.frameHeight;
  const auto side = static_cast<float>(std::min(width, height));
  const std::int64_t long_th2 = squared_limit(side, kLongRatio);
  const std::int64_t gmv_th2 = squared_limit(side, settings.long_mv_th_ratio_gmv);
  const std::int64_t bg_th2 = squared_limit(side, settings.long_mv_th_ratio_gmv_bg);

  std::int32_t accepted = 0;
  auto record = match_set.records.begin();
  const std::int32_t cells = match_set.grid->numCells();
  for (std::int32_t cell = 0; cell < cells; ++cell) {
    const MatchVector* const first = match_set.cell(cell);
    for (const MatchVector* vector = first; vector != first + match_set.count(cell); ++vector, ++record) {
      const KeyPointRecord& a = keypoint_a(frame_a, *vector);
      const KeyPointRecord& b = keypoint_b(frame_b, *vector);
      const std::int64_t x = round_coordinate(a.x);
      const std::int64_t y = round_coordinate(a.y);
      const std::int64_t dx = round_coordinate(b.x) - x;
      const std::int64_t dy = round_coordinate(b.y) - y;
      const std::int64_t mv2 = dx * dx + dy * dy;
      const std::int64_t e2 = (dx - gmv_x) * (dx - gmv_x) + (dy - gmv_y) * (dy - gmv_y);
      const std::int64_t px = x + gmv_x;
      const std::int64_t py = y + gmv_y;

      record->accepted = 0;
      if (!foreground_test(settings, *vector, a.score, b.score, kBrightness, mv2) &&
          !background_test(settings, *vector, a.score, b.score, e2, bg_th2)) {
        continue;
      }
      if (std::min(px, py) < kBorder || px >= width - kBorder || py >= height - kBorder) continue;
      if (e2 >= gmv_th2 && mv2 >= long_th2) continue;
      record->accepted = 1;
      ++accepted;
    }
  }
  return accepted;
}

}  // namespace fpu
