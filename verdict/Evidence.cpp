#include "verdict/Evidence.h"
#include "refine/FieldError.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <utility>

#include "search/PoseCandidate.h"
#include "verdict/Graphics.h"

namespace twintrue {
namespace {

double share(std::int64_t part, std::int64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

// Collects a part's matches.
class Part {
 public:
  void add(const RayPair& pair) {
    ++count_;
    if (std::abs(pair.across) < kFitting) ++fitting_;
    if (std::abs(pair.across) < kNearPixels) across_.push_back(pair.across);
  }

  PartEvidence evidence() {
    PartEvidence part;
    part.matches = count_;
    part.fitting = share(fitting_, count_);
    if (!across_.empty()) part.bias = quantile_of(across_);
    return part;
  }
  std::int64_t fitting() const { return fitting_; }
  std::vector<double>& across() { return across_; }

 private:
  std::int64_t count_ = 0;
  std::int64_t fitting_ = 0;
  std::vector<double> across_;
};

// Farthest that the search could move a value of the first retry, along its levels.
double reach_of(const CalibContext& context, std::size_t value) {
  const std::array<SweepRange EyeSweep::*, 5> ranges{&EyeSweep::pan, &EyeSweep::tilt, &EyeSweep::roll,
                                                     &EyeSweep::offset_x, &EyeSweep::offset_y};
  const auto& table = value < 5 ? context.right_table[0] : context.left_table[0];
  double reach = 0.0;
  for (std::size_t l = 0; l < kMaxLevels && static_cast<std::int32_t>(l) < context.num_levels[0]; ++l) {
    if (context.skip[0][l] == 0) reach += (table[l].*ranges[value % 5]).max;
  }
  const PoseLimits& limits = context.limits[0];
  const std::array<double, 5> limit{limits.pan_max, limits.tilt_max, 0.0, limits.offset_x_max,
                                    limits.offset_y_max};
  return limit[value % 5] > 0.0 ? std::min(reach, limit[value % 5]) : reach;
}

constexpr std::array<const char*, 5> kNames{"pan", "tilt", "roll", "offset x", "offset y"};
constexpr double kNearly = 0.95;  // of the reach: steps do not end on it exactly

// Values in which the eyes differ by as much as the right one, which takes the difference, can go.
std::vector<std::string> differences_at_limit(const CalibContext& context, const CalibResult& pose) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    const double reach = reach_of(context, i);
    const double difference = pose.*kPoseFields[i] - pose.*kPoseFields[i + kNames.size()];
    if (reach > 0.0 && std::abs(difference) >= kNearly * reach) names.emplace_back(kNames[i]);
  }
  return names;
}

// Values of the left eye.
std::vector<std::string> left_at_limit(const CalibContext& context, const CalibResult& pose) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    const std::size_t left = i + kNames.size();
    const double reach = reach_of(context, left);
    if (reach > 0.0 && std::abs(pose.*kPoseFields[left]) >= kNearly * reach) names.emplace_back(kNames[i]);
  }
  return names;
}

double fitting_share(const PairView& view, const std::vector<RayMatch>& matches) {
  std::int64_t fitting = 0;
  for (const RayMatch& match : matches) {
    const RayPair pair = view.look(match);
    if (pair.seen && std::abs(pair.across) < kFitting) ++fitting;
  }
  return share(fitting, static_cast<std::int64_t>(matches.size()));
}

double exchanged_share(const PairView& view, const std::vector<RayMatch>& matches) {
  constexpr double kRoughly = 0.038;  // radians: some 2 degrees, as lenses are off
  const double near = kRoughly * pixels_per_radian(view.rig());
  std::int64_t count = 0;
  for (RayMatch match : matches) {
    std::swap(match.x_a, match.x_b);
    std::swap(match.y_a, match.y_b);
    const RayPair pair = view.look(match);
    if (pair.seen && std::abs(pair.across) < near && pair.parallax > 0.0) ++count;
  }
  return share(count, static_cast<std::int64_t>(matches.size()));
}

double unmoved_share(const std::vector<RayMatch>& matches) {
  const auto unmoved = std::count_if(matches.begin(), matches.end(), [](const RayMatch& match) {
    return match.x_a == match.x_b && match.y_a == match.y_b;
  });
  return share(unmoved, static_cast<std::int64_t>(matches.size()));
}

std::array<double, 2> middle_of(const std::vector<RayMatch>& matches) {
  if (matches.empty()) return {};
  std::vector<double> x;
  std::vector<double> y;
  for (const RayMatch& match : matches) {
    x.push_back(static_cast<double>(match.x_a));
    y.push_back(static_cast<double>(match.y_a));
  }
  return {quantile_of(x), quantile_of(y)};
}

// Those that are not at the rim. A match that has no rays stays: it fits nothing.
std::vector<RayMatch> inside_rim(const PairView& view, const std::vector<RayMatch>& matches) {
  std::vector<RayMatch> inside;
  for (const RayMatch& match : matches) {
    const RayPair pair = view.look(match);
    if (!pair.seen || pair.farther <= kRim) inside.push_back(match);
  }
  return inside;
}

// What is counted match by match.
struct Counts {
  std::array<Part, 3> rings;
  std::array<Part, 4> quadrants;
  std::array<Part, kFields> fields;
  std::array<std::int64_t, 3> within{};
  std::int64_t behind = 0;
  std::vector<double> distances;
  std::vector<double> parallaxes;

  void add(const RayPair& pair) {
    const double off = std::abs(pair.across);
    for (std::size_t i = 0; i < within.size(); ++i) {
      if (off < static_cast<double>(1 << i)) ++within[i];
    }
    const auto ring = static_cast<std::size_t>(pair.off_axis * static_cast<double>(rings.size()));
    const double turn = pair.angle / (2.0 * std::numbers::pi);
    const auto quadrant = static_cast<std::size_t>((turn < 0.0 ? turn + 1.0 : turn) * 4.0);
    rings[std::min(ring, rings.size() - 1)].add(pair);
    quadrants[std::min(quadrant, quadrants.size() - 1)].add(pair);
    fields[field_of(pair)].add(pair);
    if (off < kNearPixels) distances.push_back(off);
    if (off >= kFitting) return;
    parallaxes.push_back(pair.parallax);
    constexpr double kClearly = -2.0;  // pixels: noise turns far points by less
    if (pair.parallax < kClearly) ++behind;
  }
};

void put_counts(Counts& counts, std::int64_t total, Evidence& evidence) {
  for (std::size_t i = 0; i < counts.within.size(); ++i) {
    evidence.within[i] = share(counts.within[i], total);
  }
  evidence.noise = deviation_of_distances(counts.distances);
  evidence.behind = share(counts.behind, static_cast<std::int64_t>(counts.parallaxes.size()));
  if (!counts.parallaxes.empty()) {
    evidence.parallax_spread = quantile_of(counts.parallaxes, 0.9) - quantile_of(counts.parallaxes, 0.1);
  }
  for (std::size_t i = 0; i < counts.rings.size(); ++i) evidence.rings[i] = counts.rings[i].evidence();
  for (std::size_t i = 0; i < counts.quadrants.size(); ++i) {
    evidence.quadrants[i] = counts.quadrants[i].evidence();
  }
  constexpr std::int64_t kHeld = 3;  // matches that make a field count as held
  const auto held = std::count_if(counts.fields.begin(), counts.fields.end(),
                                  [](const Part& part) { return part.fitting() >= kHeld; });
  evidence.coverage = share(held, kFields);
  std::array<std::vector<double>, kFields> across;
  for (std::size_t i = 0; i < across.size(); ++i) across[i] = counts.fields[i].across();
  evidence.systematic = spread_of_fields(across, evidence.noise);
}

}  // namespace

Evidence gather_evidence(const CalibContext& context, const RigState& rig,
                         const std::vector<RayMatch>& matches, const CalibResult& pose) {
  PairView view(rig);
  view.put(pose);
  const SplitMatches split = split_graphics(view, matches);
  const std::vector<RayMatch> inside = inside_rim(view, split.scene);
  Evidence evidence;
  evidence.pixels_per_radian = pixels_per_radian(rig);
  evidence.matches = static_cast<std::int64_t>(matches.size());
  evidence.at_rim = static_cast<std::int64_t>(split.scene.size() - inside.size());
  evidence.graphics = static_cast<std::int64_t>(split.graphics.size());
  evidence.graphics_at = middle_of(split.graphics);
  evidence.unmoved = unmoved_share(matches);
  Counts counts;
  for (const RayMatch& match : inside) {
    const RayPair pair = view.look(match);
    if (pair.seen) counts.add(pair);
  }
  put_counts(counts, static_cast<std::int64_t>(inside.size()), evidence);
  view.put(CalibResult{});
  evidence.before = fitting_share(view, inside);
  evidence.exchanged = exchanged_share(view, matches);
  evidence.right_at_limit = differences_at_limit(context, pose);
  evidence.left_at_limit = left_at_limit(context, pose);
  evidence.fit = fit_pose(rig, inside, pose);
  evidence.change = field_difference(rig, CalibResult{}, pose);
  return evidence;
}

Evidence gather_evidence(const CalibContext& context, const RigState& rig,
                         const std::vector<RayMatch>& matches, const Polished& polished) {
  Evidence evidence = gather_evidence(context, with_shapes(rig, polished.shapes), matches, polished.pose);
  if (polished.refinement.kept > 0) {
    evidence.uneven = std::hypot(polished.refinement.expected_error, polished.refinement.common);
  }
  if (!polished.settled.moved && !polished.refinement.taken) return evidence;
  evidence.polished = true;
  evidence.left_at_limit.clear();
  evidence.fit.difference_sd = polished.difference_sd;
  evidence.fit.common_sd = polished.common_sd;
  evidence.refined = polished.refinement.taken;
  evidence.shaped = polished.settled.shapes_sd.log_scale_ratio > 0.0;
  if (evidence.refined) evidence.fit.expected_error = polished.refinement.expected_error;
  return evidence;
}

}  // namespace twintrue
