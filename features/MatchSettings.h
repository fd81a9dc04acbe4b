#pragma once

// Settings records of the match stage: the sections `matching`, `mvc` and `vdet` of the parameter file.
//
// FeatureUnit owns these records, because one file and one set-up serve both the features and the matching.
// So the plain records and their loaders live here, below matching/: the match stage includes this header,
// and nothing in features/ knows the match stage.
//
// Every key is optional; an absent or unreadable one leaves the default. The loaders of `matching` and `mvc`
// return false for values that no step can carry out (see each), and the record is then as it was. No loader
// prints; only memory that runs out makes one throw.

#include <array>
#include <cstdint>
#include <string>

#include "params/ParamDocument.h"

namespace fpu {

// Name of the numbered section: "matching" for index 0, "matching3" for 3.
std::string numbered_section(const char* name, std::int32_t index);

// Section `matching`.
struct MatchingSettings {
  double max_vector_ratio_h = 0.4;  // longest horizontal displacement / shorter side of the image
  double max_vector_ratio_v = 0.2;  // the same vertically
  bool check_circle = false;        // also demand dx^2 + dy^2 <= max_vector_h^2
  std::int32_t k = 2;               // candidates wanted a keypoint, 1 or 2
  std::int32_t out_mode = 0;        // 0: store k candidates; 2: only the best
  std::int32_t penalty_mode = 1;
  std::int32_t penalty_rshift = 6;
  float penalty_res_coeff = 2.0f;
  std::int32_t dist_ratio_offset = 3;
  std::int32_t dist_ratio_shift = 4;
  std::int32_t sat_offset = 0;
  std::int32_t score_th3 = 15;
  std::int32_t score_th4 = 15;
  float acc_th = 6.0f;

  // Set by the unit before the load.
  std::int32_t image_width = 0;
  std::int32_t image_height = 0;
  std::int32_t patchSize = 0;
  std::int32_t weightDist = 0;

  // Worked out at every load.
  std::int32_t max_vector_h = 0;  // pixels
  std::int32_t max_vector_v = 0;

  bool keep_links = false;  // of the current call of match_frames
  std::int32_t index = 0;   // of the section that was loaded
};

// Section `mvc`.
struct CorrectionSettings {
  std::array<float, 4> th{4.0f, 2.0f, 3.0f, 3.0f};  // `th`, `th2`, `th3`, `th4`: radii in pixels
  std::int32_t sort_mode = 1;
  std::int32_t sshift = 8;
  std::array<std::int32_t, 4> score_mode{1, -1, -1, -1};  // after a load none is -1
  std::int32_t max_score = 255;
  std::int32_t count_rshift = 0;
  std::int32_t normalizing_coeff = 128;
  std::int32_t num_matching_in_cell_out = 0;
  std::int32_t normalizing_mode = 0;
  std::int32_t dist_ratio_shift = 4;
  std::int32_t neighbour_mode = 2;
  std::int32_t bin_width = 8;
  std::int32_t normalizing = 0;
  std::int32_t ref_prev_frame_data_mode = 1;
  std::int32_t res_th = 0;
  std::int32_t res_th_both = 0;
  std::int32_t diff_pt_th = 2;

  // Set by the unit before the load.
  std::int32_t image_width = 0;
  std::int32_t image_height = 0;
  std::int32_t max_num_data_in_cell = 0;  // default of num_matching_in_cell_out, and normalising capacity
  std::int32_t candidates = 1;            // candidates per keypoint: 1 with out_mode 2, else k

  std::int32_t index = 0;  // of the section that was loaded

  // Results of the last correction, whole pixels.
  std::int32_t gmv_x = 0;
  std::int32_t gmv_y = 0;
};

// One rule of the foreground test. Off unless `ch` is 1 to 4.
struct CheckRule {
  std::int32_t score_th = 0;
  std::int32_t ch = 0;  // which of score1 to score4 is tested
  std::int32_t dist_ratio_th = 0;
};

// Section `vdet`.
struct CheckSettings {
  bool enabled = false;
  std::array<CheckRule, 5> rules{};
  std::int32_t ch_bg = 0;
  std::int32_t res_th_bg = 0;
  std::int32_t res_th_bg_both = 0;
  std::int32_t score_th_bg = 1000;
  std::int32_t res_th = 0;
  std::int32_t res_th_both = 0;
  std::int32_t rank_th = 10000;
  float long_mv_th_ratio_gmv = 0.02f;
  float long_mv_th_ratio_gmv_bg = 0.01f;
  std::int32_t auto_night_mode = 0;

  std::string section;  // name that was loaded
};

// Loads `matching` (or its numbered sibling) over what the record holds. An absent section loads as one with
// every key missing. Looking keys up adds them to the document's tree. False for shifts outside 0 to 31; only
// `penalty_rshift` may go down to -31, unless penalty_mode 2 or 4 is to shift by it. A ratio whose limit has
// no 32-bit value gives the smallest integer, under which nothing matches.
bool load_matching_settings(MatchingSettings& settings, twintrue::ParamDocument& document,
                            std::int32_t index);

// Loads `mvc` in the same way. False without a loaded document and for values that correction can't carry
// out: shifts outside 0 to 31, a bin_width below 1 or of 2^29 and more, whose own shift would lie outside, a
// normalizing of 2 to 4, which divides by the number of neighbours, with a neighbour_mode that has none.
bool load_correction_settings(CorrectionSettings& settings, twintrue::ParamDocument& document,
                              std::int32_t index);

// Loads `vdet` from the section of that name. False if the section is missing (the record then stays as it
// was) or `enabled` is 0 (the record is then off, and no other key is read). `verbose` is accepted for the
// unit's sake; the load has nothing to print.
bool load_check_settings(CheckSettings& settings, twintrue::ParamDocument& document,
                         const std::string& section, bool verbose);

}  // namespace fpu
