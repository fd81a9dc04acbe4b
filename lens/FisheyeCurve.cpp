#include "lens/FisheyeCurve.h"

#include <cmath>

namespace twintrue {

double fisheye_radius(const FisheyeCurve& curve, double theta) {
  switch (curve.kind) {
    case FisheyeKind::kEquisolid:
      return 2.0 * std::sin(0.5 * theta);
    case FisheyeKind::kStereographic:
      return 2.0 * std::tan(0.5 * theta);
    case FisheyeKind::kOrthographic:
      return std::sin(theta);
    case FisheyeKind::kPolynomial: {
      const double s = theta * theta;
      return theta * (1.0 + s * (curve.k[0] + s * (curve.k[1] + s * (curve.k[2] + s * curve.k[3]))));
    }
    case FisheyeKind::kEquidistant:
      break;
  }
  return theta;
}

double fisheye_slope(const FisheyeCurve& curve, double theta) {
  switch (curve.kind) {
    case FisheyeKind::kEquisolid:
      return std::cos(0.5 * theta);
    case FisheyeKind::kStereographic: {
      const double cosine = std::cos(0.5 * theta);
      return 1.0 / (cosine * cosine);
    }
    case FisheyeKind::kOrthographic:
      return std::cos(theta);
    case FisheyeKind::kPolynomial: {
      const double s = theta * theta;
      return 1.0 +
             s * (3.0 * curve.k[0] + s * (5.0 * curve.k[1] + s * (7.0 * curve.k[2] + s * 9.0 * curve.k[3])));
    }
    case FisheyeKind::kEquidistant:
      break;
  }
  return 1.0;
}

double fisheye_reach(const FisheyeCurve& curve, double limit) {
  constexpr int kSteps = 2000;
  for (int i = 1; i <= kSteps; ++i) {
    // Not "at most 0": a slope that is no number doesn't grow either.
    if (!(fisheye_slope(curve, limit * i / kSteps) > 0.0)) return limit * (i - 1) / kSteps;
  }
  return limit;
}

}  // namespace twintrue
