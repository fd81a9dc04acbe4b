#include "apps/cli/commands/InspectCalibJson.h"

#include <nlohmann/json.hpp>

namespace twintrue::cli {
namespace {

template <typename T>
Json table_json(const ByRetryAndLevel<T>& table) {
  Json rows = Json::array();
  for (const auto& row : table) rows.push_back(json_array(row));
  return rows;
}

Json limits_json(const ByRetry<PoseLimits>& limits) {
  Json array = Json::array();
  for (const PoseLimits& each : limits) {
    array.push_back({{"pan_max", each.pan_max},
                     {"tilt_max", each.tilt_max},
                     {"offset_x_max", each.offset_x_max},
                     {"offset_y_max", each.offset_y_max}});
  }
  return array;
}

Json range_json(const SweepRange& range) {
  return Json::array({range.min, range.max, range.div, range.exec});
}

Json sweeps_json(const ByRetryAndLevel<EyeSweep>& table) {
  Json rows = Json::array();
  for (const auto& row : table) {
    Json levels = Json::array();
    for (const EyeSweep& sweep : row) {
      levels.push_back({{"offset_x", range_json(sweep.offset_x)},
                        {"offset_y", range_json(sweep.offset_y)},
                        {"pan", range_json(sweep.pan)},
                        {"tilt", range_json(sweep.tilt)},
                        {"roll", range_json(sweep.roll)},
                        {"mode", sweep.mode}});
    }
    rows.push_back(std::move(levels));
  }
  return rows;
}

}  // namespace

Json calib_json(const CalibContext& context) {
  Json json;
  json["verbose"] = context.verbose;
  json["mode"] = context.mode;
  json["fast_mode"] = context.fast_mode;
  json["use_mid_point"] = table_json(context.use_mid_point);
  json["failure_score_th"] = context.failure_score_th;
  json["detection_ratio_th"] = context.detection_ratio_th;
  json["error16_th"] = context.error16_th;
  json["knn"] = json_array(context.knn);
  json["removing_outlier"] = context.removing_outlier;
  json["sigma"] = table_json(context.sigma);
  json["score_weight_mode"] = table_json(context.score_weight_mode);
  json["score_div_mode"] = table_json(context.score_div_mode);
  json["score_diff_mode"] = context.score_diff_mode;
  json["dir_bias"] = context.dir_bias;
  json["score_weight_mode_last"] = context.score_weight_mode_last;
  json["score_div_mode_last"] = context.score_div_mode_last;
  json["sigma_org_last"] = context.sigma_org_last;
  json["use_mid_point_last"] = context.use_mid_point_last;
  json["rank_last"] = context.rank_last;
  json["num_using_feat_last"] = context.num_using_feat_last;
  json["removing_outer_feat_rratio"] = context.removing_outer_feat_rratio;
  json["skip_num_using_feat_mode"] = context.skip_num_using_feat_mode;
  json["unit"] = context.unit;
  json["unit_deg"] = context.unit_deg;
  json["unit_scale"] = context.unit_scale;
  json["k_radius"] = table_json(context.k_radius);
  json["k_offset"] = context.k_offset;
  json["num_levels"] = json_array(context.num_levels);
  json["score_tbl_size"] = context.score_tbl_size;
  json["score_tbl_coeff"] = context.score_tbl_coeff;
  json["limits"] = limits_json(context.limits);
  json["retry_count"] = context.retry_count;
  json["cont"] = json_array(context.cont);
  json["retry_break_th1"] = context.retry_break_th1;
  json["retry_break_err_th16"] = context.retry_break_err_th16;
  json["retry_break_err_th4"] = context.retry_break_err_th4;
  json["retry_break_score"] = context.retry_break_score;
  json["search_radius"] = context.search_radius;
  json["num_of_using_feat"] = table_json(context.num_of_using_feat);
  json["rank"] = json_array(context.rank);
  json["skip"] = table_json(context.skip);
  json["rradius_using_fps"] = table_json(context.rradius_using_fps);
  json["depth_max"] = context.depth_max;
  json["depth_min"] = context.depth_min;
  json["left_table"] = sweeps_json(context.left_table);
  json["right_table"] = sweeps_json(context.right_table);
  return json;
}

}  // namespace twintrue::cli
