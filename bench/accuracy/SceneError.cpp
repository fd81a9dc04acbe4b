#include "SceneError.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Draws.h"

namespace twintrue::accuracy {
namespace {

constexpr int kPoints = 4000;
constexpr std::uint64_t kSeed = 20;
constexpr double kReach = 80.0 * kDegree;
constexpr double kNearest = 0.5;
constexpr double kFarthest = 10.0;
constexpr double kCoreReach = 64.0 * kDegree;
constexpr double kCoreDistance = 3.0;

bool in_rows(const PlainLens& lens, double y) { return y >= 0.0 && y <= lens.height - 1; }

}  // namespace

Scene::Scene(const PlainLens& lens, const Pose& truth, const std::function<void(PixelPair&)>& shown)
    : lens_(lens) {
  Draws draws(kSeed);
  for (int i = 0; i < kPoints; ++i) {
    double angle = 0.0;
    double distance = 0.0;
    const std::array<double, 3> p = draw_point(draws, kReach, kNearest, kFarthest, &angle, &distance);
    View view{};
    const double half_base = lens.baseline / 2.0;
    if (!ray_to_pixel(lens, kRight, &truth[0], {p[0] - half_base, p[1], p[2]}, view.pair.right_x,
                      view.pair.right_y) ||
        !ray_to_pixel(lens, kLeft, &truth[kEyeValues], {p[0] + half_base, p[1], p[2]}, view.pair.left_x,
                      view.pair.left_y) ||
        !in_rows(lens, view.pair.right_y) || !in_rows(lens, view.pair.left_y)) {
      continue;
    }
    view.core = angle <= kCoreReach && distance <= kCoreDistance;
    if (shown) shown(view.pair);
    views_.push_back(view);
  }
}

std::vector<PixelPair> Scene::core_pairs() const {
  std::vector<PixelPair> pairs;
  for (const View& view : views_) {
    if (view.core) pairs.push_back(view.pair);
  }
  return pairs;
}

SceneError Scene::judge(const Pose& pose) const {
  std::vector<double> errors;
  double sum = 0.0;
  double core_sum = 0.0;
  int core_count = 0;
  for (const View& view : views_) {
    std::array<double, 4> d{};
    if (!reprojection(lens_, pose.data(), view.pair, 0.0, std::numeric_limits<double>::infinity(), d))
      continue;
    const double e = 0.5 * (d[0] * d[0] + d[1] * d[1] + d[2] * d[2] + d[3] * d[3]);
    errors.push_back(std::sqrt(e));
    sum += e;
    if (!view.core) continue;
    core_sum += e;
    ++core_count;
  }
  SceneError result;
  const auto count = static_cast<double>(errors.size());
  result.lost = 1.0 - count / static_cast<double>(views_.size());
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  result.core = core_count > 0 ? std::sqrt(core_sum / core_count) : kNone;
  if (errors.empty()) {
    result.rms = result.median = kNone;
    return result;
  }
  result.rms = std::sqrt(sum / count);
  const auto middle = errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2);
  std::nth_element(errors.begin(), middle, errors.end());
  result.median = *middle;
  return result;
}

}  // namespace twintrue::accuracy
