#include "features/MatchSettings.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>

#include "base/Saturate.h"
#include "features/ParamBool.h"

namespace fpu {
namespace {

using twintrue::param_child;
using twintrue::ParamNode;

// A key that keeps what `value` holds when it is absent or unreadable.
void read_key(const ParamNode& section, const char* key, std::int32_t& value) {
  twintrue::param_get_int(param_child(section, key), &value, &value);
}
void read_key(const ParamNode& section, const char* key, float& value) {
  twintrue::param_get_float(param_child(section, key), &value, &value);
}
void read_key(const ParamNode& section, const char* key, double& value) {
  twintrue::param_get_double(param_child(section, key), &value, &value);
}
void read_key(const ParamNode& section, const char* key, bool& value) {
  param_get_bool(param_child(section, key), &value);
}

constexpr std::int32_t kMaxShift = 31;

bool is_shift(std::int32_t value) { return value >= 0 && value <= kMaxShift; }

// The longest displacement in whole pixels; the smallest integer, which admits no displacement, where that
// number has no 32-bit value.
std::int32_t displacement_limit(std::int32_t side, double ratio) {
  return twintrue::truncate_to_int32(std::floor(static_cast<double>(side) * ratio));
}

bool can_match(const MatchingSettings& settings) {
  if (settings.penalty_rshift < -kMaxShift || settings.penalty_rshift > kMaxShift) return false;
  // Only mode 1 has a meaning for a negative shift.
  const bool shifts_right_only = settings.penalty_mode == 2 || settings.penalty_mode == 4;
  if (shifts_right_only && settings.penalty_rshift < 0) return false;
  return is_shift(settings.dist_ratio_shift);
}

// A bin holds at least a pixel, and its width in eighths must be a shift like the others.
bool is_bin_width(std::int32_t value) {
  if (value < 1) return false;
  const auto floor_log2 = static_cast<std::int32_t>(std::bit_width(static_cast<std::uint32_t>(value))) - 1;
  return is_shift(floor_log2 + 3);
}

bool can_correct(const CorrectionSettings& settings) {
  if (!is_shift(settings.sshift) || !is_shift(settings.count_rshift)) return false;
  if (!is_shift(settings.dist_ratio_shift) || !is_bin_width(settings.bin_width)) return false;
  const bool divides_by_neighbours = settings.normalizing >= 2 && settings.normalizing <= 4;
  return !divides_by_neighbours || settings.neighbour_mode > 0;
}

// The rules as a list of rows of (ch, score_th, dist_ratio_th). What is no list uses up no rule; rows that
// are not given stay off.
void read_rule_rows(const ParamNode& list, std::array<CheckRule, 5>& rules) {
  constexpr int kMaxEntries = 10;
  constexpr std::int32_t kUnreadable = 0;
  std::size_t row = 0;
  int entries = 0;
  const auto last = param_end(list);
  for (auto it = param_begin(list); it != last && entries < kMaxEntries; ++it, ++entries) {
    const ParamNode entry{"", &(*it).second};
    if (param_is_none(entry)) break;
    if (!param_is_sequence(entry) || row == rules.size()) continue;
    CheckRule& rule = rules[row++];
    std::int32_t* const elements[] = {&rule.ch, &rule.score_th, &rule.dist_ratio_th};
    std::size_t place = 0;
    const auto entry_last = param_end(entry);
    for (auto value = param_begin(entry); value != entry_last && place < std::size(elements); ++value) {
      twintrue::param_get_int({"", &(*value).second}, elements[place++], &kUnreadable);
    }
  }
}

void read_flat_rules(const ParamNode& section, std::array<CheckRule, 5>& rules) {
  constexpr const char* kSuffixes[] = {"", "_a", "_b", "_c", "_d"};
  for (std::size_t i = 0; i < rules.size(); ++i) {
    const std::string suffix = kSuffixes[i];
    rules[i] = {10000, -1, -1};
    read_key(section, ("score_th" + suffix).c_str(), rules[i].score_th);
    read_key(section, ("ch" + suffix).c_str(), rules[i].ch);
    read_key(section, ("dist_ratio_th" + suffix).c_str(), rules[i].dist_ratio_th);
  }
}

}  // namespace

std::string numbered_section(const char* name, std::int32_t index) {
  return index == 0 ? name : name + std::to_string(index);
}

bool load_matching_settings(MatchingSettings& settings, twintrue::ParamDocument& document,
                            std::int32_t index) {
  const ParamNode section = twintrue::param_root_child(document, numbered_section("matching", index));
  MatchingSettings fresh = settings;
  // Files in the field carry both spellings of the ratios; the right one, read last, wins.
  read_key(section, "max_vecor_ratio_h", fresh.max_vector_ratio_h);
  read_key(section, "max_vecor_ratio_v", fresh.max_vector_ratio_v);
  read_key(section, "max_vector_ratio_h", fresh.max_vector_ratio_h);
  read_key(section, "max_vector_ratio_v", fresh.max_vector_ratio_v);
  read_key(section, "check_circle", fresh.check_circle);
  read_key(section, "k", fresh.k);
  read_key(section, "out_mode", fresh.out_mode);
  read_key(section, "penalty_mode", fresh.penalty_mode);
  read_key(section, "penalty_rshift", fresh.penalty_rshift);
  read_key(section, "penalty_res_coeff", fresh.penalty_res_coeff);
  read_key(section, "dist_ratio_offset", fresh.dist_ratio_offset);
  read_key(section, "dist_ratio_shift", fresh.dist_ratio_shift);
  read_key(section, "sat_offset", fresh.sat_offset);
  read_key(section, "score_th3", fresh.score_th3);
  read_key(section, "score_th4", fresh.score_th4);
  read_key(section, "acc_th", fresh.acc_th);

  const std::int32_t side = std::min(fresh.image_width, fresh.image_height);
  fresh.max_vector_h = displacement_limit(side, fresh.max_vector_ratio_h);
  fresh.max_vector_v = displacement_limit(side, fresh.max_vector_ratio_v);
  fresh.index = index;
  if (!can_match(fresh)) return false;
  settings = fresh;
  return true;
}

bool load_correction_settings(CorrectionSettings& settings, twintrue::ParamDocument& document,
                              std::int32_t index) {
  if (!document.loaded) return false;
  const ParamNode section = twintrue::param_root_child(document, numbered_section("mvc", index));
  CorrectionSettings fresh = settings;
  read_key(section, "th", fresh.th[0]);
  read_key(section, "th2", fresh.th[1]);
  read_key(section, "th3", fresh.th[2]);
  read_key(section, "th4", fresh.th[3]);
  read_key(section, "sort_mode", fresh.sort_mode);
  read_key(section, "sshift", fresh.sshift);
  read_key(section, "score_mode", fresh.score_mode[0]);
  read_key(section, "score_mode2", fresh.score_mode[1]);
  read_key(section, "score_mode3", fresh.score_mode[2]);
  read_key(section, "score_mode4", fresh.score_mode[3]);
  read_key(section, "max_score", fresh.max_score);
  read_key(section, "count_rshift", fresh.count_rshift);

  std::int32_t normalizing_lshift = 7;
  read_key(section, "normalizing_lshift", normalizing_lshift);
  if (!is_shift(normalizing_lshift)) return false;
  fresh.normalizing_coeff = static_cast<std::int32_t>(std::uint32_t{1} << normalizing_lshift);
  read_key(section, "normalizing_coeff", fresh.normalizing_coeff);

  fresh.num_matching_in_cell_out = fresh.max_num_data_in_cell;
  read_key(section, "num_kps_in_cell", fresh.num_matching_in_cell_out);  // the key's old name
  read_key(section, "num_matching_in_cell_out", fresh.num_matching_in_cell_out);
  read_key(section, "normalizing_mode", fresh.normalizing_mode);
  read_key(section, "dist_ratio_shift", fresh.dist_ratio_shift);
  read_key(section, "neighbour_mode", fresh.neighbour_mode);
  read_key(section, "bin_width", fresh.bin_width);
  read_key(section, "normalizing", fresh.normalizing);
  read_key(section, "ref_prev_frame_data_mode", fresh.ref_prev_frame_data_mode);
  read_key(section, "res_th", fresh.res_th);
  read_key(section, "res_th_both", fresh.res_th_both);
  read_key(section, "diff_pt_th", fresh.diff_pt_th);

  for (std::size_t i = 1; i < fresh.score_mode.size(); ++i) {
    if (fresh.score_mode[i] == -1) fresh.score_mode[i] = fresh.score_mode[0];
  }
  fresh.index = index;
  if (!can_correct(fresh)) return false;
  settings = fresh;
  return true;
}

bool load_check_settings(CheckSettings& settings, twintrue::ParamDocument& document,
                         const std::string& section_name, bool /*verbose*/) {
  const ParamNode section = twintrue::param_root_child(document, section_name);
  if (param_is_none(section)) return false;
  settings.section = section_name;
  std::int32_t enabled = 1;
  read_key(section, "enabled", enabled);
  settings.enabled = enabled != 0;
  if (!settings.enabled) return false;

  // Rules belong to their section as a whole: none is left over from an earlier load.
  settings.rules = {};
  const ParamNode rows = param_child(section, "check_params");
  if (param_is_none(rows)) {
    read_flat_rules(section, settings.rules);
  } else if (param_is_sequence(rows)) {
    read_rule_rows(rows, settings.rules);
  }
  read_key(section, "ch_bg", settings.ch_bg);
  read_key(section, "res_th_bg", settings.res_th_bg);
  read_key(section, "res_th_bg_both", settings.res_th_bg_both);
  read_key(section, "score_th_bg", settings.score_th_bg);
  read_key(section, "res_th", settings.res_th);
  read_key(section, "res_th_both", settings.res_th_both);
  read_key(section, "rank_th", settings.rank_th);
  read_key(section, "long_mv_th_ratio_gmv", settings.long_mv_th_ratio_gmv);
  read_key(section, "long_mv_th_ratio_gmv_bg", settings.long_mv_th_ratio_gmv_bg);
  read_key(section, "auto_night_mode", settings.auto_night_mode);
  return true;
}

}  // namespace fpu
