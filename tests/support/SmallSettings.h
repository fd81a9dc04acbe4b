#pragma once

#include <string>

namespace testing_support {

// A complete parameter file for frames of some hundred pixels: a search of two levels, and a quality test
// that nearly every result passes.
inline std::string small_settings() {
  return "grid:\n  num_kps_in_cell: 8\n  horz_margin: 14\n  vert_margin: 14\n  horz_cell_size: 16\n"
         "  vert_cell_size: 16\n"
         "RENO:\n  det_type: 6\n  filter_type: 14\n  res_th: 100\n  refining: 0\n  patchSize: 13\n"
         "  desc_bits: 64\n"
         "matching:\n  max_vector_ratio_h: 0.3\n  max_vector_ratio_v: 0.2\n  out_mode: 2\n"
         "mvc:\n  th: 8.0\n  sort_mode: 9\n  score_mode: 12\n  neighbour_mode: 3\n  normalizing: 1\n"
         "  normalizing_coeff: 256\n"
         "vdet:\n  ch_bg: 1\n  score_th_bg: 0\n  long_mv_th_ratio_gmv: 1\n  long_mv_th_ratio_gmv_bg: 1\n"
         "calib:\n  mode: 28\n  unit: 0\n  unit_deg: 1\n  num_levels: 2\n  score_weight_mode: 1\n"
         "  sigma: [4, 2]\n  rank: 10000\n  detection_ratio_th: 0\n  failure_score_th: 0\n  error16_th: 100\n"
         "  pan_max: 6\n  tilt_max: 6\n"
         "  depth:\n    max: 100\n    min: 0.1\n"
         "  right:\n    pan:\n      max: 2\n      div: 3\n    tilt:\n      max: 2\n      div: 3\n"
         "  right1:\n    roll:\n      max: 1\n      div: 3\n";
}

}  // namespace testing_support
