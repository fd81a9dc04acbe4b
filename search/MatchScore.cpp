#include "search/MatchScore.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "base/ParallelEach.h"
#include "base/Saturate.h"

namespace twintrue {
namespace {

// The sums that tell how good a pose is take errors below these, in squared pixels.
constexpr double kNearError = 4.0 * 4.0;
constexpr double kFarError = 16.0 * 16.0;
// Mode 2 falls to 0 at three sigma.
constexpr double kWideReach = 3.0 * 3.0;

Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vec3 along(const Vec3& p, double t, const Vec3& d) {
  return {p[0] + t * d[0], p[1] + t * d[1], p[2] + t * d[2]};
}

// The left eye's ray at that depth, seen from the right eye: pixels of the right eye's picture.
bool project_into_right(const RigState& rig, const Vec3& point_1, double z, double* u, double* v) {
  const double inverse = 1.0 / point_1[2];
  return eye_ray_to_image(rig.current.right, u, v, inverse * point_1[0] * z - rig.current.baseline,
                          inverse * point_1[1] * z, z);
}

// The right eye's ray at that depth, seen from the left eye: pixels of the right half of the frame.
bool project_into_left(const RigState& rig, const Vec3& point_2, double z, double* u, double* v) {
  const double inverse = 1.0 / point_2[2];
  if (!eye_ray_to_image(rig.current.left, u, v, inverse * point_2[0] * z + rig.current.baseline,
                        inverse * point_2[1] * z, z)) {
    return false;
  }
  *u -= rig.half_width;
  return true;
}

}  // namespace

bool is_even_pixel(float x) {
  return std::isfinite(x) && std::fmod(std::trunc(static_cast<double>(x)), 2.0) == 0.0;
}

bool uses_score_table(std::int32_t mode) {
  return mode == 5 || mode == 7 || mode == 11 || mode == 12 || mode == 13;
}

double weight_exponent(std::int32_t mode, double sigma_squared) {
  switch (mode) {
    case 0:
      return -0.25 / sigma_squared;
    case 4:
    case 9:
      return -1.0 / sigma_squared;
    default:
      return mode == 1 || uses_score_table(mode) ? -0.5 / sigma_squared : 0.0;
  }
}

bool intersect_rays(const Vec3& p0, const Vec3& d0, const Vec3& p1, const Vec3& d1, Vec3* midpoint) {
  const Vec3 n = cross(d0, d1);
  const double nn = dot(n, n);
  if (nn == 0.0) return false;
  const Vec3 w{p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
  const double t = dot(cross(w, d1), n) / nn;
  const double u = dot(cross(w, d0), n) / nn;
  const Vec3 q0 = along(p0, t, d0);
  const Vec3 q1 = along(p1, u, d1);
  *midpoint = {(q0[0] + q1[0]) * 0.5, (q0[1] + q1[1]) * 0.5, (q0[2] + q1[2]) * 0.5};
  return true;
}

double full_reprojection_error(const RigState& rig, const RayMatch& match, double depth, const Vec3& point_1,
                               const Vec3& point_2) {
  double ua = 0.0, va = 0.0, ub = 0.0, vb = 0.0;
  if (!project_into_right(rig, point_1, -depth, &ua, &va)) return kInvalid;
  if (!project_into_left(rig, point_2, -depth, &ub, &vb)) return kInvalid;
  const double dxb = match.x_b - ub;
  const double dyb = match.y_b - vb;
  const double dxa = match.x_a - ua;
  const double dya = match.y_a - va;
  return 0.5 * (dxb * dxb + dyb * dyb + dxa * dxa + dya * dya);
}

double single_side_error(const RigState& rig, bool right_side, const RayMatch& match, double depth,
                         const Vec3& point_1, const Vec3& point_2, double bias) {
  double u = 0.0, v = 0.0;
  const bool projected = right_side ? project_into_right(rig, point_1, -depth, &u, &v)
                                    : project_into_left(rig, point_2, -depth, &u, &v);
  if (!projected) return kInvalid;
  const double dx = (right_side ? match.x_a : match.x_b) - u;
  const double dy = (right_side ? match.y_a : match.y_b) - v;
  if (bias == 0.0) return dx * dx + dy * dy;
  // The two sides mirror each other; their comparisons differ in strictness.
  double weight = 0.0;
  if (right_side) {
    weight = dy >= -kBiasStep ? 1.0 - bias : 1.0 + bias;
  } else {
    weight = dy > kBiasStep ? 1.0 + bias : 1.0 - bias;
  }
  return dy * dy * weight + dx * dx;
}

double weight_match_error(const CalibContext& context, double error, double sigma_squared,
                          std::int32_t mode) {
  const auto& table = context.score_table;
  const auto falling_square = [error](double s) {
    if (error >= s) return 0.0;
    const double rest = 1.0 - error / s;
    return rest * rest;
  };
  const auto exponential = [&] { return std::exp(weight_exponent(mode, sigma_squared) * error); };
  const auto in_table = [&](double shift) -> const float* {
    // What is beyond the integers gives the smallest one, and so is beyond the table too.
    const std::int64_t i = truncate_to_int32(static_cast<double>(context.score_tbl_coeff) * error + shift);
    if (i < 0 || i >= static_cast<std::int64_t>(table.size())) return nullptr;
    return &table[static_cast<std::size_t>(i)];
  };
  switch (mode) {
    case 0:
    case 1:
    case 4:
    case 9:
      return exponential();
    case 2:
      return falling_square(sigma_squared * kWideReach);
    case 3:
      return falling_square(sigma_squared);
    case 5:
    case 12:
    case 13: {
      const float* entry = in_table(0.0);
      return entry != nullptr ? *entry : 0.0;
    }
    case 6:
      return kScoreCeiling - error;
    case 7: {
      const float* entry = in_table(0.5);
      return entry != nullptr ? *entry : 0.0;
    }
    case 8:
      return error >= sigma_squared ? 0.0 : 1.0;
    case 10:
      return error >= sigma_squared ? kInvalid : kScoreCeiling - error;
    case 11: {
      const float* entry = in_table(0.0);
      return entry != nullptr ? *entry : exponential();
    }
    default:
      std::abort();
  }
}

MatchValue score_one_match(const CalibContext& context, std::int32_t index, const RigState& rig,
                           const RayMatch& match, double sigma_squared, std::int32_t weight_mode,
                           std::int32_t fast_mode, std::int32_t mid_point) {
  MatchValue result;
  const RigModel& model = rig.current;
  const float x_left = static_cast<float>(rig.half_width) + match.x_b;
  Vec3 ray_1{};
  Vec3 ray_2{};
  const bool seen_1 = eye_image_to_ray(model.left, &ray_1[0], &ray_1[1], &ray_1[2], x_left, match.y_b);
  const bool seen_2 = eye_image_to_ray(model.right, &ray_2[0], &ray_2[1], &ray_2[2], match.x_a, match.y_a);
  if (!seen_1 || !seen_2) return result;

  Vec3 midpoint{};
  if (!intersect_rays(model.left.position, ray_1, model.right.position, ray_2, &midpoint)) return result;
  const Vec3& point_1 = mid_point == 1 ? midpoint : ray_1;
  const Vec3& point_2 = mid_point == 1 ? midpoint : ray_2;

  const double depth = -midpoint[2];
  if (context.depth_max >= context.depth_min &&
      !(depth > context.depth_min + kDepthMargin && depth < context.depth_max - kDepthMargin)) {
    return result;
  }

  double error = 0.0;
  if (fast_mode == 1 || fast_mode == 2) {
    const bool right_side = fast_mode == 1 ? is_even_pixel(match.x_a) : index % 2 == 0;
    error = single_side_error(rig, right_side, match, depth, point_1, point_2, context.dir_bias);
  } else {
    error = full_reprojection_error(rig, match, depth, point_1, point_2);
  }
  if (error == kInvalid || depth == kInvalid) return result;

  result.weight = 1.0;
  result.error = error;
  const double term = weight_match_error(context, error, sigma_squared, weight_mode);
  if (term != kInvalid) result.value = term * result.weight;
  return result;
}

double divide_score(double score_sum, double weight_sum, std::int32_t div_mode) {
  switch (div_mode) {
    case 0:
      return -1.0;
    case 1:
      return score_sum / weight_sum;
    case 3:
      return score_sum * score_sum / weight_sum;
    default:
      return score_sum;
  }
}

namespace {

// The sums of a pass, match by match in their order.
class PassSums {
 public:
  // False for a match that doesn't count.
  bool add(const MatchValue& one) {
    if (one.value == kInvalid) return false;
    sums_.score_sum += one.value;
    if (one.error < kNearError) {
      ++sums_.count4;
      sums_.sum4 += one.error;
    }
    if (one.error < kFarError) {
      ++sums_.count16;
      sums_.sum16 += one.error;
    }
    weight_sum_ += one.weight;
    return true;
  }
  MatchScoreSums finish(std::int32_t div_mode) {
    sums_.score_sum = divide_score(sums_.score_sum, weight_sum_, div_mode);
    return sums_;
  }

 private:
  MatchScoreSums sums_;
  double weight_sum_ = 0.0;
};

}  // namespace

MatchScoreSums score_matches(const CalibContext& context, const ScorePass& pass, const RigState& rig,
                             const std::vector<RayMatch>& matches) {
  const double sigma_squared = pass.sigma * pass.sigma;
  const std::int32_t fast_mode = pass.final ? 0 : context.fast_mode;
  PassSums sums;
  std::int32_t i = 0;
  for (const RayMatch& match : matches) {
    if (match.rank > pass.rank_limit) break;
    ++i;
    // The test follows the raising: a limit of N uses N - 1 matches.
    if (context.skip_num_using_feat_mode == 0 && i >= pass.count_limit) break;
    const MatchValue one = score_one_match(context, i - 1, rig, match, sigma_squared, pass.weight_mode,
                                           fast_mode, pass.mid_point);
    if (!sums.add(one)) continue;
    if (context.skip_num_using_feat_mode == 1 && pass.count_limit < 1) break;
  }
  return sums.finish(pass.div_mode);
}

std::size_t walked_count(const CalibContext& context, const ScorePass& pass,
                         const std::vector<RayMatch>& matches) {
  std::size_t walked = 0;
  while (walked < matches.size() && matches[walked].rank <= pass.rank_limit) {
    if (context.skip_num_using_feat_mode == 0 && static_cast<std::int64_t>(walked) + 1 >= pass.count_limit)
      break;
    ++walked;
  }
  return walked;
}

MatchScoreSums score_matches_in_parallel(const CalibContext& context, const ScorePass& pass,
                                         const RigState& rig, const std::vector<RayMatch>& matches) {
  // A pass that may end at its first match has nothing to share out.
  if (context.skip_num_using_feat_mode == 1 && pass.count_limit < 1) {
    return score_matches(context, pass, rig, matches);
  }
  const double sigma_squared = pass.sigma * pass.sigma;
  const std::int32_t fast_mode = pass.final ? 0 : context.fast_mode;
  std::vector<MatchValue> values(walked_count(context, pass, matches));
  constexpr std::size_t kShare = 256;  // matches that are worth a thread
  parallel_each((values.size() + kShare - 1) / kShare, [&](std::size_t share) {
    const std::size_t end = std::min((share + 1) * kShare, values.size());
    for (std::size_t i = share * kShare; i < end; ++i) {
      values[i] = score_one_match(context, static_cast<std::int32_t>(i), rig, matches[i], sigma_squared,
                                  pass.weight_mode, fast_mode, pass.mid_point);
    }
  });
  PassSums sums;
  for (const MatchValue& one : values) sums.add(one);
  return sums.finish(pass.div_mode);
}

}  // namespace twintrue
