#include "apps/cli/checks/FeatureChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <exception>
#include <string>

#include "features/DetectorSettings.h"
#include "features/Grid.h"
#include "features/MatchSettings.h"
#include "features/TestPattern.h"

namespace twintrue::cli {
namespace {

// The detector keeps this many pixels beyond the reach of its pattern free of keypoints.
constexpr std::int32_t kMarginBeyondPatch = 8;
constexpr std::int32_t kMostDistRatio = 255;
// A chain of n comparisons takes n + 1 of the candidates.
constexpr auto kMostDescriptorBytes = static_cast<std::int32_t>((fpu::kCandidates - 1) / 8);

bool in_range(std::int32_t value, std::int32_t low, std::int32_t high) {
  return value >= low && value <= high;
}

// False if the test pattern can't be looked at.
bool check_detector_keys(KeyProblems& problems, const fpu::DetectorSettings& detector,
                         const LensFacts& lens) {
  const std::size_t before = problems.count();
  const std::int32_t side = std::min(lens.view_width(), lens.view_height());
  problems.require(Reach::kDetection, in_range(detector.nlevels, 1, fpu::kMaxLevels), "RENO", "nlevels",
                   detector.nlevels, "1 to 20", "write `nlevels: 1`");
  problems.require(Reach::kDetection, in_range(detector.patchSize, 1, side), "RENO", "patchSize",
                   detector.patchSize, fmt::format("1 to {}, the shorter side of a half of the frame", side),
                   "write `patchSize: 25`");
  problems.require(Reach::kDetection, in_range(detector.desc_bytes, 1, kMostDescriptorBytes), "RENO",
                   "desc_bits", fmt::format("a descriptor of {} bytes", detector.desc_bytes),
                   "8 to 504 bits; without `desc_bits` the length is 4 bits for each of `desc_bytes`",
                   "write `desc_bits: 256`");
  problems.require(Reach::kDetection, in_range(detector.rnd_mode, 0, 1), "RENO", "rnd_mode",
                   detector.rnd_mode, "0 or 1", "write `rnd_mode: 0`");
  const bool pattern_is_known = problems.count() == before;

  // Any other detector finds nothing, but this one ends the process.
  constexpr std::int32_t kFatalDetector = 8;
  problems.require(detector.det_type == kFatalDetector ? Reach::kDetection : Reach::kResult,
                   detector.det_type == 6, "RENO", "det_type", detector.det_type,
                   "6, the only detector that finds keypoints", "write `det_type: 6`");
  problems.require(Reach::kDetection, detector.desc_image_mode == 0, "RENO", "desc_image_mode",
                   detector.desc_image_mode, "0", "write `desc_image_mode: 0` or remove the line");
  problems.require(Reach::kDetection, detector.wta_k == 1, "RENO", "wta_k", detector.wta_k, "1",
                   "write `wta_k: 1` or remove the line");
  problems.require(Reach::kDetection, detector.lpf_bit == 0, "RENO", "lpf_bit", detector.lpf_bit,
                   "0, for frames of linear values", "write `lpf_bit: 0` or remove the line");
  return pattern_is_known;
}

void check_pattern(KeyProblems& problems, const fpu::DetectorSettings& detector) {
  const auto candidates =
      fpu::makePattern(detector.patchSize, detector.rnd_mode, detector.rSigma, detector.seedMake);
  problems.require(
      Reach::kDetection, fpu::chain_can_be_completed(candidates, fpu::chain_rules(detector)), "RENO",
      "patchSize",
      fmt::format("{}, with too few different places for a descriptor of {} bits", detector.patchSize,
                  detector.desc_bytes * 8),
      "a patch that holds the pattern",
      "write a larger `patchSize` (25 with `desc_bits: 256`), fewer `desc_bits`, `weightDist: 0`, or "
      "with `rnd_mode: 1` a larger `rSigma`");
}

std::int32_t check_grid(KeyProblems& problems, ParamDocument& document, const LensFacts& lens,
                        std::int32_t patch_size) {
  if (param_is_none(param_root_child(document, "grid"))) {
    problems.add_section(Reach::kDetection, "grid", "no such section",
                         "the raster that keypoints are spread over",
                         "add `grid:` with `num_kps_in_cell`, `horz_cell_size` and `vert_cell_size`");
    return 0;
  }
  fpu::Grid grid;
  grid.frameWidth = lens.view_width();
  grid.frameHeight = lens.view_height();
  const bool laid = grid.load(document, std::clamp(patch_size, 0, 65536) / 2 + kMarginBeyondPatch);
  const std::int64_t cells = std::int64_t{grid.horz_cell_count} * grid.vert_cell_count;
  if (!laid && grid.num_kps_in_cell * cells > fpu::kMaxKeypointSlots) {
    const std::int64_t most = fpu::kMaxKeypointSlots / cells;
    problems.require(Reach::kDetection, false, "grid", "num_kps_in_cell", grid.num_kps_in_cell,
                     fmt::format("at most {} in {} cells of a frame of {} x {} pixels", most, cells,
                                 lens.frame_width, lens.frame_height),
                     fmt::format("write `num_kps_in_cell: {}` or less, or make the cells larger", most));
    return 0;
  }
  if (!laid || cells < 1) {
    problems.add_section(
        laid ? Reach::kResult : Reach::kDetection, "grid",
        laid ? "a raster without a cell" : "a raster that can't be laid",
        fmt::format("cells that fit a half of the frame, {} x {} pixels", lens.view_width(),
                    lens.view_height()),
        "check the cell sizes and counts and the margins; cells of 64 pixels suit most frames");
    return 0;
  }
  problems.require(Reach::kDetection, grid.maxKpsInCell() >= 1, "grid", "num_kps_in_cell",
                   grid.maxKpsInCell(), "1 or more", "write `num_kps_in_cell: 30`");
  return grid.numCells();
}

void check_matching(KeyProblems& problems, ParamDocument& document, const LensFacts& lens) {
  fpu::MatchingSettings matching;
  matching.image_width = lens.view_width();
  matching.image_height = lens.view_height();
  const ParamNode section = param_root_child(document, "matching");
  if (!fpu::load_matching_settings(matching, document, 0)) {
    // Only shifts are refused; the record is as constructed then.
    std::int32_t shift = matching.penalty_rshift;
    std::int32_t ratio_shift = matching.dist_ratio_shift;
    param_get_int(param_child(section, "penalty_rshift"), &shift, &shift);
    param_get_int(param_child(section, "dist_ratio_shift"), &ratio_shift, &ratio_shift);
    problems.add_section(
        Reach::kDetection, "matching",
        fmt::format("`penalty_rshift` {} and `dist_ratio_shift` {}", shift, ratio_shift),
        "`penalty_rshift` -31 to 31, below 0 only with `penalty_mode: 1`; `dist_ratio_shift` 0 to 31",
        "write `penalty_rshift: 6` and `dist_ratio_shift: 4` or remove the lines");
    return;
  }
  problems.require(Reach::kDetection, matching.out_mode == 0 || matching.out_mode == 2, "matching",
                   "out_mode", matching.out_mode, "0 (all candidates of a keypoint) or 2 (only the best)",
                   "write `out_mode: 2`");
  problems.require(Reach::kMatching, in_range(matching.k, 1, 2), "matching", "k", matching.k, "1 or 2",
                   "write `k: 2`");
  problems.require(Reach::kMatching, in_range(matching.penalty_mode, 0, 5) || matching.penalty_mode == 7,
                   "matching", "penalty_mode", matching.penalty_mode, "0 to 5, or 7",
                   "write `penalty_mode: 1`");
}

// Returns the highest score that a vector can have.
std::int32_t check_correction(KeyProblems& problems, ParamDocument& document, const LensFacts& lens) {
  fpu::CorrectionSettings correction;
  correction.image_width = lens.view_width();
  correction.image_height = lens.view_height();
  correction.max_num_data_in_cell = 1;
  if (!fpu::load_correction_settings(correction, document, 0)) {
    problems.add_section(
        Reach::kDetection, "mvc", "a shift, a `bin_width` or a `normalizing` that can't be carried out",
        "`sshift`, `count_rshift`, `dist_ratio_shift`, `normalizing_lshift` 0 to 31; `bin_width` 1 "
        "or more; `normalizing` 2 to 4 only with `neighbour_mode` above 0",
        "correct the values, or remove the lines: their defaults work");
    return correction.max_score;
  }
  constexpr std::array<const char*, 4> kKeys{"score_mode", "score_mode2", "score_mode3", "score_mode4"};
  for (std::size_t i = 0; i < kKeys.size(); ++i) {
    // A later mode that the file doesn't give follows the first one, which is reported once.
    if (i > 0 && !problems.gives("mvc", kKeys[i])) continue;
    problems.require(Reach::kMatching, in_range(correction.score_mode[i], 0, 12), "mvc", kKeys[i],
                     correction.score_mode[i], i == 0 ? "0 to 12" : "0 to 12, or -1 for that of `score_mode`",
                     fmt::format("write `{}: {}`", kKeys[i], i == 0 ? 12 : -1));
  }
  problems.require(Reach::kResult, correction.num_matching_in_cell_out >= 1, "mvc",
                   "num_matching_in_cell_out", correction.num_matching_in_cell_out,
                   "1 or more matches kept in a cell", "remove the line");
  return correction.max_score;
}

void check_flagging(KeyProblems& problems, ParamDocument& document, std::int32_t max_score) {
  const ParamNode section = param_root_child(document, "vdet");
  if (param_is_none(section)) {
    problems.add_section(Reach::kDetection, "vdet", "no such section", "the rules that accept a match",
                         "add `vdet:` with `check_params`, `ch_bg` and `score_th_bg`");
    return;
  }
  fpu::CheckSettings checks;
  if (!fpu::load_check_settings(checks, document, "vdet", false)) {
    problems.require(Reach::kDetection, false, "vdet", "enabled", 0,
                     "1: without these rules no match is accepted", "write `enabled: 1` or remove the line");
    return;
  }
  const bool any_rule =
      std::any_of(checks.rules.begin(), checks.rules.end(), [&](const fpu::CheckRule& rule) {
        return in_range(rule.ch, 1, 4) && rule.score_th <= max_score && rule.dist_ratio_th <= kMostDistRatio;
      });
  const bool background = checks.score_th_bg <= max_score;
  if (any_rule || background) return;
  problems.require(
      Reach::kResult, false, "vdet", "check_params",
      fmt::format("no rule that a match could pass, and `score_th_bg` {} above the highest score, {}",
                  checks.score_th_bg, max_score),
      "rows of [score number 1 to 4, least score, least distance ratio], one row a line",
      "write rows such as `- [1, 30, 20]` below `check_params:`; a list within a list on one line is "
      "not understood");
}

}  // namespace

std::int32_t check_feature_sections(KeyProblems& problems, ParamDocument& document, const LensFacts& lens) {
  fpu::DetectorSettings detector;
  try {
    detector.read(param_root_child(document, "RENO"));
    const bool pattern_is_known = check_detector_keys(problems, detector, lens);
    const auto levels = static_cast<std::size_t>(std::clamp(detector.nlevels, 0, fpu::kMaxLevels));
    const auto end = detector.filter_type.begin() + static_cast<std::ptrdiff_t>(levels);
    const std::int32_t filter = levels == 0 ? 0 : *std::max_element(detector.filter_type.begin(), end);
    if (pattern_is_known) {
      // What is left of the detector's own test are the kernels.
      problems.require(Reach::kDetection, detector.usable(lens.view_width(), lens.view_height()), "RENO",
                       "filter_type", filter, "the number of a kernel, 0 to 23, or -1 for none",
                       "write `filter_type: 14`");
      check_pattern(problems, detector);
    }
  } catch (const std::exception& error) {
    problems.require(Reach::kDetection, false, "RENO",
                     problems.gives("RENO", "rndSeedMake") ? "rndSeedMake" : "rndSeedSelect",
                     fmt::format("a seed that is no number ({})", error.what()),
                     "decimal numbers of 64 bits in `rndSeedMake` and `rndSeedSelect`",
                     "correct the seed or remove the line");
  }
  const std::int32_t cells = check_grid(problems, document, lens, detector.patchSize);
  check_matching(problems, document, lens);
  const std::int32_t max_score = check_correction(problems, document, lens);
  check_flagging(problems, document, max_score);
  return cells;
}

}  // namespace twintrue::cli
