#include "apps/TwinTrue/SweepKernel.h"

#include <limits>

#include "apps/TwinTrue/VectorMath.h"

namespace twintrue {
namespace {

constexpr double kHalfPi = 1.5707963267948966;
constexpr double kQuarterPi = 0.7853981633974483;
constexpr double kTwoOverPi = 0.6366197723675814;
constexpr double kTanEighthPi = 0.41421356237309503;
constexpr double kEpsilon = 2.220446049250313e-16;  // keeps the axis from 0 / 0, as in the projection
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TWINTRUE_INLINE double absolute(double v) { return v < 0.0 ? -v : v; }

// Angle of the point (x, y) from the x axis, y >= 0. The quotient is turned into [-tan(pi/8), tan(pi/8)],
// where the series in its square was fitted at Chebyshev nodes to 4e-15 of the quotient.
TWINTRUE_INLINE double angle_of(double y, double x) {
  const double ax = absolute(x);
  const double low = y < ax ? y : ax;
  const double high = y < ax ? ax : y;
  const bool turned = low > kTanEighthPi * high;
  const double q = (turned ? low - high : low) / (turned ? low + high : high);
  const double z = q * q;
  double p = -2.72311888807796817e-02;
  p = p * z + 5.16872560003961146e-02;
  p = p * z - 6.55087877629827176e-02;
  p = p * z + 7.68104134402972233e-02;
  p = p * z - 9.09025566513907701e-02;
  p = p * z + 1.11110896376475143e-01;
  p = p * z - 1.42857139301518915e-01;
  p = p * z + 1.99999999977232085e-01;
  p = p * z - 3.33333333333309223e-01;
  double a = q + q * z * p;
  a = turned ? a + kQuarterPi : a;
  a = y > ax ? kHalfPi - a : a;
  return x < 0.0 ? 2.0 * kHalfPi - a : a;
}

struct Point {
  double x, y, z;
};

TWINTRUE_INLINE Point turn(const std::array<double, 9>& m, const Point& p) {
  return {m[0] * p.x + m[1] * p.y + m[2] * p.z, m[3] * p.x + m[4] * p.y + m[5] * p.z,
          m[6] * p.x + m[7] * p.y + m[8] * p.z};
}

struct Pixel {
  double x, y;
  bool seen;
  bool delicate = false;  // project_lean only
};

template <std::uint32_t kKind>
TWINTRUE_INLINE Pixel project(const SweepEye& eye, const std::array<double, 6>& c, const Point& ray) {
  const Point r = turn(eye.eye_from_rig, ray);
  const double xa = r.x + r.z * eye.shift_x - eye.translate[0];
  const double ya = r.y + r.z * eye.shift_y - eye.translate[1];
  const double za = r.z - eye.translate[2];
  const double x2 = xa * xa;
  const double y2 = ya * ya;
  const double inverse = 1.0 / __builtin_sqrt(x2 + y2 + kEpsilon);
  const double cosine = xa * inverse;
  const double sine_size = __builtin_sqrt(y2 + kEpsilon) * inverse;
  const double sine = ya >= 0.0 ? sine_size : -sine_size;
  const double t = angle_of(__builtin_sqrt(x2 + y2), -za) * kTwoOverPi;

  double p = 0.0;
  double w = 0.0;
  if constexpr (kKind == 1) {
    const double pt = cosine * t * eye.magnify_v;
    const double wt = sine * t * eye.magnify_h;
    const double s = __builtin_sqrt(pt * pt + wt * wt);
    const double percent = s * (c[0] + s * (c[1] + s * (c[2] + s * (c[3] + s * (c[4] + s * c[5])))));
    const double f = 100.0 / (100.0 - percent);
    p = f * pt;
    w = f * wt;
  } else {
    const double percent = t * (c[0] + t * (c[1] + t * (c[2] + t * (c[3] + t * (c[4] + t * c[5])))));
    const double d = t * (1.0 + 0.01 * percent);
    p = cosine * d * eye.magnify_v;
    w = sine * d * eye.magnify_h;
  }
  const double px = eye.scale * p + eye.principal_x;
  const double py = eye.principal_y - eye.scale * w;
  return {px, py, static_cast<bool>((t <= eye.angle_limit) & (px >= eye.x_begin) & (px < eye.x_end))};
}

template <std::uint32_t kKind, bool kMidPoint, SweepError kError>
TWINTRUE_INLINE void errors_of(const SweepPose& pose, const MatchBlock& m, std::size_t count,
                               double* __restrict errors) {
  const SweepEye& left = pose.left;
  const SweepEye& right = pose.right;
  const double wx = right.position[0] - left.position[0];
  const double wy = right.position[1] - left.position[1];
  const double wz = right.position[2] - left.position[2];
  const double* __restrict lx = m.left_rays.x;
  const double* __restrict ly = m.left_rays.y;
  const double* __restrict lz = m.left_rays.z;
  const double* __restrict rx = m.right_rays.x;
  const double* __restrict ry = m.right_rays.y;
  const double* __restrict rz = m.right_rays.z;
  for (std::size_t i = 0; i < count; ++i) {
    const Point d0 = turn(left.rig_from_eye, {lx[i], ly[i], lz[i]});
    const Point d1 = turn(right.rig_from_eye, {rx[i], ry[i], rz[i]});
    const double nx = d0.y * d1.z - d0.z * d1.y;
    const double ny = d0.z * d1.x - d0.x * d1.z;
    const double nz = d0.x * d1.y - d0.y * d1.x;
    const double nn = nx * nx + ny * ny + nz * nz;
    const double inverse = 1.0 / nn;
    const double t =
        ((wy * d1.z - wz * d1.y) * nx + (wz * d1.x - wx * d1.z) * ny + (wx * d1.y - wy * d1.x) * nz) *
        inverse;
    const double u =
        ((wy * d0.z - wz * d0.y) * nx + (wz * d0.x - wx * d0.z) * ny + (wx * d0.y - wy * d0.x) * nz) *
        inverse;
    const double z = ((left.position[2] + t * d0.z) + (right.position[2] + u * d1.z)) * 0.5;
    const double depth = -z;
    bool counts = (nn != 0.0) & (depth > pose.depth_low) & (depth < pose.depth_high);

    Point before_right{};
    Point before_left{};
    if constexpr (kMidPoint) {
      const double mx = ((left.position[0] + t * d0.x) + (right.position[0] + u * d1.x)) * 0.5;
      const double my = ((left.position[1] + t * d0.y) + (right.position[1] + u * d1.y)) * 0.5;
      before_right = {mx - pose.baseline, my, z};
      before_left = {mx + pose.baseline, my, z};
    } else {
      const double s0 = z / d0.z;
      const double s1 = z / d1.z;
      before_right = {s0 * d0.x - pose.baseline, s0 * d0.y, z};
      before_left = {s1 * d1.x + pose.baseline, s1 * d1.y, z};
    }

    double error = 0.0;
    if constexpr (kError == SweepError::kFull) {
      const Pixel a = project<kKind>(right, pose.coeff, before_right);
      const Pixel b = project<kKind>(left, pose.coeff, before_left);
      counts = counts & a.seen & b.seen;
      const double dxb = m.x_b[i] - (b.x - pose.half_width);
      const double dyb = m.y_b[i] - b.y;
      const double dxa = m.x_a[i] - a.x;
      const double dya = m.y_a[i] - a.y;
      error = 0.5 * (dxb * dxb + dyb * dyb + dxa * dxa + dya * dya);
    } else if constexpr (kError == SweepError::kRightOnly) {
      const Pixel a = project<kKind>(right, pose.coeff, before_right);
      counts = counts & a.seen;
      const double dx = m.x_a[i] - a.x;
      const double dy = m.y_a[i] - a.y;
      error = dy * dy * (dy >= -2.0 ? 1.0 - pose.bias : 1.0 + pose.bias) + dx * dx;
    } else {
      const Pixel b = project<kKind>(left, pose.coeff, before_left);
      counts = counts & b.seen;
      const double dx = m.x_b[i] - (b.x - pose.half_width);
      const double dy = m.y_b[i] - b.y;
      error = dy * dy * (dy > 2.0 ? 1.0 + pose.bias : 1.0 - pose.bias) + dx * dx;
    }
    errors[i] = counts ? error : kInfinity;
  }
}

// The lean form of the same, for eyes without shear and translation whose two magnifications are equal, which
// is what lens makers write. Both projections of a match then need two divisions and a root each:
//
//  - Only the direction of a point matters, so the other eye's ray is left at its own length and the baseline
//    is brought to it instead, by the inverse of the ray's stretch.
//  - The azimuth's sine and cosine and the distortion share one denominator.
//
// The projection keeps a point off its axis by an epsilon. Beside a point that isn't within some tens of
// micrometres of the eye's horizontal plane it is nothing; the others are counted as delicate, and the block
// is to be done again in the full form.
template <std::uint32_t kKind>
TWINTRUE_INLINE Pixel project_lean(const SweepEye& eye, const std::array<double, 6>& c, const Point& ray,
                                   double epsilon) {
  constexpr double kFarFromPlane = 1e7;
  const Point r = turn(eye.eye_from_rig, ray);
  const double y2 = r.y * r.y;
  const double across = __builtin_sqrt(r.x * r.x + y2 + epsilon);
  const double t = angle_of(across, -r.z) * kTwoOverPi;
  double g = 0.0;
  if constexpr (kKind == 1) {
    const double s = t * eye.magnify_v;
    const double percent = s * (c[0] + s * (c[1] + s * (c[2] + s * (c[3] + s * (c[4] + s * c[5])))));
    g = eye.scale * s * 100.0 / (across * (100.0 - percent));
  } else {
    const double percent = t * (c[0] + t * (c[1] + t * (c[2] + t * (c[3] + t * (c[4] + t * c[5])))));
    g = eye.scale * eye.magnify_v * t * (1.0 + 0.01 * percent) / across;
  }
  const double px = g * r.x + eye.principal_x;
  const double py = eye.principal_y - g * r.y;
  return {px, py, static_cast<bool>((t <= eye.angle_limit) & (px >= eye.x_begin) & (px < eye.x_end)),
          y2 < kFarFromPlane * epsilon};
}

template <std::uint32_t kKind>
TWINTRUE_INLINE std::uint64_t lean_errors_of(const SweepPose& pose, const MatchBlock& m, std::size_t count,
                                             double* __restrict errors) {
  const SweepEye& left = pose.left;
  const SweepEye& right = pose.right;
  const double half_w = 0.5 * (right.position[0] - left.position[0]);
  const double* __restrict lx = m.left_rays.x;
  const double* __restrict ly = m.left_rays.y;
  const double* __restrict lz = m.left_rays.z;
  const double* __restrict rx = m.right_rays.x;
  const double* __restrict ry = m.right_rays.y;
  const double* __restrict rz = m.right_rays.z;
  std::uint64_t delicate = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Point d0 = turn(left.rig_from_eye, {lx[i], ly[i], lz[i]});
    const Point d1 = turn(right.rig_from_eye, {rx[i], ry[i], rz[i]});
    const double nx = d0.y * d1.z - d0.z * d1.y;
    const double ny = d0.z * d1.x - d0.x * d1.z;
    const double nz = d0.x * d1.y - d0.y * d1.x;
    const double nn = nx * nx + ny * ny + nz * nz;
    // The eyes differ in x alone, so depth times nn is a sum of four products.
    const double z_nn = half_w * ((d1.y * nz - d1.z * ny) * d0.z + (d0.y * nz - d0.z * ny) * d1.z);
    const double inverse_z = nn / z_nn;
    // depth_low < depth < depth_high, of depth = -z_nn / nn and nn > 0.
    const double depth_nn = -z_nn;
    const bool counts = (nn != 0.0) & (depth_nn > pose.depth_low * nn) & (depth_nn < pose.depth_high * nn);
    const double shrink_0 = d0.z * inverse_z;
    const double shrink_1 = d1.z * inverse_z;
    const double sign_0 = shrink_0 < 0.0 ? -1.0 : 1.0;
    const double sign_1 = shrink_1 < 0.0 ? -1.0 : 1.0;
    const Point before_right{sign_0 * (d0.x - pose.baseline * shrink_0), sign_0 * d0.y, sign_0 * d0.z};
    const Point before_left{sign_1 * (d1.x + pose.baseline * shrink_1), sign_1 * d1.y, sign_1 * d1.z};
    const Pixel a = project_lean<kKind>(right, pose.coeff, before_right, kEpsilon * shrink_0 * shrink_0);
    const Pixel b = project_lean<kKind>(left, pose.coeff, before_left, kEpsilon * shrink_1 * shrink_1);
    const double dxb = m.x_b[i] - (b.x - pose.half_width);
    const double dyb = m.y_b[i] - b.y;
    const double dxa = m.x_a[i] - a.x;
    const double dya = m.y_a[i] - a.y;
    const double error = 0.5 * (dxb * dxb + dyb * dyb + dxa * dxa + dya * dya);
    errors[i] = (counts & a.seen & b.seen) ? error : kInfinity;
    delicate += (counts & (a.delicate | b.delicate)) ? 1 : 0;
  }
  return delicate;
}

TWINTRUE_INLINE void exp_of(double factor, std::size_t count, const double* __restrict errors,
                            double* __restrict terms) {
  constexpr double kSmallest = -700.0;  // below, a term is nothing beside the others
  for (std::size_t i = 0; i < count; ++i) {
    const double x = factor * errors[i];
    const double value = vector_math::exp(x < kSmallest ? kSmallest : x);
    terms[i] = x < kSmallest ? 0.0 : value;
  }
}

// Each kernel once for every instruction set.
template <std::uint32_t kKind, bool kMidPoint, SweepError kError>
void errors_portable(const SweepPose& pose, const MatchBlock& matches, std::size_t count, double* errors) {
  errors_of<kKind, kMidPoint, kError>(pose, matches, count, errors);
}
template <std::uint32_t kKind, bool kMidPoint, SweepError kError>
TWINTRUE_TARGET_AVX2 void errors_avx2(const SweepPose& pose, const MatchBlock& matches, std::size_t count,
                                      double* errors) {
  errors_of<kKind, kMidPoint, kError>(pose, matches, count, errors);
}
template <std::uint32_t kKind, bool kMidPoint, SweepError kError>
TWINTRUE_TARGET_AVX512 void errors_avx512(const SweepPose& pose, const MatchBlock& matches, std::size_t count,
                                          double* errors) {
  errors_of<kKind, kMidPoint, kError>(pose, matches, count, errors);
}

template <std::uint32_t kKind>
void lean_portable(const SweepPose& pose, const MatchBlock& matches, std::size_t count, double* errors) {
  if (lean_errors_of<kKind>(pose, matches, count, errors) == 0) return;
  errors_portable<kKind, false, SweepError::kFull>(pose, matches, count, errors);
}
template <std::uint32_t kKind>
TWINTRUE_TARGET_AVX2 void lean_avx2(const SweepPose& pose, const MatchBlock& matches, std::size_t count,
                                    double* errors) {
  if (lean_errors_of<kKind>(pose, matches, count, errors) == 0) return;
  errors_avx2<kKind, false, SweepError::kFull>(pose, matches, count, errors);
}
template <std::uint32_t kKind>
TWINTRUE_TARGET_AVX512 void lean_avx512(const SweepPose& pose, const MatchBlock& matches, std::size_t count,
                                        double* errors) {
  if (lean_errors_of<kKind>(pose, matches, count, errors) == 0) return;
  errors_avx512<kKind, false, SweepError::kFull>(pose, matches, count, errors);
}

template <std::uint32_t kKind>
SweepErrorsFn lean_for_set(cve::InstructionSet set) {
  switch (set) {
    case cve::InstructionSet::kAvx512:
      return lean_avx512<kKind>;
    case cve::InstructionSet::kAvx2:
      return lean_avx2<kKind>;
    default:
      return lean_portable<kKind>;
  }
}

void exp_portable(double factor, std::size_t count, const double* errors, double* terms) {
  exp_of(factor, count, errors, terms);
}
TWINTRUE_TARGET_AVX2 void exp_avx2(double factor, std::size_t count, const double* errors, double* terms) {
  exp_of(factor, count, errors, terms);
}
TWINTRUE_TARGET_AVX512 void exp_avx512(double factor, std::size_t count, const double* errors,
                                       double* terms) {
  exp_of(factor, count, errors, terms);
}

template <std::uint32_t kKind, bool kMidPoint, SweepError kError>
SweepErrorsFn for_set(cve::InstructionSet set) {
  switch (set) {
    case cve::InstructionSet::kAvx512:
      return errors_avx512<kKind, kMidPoint, kError>;
    case cve::InstructionSet::kAvx2:
      return errors_avx2<kKind, kMidPoint, kError>;
    default:
      return errors_portable<kKind, kMidPoint, kError>;
  }
}

template <std::uint32_t kKind, bool kMidPoint>
SweepErrorsFn for_error(cve::InstructionSet set, SweepError error) {
  switch (error) {
    case SweepError::kRightOnly:
      return for_set<kKind, kMidPoint, SweepError::kRightOnly>(set);
    case SweepError::kLeftOnly:
      return for_set<kKind, kMidPoint, SweepError::kLeftOnly>(set);
    default:
      return for_set<kKind, kMidPoint, SweepError::kFull>(set);
  }
}

template <std::uint32_t kKind>
SweepErrorsFn for_mid_point(cve::InstructionSet set, const SweepVariant& variant) {
  return variant.mid_point ? for_error<kKind, true>(set, variant.error)
                           : for_error<kKind, false>(set, variant.error);
}

}  // namespace

SweepErrorsFn sweep_errors(cve::InstructionSet set, const SweepVariant& variant) {
  if (variant.lean && !variant.mid_point && variant.error == SweepError::kFull) {
    return variant.kind == 1 ? lean_for_set<1>(set) : lean_for_set<2>(set);
  }
  return variant.kind == 1 ? for_mid_point<1>(set, variant) : for_mid_point<2>(set, variant);
}

SweepExpFn sweep_exp(cve::InstructionSet set) {
  switch (set) {
    case cve::InstructionSet::kAvx512:
      return exp_avx512;
    case cve::InstructionSet::kAvx2:
      return exp_avx2;
    default:
      return exp_portable;
  }
}

}  // namespace twintrue
