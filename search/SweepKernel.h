#pragma once

// The arithmetic of a sweep: reprojection errors and score terms of many matches under one pose.
//
// The plain form is score_one_match (MatchScore.h). These kernels take the same steps on structures of
// arrays, with two savings that leave the result alone but for rounding:
//
//  - The steps from pixel to ray before the rotation depend on an eye's offsets only, so the rays come in
//    unrotated and are turned here.
//  - cos(acos(c)) is c, and sin(acos(c)) of c = x / sqrt(x^2 + y^2 + eps) is sqrt((y^2 + eps) / (x^2 + y^2 +
//    eps)), which doesn't cancel. The angle off the axis is an arc tangent of well-conditioned sides instead
//    of an arc cosine.
//
// Kernels allocate nothing, start no threads and touch no state. Every form of a kernel gives the same bits.

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/InstructionSet.h"

namespace twintrue {

// Matches per call that a kernel is made for; callers split longer lists.
inline constexpr std::size_t kSweepBlock = 128;

// Sums run in this many interleaved parts, whatever the width of a vector, so that they come out the same.
inline constexpr std::size_t kSumLanes = 8;

// One eye under a pose.
struct SweepEye {
  std::array<double, 9> eye_from_rig;
  std::array<double, 9> rig_from_eye;
  std::array<double, 3> position;
  std::array<double, 3> translate;
  double shift_x, shift_y;
  double scale;
  double magnify_v, magnify_h;
  double principal_x, principal_y;  // where the axis meets the picture, offsets included; frame pixels
  double angle_limit;               // normalised
  double x_begin, x_end;            // frame columns of this eye
};

struct SweepPose {
  SweepEye left, right;
  std::array<double, 6> coeff;  // of both eyes' distortion
  double baseline;
  double depth_low, depth_high;  // depths strictly between count
  double half_width;
  double bias;  // of the one-eye error; 0: none
};

// Unrotated rays of one eye; all zero where the pixel has none.
struct RayBlock {
  const double* x;
  const double* y;
  const double* z;
};

struct MatchBlock {
  RayBlock left_rays, right_rays;
  const double* x_a;
  const double* y_a;
  const double* x_b;
  const double* y_b;
};

// Which error: reprojected into both eyes, or into one.
enum class SweepError { kFull = 0, kRightOnly = 1, kLeftOnly = 2 };

// One eye as it makes rays of pixels, the rotation left out.
struct RayEye {
  std::uint32_t kind;         // lens format
  double center_x, center_y;  // frame pixels
  double offset_x, offset_y;  // the eye's and the pose's
  double unit_per_px;
  double magnify_v, magnify_h;
  double shift_x, shift_y;
  std::array<double, 3> translate;
  double radius_limit;  // normalised
  const double* table;  // inverse distortion, as LensDistortion holds it
  double table_scale;
  double last;  // entry that a look-up starts at
};

// Where the rays go: x, y and z, 0 for a pixel without one.
struct RayArrays {
  double* x;
  double* y;
  double* z;
};

// Rays of `count` pixels of the frame; what eye_image_to_ray gives without its rotation.
using SweepRaysFn = void (*)(const RayEye& eye, std::size_t count, const double* px, const double* py,
                             const RayArrays& rays);

struct SweepVariant {
  std::uint32_t kind = 1;  // lens format
  bool mid_point = false;
  SweepError error = SweepError::kFull;
  // Both eyes are without shear and translation, and magnify alike in both directions. Only looked at for the
  // full error without the mid-point.
  bool lean = false;
};

// Squared pixels of `count` matches, at most kSweepBlock; infinity for a match that doesn't count.
using SweepErrorsFn = void (*)(const SweepPose& pose, const MatchBlock& matches, std::size_t count,
                               double* errors);

// errors[i] -> exp(factor * errors[i]) for factor <= 0; 0 for an infinite error.
using SweepExpFn = void (*)(double factor, std::size_t count, const double* errors, double* terms);

SweepErrorsFn sweep_errors(twintrue::InstructionSet set, const SweepVariant& variant);
SweepExpFn sweep_exp(twintrue::InstructionSet set);
SweepRaysFn sweep_rays(twintrue::InstructionSet set);

}  // namespace twintrue
