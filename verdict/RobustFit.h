#pragma once

// The pose, and the shapes of the eyes' pictures, that matches ask for: Gauss-Newton steps in which wrong
// matches count next to nothing and what is believed beforehand counts as it is stated.
//
// Matches within a field of the picture err together: they lie on the same things, and the lens's curve is
// off there by the same amount. So the error of a field's mean is taken as that of its matches' noise and of
// a part that they share, which no number of matches averages out.

#include <Eigen/Core>
#include <cstddef>
#include <span>
#include <vector>

#include "search/PoseCandidate.h"
#include "search/RayMatch.h"
#include "verdict/PairView.h"
#include "verdict/Spread.h"

namespace twintrue {

// The ten values in the order of kPoseFields, the logarithm of the scale ratio and the shift; radians and
// pixels.
inline constexpr int kFitValues = kPoseValues + 2;
inline constexpr int kScaleValue = kPoseValues;
inline constexpr int kShiftValue = kPoseValues + 1;
using FitVector = Eigen::Matrix<double, kFitValues, 1>;
using FitMatrix = Eigen::Matrix<double, kFitValues, kFitValues>;

FitVector fit_vector_of(const CalibResult& pose);  // with the lens file's shapes
// The ten values; the other fields are those of `base`.
CalibResult pose_of(const FitVector& values, const CalibResult& base);
EyeShapes shapes_of(const FitVector& values);

// Directions among the values: how the right eye differs from the left one in value 0 to 4 (pan, tilt, roll,
// offset x, offset y), and what both have in common.
FitVector difference_direction(int value);
FitVector common_direction(int value);

// What is believed of the values before any match.
class Belief {
 public:
  // That `direction` times the values is what it is at the centre, to this standard deviation.
  void add(const FitVector& direction, double deviation);
  const FitMatrix& information() const { return information_; }
  // Standard deviation that is believed of `direction` times the values. Needs a belief in every direction.
  double deviation_along(const FitVector& direction) const;

 private:
  FitMatrix information_ = FitMatrix::Zero();
};

class RobustFit {
 public:
  // `centre`: the values about which the belief speaks. The matches must outlive the fit.
  RobustFit(const RigState& rig, std::span<const RayMatch> matches, const Belief& belief,
            const FitVector& centre, const FitVector& start);

  // One step. Errors beyond some `scale` pixels count little.
  void step(double scale, const FitNoise& noise);

  const FitVector& values() const { return values_; }
  // Of the values, as of the last step.
  const FitMatrix& covariance() const { return covariance_; }
  double variance_along(const FitVector& direction) const;

  // Derivatives of the disparity across by the values, about where the fit stands.
  std::vector<FitVector> slopes_of(std::span<const RayMatch> matches);

 private:
  bool slopes_serve() const;

  PairView view_;
  std::span<const RayMatch> matches_;
  FitMatrix belief_;
  FitVector centre_;
  FitVector values_;
  std::vector<FitVector> slopes_;  // of the matches ...
  FitVector slopes_at_;            // ... about these values
  FitMatrix covariance_ = FitMatrix::Identity();
};

// What errors beyond some pixels count in a step.
double robust_weight(double error, double scale);

// Noise of matches as they lie under a pose. `least` is taken where less is found.
FitNoise noise_of(const PairView& view, std::span<const RayMatch> matches, const FitNoise& least);

// Rms over the fields of what their matches have in common, less what noise of that standard deviation
// explains.
double rms_bias_of(const PairView& view, std::span<const RayMatch> matches, double match_noise);

// Every so manyth match, `most` or a few less.
std::vector<RayMatch> some_of(const std::vector<RayMatch>& matches, std::size_t most);

}  // namespace twintrue
