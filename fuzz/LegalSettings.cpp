#include "LegalSettings.h"

#include <algorithm>
#include <memory>

#include "Support.h"
#include "params/ParamDocument.h"
#include "search/CalibContext.h"
#include "search/CandidateGrid.h"

namespace fuzzing {
namespace {

using namespace twintrue;

struct Key {
  const char* section;
  const char* key;
  std::int32_t least;
  std::int32_t most;
  std::int32_t when_absent;
  std::int32_t legal;
};

// Values from `least` to `most` are carried out.
constexpr Key kKeys[] = {
    {"calib", "mode", 28, 28, 4, 28},        {"calib", "score_weight_mode_last", 0, 13, 1, 1},
    {"matching", "k", 1, 2, 2, 2},           {"matching", "penalty_mode", 0, 5, 1, 1},
    {"mvc", "score_mode", 0, 13, 1, 12},     {"mvc", "score_mode2", -1, 13, -1, 1},
    {"mvc", "score_mode3", -1, 13, -1, 1},   {"mvc", "score_mode4", -1, 13, -1, 1},
    {"RENO", "det_type", 0, 7, 0, 6},        {"RENO", "lpf_bit", 0, 0, 0, 0},
    {"RENO", "desc_image_mode", 0, 0, 0, 0}, {"RENO", "wta_k", 1, 1, 1, 1},
    {"RENO", "rnd_mode", 0, 1, 0, 0},
};

bool is_legal(ParamDocument& document, const Key& key) {
  std::int32_t value = 0;
  param_get_int(param_child(param_root_child(document, key.section), key.key), &value, &key.when_absent);
  return value >= key.least && value <= key.most;
}

// Two modes of the two that store candidates.
bool has_legal_out_mode(ParamDocument& document) {
  const std::int32_t absent = 0;
  std::int32_t value = 0;
  param_get_int(param_child(param_root_child(document, "matching"), "out_mode"), &value, &absent);
  return value == 0 || value == 2;
}

bool open(ParamDocument& document, const std::string& path) {
  try {
    return param_document_open(document, path);
  } catch (const Yaml::Exception&) {
    return false;
  }
}

bool weight_modes_are_legal(const std::string& path) {
  const auto context = std::make_unique<CalibContext>();
  if (!load_calib_settings(*context, path, 256)) return true;
  // The first retry always runs.
  const std::int32_t last_retry = std::max(context->retry_count, 0);
  for (std::size_t r = 0; r < kMaxRetries && static_cast<std::int32_t>(r) <= last_retry; ++r) {
    for (std::size_t l = 0; l < kMaxLevels && static_cast<std::int32_t>(l) < context->num_levels[r]; ++l) {
      const std::int32_t mode = context->score_weight_mode[r][l];
      if (mode < 0 || mode > 13) return false;
    }
  }
  return true;
}

}  // namespace

std::string legal_settings(const std::string& text) {
  static const MemoryFile file;
  ParamDocument document;
  if (!open(document, file.write(text))) return text;
  std::string legal = text;
  const auto put = [&](const char* section, const char* key, std::int32_t value) {
    legal += std::string("\n") + section + ":\n  " + key + ": " + std::to_string(value) + "\n";
  };
  for (const Key& key : kKeys) {
    if (!is_legal(document, key)) put(key.section, key.key, key.legal);
  }
  if (!has_legal_out_mode(document)) put("matching", "out_mode", 2);
  return legal;
}

bool settings_are_legal(const std::string& path) {
  ParamDocument document;
  if (!open(document, path)) return true;
  for (const Key& key : kKeys) {
    if (!is_legal(document, key)) return false;
  }
  return has_legal_out_mode(document) && weight_modes_are_legal(path);
}

bool search_is_small(const std::string& path, std::int32_t frame_width) {
  constexpr std::int64_t kMostCandidates = 2000;
  const auto context = std::make_unique<CalibContext>();
  if (!load_calib_settings(*context, path, frame_width)) return true;
  std::int64_t sum = 0;
  const std::int32_t last_retry = std::max(context->retry_count, 0);
  for (std::size_t r = 0; r < kMaxRetries && static_cast<std::int32_t>(r) <= last_retry; ++r) {
    for (std::size_t l = 0; l < kMaxLevels && static_cast<std::int32_t>(l) < context->num_levels[r]; ++l) {
      sum += most_candidates(context->right_table[r][l], context->left_table[r][l], context->limits[r],
                             context->knn[l]);
    }
  }
  return sum <= kMostCandidates && context->score_tbl_size <= (1 << 16);
}

}  // namespace fuzzing
