#include "apps/cli/report/Misalignment.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "verdict/Graphics.h"
#include "verdict/Spread.h"

namespace twintrue::cli {
namespace {

using Vec3 = std::array<double, 3>;

Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vec3 baseline_of(const RigState& rig) {
  const Vec3& left = rig.current.left.position;
  const Vec3& right = rig.current.right.position;
  return {right[0] - left[0], right[1] - left[1], right[2] - left[2]};
}

// From the pixel that lies in the plane of the baseline and the other eye's ray to the pixel of `ray`.
Point off_plane(const EyeModel& eye, const Point& at, const Vec3& ray, const Vec3& base, const Vec3& other) {
  const Vec3 normal = cross(base, other);
  const double square = dot(normal, normal);
  if (square == 0.0) return {};
  const double out = dot(normal, ray) / square;
  Point in_plane{};
  if (!eye_ray_to_image(eye, in_plane.data(), &in_plane[1], ray[0] - out * normal[0],
                        ray[1] - out * normal[1], ray[2] - out * normal[2])) {
    return {};
  }
  return {at[0] - in_plane[0], at[1] - in_plane[1]};
}

std::array<Point, 2> arrows_of(const PairView& view, const RayMatch& match, const SeenMatch& seen) {
  const Vec3 right = view.right_ray(match);
  const Vec3 left = view.left_ray(match);
  const RigModel& model = view.rig().current;
  const Vec3 base = baseline_of(view.rig());
  return {off_plane(model.right, seen.at[0], right, base, left),
          off_plane(model.left, seen.at[1], left, base, right)};
}

// Of the right eye to where the rays meet, by the law of sines.
double distance_of(const PairView& view, const RayMatch& match, double parallax) {
  const double angle = parallax / pixels_per_radian(view.rig());
  if (!(angle > 0.0)) return std::numeric_limits<double>::infinity();
  const Vec3 base = baseline_of(view.rig());
  const Vec3 left = view.left_ray(match);
  const Vec3 side = cross(base, left);
  return std::sqrt(dot(side, side) / dot(left, left)) / std::sin(std::min(angle, std::numbers::pi / 2.0));
}

void put_directions(const PairView& view, const RayMatch& match, SeenMatch& seen) {
  const Vec3 ray = view.right_ray(match);
  seen.ahead = ray[2] < 0.0;
  if (seen.ahead) seen.direction = {-ray[0] / ray[2], -ray[1] / ray[2]};
}

bool same_place(const RayMatch& a, const RayMatch& b) {
  return a.x_a == b.x_a && a.y_a == b.y_a && a.x_b == b.x_b && a.y_b == b.y_b;
}

Circle circle_of(const EyeModel& eye, double radius) {
  return {{eye.center_x + eye.offset_x, eye.center_y - eye.offset_y}, radius};
}

}  // namespace

double Misalignment::arc_minutes(double pixels) const {
  constexpr double kMinutesPerRadian = 180.0 * 60.0 / std::numbers::pi;
  return pixels / pixels_per_radian * kMinutesPerRadian;
}

Misalignment look_at_lens(const RigState& rig) {
  Misalignment result;
  result.circles = {circle_of(rig.current.right, rig.circle_radius_px),
                    circle_of(rig.current.left, rig.circle_radius_px)};
  result.pixels_per_radian = twintrue::pixels_per_radian(rig);
  return result;
}

Misalignment look_at_matches(const RigState& rig, const std::vector<RayMatch>& matches,
                             const CalibResult& pose, const EyeShapes& shapes) {
  Misalignment result = look_at_lens(rig);
  PairView given(rig);
  given.put(CalibResult{});
  PairView corrected(rig);
  corrected.put(pose, shapes);
  const SplitMatches split = split_graphics(corrected, matches);
  auto graphics = split.graphics.begin();  // in the order of the matches
  result.matches.reserve(matches.size());
  for (const RayMatch& match : matches) {
    SeenMatch& seen = result.matches.emplace_back();
    seen.at = {Point{static_cast<double>(match.x_a), static_cast<double>(match.y_a)},
               Point{static_cast<double>(rig.half_width) + static_cast<double>(match.x_b),
                     static_cast<double>(match.y_b)}};
    const RayPair before = given.look(match);
    const RayPair after = corrected.look(match);
    const bool burned_in = graphics != split.graphics.end() && same_place(*graphics, match);
    if (burned_in) ++graphics;
    seen.use = burned_in                            ? SeenMatch::Use::kGraphics
               : after.seen && after.farther > kRim ? SeenMatch::Use::kRim
               : after.seen && before.seen          ? SeenMatch::Use::kCounted
                                                    : SeenMatch::Use::kUnseen;
    if (before.seen) seen.before = before.across;
    if (after.seen) seen.after = after.across;
    if (!before.seen || !after.seen) continue;
    seen.parallax = after.parallax;
    seen.distance = distance_of(corrected, match, after.parallax);
    seen.arrow = {arrows_of(given, match, seen), arrows_of(corrected, match, seen)};
    put_directions(corrected, match, seen);
  }
  return result;
}

std::vector<const SeenMatch*> judged(const Misalignment& misalignment) {
  std::vector<const SeenMatch*> found;
  for (const SeenMatch& match : misalignment.matches) {
    if (match.use == SeenMatch::Use::kCounted || match.use == SeenMatch::Use::kUnseen) {
      found.push_back(&match);
    }
  }
  return found;
}

std::vector<const SeenMatch*> drawable(const Misalignment& misalignment) {
  std::vector<const SeenMatch*> found;
  for (const SeenMatch& match : misalignment.matches) {
    if (match.use == SeenMatch::Use::kCounted) found.push_back(&match);
  }
  return found;
}

Summary summary_of(const std::vector<const SeenMatch*>& matches, Lens lens) {
  Summary summary;
  summary.count = matches.size();
  if (matches.empty()) return summary;
  std::vector<double> distances;
  distances.reserve(matches.size());
  for (const SeenMatch* match : matches) {
    distances.push_back(std::abs(lens == Lens::kGiven ? match->before : match->after));
  }
  const auto fitting =
      std::count_if(distances.begin(), distances.end(), [](double d) { return d < kFitting; });
  summary.fitting = static_cast<double>(fitting) / static_cast<double>(distances.size());
  summary.median = quantile_of(distances);
  summary.most = quantile_of(distances, 0.9);
  return summary;
}

}  // namespace twintrue::cli
