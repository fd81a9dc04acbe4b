#include "verdict/Evidence.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <utility>

namespace twintrue {
namespace {

constexpr double kNear = 2.0 * kFitting;  // still of use for telling where a part's matches lie

double middle_of(std::vector<double>& values, double place = 0.5) {
  const auto at = static_cast<std::ptrdiff_t>(place * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<std::size_t>(at)];
}

double share(std::int64_t part, std::int64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

// Collects a part's matches.
class Part {
 public:
  void add(const RayPair& pair) {
    ++count_;
    if (std::abs(pair.across) < kFitting) ++fitting_;
    if (std::abs(pair.across) < kNear) across_.push_back(pair.across);
  }

  PartEvidence evidence() {
    PartEvidence part;
    part.matches = count_;
    part.fitting = share(fitting_, count_);
    if (!across_.empty()) part.bias = middle_of(across_);
    return part;
  }
  std::int64_t fitting() const { return fitting_; }
  std::size_t near() const { return across_.size(); }

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

// Of the values from `first` on, those of one eye.
std::vector<std::string> values_at_limit(const CalibContext& context, const CalibResult& result,
                                         std::size_t first) {
  constexpr std::array<const char*, 5> kNames{"pan", "tilt", "roll", "offset x", "offset y"};
  constexpr double kNearly = 0.95;  // of the reach: steps do not end on it exactly
  std::vector<std::string> names;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    const double reach = reach_of(context, first + i);
    if (reach > 0.0 && std::abs(result.*kPoseFields[first + i]) >= kNearly * reach) {
      names.emplace_back(kNames[i]);
    }
  }
  return names;
}

// Rms of the biases of fields with enough matches, less the noise of a median.
double systematic_of(std::array<Part, kFields>& fields, double noise) {
  constexpr std::size_t kEnough = 8;
  constexpr double kMedianFactor = std::numbers::pi / 2.0;  // variance of a median against that of a mean
  double sum = 0.0;
  int count = 0;
  for (Part& field : fields) {
    if (field.near() < kEnough) continue;
    const double bias = field.evidence().bias;
    sum += bias * bias - kMedianFactor * noise * noise / static_cast<double>(field.near());
    ++count;
  }
  return count == 0 ? 0.0 : std::sqrt(std::max(sum / count, 0.0));
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
  constexpr double kReferenceWidth = 2048.0;
  constexpr double kRoughly = 12.0;  // pixels of a frame of that width: some 2 degrees, as lenses are off
  const double near = kRoughly * view.rig().frame_width / kReferenceWidth;
  std::int64_t count = 0;
  for (RayMatch match : matches) {
    std::swap(match.x_a, match.x_b);
    std::swap(match.y_a, match.y_b);
    const RayPair pair = view.look(match);
    if (pair.seen && std::abs(pair.across) < near && pair.parallax > 0.0) ++count;
  }
  return share(count, static_cast<std::int64_t>(matches.size()));
}

}  // namespace

Evidence gather_evidence(const CalibContext& context, const RigState& rig,
                         const std::vector<RayMatch>& matches, const CalibResult& result) {
  Evidence evidence;
  evidence.matches = static_cast<std::int64_t>(matches.size());
  PairView view(rig);
  view.put(CalibResult{});
  evidence.before = fitting_share(view, matches);
  evidence.exchanged = exchanged_share(view, matches);
  view.put(result);

  std::array<Part, 3> rings;
  std::array<Part, 4> quadrants;
  std::array<Part, kFields> fields;
  std::array<std::int64_t, 3> within{};
  std::int64_t unmoved = 0;
  std::int64_t behind = 0;
  std::vector<double> distances;
  std::vector<double> parallaxes;
  for (const RayMatch& match : matches) {
    if (match.x_a == match.x_b && match.y_a == match.y_b) ++unmoved;
    const RayPair pair = view.look(match);
    if (!pair.seen) continue;
    const double off = std::abs(pair.across);
    for (std::size_t i = 0; i < within.size(); ++i) {
      if (off < static_cast<double>(1 << i)) ++within[i];
    }
    const auto ring = std::min<std::size_t>(static_cast<std::size_t>(pair.radius * 3.0), 2);
    const double turn = pair.angle / (2.0 * std::numbers::pi);
    rings[ring].add(pair);
    quadrants[std::min<std::size_t>(static_cast<std::size_t>((turn < 0.0 ? turn + 1.0 : turn) * 4.0), 3)].add(
        pair);
    fields[field_of(pair)].add(pair);
    if (off < kNear) distances.push_back(off);
    if (off < kFitting) {
      parallaxes.push_back(pair.parallax);
      constexpr double kClearly = -2.0;  // pixels: noise turns far points by less
      if (pair.parallax < kClearly) ++behind;
    }
  }
  for (std::size_t i = 0; i < within.size(); ++i) evidence.within[i] = share(within[i], evidence.matches);
  evidence.unmoved = share(unmoved, evidence.matches);
  evidence.behind = share(behind, static_cast<std::int64_t>(parallaxes.size()));
  constexpr double kDeviationPerMedian = 1.4826;  // of a normal distribution
  if (!distances.empty()) evidence.noise = kDeviationPerMedian * middle_of(distances);
  if (!parallaxes.empty()) {
    evidence.parallax_spread = middle_of(parallaxes, 0.9) - middle_of(parallaxes, 0.1);
  }
  for (std::size_t i = 0; i < rings.size(); ++i) evidence.rings[i] = rings[i].evidence();
  for (std::size_t i = 0; i < quadrants.size(); ++i) evidence.quadrants[i] = quadrants[i].evidence();
  constexpr std::int64_t kHeld = 3;  // matches that make a field count as held
  const auto held =
      std::count_if(fields.begin(), fields.end(), [](const Part& p) { return p.fitting() >= kHeld; });
  evidence.coverage = share(held, kFields);
  evidence.systematic = systematic_of(fields, evidence.noise);
  evidence.right_at_limit = values_at_limit(context, result, 0);
  evidence.left_at_limit = values_at_limit(context, result, 5);
  constexpr double kLeastNoise = 0.3;  // pixels: keypoints are whole pixels
  evidence.fit = fit_pose(rig, matches, result, std::max(evidence.noise, kLeastNoise));
  return evidence;
}

}  // namespace twintrue
