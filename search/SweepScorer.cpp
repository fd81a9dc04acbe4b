#include "search/SweepScorer.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numeric>
#include <set>
#include <utility>

#include "base/ParallelEach.h"

namespace twintrue {
namespace {

// The angular limit of an eye in right angles is its field of view, in degrees, times this.
constexpr double kLimitPerFieldDegree = 0.005555555555555556;  // 1 / 180

bool errors_may_be_negative(const CalibContext& context, bool one_eye) {
  return one_eye && !(std::abs(context.dir_bias) <= 1.0);
}

bool terms_are_bounded(const CalibContext& context, const ScorePass& pass, bool one_eye) {
  if (pass.div_mode == 0 || pass.div_mode == 1 || pass.div_mode == 3) return false;
  if (pass.weight_mode == 6 || pass.weight_mode == 10) return false;
  if (!(pass.sigma * pass.sigma > 0.0)) return false;
  if (errors_may_be_negative(context, one_eye)) return false;
  if (!uses_score_table(pass.weight_mode)) return true;
  return std::all_of(context.score_table.begin(), context.score_table.end(),
                     [](float entry) { return entry >= 0.0f && entry <= 1.0f; });
}

bool is_right_side(std::int32_t fast_mode, const RayMatch& match, std::int32_t index) {
  return fast_mode == 1 ? is_even_pixel(match.x_a) : index % 2 == 0;
}

SweepEye eye_for_kernel(const EyeModel& eye) {
  return {eye.rotation,
          eye.rotation_t,
          eye.position,
          eye.translate,
          eye.shift_x,
          eye.shift_y,
          eye.scale,
          eye.magnify_v,
          eye.magnify_h,
          eye.center_x + eye.offset_x,
          eye.center_y - eye.offset_y,
          eye.fov_degrees * kLimitPerFieldDegree,
          static_cast<double>(eye.valid_x_begin),
          static_cast<double>(eye.valid_x_end)};
}

bool is_lean(const EyeModel& eye) {
  constexpr std::array<double, 3> kNowhere{};
  return eye.shift_x == 0.0 && eye.shift_y == 0.0 && eye.translate == kNowhere &&
         eye.magnify_v == eye.magnify_h && eye.magnify_v > 0.0;
}

// Sums in kSumLanes interleaved parts that are added up in order.
class LaneSum {
 public:
  void add(const double* terms, std::size_t count) {
    const std::size_t whole = count - count % kSumLanes;
    for (std::size_t i = 0; i < whole; i += kSumLanes) {
      for (std::size_t lane = 0; lane < kSumLanes; ++lane) lanes_[lane] += terms[i + lane];
    }
    for (std::size_t i = whole; i < count; ++i) lanes_[i - whole] += terms[i];
  }
  double total() const {
    double sum = 0.0;
    for (double lane : lanes_) sum += lane;
    return sum;
  }

 private:
  std::array<double, kSumLanes> lanes_{};
};

}  // namespace

bool SweepScorer::serves(const CalibContext& context, const ScorePass& pass) {
  return context.skip_num_using_feat_mode != 1 || pass.count_limit >= 1;
}

SweepScorer::SweepScorer(const CalibContext& context, const RigState& rig,
                         const std::vector<RayMatch>& matches, twintrue::InstructionSet set)
    : context_(context),
      rig_(rig),
      matches_(matches),
      set_(set),
      exp_(sweep_exp(set)),
      rays_(sweep_rays(set)) {}

void SweepScorer::begin(const ScorePass& pass) {
  const std::int32_t fast_mode = pass.final ? 0 : context_.fast_mode;
  const bool one_eye = fast_mode == 1 || fast_mode == 2;
  if (!walked_ || pass.count_limit != pass_.count_limit || pass.rank_limit != pass_.rank_limit) {
    const std::size_t walked = walked_count(context_, pass, matches_);
    if (walked != walked_) lay_out(walked, one_eye);
  }
  pass_ = pass;
  SweepVariant variant;
  variant.kind = rig_.current.left.distortion.kind;
  variant.mid_point = pass.mid_point == 1;
  variant.lean = is_lean(rig_.current.left) && is_lean(rig_.current.right);
  for (Group& group : groups_) {
    variant.error = group.error;
    group.errors = sweep_errors(set_, variant);
  }
  const double factor = weight_exponent(pass.weight_mode, pass.sigma * pass.sigma);
  // The kernel takes falling exponentials of errors that are not negative.
  const bool falls = std::isfinite(factor) && !errors_may_be_negative(context_, one_eye);
  exp_factor_ = falls && !uses_score_table(pass.weight_mode) ? factor : 0.0;
  bounded_ = terms_are_bounded(context_, pass, one_eye);
}

void SweepScorer::lay_out(std::size_t walked, bool one_eye) {
  std::vector<std::uint32_t> order(walked);
  std::iota(order.begin(), order.end(), 0u);
  std::size_t right_count = 0;
  if (one_eye) {
    const auto right_end = std::stable_partition(order.begin(), order.end(), [&](std::uint32_t i) {
      return is_right_side(context_.fast_mode, matches_[i], static_cast<std::int32_t>(i));
    });
    right_count = static_cast<std::size_t>(right_end - order.begin());
  }
  groups_.clear();
  const auto add_group = [&](SweepError error, std::size_t begin, std::size_t end) {
    if (begin < end) groups_.push_back({begin, end, error, nullptr});
  };
  add_group(SweepError::kRightOnly, 0, right_count);
  add_group(one_eye ? SweepError::kLeftOnly : SweepError::kFull, right_count, walked);

  const struct {
    AlignedDoubles& values;
    float RayMatch::*field;
    float begin;  // of the field's picture in the frame
  } columns[] = {{x_a_, &RayMatch::x_a, 0.0f},
                 {y_a_, &RayMatch::y_a, 0.0f},
                 {x_b_, &RayMatch::x_b, 0.0f},
                 {y_b_, &RayMatch::y_b, 0.0f},
                 {x_left_, &RayMatch::x_b, static_cast<float>(rig_.half_width)}};
  const auto fill = [&](std::size_t k) {
    const auto& [values, field, begin] = columns[k];
    values.resize(walked);
    for (std::size_t i = 0; i < walked; ++i) values[i] = begin + matches_[order[i]].*field;
  };
  if (walked > kChunk) {
    parallel_each(std::size(columns), fill);
  } else {
    for (std::size_t k = 0; k < std::size(columns); ++k) fill(k);
  }
  size_ = walked;
  left_rays_.clear();
  right_rays_.clear();
  spare_rays_.clear();
  walked_ = walked;
}

void SweepScorer::unrotated_rays(const EyeModel& eye, bool left, const Offsets& offsets, std::size_t begin,
                                 std::size_t end, Rays& rays) const {
  const LensDistortion& distortion = eye.distortion;
  if (!distortion.table) throw LensModelError("distortionが未初期化");
  const RayEye from{distortion.kind,
                    eye.center_x,
                    eye.center_y,
                    eye.offset_x + offsets.first,
                    eye.offset_y + offsets.second,
                    1.0 / eye.scale,
                    eye.magnify_v,
                    eye.magnify_h,
                    eye.shift_x,
                    eye.shift_y,
                    eye.translate,
                    eye.fov_degrees * kLimitPerFieldDegree,
                    distortion.table->data(),
                    static_cast<double>(distortion.table_scale),
                    static_cast<double>(distortion.table_size - 2)};
  rays_(from, end - begin, (left ? x_left_ : x_a_).data() + begin, (left ? y_b_ : y_a_).data() + begin,
        {rays.x.data() + begin, rays.y.data() + begin, rays.z.data() + begin});
}

void SweepScorer::prepare_eye(const EyeModel& eye, bool left, const std::vector<PoseCandidate>& poses,
                              RayCache& cache) {
  std::set<Offsets> wanted;
  for (const PoseCandidate& pose : poses) {
    wanted.insert(left ? Offsets{pose.left_offset_x, pose.left_offset_y}
                       : Offsets{pose.right_offset_x, pose.right_offset_y});
  }
  for (auto at = cache.begin(); at != cache.end();) {
    if (wanted.contains(at->first)) {
      ++at;
    } else {
      spare_rays_.push_back(std::move(at->second));
      at = cache.erase(at);
    }
  }
  std::vector<RayCache::iterator> missing;
  for (const Offsets& offsets : wanted) {
    const auto [at, is_new] = cache.try_emplace(offsets);
    if (!is_new) continue;
    missing.push_back(at);
    if (spare_rays_.empty()) continue;
    at->second = std::move(spare_rays_.back());
    spare_rays_.pop_back();
  }
  parallel_each(missing.size(), [&](std::size_t i) {
    Rays& rays = missing[i]->second;
    for (AlignedDoubles* values : {&rays.x, &rays.y, &rays.z}) values->resize(size_);
  });
  const std::size_t chunks = chunk_count();
  parallel_each(missing.size() * chunks, [&](std::size_t i) {
    const auto& at = missing[i / chunks];
    const std::size_t begin = i % chunks * kChunk;
    unrotated_rays(eye, left, at->first, begin, std::min(begin + kChunk, size_), at->second);
  });
}

void SweepScorer::prepare(const std::vector<PoseCandidate>& poses) {
  // Poses act on the lens file's values, which are `current` until a pose is applied.
  prepare_eye(rig_.current.left, true, poses, left_rays_);
  prepare_eye(rig_.current.right, false, poses, right_rays_);
}

std::optional<double> SweepScorer::put_least_first(const CalibResult& pose) {
  if (!bounded_ || size_ <= kSweepBlock) return std::nullopt;
  // Matches go by their group and within it by their term, of which steps are enough: chunk by chunk they are
  // counted, given their places and put there, and those of a step stay in their order.
  constexpr std::size_t kSteps = 64;
  constexpr std::size_t kMostGroups = 2;
  const std::size_t chunks = chunk_count();
  terms_.resize(size_);
  steps_.resize(size_);
  order_.resize(size_);
  std::vector<std::array<std::uint32_t, kMostGroups * kSteps>> places(chunks);
  parallel_each(chunks, [&](std::size_t chunk) {
    const std::size_t begin = chunk * kChunk;
    const std::size_t end = std::min(begin + kChunk, size_);
    std::size_t at = begin;
    visit_errors(pose, begin, end, [&](const double* errors, std::size_t count) {
      terms_of(errors, count, &terms_[at]);
      at += count;
      return true;
    });
    for (std::size_t i = begin; i < end; ++i) {
      const double share = terms_[i] > 0.0 ? std::min(terms_[i], 1.0) : 0.0;
      const std::size_t group = i < groups_.front().end ? 0 : kSteps;
      steps_[i] = static_cast<std::uint8_t>(group + static_cast<std::size_t>(share * (kSteps - 1)));
      ++places[chunk][steps_[i]];
    }
  });
  std::uint32_t next = 0;
  for (std::size_t step = 0; step < kMostGroups * kSteps; ++step) {
    for (auto& place : places) next += std::exchange(place[step], next);
  }
  parallel_each(chunks, [&](std::size_t chunk) {
    const std::size_t end = std::min((chunk + 1) * kChunk, size_);
    for (std::size_t i = chunk * kChunk; i < end; ++i) {
      order_[places[chunk][steps_[i]]++] = static_cast<std::uint32_t>(i);
    }
  });

  std::vector<AlignedDoubles*> laid_out{&x_a_, &y_a_, &x_b_, &y_b_, &x_left_};
  for (RayCache* cache : {&left_rays_, &right_rays_}) {
    for (auto& [offsets, rays] : *cache) laid_out.insert(laid_out.end(), {&rays.x, &rays.y, &rays.z});
  }
  reordered_.resize(std::max(reordered_.size(), laid_out.size()));
  parallel_each(laid_out.size(), [&](std::size_t k) {
    AlignedDoubles& values = *laid_out[k];
    reordered_[k].resize(size_);
    for (std::size_t i = 0; i < size_; ++i) reordered_[k][i] = values[order_[i]];
    values.swap(reordered_[k]);
  });
  LaneSum sum;
  sum.add(terms_.data(), size_);
  return divide_score(sum.total(), 0.0, pass_.div_mode);
}

SweepPose SweepScorer::pose_for_kernel(const CalibResult& pose) const {
  EyeModel left = rig_.current.left;
  EyeModel right = rig_.current.right;
  right.lambda += pose.right_pan;
  right.psi += pose.right_tilt;
  right.roll += pose.right_roll;
  right.offset_x += pose.right_offset_x;
  right.offset_y += pose.right_offset_y;
  left.lambda += pose.left_pan;
  left.psi += pose.left_tilt;
  left.roll += pose.left_roll;
  left.offset_x += pose.left_offset_x;
  left.offset_y += pose.left_offset_y;
  eye_update_rotation(left);
  eye_update_rotation(right);
  const bool depth_tested = context_.depth_max >= context_.depth_min;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  return {eye_for_kernel(left),
          eye_for_kernel(right),
          left.distortion.coeff,
          rig_.current.baseline,
          depth_tested ? context_.depth_min + kDepthMargin : -kInfinity,
          depth_tested ? context_.depth_max - kDepthMargin : kInfinity,
          static_cast<double>(rig_.half_width),
          context_.dir_bias};
}

template <typename Visit>
void SweepScorer::visit_errors(const CalibResult& pose, std::size_t begin, std::size_t end,
                               Visit&& visit) const {
  const SweepPose posed = pose_for_kernel(pose);
  // With a name each: compilers that look for dangling references take a temporary key for what is referred
  // to.
  const Offsets left_offsets{pose.left_offset_x, pose.left_offset_y};
  const Offsets right_offsets{pose.right_offset_x, pose.right_offset_y};
  const Rays& left = left_rays_.at(left_offsets);
  const Rays& right = right_rays_.at(right_offsets);
  alignas(64) std::array<double, kSweepBlock> errors;
  for (const Group& group : groups_) {
    const std::size_t last = std::min(group.end, end);
    std::size_t count = 0;
    for (std::size_t at = std::max(group.begin, begin); at < last; at += count) {
      count = std::min(kSweepBlock, last - at);
      const MatchBlock block{{&left.x[at], &left.y[at], &left.z[at]},
                             {&right.x[at], &right.y[at], &right.z[at]},
                             &x_a_[at],
                             &y_a_[at],
                             &x_b_[at],
                             &y_b_[at]};
      group.errors(posed, block, count, errors.data());
      if (!visit(errors.data(), count)) return;
    }
  }
}

double SweepScorer::terms_of(const double* errors, std::size_t count, double* terms) const {
  double weights = 0.0;
  if (exp_factor_ != 0.0) {
    exp_(exp_factor_, count, errors, terms);
    if (pass_.div_mode != 1 && pass_.div_mode != 3) return weights;  // nobody asks for it
    for (std::size_t i = 0; i < count; ++i) weights += std::isinf(errors[i]) ? 0.0 : 1.0;
    return weights;
  }
  const double sigma_squared = pass_.sigma * pass_.sigma;
  for (std::size_t i = 0; i < count; ++i) {
    terms[i] = 0.0;
    if (std::isinf(errors[i])) continue;
    const double term = weight_match_error(context_, errors[i], sigma_squared, pass_.weight_mode);
    if (term == kInvalid) continue;
    terms[i] = term;
    weights += 1.0;
  }
  return weights;
}

double least_to_keep(double least) {
  if (!std::isfinite(least)) return least;
  const double bound = least - 2.0 * kSweepTolerance * std::abs(least);
  return least < kLeastTrustedScore ? std::min(bound, 0.0) : bound;
}

double SweepScorer::score(const CalibResult& pose, double least) const {
  // All threads must leave the same poses at last, whichever order they come in. So one that is left stays
  // below the bound by more than its sum is rounded.
  const double hopeless = least_to_keep(least) * (1.0 - kSweepTolerance);
  LaneSum sum;
  double weights = 0.0;
  std::size_t remaining = size_;
  bool left_early = false;
  alignas(64) std::array<double, kSweepBlock> terms;
  visit_errors(pose, 0, size_, [&](const double* errors, std::size_t count) {
    weights += terms_of(errors, count, terms.data());
    sum.add(terms.data(), count);
    remaining -= count;
    left_early = bounded_ && sum.total() + static_cast<double>(remaining) < hopeless;
    return !left_early;
  });
  if (left_early) return -std::numeric_limits<double>::infinity();
  return divide_score(sum.total(), weights, pass_.div_mode);
}

bool SweepScorer::counts_no_match(const CalibResult& pose) const {
  bool none = true;
  visit_errors(pose, 0, size_, [&](const double* errors, std::size_t count) {
    none = std::all_of(errors, errors + count, [](double error) { return std::isinf(error); });
    return none;
  });
  return none;
}

}  // namespace twintrue
