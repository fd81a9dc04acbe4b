#include "search/CalibContext.h"

#include <algorithm>

#include "params/ParamDocument.h"
#include "search/CandidateGrid.h"

namespace twintrue {
namespace {

constexpr double kRadiansPerDegree = 0.017453292519943295;
constexpr double kReferenceWidthInverse = 0.0001220703125;  // 1 / 8192: `unit` 2 is pixels of such a frame
constexpr double kAbsentSearchRadius = 10000000.0;

void read(const ParamNode& parent, const char* key, std::int32_t& value) {
  param_get_int(param_child(parent, key), &value, &value);
}

void read(const ParamNode& parent, const char* key, float& value) {
  param_get_float(param_child(parent, key), &value, &value);
}

void read(const ParamNode& parent, const char* key, double& value) {
  param_get_double(param_child(parent, key), &value, &value);
}

void read_range(const ParamNode& section, const char* key, double scale, bool in_degrees, SweepRange& range) {
  const ParamNode node = param_child(section, key);
  param_read_double_scaled(param_child(node, "max"), &range.max, scale, range.max);
  param_read_double_scaled(param_child(node, "min"), &range.min, scale, -range.max);
  // The scale applies to the count as well: a file for another frame width has to allow for that.
  param_read_int_scaled(param_child(node, "div"), &range.div, scale, range.div);
  if (in_degrees) {
    range.min *= kRadiansPerDegree;
    range.max *= kRadiansPerDegree;
  }
}

void read_eye_sweep(const ParamNode& section, const CalibContext& context, EyeSweep& sweep) {
  const bool degrees = context.unit_deg == 1;
  read_range(section, "offset_x", context.unit_scale, false, sweep.offset_x);
  read_range(section, "offset_y", context.unit_scale, false, sweep.offset_y);
  read_range(section, "pan", 1.0, degrees, sweep.pan);
  read_range(section, "tilt", 1.0, degrees, sweep.tilt);
  read_range(section, "roll", 1.0, degrees, sweep.roll);
  read(section, "mode", sweep.mode);
}

void read_sweeps(const ParamNode& section, std::int32_t command, std::size_t r, CalibContext& context) {
  // A command exchanges the meaning of the two sections for the whole retry.
  auto& of_right = command == 0 ? context.right_table[r] : context.left_table[r];
  auto& of_left = command == 0 ? context.left_table[r] : context.right_table[r];
  for (std::int32_t l = 0; l < context.num_levels[r]; ++l) {
    const std::string suffix = l == 0 ? "" : std::to_string(l);
    const auto level = static_cast<std::size_t>(l);
    read_eye_sweep(param_child(section, "right" + suffix), context, of_right[level]);
    const ParamNode left = param_child(section, "left" + suffix);
    if (!param_is_none(left)) read_eye_sweep(left, context, of_left[level]);
  }
}

void inherit(std::size_t r, CalibContext& context) {
  const auto copy = [r](auto& table) { table[r] = table[r - 1]; };
  copy(context.num_levels);
  copy(context.sigma);
  copy(context.score_weight_mode);
  copy(context.score_div_mode);
  copy(context.limits);
  copy(context.k_radius);
  copy(context.rradius_using_fps);
  copy(context.skip);
  copy(context.cont);
  copy(context.num_of_using_feat);
  copy(context.use_mid_point);
}

// Reads a limit in degrees or radians; a limit that the section doesn't give is in radians already.
void read_angle_limit(const ParamNode& section, const char* key, bool in_degrees, double& limit) {
  if (param_read_double_scaled(param_child(section, key), &limit, 1.0, limit) && in_degrees) {
    limit *= kRadiansPerDegree;
  }
}

bool load_retry(const ParamNode& section, std::size_t r, CalibContext& context) {
  if (r > 0) inherit(r, context);
  read(section, "num_levels", context.num_levels[r]);
  if (context.num_levels[r] > kMaxLevels) return false;

  const auto read_doubles = [&](const char* key, ByRetryAndLevel<double>& table, Broadcast mode, bool hold) {
    param_read_double_levels(section, key, table[r].data(), mode, hold);
  };
  const auto read_ints = [&](const char* key, ByRetryAndLevel<std::int32_t>& table, Broadcast mode) {
    param_read_int_levels(section, key, table[r].data(), mode);
  };
  read_doubles("sigma", context.sigma, Broadcast::kIfGiven, false);
  read_ints("score_weight_mode", context.score_weight_mode, Broadcast::kIfGiven);
  read_ints("score_div_mode", context.score_div_mode, Broadcast::kIfGiven);
  read_doubles("k_radius", context.k_radius, Broadcast::kIfGiven, true);
  read_doubles("rradius_using_fps", context.rradius_using_fps, Broadcast::kAlways, true);
  read_ints("skip", context.skip, Broadcast::kAlways);
  read_ints("num_of_using_feat", context.num_of_using_feat, Broadcast::kAlways);
  read_ints("use_mid_point", context.use_mid_point, Broadcast::kAlways);
  read(section, "cont", context.cont[r]);

  PoseLimits& limits = context.limits[r];
  param_read_double_scaled(param_child(section, "offset_y_max"), &limits.offset_y_max, context.unit_scale,
                           limits.offset_y_max);
  param_read_double_scaled(param_child(section, "offset_x_max"), &limits.offset_x_max, context.unit_scale,
                           limits.offset_x_max);
  read_angle_limit(section, "pan_max", context.unit_deg == 1, limits.pan_max);
  read_angle_limit(section, "tilt_max", context.unit_deg == 1, limits.tilt_max);

  std::int32_t command = 0;
  read(section, "command", command);
  if (command == 0 || command == 3 || r == 0) {
    read_sweeps(section, command, r, context);
  } else if (command == 1) {
    context.right_table[r] = context.right_table[r - 1];
    context.left_table[r] = context.left_table[r - 1];
  } else if (command == 2) {
    context.left_table[r] = context.right_table[r - 1];
    context.right_table[r] = context.left_table[r - 1];
  }
  return true;
}

bool within_tables(const CalibContext& context) {
  if (context.rank_last < 0 || context.rank_last >= kRankBins) return false;
  if (context.score_tbl_size < 0 || context.score_tbl_size > kMaxScoreTable) return false;
  if (std::any_of(context.knn.begin(), context.knn.end(), [](std::int32_t k) { return k > kMaxSeeds; })) {
    return false;
  }
  // The first retry always runs.
  const std::int32_t last_retry = std::max(context.retry_count, 0);
  for (std::size_t r = 0; r < kMaxRetries && static_cast<std::int32_t>(r) <= last_retry; ++r) {
    for (std::size_t l = 0; l < kMaxLevels && static_cast<std::int32_t>(l) < context.num_levels[r]; ++l) {
      if (context.skip[r][l] != 0) continue;
      const std::int64_t candidates = most_candidates(context.right_table[r][l], context.left_table[r][l],
                                                      context.limits[r], context.knn[l]);
      if (candidates > kMaxLevelCandidates) return false;
    }
  }
  return true;
}

}  // namespace

CalibContext::CalibContext() {
  knn[0] = 1;
  num_levels[0] = 1;
  rank[0] = 10000;
  num_of_using_feat[0][0] = 1000000;
  rradius_using_fps[0][0] = 5.0;
}

bool load_calib_settings(CalibContext& context, const std::string& source, std::int32_t frame_width) {
  ParamDocument document;
  bool parsed = false;
  try {
    parsed = param_document_open(document, source);
  } catch (const Yaml::Exception&) {
  }
  if (!parsed) document = ParamDocument{};  // without what was read up to the mistake
  return load_calib_settings(context, document, frame_width);
}

bool load_calib_settings(CalibContext& context, ParamDocument& document, std::int32_t frame_width) {
  const ParamNode calib = param_root_child(document, "calib");
  if (param_is_none(calib)) return true;

  read(calib, "mode", context.mode);
  read(calib, "fast_mode", context.fast_mode);
  read(calib, "failure_score_th", context.failure_score_th);
  read(calib, "detection_ratio_th", context.detection_ratio_th);
  read(calib, "error16_th", context.error16_th);
  read(calib, "dir_bias_mode", context.dir_bias);
  read(calib, "score_weight_mode_last", context.score_weight_mode_last);
  read(calib, "score_div_mode_last", context.score_div_mode_last);
  read(calib, "sigma_org_last", context.sigma_org_last);
  read(calib, "use_mid_point_last", context.use_mid_point_last);
  read(calib, "rank_last", context.rank_last);
  read(calib, "num_using_feat_last", context.num_using_feat_last);
  read(calib, "removing_outer_feat_rratio", context.removing_outer_feat_rratio);
  read(calib, "skip_num_using_feat_mode", context.skip_num_using_feat_mode);
  param_read_int_levels(calib, "knn", context.knn.data(), Broadcast::kAlways);
  read(calib, "removing_outlier_", context.removing_outlier);
  param_read_int_levels(calib, "rank", context.rank.data(), Broadcast::kAlways);
  read(calib, "score_diff_mode", context.score_diff_mode);
  read(calib, "k_offset", context.k_offset);
  read(calib, "score_tbl_size", context.score_tbl_size);
  read(calib, "score_tbl_coeff", context.score_tbl_coeff);

  read(calib, "unit", context.unit);
  context.unit_scale = 1.0;
  if (context.unit == 1) context.unit_scale = frame_width;
  if (context.unit == 2) context.unit_scale = frame_width * kReferenceWidthInverse;

  read(calib, "unit_deg", context.unit_deg);
  read(calib, "retry_count", context.retry_count);
  read(calib, "retry_break_th1", context.retry_break_th1);
  read(calib, "retry_break_err_th16", context.retry_break_err_th16);
  read(calib, "retry_break_err_th4", context.retry_break_err_th4);
  read(calib, "retry_break_score", context.retry_break_score);
  const ParamNode depth = param_child(calib, "depth");
  read(depth, "max", context.depth_max);
  read(depth, "min", context.depth_min);
  param_read_double_scaled(param_child(calib, "search_radius"), &context.search_radius, context.unit_scale,
                           kAbsentSearchRadius);

  if (!load_retry(calib, 0, context)) return false;
  if (context.retry_count >= kMaxRetries) return false;
  for (std::int32_t r = 1; r <= context.retry_count; ++r) {
    const ParamNode section = param_root_child(document, "calib" + std::to_string(r));
    if (param_is_none(section)) return false;
    if (!load_retry(section, static_cast<std::size_t>(r), context)) return false;
  }
  return within_tables(context);
}

}  // namespace twintrue
