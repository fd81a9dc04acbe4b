#pragma once

// How fisheye lenses are described elsewhere: by the name of a projection, or by a polynomial that a
// calibration fitted. The curves of lens files are fitted to these; see FirstLens.h.

#include <array>

namespace twintrue {

// Radius in the picture, in focal lengths, of a point `theta` radians off the axis.
enum class FisheyeKind {
  kEquidistant,    // theta
  kEquisolid,      // 2 sin(theta / 2)
  kStereographic,  // 2 tan(theta / 2)
  kOrthographic,   // sin(theta)
  kPolynomial,     // theta (1 + k1 theta^2 + k2 theta^4 + k3 theta^6 + k4 theta^8)
};

// kPolynomial is the model of Kannala and Brandt (2006) as OpenCV's fisheye module has it.
struct FisheyeCurve {
  FisheyeKind kind = FisheyeKind::kEquidistant;
  std::array<double, 4> k{};  // k1 to k4 of kPolynomial, without meaning for the others

  bool operator==(const FisheyeCurve&) const = default;
};

// The radius at an angle, and how fast it grows there. Angles from 0 to pi; the tangent has a pole at pi.
double fisheye_radius(const FisheyeCurve& curve, double theta);
double fisheye_slope(const FisheyeCurve& curve, double theta);

// The largest angle up to which the radius grows, at most `limit`. Exact to a two-thousandth of `limit`, on
// the side of caution; `limit` itself where the curve never turns back.
double fisheye_reach(const FisheyeCurve& curve, double limit);

}  // namespace twintrue
