#pragma once

// What the parameter file tells the pose search: the sections `calib`, `calib1`, `calib2`, ...
//
// The search runs retries, and each retry runs levels; so most settings are tables by retry [r] and level
// [l]. Rotations are held in radians, offsets in pixels of the frame, whatever units the file uses.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace twintrue {

struct ParamDocument;

inline constexpr int kMaxRetries = 20;  // retries 0 to 19
inline constexpr int kMaxLevels = 20;
inline constexpr int kMaxSeeds = 3;
inline constexpr int kRankBins = 10;
inline constexpr std::int64_t kMaxLevelCandidates = 100'000'000;
inline constexpr std::int32_t kMaxScoreTable = 1 << 24;
inline constexpr std::int32_t kSearchMode = 28;  // the only mode of the search

// One pose component to sweep, relative to a seed.
struct SweepRange {
  double min = 0.0;
  double max = 0.0;
  std::int32_t div = 1;   // number of values, both ends included
  std::int32_t exec = 0;  // no key sets it
};

// The ranges of one eye for one level.
struct EyeSweep {
  SweepRange offset_x;
  SweepRange offset_y;
  SweepRange pan;
  SweepRange tilt;
  SweepRange roll;
  std::int32_t mode = 0;  // left eye only: not 0 makes its ranges absolute instead of relative to the seed
};

// Bounds on the absolute value of what is swept. Roll is not limited.
struct PoseLimits {
  double pan_max = 0.0;
  double tilt_max = 0.0;
  double offset_x_max = 0.0;
  double offset_y_max = 0.0;
};

template <typename T>
using ByLevel = std::array<T, kMaxLevels>;
template <typename T>
using ByRetry = std::array<T, kMaxRetries>;
template <typename T>
using ByRetryAndLevel = ByRetry<ByLevel<T>>;

// Large (some 200 KB): keep it on the heap.
struct CalibContext {
  CalibContext();

  bool verbose = false;
  std::int32_t mode = 4;
  std::int32_t fast_mode = 0;
  ByRetryAndLevel<std::int32_t> use_mid_point{};
  double failure_score_th = 0.05;
  double detection_ratio_th = 0.4;
  double error16_th = 3.0;
  ByLevel<std::int32_t> knn{};  // seeds around which a level sweeps
  double removing_outlier = 0.0;
  ByRetryAndLevel<double> sigma{};  // pixels
  ByRetryAndLevel<std::int32_t> score_weight_mode{};
  ByRetryAndLevel<std::int32_t> score_div_mode{};
  std::int32_t score_diff_mode = 5;
  double dir_bias = 0.0;
  std::int32_t score_weight_mode_last = 1;
  std::int32_t score_div_mode_last = 2;
  double sigma_org_last = 1.0;
  std::int32_t use_mid_point_last = 0;
  std::int32_t rank_last = 1;
  std::int32_t num_using_feat_last = 1000000;
  double removing_outer_feat_rratio = 10.0;
  std::int32_t skip_num_using_feat_mode = 0;
  std::int32_t unit = 2;
  std::int32_t unit_deg = 0;
  double unit_scale = 1.0;
  ByRetryAndLevel<double> k_radius{};
  double k_offset = 0.01;
  ByRetry<std::int32_t> num_levels{};
  std::vector<float> score_table;  // filled level by level by the search
  std::int32_t score_tbl_size = 4096;
  float score_tbl_coeff = 1.0f;
  ByRetry<PoseLimits> limits{};
  std::int32_t retry_count = 0;
  ByRetry<std::int32_t> cont{};
  std::int32_t retry_break_th1 = 1000000;
  double retry_break_err_th16 = -1.0;
  double retry_break_err_th4 = -1.0;
  double retry_break_score = 10000000.0;
  double search_radius = 100000.0;
  ByRetryAndLevel<std::int32_t> num_of_using_feat{};
  std::array<std::int32_t, kRankBins> rank_histogram{};  // filled by filter_and_search
  ByLevel<std::int32_t> rank{};                          // highest rank that a level looks at
  ByRetryAndLevel<std::int32_t> skip{};
  ByRetryAndLevel<double> rradius_using_fps{};
  double depth_max = 5.1;  // metres
  double depth_min = 0.1;
  ByRetryAndLevel<EyeSweep> left_table{};
  ByRetryAndLevel<EyeSweep> right_table{};
};

// Fills a constructed context from a document, which stays the caller's; looking keys up adds them to its
// tree. `frame_width` is that of the whole frame in pixels; it scales the offsets.
//
// False, with the context partly filled, if a section `calib1` to `calib<retry_count>` is missing, or a value
// leads outside the tables: retry_count above 19, num_levels above 20, knn above 3, rank_last outside 0 to 9,
// score_tbl_size outside 0 to 2^24, a level of more than 100 million candidates by most_candidates(). A file
// without `calib` leaves all defaults. Prints nothing. Throws std::bad_alloc only.
bool load_calib_settings(CalibContext& context, ParamDocument& document, std::int32_t frame_width);

// The same from a parameter file, or from its text (see param_document_open). What does not parse counts as a
// file without `calib`. Throws file system errors as well.
bool load_calib_settings(CalibContext& context, const std::string& source, std::int32_t frame_width);

}  // namespace twintrue
