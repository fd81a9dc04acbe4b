#include "search/SweepKernel.h"

#include <bit>
#include <limits>

#include "base/VectorMath.h"
#include "search/MatchScore.h"

namespace twintrue {
namespace {

constexpr double kTwoOverPi = 0.6366197723675814;
constexpr double kTanEighthPi = 0.41421356237309503;
constexpr double kEpsilon = 2.220446049250313e-16;  // keeps the axis from 0 / 0, as in the projection
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TWINTRUE_INLINE double absolute(double v) { return __builtin_fabs(v); }

// v, its sign turned round where `by` is negative.
TWINTRUE_INLINE double turned_round(double v, double by) {
  constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(v) ^ (std::bit_cast<std::uint64_t>(by) & kSign));
}

// Arc tangent in right angles, of q in [-tan(pi/8), tan(pi/8)]: a series in its square, fitted at Chebyshev
// nodes to 4e-15 of the quotient.
TWINTRUE_INLINE double arc_tangent(double q) {
  const double z = q * q;
  double p = -1.73359132665805750e-02;
  p = p * z + 3.29051291492770820e-02;
  p = p * z - 4.17041895537462598e-02;
  p = p * z + 4.88990279198218344e-02;
  p = p * z - 5.78703649230395620e-02;
  p = p * z + 7.07353935587495264e-02;
  p = p * z - 9.09456795032168308e-02;
  p = p * z + 1.27323954459021782e-01;
  p = p * z - 2.12206590789178445e-01;
  return q * (kTwoOverPi + z * p);
}

// Angle of the point (x, y) from the x axis in right angles, y >= 0.
TWINTRUE_INLINE double angle_of(double y, double x) {
  const double ax = absolute(x);
  const double low = y < ax ? y : ax;
  const double high = y < ax ? ax : y;
  const bool turned = low > kTanEighthPi * high;
  double a = arc_tangent((turned ? low - high : low) / (turned ? low + high : high));
  a = turned ? a + 0.5 : a;
  a = y > ax ? 1.0 - a : a;
  return x < 0.0 ? 2.0 - a : a;
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
  const double t = angle_of(__builtin_sqrt(x2 + y2), -za);

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

// The rays of a match in the rig's frame, what is square to both, and its squared length.
struct RayPair {
  Point d0, d1, n;
  double nn;
};

TWINTRUE_INLINE RayPair ray_pair(const SweepPose& pose, const Point& in_left_eye, const Point& in_right_eye) {
  const Point d0 = turn(pose.left.rig_from_eye, in_left_eye);
  const Point d1 = turn(pose.right.rig_from_eye, in_right_eye);
  const Point n{d0.y * d1.z - d0.z * d1.y, d0.z * d1.x - d0.x * d1.z, d0.x * d1.y - d0.y * d1.x};
  return {d0, d1, n, n.x * n.x + n.y * n.y + n.z * n.z};
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
    const auto [d0, d1, n, nn] = ray_pair(pose, {lx[i], ly[i], lz[i]}, {rx[i], ry[i], rz[i]});
    const double inverse = 1.0 / nn;
    const double t =
        ((wy * d1.z - wz * d1.y) * n.x + (wz * d1.x - wx * d1.z) * n.y + (wx * d1.y - wy * d1.x) * n.z) *
        inverse;
    const double u =
        ((wy * d0.z - wz * d0.y) * n.x + (wz * d0.x - wx * d0.z) * n.y + (wx * d0.y - wy * d0.x) * n.z) *
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
      error = dy * dy * (dy >= -kBiasStep ? 1.0 - pose.bias : 1.0 + pose.bias) + dx * dx;
    } else {
      const Pixel b = project<kKind>(left, pose.coeff, before_left);
      counts = counts & b.seen;
      const double dx = m.x_b[i] - (b.x - pose.half_width);
      const double dy = m.y_b[i] - b.y;
      error = dy * dy * (dy > kBiasStep ? 1.0 + pose.bias : 1.0 - pose.bias) + dx * dx;
    }
    errors[i] = counts ? error : kInfinity;
  }
}

// The lean form of the same, for eyes without shear and translation whose two magnifications are equal, which
// is what lens makers write. A match then needs two roots and two divisions:
//
//  - Only the direction of a point matters, so nothing is divided by the depth: the other eye's ray is made
//  as
//    long as the depth's numerator, and the baseline as long as its denominator.
//  - The azimuth's sine and cosine and the distortion share one denominator.
//  - The two eyes' quotients are had from one division, by the product of their denominators.
//
// One step follows from the other all the way, so a processor that had the whole way of a few matches before
// it would mostly wait. The block goes it in three parts, each short enough that many matches are on it at a
// time.
//
// The projection keeps a point off its axis by an epsilon. Beside a point that isn't within half a millimetre
// of the eye's horizontal plane it is nothing; the others are marked as delicate and done again in the full
// form.

// Stands in place of the error of a match that counts and is delicate. Errors are not negative.
constexpr double kDelicate = -1.0;

// A point before one eye on its way to the picture.
struct Approach {
  Point r;           // in the eye's frame
  double across;     // distance from the axis
  double low, high;  // of the quotient whose arc tangent is asked for
  bool turned, steep;
  bool delicate;
};

// `epsilon` is that of the projection at the length of `ray`.
TWINTRUE_INLINE Approach approach(const SweepEye& eye, const Point& ray, double epsilon) {
  // Times the epsilon. What is left out then moves a point 0.1 m away by less than 1e-9 of a pixel, in a
  // frame 2048 wide.
  constexpr double kFarFromPlane = 1e9;
  const Point r = turn(eye.eye_from_rig, ray);
  const double y2 = r.y * r.y;
  const double across = __builtin_sqrt(r.x * r.x + y2 + epsilon);
  const double along = absolute(r.z);
  const bool steep = across > along;
  const double low = steep ? along : across;
  const double high = steep ? across : along;
  const bool turned = low > kTanEighthPi * high;
  return {r,      across, turned ? low - high : low,   turned ? low + high : high,
          turned, steep,  y2 < kFarFromPlane * epsilon};
}

// Angle off the axis in right angles, by the quotient of low and high.
TWINTRUE_INLINE double angle_off(const Approach& at, double quotient) {
  const double a = arc_tangent(quotient) + (at.turned ? 0.5 : 0.0);
  const double b = at.steep ? 1.0 - a : a;
  return at.r.z > 0.0 ? 2.0 - b : b;
}

// What stands between the parts, for one eye: first a point in the rig's frame and the projection's epsilon
// at its length, then the point's place across the axis in the eye's frame, its distance and its angle.
struct LeanEye {
  alignas(64) double x[kSweepBlock];
  alignas(64) double y[kSweepBlock];
  alignas(64) double z_then_across[kSweepBlock];
  alignas(64) double epsilon_then_angle[kSweepBlock];
};

// Where each ray's point stands for the other eye. Leaves 0 in errors for a match that counts, else infinity.
TWINTRUE_INLINE void place_points(const SweepPose& pose, const MatchBlock& m, std::size_t count,
                                  LeanEye& to_a, LeanEye& to_b, double* __restrict errors) {
  const SweepEye& left = pose.left;
  const SweepEye& right = pose.right;
  const double half_w = 0.5 * (right.position[0] - left.position[0]);
  const double* __restrict lx = m.left_rays.x;
  const double* __restrict ly = m.left_rays.y;
  const double* __restrict lz = m.left_rays.z;
  const double* __restrict rx = m.right_rays.x;
  const double* __restrict ry = m.right_rays.y;
  const double* __restrict rz = m.right_rays.z;
  for (std::size_t i = 0; i < count; ++i) {
    const auto [d0, d1, n, nn] = ray_pair(pose, {lx[i], ly[i], lz[i]}, {rx[i], ry[i], rz[i]});
    // The eyes differ in x alone, so depth times nn is a sum of four products.
    const double z_nn = half_w * ((d1.y * n.z - d1.z * n.y) * d0.z + (d0.y * n.z - d0.z * n.y) * d1.z);
    // depth_low < depth < depth_high, of depth = -z_nn / nn and nn > 0.
    const double depth_nn = -z_nn;
    const bool counts = (nn != 0.0) & (depth_nn > pose.depth_low * nn) & (depth_nn < pose.depth_high * nn);
    errors[i] = counts ? 0.0 : kInfinity;
    // Turned round where the ray points backwards.
    const double length_0 = turned_round(z_nn, d0.z);
    const double length_1 = turned_round(z_nn, d1.z);
    const double base_0 = absolute(d0.z) * nn;
    const double base_1 = absolute(d1.z) * nn;
    to_a.x[i] = length_0 * d0.x - pose.baseline * base_0;
    to_a.y[i] = length_0 * d0.y;
    to_a.z_then_across[i] = length_0 * d0.z;
    to_b.x[i] = length_1 * d1.x + pose.baseline * base_1;
    to_b.y[i] = length_1 * d1.y;
    to_b.z_then_across[i] = length_1 * d1.z;
    // No depth makes a point of a ray without z: as delicate as can be.
    to_a.epsilon_then_angle[i] = d0.z == 0.0 ? kInfinity : kEpsilon * (base_0 * base_0);
    to_b.epsilon_then_angle[i] = d1.z == 0.0 ? kInfinity : kEpsilon * (base_1 * base_1);
  }
}

// The points' angles off the axes. Marks the delicate matches and returns how many there are.
TWINTRUE_INLINE std::uint64_t measure_angles(const SweepPose& pose, std::size_t count, LeanEye& to_a,
                                             LeanEye& to_b, double* __restrict errors) {
  std::uint64_t delicate_count = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Approach a =
        approach(pose.right, {to_a.x[i], to_a.y[i], to_a.z_then_across[i]}, to_a.epsilon_then_angle[i]);
    const Approach b =
        approach(pose.left, {to_b.x[i], to_b.y[i], to_b.z_then_across[i]}, to_b.epsilon_then_angle[i]);
    const double both = 1.0 / (a.high * b.high);
    to_a.x[i] = a.r.x;
    to_a.y[i] = a.r.y;
    to_a.z_then_across[i] = a.across;
    to_a.epsilon_then_angle[i] = angle_off(a, a.low * (b.high * both));
    to_b.x[i] = b.r.x;
    to_b.y[i] = b.r.y;
    to_b.z_then_across[i] = b.across;
    to_b.epsilon_then_angle[i] = angle_off(b, b.low * (a.high * both));
    const bool delicate = (errors[i] == 0.0) & (a.delicate | b.delicate);
    errors[i] = delicate ? kDelicate : errors[i];
    delicate_count += delicate ? 1 : 0;
  }
  return delicate_count;
}

// Pixels a unit of distance across the axis, as numerator and denominator.
struct Magnification {
  double numerator, denominator;
};

template <std::uint32_t kKind>
TWINTRUE_INLINE Magnification magnification(const SweepEye& eye, const std::array<double, 6>& c,
                                            double across, double t) {
  if constexpr (kKind == 1) {
    const double s = t * eye.magnify_v;
    const double percent = s * (c[0] + s * (c[1] + s * (c[2] + s * (c[3] + s * (c[4] + s * c[5])))));
    return {100.0 * eye.scale * s, across * (100.0 - percent)};
  } else {
    const double percent = t * (c[0] + t * (c[1] + t * (c[2] + t * (c[3] + t * (c[4] + t * c[5])))));
    return {eye.scale * eye.magnify_v * t * (1.0 + 0.01 * percent), across};
  }
}

TWINTRUE_INLINE Pixel arrive(const SweepEye& eye, double x, double y, double t, double magnified) {
  const double px = magnified * x + eye.principal_x;
  const double py = eye.principal_y - magnified * y;
  return {px, py, static_cast<bool>((t <= eye.angle_limit) & (px >= eye.x_begin) & (px < eye.x_end))};
}

// Adds the errors of the points' pixels to what was left before; a mark stays.
template <std::uint32_t kKind>
TWINTRUE_INLINE void compare_pixels(const SweepPose& pose, const MatchBlock& m, std::size_t count,
                                    const LeanEye& to_a, const LeanEye& to_b, double* __restrict errors) {
  for (std::size_t i = 0; i < count; ++i) {
    const double ta = to_a.epsilon_then_angle[i];
    const double tb = to_b.epsilon_then_angle[i];
    const Magnification ga = magnification<kKind>(pose.right, pose.coeff, to_a.z_then_across[i], ta);
    const Magnification gb = magnification<kKind>(pose.left, pose.coeff, to_b.z_then_across[i], tb);
    const double both = 1.0 / (ga.denominator * gb.denominator);
    const Pixel a = arrive(pose.right, to_a.x[i], to_a.y[i], ta, ga.numerator * (gb.denominator * both));
    const Pixel b = arrive(pose.left, to_b.x[i], to_b.y[i], tb, gb.numerator * (ga.denominator * both));
    const double dxb = m.x_b[i] - (b.x - pose.half_width);
    const double dyb = m.y_b[i] - b.y;
    const double dxa = m.x_a[i] - a.x;
    const double dya = m.y_a[i] - a.y;
    const double error = 0.5 * (dxb * dxb + dyb * dyb + dxa * dxa + dya * dya);
    const double otherwise = errors[i] == kDelicate ? kDelicate : kInfinity;
    errors[i] = ((errors[i] == 0.0) & a.seen & b.seen) ? error : otherwise;
  }
}

// Puts the errors of the full form in place of the marks: the delicate matches, mostly a few of a block, are
// brought together for it.
template <std::uint32_t kKind>
TWINTRUE_INLINE void redo_delicate(const SweepPose& pose, const MatchBlock& m, std::size_t count,
                                   double* __restrict errors) {
  constexpr std::size_t kColumns = 10;
  const std::array<const double*, kColumns> all{m.left_rays.x,  m.left_rays.y,  m.left_rays.z, m.right_rays.x,
                                                m.right_rays.y, m.right_rays.z, m.x_a,         m.y_a,
                                                m.x_b,          m.y_b};
  alignas(64) double few[kColumns][kSweepBlock];
  std::size_t places[kSweepBlock];
  std::size_t found = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (errors[i] != kDelicate) continue;
    for (std::size_t column = 0; column < kColumns; ++column) few[column][found] = all[column][i];
    places[found++] = i;
  }
  const MatchBlock block{{few[0], few[1], few[2]}, {few[3], few[4], few[5]}, few[6], few[7], few[8], few[9]};
  alignas(64) double redone[kSweepBlock];
  errors_of<kKind, false, SweepError::kFull>(pose, block, found, redone);
  for (std::size_t k = 0; k < found; ++k) errors[places[k]] = redone[k];
}

template <std::uint32_t kKind>
TWINTRUE_INLINE void lean_errors_of(const SweepPose& pose, const MatchBlock& m, std::size_t count,
                                    double* __restrict errors) {
  LeanEye to_a;
  LeanEye to_b;
  place_points(pose, m, count, to_a, to_b, errors);
  const std::uint64_t delicate_count = measure_angles(pose, count, to_a, to_b, errors);
  compare_pixels<kKind>(pose, m, count, to_a, to_b, errors);
  if (delicate_count != 0) redo_delicate<kKind>(pose, m, count, errors);
}

TWINTRUE_INLINE void exp_of(double factor, std::size_t count, const double* __restrict errors,
                            double* __restrict terms) {
  // Below, a term is nothing beside a sum that kLeastTrustedScore lets count.
  constexpr double kSmallest = -700.0;
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
  lean_errors_of<kKind>(pose, matches, count, errors);
}
template <std::uint32_t kKind>
TWINTRUE_TARGET_AVX2 void lean_avx2(const SweepPose& pose, const MatchBlock& matches, std::size_t count,
                                    double* errors) {
  lean_errors_of<kKind>(pose, matches, count, errors);
}
template <std::uint32_t kKind>
TWINTRUE_TARGET_AVX512 void lean_avx512(const SweepPose& pose, const MatchBlock& matches, std::size_t count,
                                        double* errors) {
  lean_errors_of<kKind>(pose, matches, count, errors);
}

template <std::uint32_t kKind>
SweepErrorsFn lean_for_set(twintrue::InstructionSet set) {
  return twintrue::for_set<SweepErrorsFn>(set, lean_portable<kKind>, lean_avx2<kKind>, lean_avx512<kKind>);
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
SweepErrorsFn select_form(twintrue::InstructionSet set) {
  return twintrue::for_set<SweepErrorsFn>(set, errors_portable<kKind, kMidPoint, kError>,
                                          errors_avx2<kKind, kMidPoint, kError>,
                                          errors_avx512<kKind, kMidPoint, kError>);
}

template <std::uint32_t kKind, bool kMidPoint>
SweepErrorsFn for_error(twintrue::InstructionSet set, SweepError error) {
  switch (error) {
    case SweepError::kRightOnly:
      return select_form<kKind, kMidPoint, SweepError::kRightOnly>(set);
    case SweepError::kLeftOnly:
      return select_form<kKind, kMidPoint, SweepError::kLeftOnly>(set);
    default:
      return select_form<kKind, kMidPoint, SweepError::kFull>(set);
  }
}

template <std::uint32_t kKind>
SweepErrorsFn for_mid_point(twintrue::InstructionSet set, const SweepVariant& variant) {
  return variant.mid_point ? for_error<kKind, true>(set, variant.error)
                           : for_error<kKind, false>(set, variant.error);
}

}  // namespace

SweepErrorsFn sweep_errors(twintrue::InstructionSet set, const SweepVariant& variant) {
  if (variant.lean && !variant.mid_point && variant.error == SweepError::kFull) {
    return variant.kind == 1 ? lean_for_set<1>(set) : lean_for_set<2>(set);
  }
  return variant.kind == 1 ? for_mid_point<1>(set, variant) : for_mid_point<2>(set, variant);
}

SweepExpFn sweep_exp(twintrue::InstructionSet set) {
  return twintrue::for_set<SweepExpFn>(set, exp_portable, exp_avx2, exp_avx512);
}

}  // namespace twintrue
