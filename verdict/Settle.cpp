#include "verdict/Settle.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "verdict/Graphics.h"
#include "verdict/PoseFit.h"
#include "verdict/RobustFit.h"
#include "verdict/Spread.h"

namespace twintrue {
namespace {

constexpr std::size_t kMostMatches = 10000;  // more fix the pose no better: neighbours err together
constexpr double kScale = 1.5;              // pixels beyond which an error counts little

// How well a lens file is believed, standard deviations. It may be far off in how the eyes stand to each
// other, but what both have in common it knows: the eyes sit in one body. Where a real frame speaks of that
// at all, other shots of the rig contradict it.
Belief trust_in_lens_file(const RigState& rig, double tightness, bool fit_shapes) {
  constexpr double kDegree = std::numbers::pi / 180.0;
  constexpr double kOffsetDifference = 0.001;  // of the frame's width: 8 pixels of 8192
  const double common_offset = fit_shapes ? 0.0001 : 0.00025;
  constexpr std::array<double, 3> kAngleDifference{3.0 * kDegree, 3.0 * kDegree, 3.0 * kDegree};
  // Where the shapes are not fitted what both have in common, the pan above all, takes up what is wrong with
  // them.
  constexpr std::array<double, 3> kCommonAngle{3.0 * kDegree, 0.3 * kDegree, 0.3 * kDegree};
  constexpr std::array<double, 3> kCommonAngleBesideShapes{0.3 * kDegree, 0.1 * kDegree, 0.1 * kDegree};
  const std::array<double, 3>& common_angle = fit_shapes ? kCommonAngleBesideShapes : kCommonAngle;
  constexpr double kNone = 1e-9;
  Belief belief;
  for (int i = 0; i < 5; ++i) {
    const auto value = static_cast<std::size_t>(i);
    const bool is_angle = value < kAngleDifference.size();
    belief.add(difference_direction(i),
               (is_angle ? kAngleDifference[value] : kOffsetDifference * rig.frame_width) / tightness);
    belief.add(common_direction(i),
               (is_angle ? common_angle[value] : common_offset * rig.frame_width) / tightness);
  }
  belief.add(FitVector::Unit(kScaleValue), fit_shapes ? kPriorScaleRatio : kNone);
  belief.add(FitVector::Unit(kShiftValue), fit_shapes ? kPriorShift : kNone);
  return belief;
}

// What the sum may be above the search's: as much as ten values lie off their best fit by the matches' noise.
constexpr double kSlack = 10.0;

// How badly matches fit, as a sum of squares in standard deviations, wrong ones counting as kScale pixels.
// Each field of the picture is weighed by the matches that lie in it under one rig, so that rigs can be
// compared.
class Misfit {
 public:
  Misfit(PairView& view, const std::vector<RayMatch>& matches, const FitNoise& noise)
      : view_(view), matches_(matches), weight_(matches.size()) {
    std::array<double, kFields> crowd{};
    std::vector<std::size_t> field(matches.size(), kFields);
    for (std::size_t m = 0; m < matches.size(); ++m) {
      const RayPair pair = view.look(matches[m]);
      if (!pair.seen || pair.farther > kRim) continue;
      field[m] = field_of(pair);
      crowd[field[m]] += 1.0;
    }
    for (std::size_t m = 0; m < matches.size(); ++m) {
      if (field[m] == kFields) continue;
      weight_[m] = 1.0 / (noise.match * noise.match + crowd[field[m]] * noise.field * noise.field);
    }
  }

  double of(const FitVector& values) const {
    view_.put(pose_of(values, CalibResult{}), shapes_of(values));
    double sum = 0.0;
    for (std::size_t m = 0; m < matches_.size(); ++m) {
      if (weight_[m] == 0.0) continue;
      const RayPair pair = view_.look(matches_[m]);
      // A pair that is not seen fits as badly as any.
      const double square = pair.across * pair.across / (kScale * kScale);
      sum += weight_[m] * (pair.seen ? square / (1.0 + square) : 1.0);
    }
    return kScale * kScale * sum;
  }

 private:
  PairView& view_;
  const std::vector<RayMatch>& matches_;
  std::vector<double> weight_;
};

double fitting_share(const PairView& view, const std::vector<RayMatch>& matches) {
  const auto fitting = std::count_if(matches.begin(), matches.end(), [&view](const RayMatch& match) {
    const RayPair pair = view.look(match);
    return pair.seen && std::abs(pair.across) < kFitting;
  });
  return static_cast<double>(fitting) / static_cast<double>(std::max<std::size_t>(matches.size(), 1));
}

// The scales of the steps. Where most matches fit already the others are wrong, or lie on what moved, and a
// loose step would let them pull; elsewhere the search stopped on its way.
std::array<double, 5> scales_from(double fitting) {
  if (fitting > 0.5) return {kScale, kScale, kScale, kScale, kScale};
  return {4.0 * kScale, 2.0 * kScale, kScale, kScale, kScale};
}

// Whether the matches add next to nothing to what is believed of a value.
bool is_kept(const RobustFit& fit, const Belief& belief, const FitVector& direction) {
  constexpr double kHardlyLess = 0.7;
  return std::sqrt(fit.variance_along(direction)) > kHardlyLess * belief.deviation_along(direction);
}

Settled settled_at(const FitVector& values, const RobustFit& fit, const Belief& belief,
                   const CalibResult& result) {
  Settled settled;
  settled.pose = pose_of(values, result);
  settled.moved = true;
  for (int i = 0; i < kPoseValues / 2; ++i) {
    const auto value = static_cast<std::size_t>(i);
    settled.difference_sd[value] = std::sqrt(fit.variance_along(difference_direction(i)));
    settled.common_sd[value] = std::sqrt(fit.variance_along(common_direction(i)));
    settled.difference_kept[value] = is_kept(fit, belief, difference_direction(i));
    settled.common_kept[value] = is_kept(fit, belief, common_direction(i));
  }
  return settled;
}

}  // namespace

Settled settle_pose(const RigState& rig, const std::vector<RayMatch>& matches, const CalibResult& result,
                    bool fit_shapes, const FitNoise& least_noise) {
  PairView view(rig);
  view.put(result);
  const std::vector<RayMatch> scene = some_of(split_graphics(view, matches).scene, kMostMatches);
  const FitNoise noise = noise_of(view, scene, least_noise);
  const Misfit misfit(view, scene, noise);
  const FitVector start = fit_vector_of(result);
  const double most = misfit.of(start) + kSlack;
  const std::array<double, 5> scales = scales_from(fitting_share(view, scene));
  // The lens file is believed less and less until the matches are no worse off.
  for (const double tightness : {1.0, 0.05}) {
    const Belief belief = trust_in_lens_file(rig, tightness, fit_shapes);
    RobustFit fit(rig, scene, belief, FitVector::Zero(), start);
    FitNoise now = noise;
    for (const double scale : scales) {
      fit.step(scale, now);
      view.put(pose_of(fit.values(), CalibResult{}), shapes_of(fit.values()));
      now = noise_of(view, scene, least_noise);
    }
    if (misfit.of(fit.values()) > most) continue;
    const FitVector values = fit.values();
    // How far the values are known depends on all that is off, and not only on what is usual for a field.
    now.field = std::max(now.field, rms_bias_of(view, scene, now.match));
    fit.step(kScale, now);
    Settled settled = settled_at(values, fit, belief, result);
    if (fit_shapes) {
      settled.shapes = shapes_of(values);
      settled.shapes_sd = {std::sqrt(fit.variance_along(FitVector::Unit(kScaleValue))),
                           std::sqrt(fit.variance_along(FitVector::Unit(kShiftValue)))};
    }
    return settled;
  }
  Settled as_found;
  as_found.pose = result;
  return as_found;
}

}  // namespace twintrue
