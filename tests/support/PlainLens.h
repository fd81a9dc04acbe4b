#pragma once

// A second model of the rig, written from the geometry, for judging what the library finds, in tests and in
// benchmarks. It shares no code with the library: distortion is inverted for each point by Newton steps
// instead of a table, and angles come from atan2 instead of acos. Templates, so that derivatives can run
// through it.
//
// Frame, axes and pixels are as in lens/RigModel.h.

#include <array>
#include <cmath>
#include <cstddef>

namespace twintrue::accuracy {

inline constexpr double kHalfPi = 1.57079632679489661923;
inline constexpr double kDegree = kHalfPi / 90.0;

enum EyeSide : std::size_t { kRight = 0, kLeft = 1 };

// Pan, tilt, roll in radians and the offsets in pixels, right eye first.
inline constexpr std::size_t kEyeValues = 5;
inline constexpr std::size_t kPoseSize = 2 * kEyeValues;
using Pose = std::array<double, kPoseSize>;

struct PlainLens {
  int format = 1;
  int width = 0;  // of the whole frame, pixels
  int height = 0;
  double scale = 0.0;  // pixels for 90 degrees
  std::array<double, 2> centre_x{};
  std::array<double, 2> centre_y{};
  std::array<double, 2> magnify_x{1.0, 1.0};
  std::array<double, 2> magnify_y{1.0, 1.0};
  std::array<double, 6> coeff{};  // percent of the radius
  double limit = 1.0;             // farthest angle off the axis, in units of 90 degrees
  // On the way to the picture alone: metres along x and y for each along z, and where the eye stands.
  std::array<double, 2> shear_x{};
  std::array<double, 2> shear_y{};
  std::array<double, 3> translation{};
  double baseline = 0.06;  // metres
  Pose pose{};             // as the lens file says

  double half_width() const { return width / 2; }
};

// The curve and its slope at a normalised angle.
struct CurvePoint {
  double value;
  double slope;
};
inline CurvePoint curve_at(const PlainLens& lens, double r) {
  double p = 0.0;
  double slope = 0.0;
  for (std::size_t i = lens.coeff.size(); i-- > 0;) {
    slope = slope * r + static_cast<double>(i + 1) * lens.coeff[i];
    p = p * r + lens.coeff[i];
  }
  p *= r * 0.01;
  slope *= 0.01;
  if (lens.format == 1) return {r / (1.0 - p), (1.0 - p + r * slope) / ((1.0 - p) * (1.0 - p))};
  return {r * (1.0 + p), 1.0 + p + r * slope};
}

template <typename T>
T curve(const PlainLens& lens, const T& r) {
  T p(0.0);
  for (std::size_t i = lens.coeff.size(); i-- > 0;) p = p * r + T(lens.coeff[i]);
  p = p * r * T(0.01);
  return lens.format == 1 ? r / (T(1.0) - p) : r * (T(1.0) + p);
}

inline double plain_value(double x) { return x; }
template <typename Jet>
double plain_value(const Jet& x) {
  return x.a;
}

template <typename T>
T inverse_curve(const PlainLens& lens, const T& radius) {
  const double target = plain_value(radius);
  double r = target;
  CurvePoint at = curve_at(lens, r);
  for (int i = 0; i < 50; ++i) {
    const double step = (at.value - target) / at.slope;
    r -= step;
    at = curve_at(lens, r);
    if (std::abs(step) < 1e-15) break;
  }
  // One step more on T carries the derivative over.
  return T(r) - (T(at.value) - radius) / T(at.slope);
}

// Rays turned from the rig's axes to the eye's, and back. `eye` points at the five values of the eye.
template <typename T>
void turn(T& a, T& b, const T& angle) {
  using std::cos;
  using std::sin;
  const T c = cos(angle);
  const T s = sin(angle);
  const T turned = c * a - s * b;
  b = s * a + c * b;
  a = turned;
}
template <typename T>
void eye_from_rig(const PlainLens& lens, const T* eye, std::array<T, 3>& v) {
  const auto pan = [&] { turn(v[2], v[0], eye[0]); };
  const auto tilt = [&] { turn(v[1], v[2], eye[1]); };
  const auto roll = [&] { turn(v[0], v[1], eye[2]); };
  if (lens.format == 1) {
    roll(), tilt(), pan();
  } else {
    pan(), tilt(), roll();
  }
}
template <typename T>
void rig_from_eye(const PlainLens& lens, const T* eye, std::array<T, 3>& v) {
  const auto pan = [&] { turn(v[2], v[0], T(-eye[0])); };
  const auto tilt = [&] { turn(v[1], v[2], T(-eye[1])); };
  const auto roll = [&] { turn(v[0], v[1], T(-eye[2])); };
  if (lens.format == 1) {
    pan(), tilt(), roll();
  } else {
    roll(), tilt(), pan();
  }
}

// Frame pixel to unit ray in the rig's axes, without shear and translation; false beyond the limit.
template <typename T>
bool pixel_to_ray(const PlainLens& lens, EyeSide side, const T* eye, double px, double py,
                  std::array<T, 3>& ray) {
  using std::cos;
  using std::sin;
  using std::sqrt;
  constexpr double kOnAxis = 1e-24;
  T u = (T(px - lens.centre_x[side]) - eye[3]) / T(lens.scale);
  T v = (T(lens.centre_y[side] - py) - eye[4]) / T(lens.scale);
  const T mx(lens.magnify_x[side]);
  const T my(lens.magnify_y[side]);
  if (lens.format == 2) u /= mx, v /= my;
  const T square = u * u + v * v;
  if (plain_value(square) > kOnAxis) {
    const T radius = sqrt(square);
    const T factor = inverse_curve(lens, radius) / radius;
    u *= factor;
    v *= factor;
  }
  if (lens.format == 1) u /= mx, v /= my;
  const T rho_square = u * u + v * v;
  if (plain_value(rho_square) > lens.limit * lens.limit) return false;
  if (plain_value(rho_square) > kOnAxis) {
    const T rho = sqrt(rho_square);
    const T theta = rho * T(kHalfPi);
    const T factor = sin(theta) / rho;
    ray = {u * factor, v * factor, -cos(theta)};
  } else {
    ray = {u * T(kHalfPi), v * T(kHalfPi), T(-1.0)};
  }
  rig_from_eye(lens, eye, ray);
  return true;
}

// Ray in the rig's axes, of any length, to frame pixel; false beyond the limit or outside the eye's half.
template <typename T>
bool ray_to_pixel(const PlainLens& lens, EyeSide side, const T* eye, std::array<T, 3> ray, T& px, T& py) {
  using std::atan2;
  using std::sqrt;
  eye_from_rig(lens, eye, ray);
  ray[0] += ray[2] * T(lens.shear_x[side]) - T(lens.translation[0]);
  ray[1] += ray[2] * T(lens.shear_y[side]) - T(lens.translation[1]);
  ray[2] -= T(lens.translation[2]);
  const T across_square = ray[0] * ray[0] + ray[1] * ray[1];
  if (!(plain_value(across_square) > 1e-300)) {
    px = T(lens.centre_x[side]) + eye[3];
    py = T(lens.centre_y[side]) - eye[4];
    return plain_value(ray[2]) < 0.0;
  }
  const T across = sqrt(across_square);
  const T angle = atan2(across, -ray[2]) / T(kHalfPi);
  if (plain_value(angle) > lens.limit) return false;
  T u = ray[0] / across;
  T v = ray[1] / across;
  const T mx(lens.magnify_x[side]);
  const T my(lens.magnify_y[side]);
  if (lens.format == 1) {
    u *= angle * mx;
    v *= angle * my;
    const T radius = sqrt(u * u + v * v);
    const T factor = curve(lens, radius) / radius;
    u *= factor;
    v *= factor;
  } else {
    const T radius = curve(lens, angle);
    u *= radius * mx;
    v *= radius * my;
  }
  px = T(lens.scale) * u + T(lens.centre_x[side]) + eye[3];
  py = T(lens.centre_y[side]) - T(lens.scale) * v - eye[4];
  const double x = plain_value(px);
  return side == kLeft ? x >= lens.half_width() && x < lens.width : x >= 0.0 && x < lens.half_width();
}

// A pair of pixels of the whole frame that are to see the same point.
struct PixelPair {
  double right_x;
  double right_y;
  double left_x;
  double left_y;
};

// The four differences between a pair's pixels and where each eye's ray, cut at the pair's depth, lands in
// the other eye. Half of the sum of their squares is the search's error. Returns false if the pair has none:
// parallel rays, a depth that isn't in front of the rig between the bounds, a projection that fails.
template <typename T>
bool reprojection(const PlainLens& lens, const T* pose, const PixelPair& pair, double depth_min,
                  double depth_max, std::array<T, 4>& difference) {
  std::array<T, 3> l, r;
  const T* right_eye = pose;
  const T* left_eye = pose + kEyeValues;
  if (!pixel_to_ray(lens, kLeft, left_eye, pair.left_x, pair.left_y, l)) return false;
  if (!pixel_to_ray(lens, kRight, right_eye, pair.right_x, pair.right_y, r)) return false;
  // Points of closest approach of the lines (-b/2, 0, 0) + t l and (b/2, 0, 0) + u r, from the two conditions
  // that what joins them is square to both.
  const T lr = l[0] * r[0] + l[1] * r[1] + l[2] * r[2];
  const T det = T(1.0) - lr * lr;
  if (!(plain_value(det) > 1e-18)) return false;
  const T b(lens.baseline);
  const T t = b * (l[0] - lr * r[0]) / det;
  const T u = b * (lr * l[0] - r[0]) / det;
  const T z = (t * l[2] + u * r[2]) * T(0.5);
  const double depth = -plain_value(z);
  if (!(depth > depth_min && depth < depth_max)) return false;
  T x, y;
  const T along_left = z / l[2];
  if (!ray_to_pixel(lens, kRight, right_eye, {l[0] * along_left - b, l[1] * along_left, z}, x, y)) {
    return false;
  }
  difference[0] = x - T(pair.right_x);
  difference[1] = y - T(pair.right_y);
  const T along_right = z / r[2];
  if (!ray_to_pixel(lens, kLeft, left_eye, {r[0] * along_right + b, r[1] * along_right, z}, x, y)) {
    return false;
  }
  difference[2] = x - T(pair.left_x);
  difference[3] = y - T(pair.left_y);
  return true;
}

}  // namespace twintrue::accuracy
