#include "lens/FirstLens.h"

#include <fmt/format.h>

#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <numbers>
#include <unsupported/Eigen/NonLinearOptimization>
#include <unsupported/Eigen/NumericalDiff>

#include "lens/LensParametersV1.h"
#include "lens/LensParametersV2.h"

namespace twintrue {
namespace {

using Fault = FirstLensError::Fault;

constexpr double kDegree = std::numbers::pi / 180.0;
constexpr double kRightAngle = std::numbers::pi / 2.0;
constexpr double kFormat1Fov = 190.0;  // the format has no key for it
constexpr double kWidestFov = 360.0;
constexpr std::int32_t kLongestSide = 65536;  // as the reader has it
constexpr double kWidestTable = 8.0;  // distorted radii; a stereographic lens reaches it at 324 degrees

// A pixel's way to its ray and back must end this near to where it began.
constexpr double kBackTolerancePx = 0.01;

constexpr int kAngles = 200;  // at which curves are compared
constexpr int kAzimuths = 24;
constexpr Eigen::Index kCoefficients = 6;

const FirstEye& eye_of(const FirstLensInput& input, EyeSide side) {
  return side == EyeSide::kLeft ? input.left : input.right;
}

bool is_positive(double number) { return std::isfinite(number) && number > 0.0; }

void check_eye(const FirstLensInput& input, EyeSide side, double limit) {
  const FirstEye& eye = eye_of(input, side);
  const std::initializer_list<double> finite{eye.curve.k[0], eye.curve.k[1], eye.curve.k[2], eye.curve.k[3],
                                             eye.pan,        eye.tilt,       eye.roll};
  if (!std::all_of(finite.begin(), finite.end(), [](double number) { return std::isfinite(number); })) {
    throw FirstLensError(Fault::kNumber, side);
  }
  const double reach = fisheye_reach(eye.curve, limit);
  if (reach < limit) throw FirstLensError(Fault::kCurveTurnsBack, side, reach / kDegree);
  // A focal length that was computed from a field where the curve turns back may be anything.
  if (!is_positive(eye.focal_x) || !is_positive(eye.focal_y)) throw FirstLensError(Fault::kNumber, side);

  const double begin = side == EyeSide::kLeft ? input.frame_width / 2 : 0;
  // Half a pixel around the outer centres belongs to the half as well.
  if (!(eye.center_x >= begin - 0.5 && eye.center_x <= begin + input.frame_width / 2 - 0.5 &&
        eye.center_y >= -0.5 && eye.center_y <= input.frame_height - 0.5)) {
    throw FirstLensError(Fault::kCentre, side);
  }
}

void check_input(const FirstLensInput& input) {
  for (const std::int32_t length : {input.frame_width, input.frame_height}) {
    if (length < 2 || length > kLongestSide) throw FirstLensError(Fault::kFrame, EyeSide::kLeft);
  }
  if (input.frame_width % 2 != 0) throw FirstLensError(Fault::kFrame, EyeSide::kLeft);
  if (!is_positive(input.baseline) || !is_positive(input.sensor_pitch)) {
    throw FirstLensError(Fault::kNumber, EyeSide::kLeft);
  }
  const double widest = input.format == LensFormat::k1 ? kFormat1Fov : kWidestFov;
  if (!is_positive(input.fov_degrees) || input.fov_degrees > widest) {
    throw FirstLensError(Fault::kField, EyeSide::kLeft, widest);
  }
  for (const EyeSide side : {EyeSide::kLeft, EyeSide::kRight}) {
    check_eye(input, side, 0.5 * input.fov_degrees * kDegree);
  }
}

// The curve that is looked for. All focal lengths are relative to the left eye's along x, and `right_factor`
// is what the right eye's picture is scaled by besides, as far as its curve differs from the left one's.
struct FittedCurve {
  LensDistortion distortion;
  double scale = 0.0;  // pixels for 90 degrees
  double right_factor = 1.0;
};

FittedCurve unpacked(const FirstLensInput& input, const Eigen::VectorXd& values) {
  FittedCurve curve;
  curve.distortion.kind = static_cast<std::uint32_t>(input.format);
  curve.scale = values[0] * input.left.focal_x * kRightAngle;
  for (Eigen::Index i = 0; i < kCoefficients; ++i) {
    curve.distortion.coeff[static_cast<std::size_t>(i)] = values[1 + i];
  }
  if (values.size() > 1 + kCoefficients) curve.right_factor = values[1 + kCoefficients];
  return curve;
}

// Pixels from the image centre to a point off the axis by a normalised angle, along an axis of that
// magnification.
double radius_px(const FittedCurve& curve, double magnify, double angle) {
  if (curve.distortion.kind == 1) return curve.scale * distortion_forward(curve.distortion, magnify * angle);
  return curve.scale * magnify * distortion_forward(curve.distortion, angle);
}

// By how many pixels the fitted curve misses the given ones, along x and y of both eyes.
struct CurveMisfit {
  using Scalar = double;
  using InputType = Eigen::VectorXd;
  using ValueType = Eigen::VectorXd;
  using JacobianType = Eigen::MatrixXd;
  enum { InputsAtCompileTime = Eigen::Dynamic, ValuesAtCompileTime = Eigen::Dynamic };

  const FirstLensInput* input;
  int unknowns;

  int inputs() const { return unknowns; }
  int values() const { return 4 * kAngles; }
  int operator()(const Eigen::VectorXd& values, Eigen::VectorXd& misfit) const {
    const FittedCurve curve = unpacked(*input, values);
    Eigen::Index row = 0;
    for (const EyeSide side : {EyeSide::kLeft, EyeSide::kRight}) {
      const FirstEye& eye = eye_of(*input, side);
      const double factor = side == EyeSide::kRight ? curve.right_factor : 1.0;
      for (const double focal : {eye.focal_x, eye.focal_y}) {
        for (int i = 1; i <= kAngles; ++i) {
          const double degrees = 0.5 * input->fov_degrees * i / kAngles;
          const double wanted = focal * fisheye_radius(eye.curve, degrees * kDegree);
          const double magnify = focal / input->left.focal_x * factor;
          misfit[row++] = radius_px(curve, magnify, degrees / 90.0) - wanted;
        }
      }
    }
    return 0;
  }
};

FittedCurve fit_curve(const FirstLensInput& input) {
  constexpr double kTolerance = 1e-13;  // a fit to what the format can hold shall end exact
  constexpr int kMostEvaluations = 4000;
  const bool one_curve = input.left.curve == input.right.curve;
  const int unknowns = 1 + static_cast<int>(kCoefficients) + (one_curve ? 0 : 1);
  Eigen::VectorXd values = Eigen::VectorXd::Zero(unknowns);
  values[0] = 1.0;
  if (!one_curve) values[unknowns - 1] = 1.0;

  Eigen::NumericalDiff<CurveMisfit> misfit(CurveMisfit{&input, unknowns});
  Eigen::LevenbergMarquardt<Eigen::NumericalDiff<CurveMisfit>> solver(misfit);
  solver.parameters.ftol = kTolerance;
  solver.parameters.xtol = kTolerance;
  solver.parameters.maxfev = kMostEvaluations;
  solver.minimize(values);
  if (!values.allFinite() || !(values[0] > 0.0)) throw FirstLensError(Fault::kFit, EyeSide::kLeft);
  return unpacked(input, values);
}

// Whether the radius grows all the way to a normalised angle. Beyond a place where it turns back no pixel has
// one ray.
bool grows_to(const LensDistortion& distortion, double angle) {
  constexpr int kSteps = 4000;
  double last = 0.0;
  for (int i = 1; i <= kSteps; ++i) {
    const double radius = distortion_forward(distortion, angle * i / kSteps);
    if (!(radius > last)) return false;
    last = radius;
  }
  return std::isfinite(last);
}

// What the curve is asked for at the edge of a field, in both eyes: format 1 magnifies first.
double largest_argument(const RigModel& rig, double fov_degrees) {
  const double angle = fov_degrees / 180.0;
  if (rig.left.distortion.kind == 2) return angle;
  return angle * std::max({rig.left.magnify_v, rig.left.magnify_h, rig.right.magnify_v, rig.right.magnify_h});
}

// Turns by pan, tilt and roll, in that order, as the format's own angles.
void set_angles(EyeModel& model, const FirstEye& eye, LensFormat format) {
  model.lambda = eye.pan;
  model.psi = eye.tilt;
  model.roll = eye.roll;
  if (format == LensFormat::k2) return;  // it rolls last as well
  EyeModel turned;
  turned.distortion.kind = static_cast<std::uint32_t>(LensFormat::k2);
  turned.lambda = eye.pan;
  turned.psi = eye.tilt;
  turned.roll = eye.roll;
  eye_update_rotation(turned);
  // Ry(lambda) Rx(psi) Rz(roll), solved for the angles.
  const std::array<double, 9>& r = turned.rotation;
  model.lambda = std::atan2(r[2], r[8]);
  model.psi = std::asin(std::clamp(-r[5], -1.0, 1.0));
  model.roll = std::atan2(r[3], r[4]);
}

RigModel rig_of(const FirstLensInput& input, const FittedCurve& curve) {
  RigModel rig;
  rig.input_width = rig.output_width = input.frame_width;
  rig.input_height = rig.output_height = input.frame_height;
  rig.baseline = input.baseline;
  rig.sensor_pitch = input.sensor_pitch;
  rig.circle_distance = (input.left.center_x - input.right.center_x) * input.sensor_pitch;
  rig.circle_radius = curve.scale * input.sensor_pitch;
  for (const EyeSide side : {EyeSide::kLeft, EyeSide::kRight}) {
    const FirstEye& eye = eye_of(input, side);
    EyeModel& model = side == EyeSide::kLeft ? rig.left : rig.right;
    const double factor = side == EyeSide::kRight ? curve.right_factor : 1.0;
    model.distortion.kind = curve.distortion.kind;
    model.distortion.coeff = curve.distortion.coeff;
    model.fov_degrees = input.fov_degrees;
    model.magnify_v = eye.focal_x / input.left.focal_x * factor;
    model.magnify_h = eye.focal_y / input.left.focal_x * factor;
    set_angles(model, eye, input.format);
    if (input.format == LensFormat::k1) {
      // Its image centres lie symmetrically about the frame's middle; offsets hold the rest.
      const double half_distance = 0.5 * (input.left.center_x - input.right.center_x);
      const double symmetric =
          0.5 * input.frame_width + (side == EyeSide::kLeft ? half_distance : -half_distance);
      model.offset_x = eye.center_x - symmetric;
      model.offset_y = 0.5 * input.frame_height - eye.center_y;
    } else {
      model.center_x = eye.center_x;
      model.center_y = eye.center_y;
    }
  }
  return rig;
}

struct Sample {
  double distance_px;  // from where the pixel should be
  double back_px;      // of the pixel's ray's pixel from the pixel; no number if it has no ray
};

Sample sample_at(const EyeModel& model, const FirstEye& eye, double theta, double azimuth) {
  const double nothing = std::numeric_limits<double>::quiet_NaN();
  const std::array<double, 3> in_eye{std::sin(theta) * std::cos(azimuth), std::sin(theta) * std::sin(azimuth),
                                     -std::cos(theta)};
  const std::array<double, 9>& r = model.rotation_t;
  const auto row = [&](std::size_t i) {
    return r[i] * in_eye[0] + r[i + 1] * in_eye[1] + r[i + 2] * in_eye[2];
  };
  double px = nothing;
  double py = nothing;
  eye_ray_to_image(model, &px, &py, row(0), row(3), row(6));
  const double radius = fisheye_radius(eye.curve, theta);
  Sample sample{};
  sample.distance_px = std::hypot(px - (eye.center_x + eye.focal_x * radius * std::cos(azimuth)),
                                  py - (eye.center_y - eye.focal_y * radius * std::sin(azimuth)));
  std::array<double, 3> ray{};
  double back_x = nothing;
  double back_y = nothing;
  if (eye_image_to_ray(model, &ray[0], &ray[1], &ray[2], px, py)) {
    eye_ray_to_image(model, &back_x, &back_y, ray[0], ray[1], ray[2]);
  }
  sample.back_px = std::hypot(back_x - px, back_y - py);
  return sample;
}

struct EyeCheck {
  CurveResidual residual;
  bool goes_back = true;
};

EyeCheck check_model(const EyeModel& model, const FirstEye& eye, double fov_degrees) {
  // Beyond the field no pixel has a ray, and where the curve is flat the table's rays may be 1e-5 off.
  constexpr double kInside = 1.0 - 1e-4;
  EyeCheck check;
  double squares = 0.0;
  for (int i = 1; i <= kAngles; ++i) {
    const double degrees = 0.5 * fov_degrees * kInside * i / kAngles;
    for (int j = 0; j < kAzimuths; ++j) {
      const Sample sample = sample_at(model, eye, degrees * kDegree, 2.0 * std::numbers::pi * j / kAzimuths);
      if (!std::isfinite(sample.distance_px)) throw FirstLensError(Fault::kFit, EyeSide::kLeft);
      if (!(sample.back_px <= kBackTolerancePx)) check.goes_back = false;
      squares += sample.distance_px * sample.distance_px;
      if (sample.distance_px > check.residual.worst_px) {
        check.residual.worst_px = sample.distance_px;
        check.residual.worst_deg = degrees;
      }
    }
  }
  check.residual.rms_px = std::sqrt(squares / (kAngles * kAzimuths));
  return check;
}

template <typename Parameters>
FirstLens lens_as(const FirstLensInput& input, const RigModel& rig) {
  FirstLens lens;
  Parameters parameters;
  parameters.from_rig(rig);
  lens.text = parameters.text(kLensSection);
  for (const bool wide_table : {false, true}) {
    if (wide_table) {
      const double reach =
          distortion_forward(lens.rig.left.distortion, largest_argument(lens.rig, input.fov_degrees));
      if (!(reach > parameters.ideal_height_lut_max && reach < kWidestTable)) break;
      lens.lut_max = std::ceil(reach * 100.0 + 1.0) / 100.0;
      parameters.ideal_height_lut_max = *lens.lut_max;
      lens.text += fmt::format("ideal_height_lut_max = {:.2f};\n", *lens.lut_max);
    }
    parameters.fill_rig(lens.rig);
    const EyeCheck left = check_model(lens.rig.left, input.left, input.fov_degrees);
    const EyeCheck right = check_model(lens.rig.right, input.right, input.fov_degrees);
    lens.left = left.residual;
    lens.right = right.residual;
    if (left.goes_back && right.goes_back) return lens;
  }
  throw FirstLensError(Fault::kFit, EyeSide::kLeft);
}

}  // namespace

double focal_of_circle(const FisheyeCurve& curve, double diameter_px, double fov_degrees) {
  return 0.5 * diameter_px / fisheye_radius(curve, 0.5 * fov_degrees * kDegree);
}

FirstLens make_first_lens(const FirstLensInput& input) {
  check_input(input);
  const RigModel rig = rig_of(input, fit_curve(input));
  const double field = input.format == LensFormat::k1 ? kFormat1Fov : input.fov_degrees;
  if (!grows_to(rig.left.distortion, largest_argument(rig, field))) {
    throw FirstLensError(Fault::kFit, EyeSide::kLeft);
  }
  return input.format == LensFormat::k1 ? lens_as<LensParametersV1>(input, rig)
                                        : lens_as<LensParametersV2>(input, rig);
}

}  // namespace twintrue
