#include "lens/RigModel.h"

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <limits>

#include "base/ParallelEach.h"

namespace twintrue {
namespace {

constexpr double kHalfPi = 1.5707963267948966;
constexpr double kTwoOverPi = 0.6366197723675814;
constexpr double kOneOver180 = 0.005555555555555556;

// Limits of a table that a lens file may ask for: 2^26 doubles are half a gigabyte.
constexpr std::int32_t kMaxPrecisionBit = 24;
constexpr double kMaxTableSize = 67108864.0;

// First step of the inverse search, relative to its target, and one hundredth of a table step as its floor.
// The value is the double next above 0.01.
constexpr double kStepRatio = 0.010000000000000002;
constexpr double kSolverTolerance = 1e-14;
constexpr double kStepShrink = 0.1;  // at each crossing
constexpr int kMaxSolverSteps = 10000;

// Steps that the search may take for a whole table, about a second of work. A table of the usual fineness
// stays below it whatever its curve, and one of 2^20 entries of a usual curve does.
constexpr std::int64_t kMaxTableSteps = std::int64_t{1} << 27;

// Largest frame that a lens file may describe, pixels each way.
constexpr std::int32_t kMaxFrameLength = 65536;

using Matrix3 = std::array<double, 9>;

Matrix3 multiply(const Matrix3& a, const Matrix3& b) {
  Matrix3 c;
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t col = 0; col < 3; ++col) {
      c[3 * row + col] = a[3 * row] * b[col] + a[3 * row + 1] * b[3 + col] + a[3 * row + 2] * b[6 + col];
    }
  }
  return c;
}

[[noreturn]] void throw_bad_kind() { throw LensModelError("バージョンが不正"); }
[[noreturn]] void throw_bad_precision() { throw LensModelError("精度ビットが不正"); }

// Number of table entries that the fields ask for; throws if they ask for the impossible.
std::int32_t checked_table_size(const LensDistortion& distortion) {
  if (distortion.precision_bit < 1 || distortion.precision_bit > kMaxPrecisionBit) throw_bad_precision();
  if (!(distortion.lut_max > 0.0)) throw LensModelError("最大値が不正");
  const double size = std::ceil((1 << distortion.precision_bit) * distortion.lut_max) + 1.0;
  if (size > kMaxTableSize) throw_bad_precision();
  return static_cast<std::int32_t>(size);
}

// Inverse of the curve at y. The curve is only known to be monotone near the range of interest, so it is
// followed in steps that shrink at every crossing. Their number is added to `steps`.
double solve_inverse(const LensDistortion& distortion, double y, double smallest_step,
                     std::int64_t& steps) noexcept {
  double x = y;
  double last = std::numeric_limits<double>::quiet_NaN();  // equal to nothing
  double step = std::max(y * kStepRatio, smallest_step);
  bool above = false;
  for (int i = 0; i < kMaxSolverSteps; ++i, ++steps) {
    const double d = distortion_forward(distortion, x);
    if (d == last) break;
    last = d;
    if (d < y + kSolverTolerance && d > y - kSolverTolerance) break;
    if (d >= y && !above) {
      step *= kStepShrink;
      above = true;
    } else if (d < y && above) {
      step *= kStepShrink;
      above = false;
    }
    const double next = d >= y ? x - step : x + step;
    if (next == x) break;
    x = next;
  }
  return x;
}

bool is_finite(double number) { return std::isfinite(number); }

template <std::size_t N>
bool all_finite(const std::array<double, N>& numbers) {
  return std::all_of(numbers.begin(), numbers.end(), is_finite);
}

bool all_finite(std::initializer_list<double> numbers) {
  return std::all_of(numbers.begin(), numbers.end(), is_finite);
}

bool eye_is_usable(const EyeModel& eye) {
  return (eye.distortion.kind == 1 || eye.distortion.kind == 2) && all_finite(eye.distortion.coeff) &&
         all_finite(eye.position) && all_finite(eye.translate) && all_finite(eye.rotation) &&
         all_finite({eye.lambda, eye.psi, eye.roll, eye.shift_x, eye.shift_y, eye.scale, 1.0 / eye.scale,
                     eye.center_x, eye.center_y, eye.fov_degrees, eye.magnify_v, eye.magnify_h, eye.offset_x,
                     eye.offset_y});
}

bool is_frame_length(std::int32_t length) { return length > 0 && length <= kMaxFrameLength; }

bool same_curve(const LensDistortion& a, const LensDistortion& b) {
  return a.kind == b.kind && a.precision_bit == b.precision_bit && a.lut_max == b.lut_max &&
         a.coeff == b.coeff;
}

}  // namespace

LensDistortion::LensDistortion(const LensDistortion& from)
    : kind(from.kind), coeff(from.coeff), precision_bit(from.precision_bit), lut_max(from.lut_max) {
  distortion_copy_table(*this, from);
}

LensDistortion& LensDistortion::operator=(const LensDistortion& from) {
  kind = from.kind;
  coeff = from.coeff;
  precision_bit = from.precision_bit;
  lut_max = from.lut_max;
  distortion_copy_table(*this, from);
  return *this;
}

RigState::RigState(const RigState& from)
    : current(from.current),
      half_width(from.half_width),
      frame_width(from.frame_width),
      frame_height(from.frame_height),
      circle_radius_px(current.circle_radius / current.sensor_pitch) {
  reference.left = current.left;
  reference.right = current.right;
}

RigState& RigState::operator=(const RigState& from) {
  if (this != &from) *this = RigState(from);
  return *this;
}

void eye_update_rotation(EyeModel& eye) {
  const double cos_l = std::cos(eye.lambda), sin_l = std::sin(eye.lambda);
  const double cos_p = std::cos(eye.psi), sin_p = std::sin(eye.psi);
  const double cos_r = std::cos(eye.roll), sin_r = std::sin(eye.roll);
  const Matrix3 about_y = {cos_l, 0, sin_l, 0, 1, 0, -sin_l, 0, cos_l};
  const Matrix3 about_x = {1, 0, 0, 0, cos_p, -sin_p, 0, sin_p, cos_p};
  const Matrix3 about_z = {cos_r, -sin_r, 0, sin_r, cos_r, 0, 0, 0, 1};
  if (eye.distortion.kind == 1) {
    eye.rotation = multiply(multiply(about_y, about_x), about_z);
  } else if (eye.distortion.kind == 2) {
    eye.rotation = multiply(multiply(about_z, about_x), about_y);
  } else {
    throw_bad_kind();
  }
  const Matrix3& r = eye.rotation;
  eye.rotation_t = {r[0], r[3], r[6], r[1], r[4], r[7], r[2], r[5], r[8]};
}

bool eye_image_to_ray(const EyeModel& eye, double* x_out, double* y_out, double* z_out, double px,
                      double py) {
  const double unit_per_px = 1.0 / eye.scale;
  double u = (px - eye.center_x - eye.offset_x) * unit_per_px;
  double v = -(py - eye.center_y + eye.offset_y) * unit_per_px;

  // The two formats differ in the place of the magnification. DBL_MIN keeps the image centre from 0 / 0.
  if (eye.distortion.kind == 1) {
    const double r = std::sqrt(u * u + v * v);
    const double f = distortion_inverse_lookup(eye.distortion, r) / (r + DBL_MIN);
    u = u * f / eye.magnify_v;
    v = v * f / eye.magnify_h;
  } else if (eye.distortion.kind == 2) {
    u = u / eye.magnify_v;
    v = v / eye.magnify_h;
    const double r = std::sqrt(u * u + v * v);
    const double f = distortion_inverse_lookup(eye.distortion, r) / (r + DBL_MIN);
    u = u * f;
    v = v * f;
  } else {
    throw_bad_kind();
  }

  const double rho = std::sqrt(u * u + v * v);
  if (rho > eye.fov_degrees * kOneOver180) {
    *x_out = 0.0;
    *y_out = 0.0;
    *z_out = 1.0;
    return false;
  }
  double azimuth = std::acos(u / (rho + DBL_MIN));
  if (v < 0.0) azimuth = -azimuth;
  const double theta = rho * kHalfPi;
  const double sin_theta = std::sin(theta);
  double x = std::cos(azimuth) * sin_theta;
  double y = std::sin(azimuth) * sin_theta;
  double z = -std::cos(theta);

  x = x - z * eye.shift_x + eye.translate[0];
  y = y - z * eye.shift_y + eye.translate[1];
  z = z + eye.translate[2];

  const Matrix3& rig_from_eye = eye.rotation_t;
  *x_out = rig_from_eye[0] * x + rig_from_eye[1] * y + rig_from_eye[2] * z;
  *y_out = rig_from_eye[3] * x + rig_from_eye[4] * y + rig_from_eye[5] * z;
  *z_out = rig_from_eye[6] * x + rig_from_eye[7] * y + rig_from_eye[8] * z;
  return true;
}

bool eye_ray_to_image(const EyeModel& eye, double* px_out, double* py_out, double x, double y, double z) {
  const Matrix3& eye_from_rig = eye.rotation;
  const double xr = eye_from_rig[0] * x + eye_from_rig[1] * y + eye_from_rig[2] * z;
  const double yr = eye_from_rig[3] * x + eye_from_rig[4] * y + eye_from_rig[5] * z;
  const double zr = eye_from_rig[6] * x + eye_from_rig[7] * y + eye_from_rig[8] * z;
  const double xa = xr + zr * eye.shift_x - eye.translate[0];
  const double ya = yr + zr * eye.shift_y - eye.translate[1];
  const double za = zr - eye.translate[2];

  // DBL_EPSILON keeps a ray on the axis from 0 / 0: its azimuth doesn't matter.
  const double q = xa * xa + ya * ya;
  double azimuth = std::acos(xa / std::sqrt(q + DBL_EPSILON));
  if (!(ya >= 0.0)) azimuth = -azimuth;
  const double t = std::acos(-za / std::sqrt(za * za + q)) * kTwoOverPi;
  if (t > eye.fov_degrees * kOneOver180) return false;

  double p = 0.0;
  double w = 0.0;
  if (eye.distortion.kind == 1) {
    p = std::cos(azimuth) * t * eye.magnify_v;
    w = std::sin(azimuth) * t * eye.magnify_h;
    const double r = std::sqrt(p * p + w * w);
    const double f = distortion_forward(eye.distortion, r) / (r + DBL_EPSILON);
    p = f * p;
    w = f * w;
  } else if (eye.distortion.kind == 2) {
    const double d = distortion_forward(eye.distortion, t);
    p = std::cos(azimuth) * d * eye.magnify_v;
    w = std::sin(azimuth) * d * eye.magnify_h;
  } else {
    throw_bad_kind();
  }
  *px_out = eye.scale * p + eye.center_x + eye.offset_x;
  *py_out = eye.center_y - eye.scale * w - eye.offset_y;
  return *px_out >= eye.valid_x_begin && *px_out < eye.valid_x_end;
}

double distortion_forward(const LensDistortion& distortion, double r) {
  const std::array<double, 6>& c = distortion.coeff;
  const double percent = r * (c[0] + r * (c[1] + r * (c[2] + r * (c[3] + r * (c[4] + r * c[5])))));
  if (distortion.kind == 1) return r * 100.0 / (100.0 - percent);
  return r * (1.0 + 0.01 * percent);
}

double distortion_inverse_lookup(const LensDistortion& distortion, double r) {
  if (!distortion.table) throw LensModelError("distortionが未初期化");
  const double s = std::fabs(r) * distortion.table_scale;
  // The comparison comes before the conversion: s may be anything, NaN included.
  const double last = distortion.table_size - 2;
  const double below = std::floor(s);
  const double i = below < last ? below : last;
  const double t = (i + 1.0) - s;
  const double* entry = distortion.table->data() + static_cast<std::ptrdiff_t>(i);
  return (1.0 - t) * entry[1] + t * entry[0];
}

void distortion_build_table(LensDistortion& distortion) {
  const std::int32_t size = checked_table_size(distortion);
  const std::int32_t scale = 1 << distortion.precision_bit;
  const double smallest_step = kStepRatio / scale;
  // The search would walk all its steps for nothing.
  const bool solvable = std::all_of(distortion.coeff.begin(), distortion.coeff.end(),
                                    [](double c) { return std::isfinite(c); });

  auto table = std::make_shared<std::vector<double>>(static_cast<std::size_t>(size), std::nan(""));
  double* entries = table->data();
  if (solvable) {
    // The sum is the same for every number of threads, and so is whether it goes beyond the limit. How early
    // that shows isn't, and doesn't matter.
    std::atomic<std::int64_t> steps{0};
    constexpr std::int32_t kChunk = 64;
    const std::int32_t chunks = (size + kChunk - 1) / kChunk;
    parallel_each(static_cast<std::size_t>(chunks), [&](std::size_t chunk) {
      if (steps.load(std::memory_order_relaxed) > kMaxTableSteps) return;
      std::int64_t of_chunk = 0;
      const std::int32_t begin = static_cast<std::int32_t>(chunk) * kChunk;
      for (std::int32_t i = begin; i < std::min(begin + kChunk, size); ++i) {
        entries[i] = solve_inverse(distortion, static_cast<double>(i) / scale, smallest_step, of_chunk);
      }
      steps.fetch_add(of_chunk, std::memory_order_relaxed);
    });
    if (steps.load() > kMaxTableSteps) throw_bad_precision();
  }
  distortion.table_scale = scale;
  distortion.table_size = size;
  distortion.table = std::move(table);
}

void distortion_copy_table(LensDistortion& to, const LensDistortion& from) {
  checked_table_size(to);
  if (&to == &from && to.table) return;
  if (same_curve(to, from) && from.table) {
    to.table_scale = from.table_scale;
    to.table_size = from.table_size;
    to.table = from.table;
  } else {
    distortion_build_table(to);
  }
}

void rig_update_positions(RigModel& rig) {
  const double half_baseline = rig.baseline * 0.5;
  rig.left.position = rig.left.translate;
  rig.left.position[0] -= half_baseline;
  rig.right.position = rig.right.translate;
  rig.right.position[0] += half_baseline;
}

void rig_apply_pose(RigState& rig_state, const CalibResult& pose) {
  EyeModel& right = rig_state.current.right;
  const EyeModel& nominal_right = rig_state.reference.right;
  right.lambda = nominal_right.lambda + pose.right_pan;
  right.psi = nominal_right.psi + pose.right_tilt;
  right.roll = nominal_right.roll + pose.right_roll;
  right.offset_x = nominal_right.offset_x + pose.right_offset_x;
  right.offset_y = nominal_right.offset_y + pose.right_offset_y;

  EyeModel& left = rig_state.current.left;
  const EyeModel& nominal_left = rig_state.reference.left;
  left.lambda = nominal_left.lambda + pose.left_pan;
  left.psi = nominal_left.psi + pose.left_tilt;
  left.roll = nominal_left.roll + pose.left_roll;
  left.offset_x = nominal_left.offset_x + pose.left_offset_x;
  left.offset_y = nominal_left.offset_y + pose.left_offset_y;

  eye_update_rotation(left);
  eye_update_rotation(right);
  rig_update_positions(rig_state.current);
  rig_state.pose = pose;
}

bool rig_is_usable(const RigState& rig_state) {
  const RigModel& rig = rig_state.current;
  return is_frame_length(rig_state.frame_width) && is_frame_length(rig_state.frame_height) &&
         is_frame_length(rig.input_width) && is_frame_length(rig.input_height) &&
         all_finite({rig.baseline, rig.sensor_pitch, rig.circle_distance, rig.circle_radius,
                     rig_state.circle_radius_px}) &&
         eye_is_usable(rig.left) && eye_is_usable(rig.right);
}

}  // namespace twintrue
