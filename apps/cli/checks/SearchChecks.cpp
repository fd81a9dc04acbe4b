#include "apps/cli/checks/SearchChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "search/CandidateGrid.h"

namespace twintrue::cli {
namespace {

constexpr std::int32_t kLastWeightMode = 13;
constexpr std::int32_t kModeWithoutSigma = 6;

std::string section_of(std::int32_t retry) { return retry == 0 ? "calib" : "calib" + std::to_string(retry); }

bool is_weight_mode(std::int32_t mode) { return mode >= 0 && mode <= kLastWeightMode; }

// A table's value at a retry may have been given by an earlier one.
std::string section_that_gives(const KeyProblems& problems, std::int32_t retry, const std::string& key) {
  for (std::int32_t r = retry; r > 0; --r) {
    if (problems.gives(section_of(r), key)) return section_of(r);
  }
  return "calib";
}

// Retry and level whose candidates made the load refuse the settings.
std::pair<std::int32_t, std::size_t> first_level_of_too_many(const CalibContext& context) {
  for (std::int32_t retry = 0; retry <= std::max(context.retry_count, 0); ++retry) {
    const auto r = static_cast<std::size_t>(retry);
    for (std::size_t l = 0; l < kMaxLevels && static_cast<std::int32_t>(l) < context.num_levels[r]; ++l) {
      if (context.skip[r][l] == 0 &&
          most_candidates(context.right_table[r][l], context.left_table[r][l], context.limits[r],
                          context.knn[l]) > kMaxLevelCandidates) {
        return {retry, l};
      }
    }
  }
  return {};
}

// What made the load refuse the settings. The loader stops at the first thing, so values behind it are not
// known: only the first is told.
void explain_refusal(KeyProblems& problems, ParamDocument& document, const CalibContext& context) {
  const std::size_t before = problems.count();
  const std::int32_t retries = std::clamp(context.retry_count, 0, kMaxRetries - 1);
  problems.require(Reach::kSearch, context.retry_count < kMaxRetries, "calib", "retry_count",
                   context.retry_count, "0 to 19", "write `retry_count: 0`");
  for (std::int32_t r = 0; r <= retries && problems.count() == before; ++r) {
    if (r > 0 && param_is_none(param_root_child(document, section_of(r)))) {
      problems.add_section(
          Reach::kSearch, section_of(r), "no such section",
          fmt::format("a section for each retry, as `retry_count` is {}", context.retry_count),
          fmt::format("add `{}:` or write `retry_count: {}` in `calib`", section_of(r), r - 1));
      return;
    }
    const std::int32_t levels = context.num_levels[static_cast<std::size_t>(r)];
    problems.require(Reach::kSearch, levels <= kMaxLevels, section_of(r), "num_levels", levels, "at most 20",
                     "write the number of levels that the section gives ranges for");
  }
  if (problems.count() != before) return;
  const std::int32_t most_seeds = *std::max_element(context.knn.begin(), context.knn.end());
  problems.require(Reach::kSearch, most_seeds <= kMaxSeeds, "calib", "knn", most_seeds,
                   "1 to 3 at every level", "write `knn: 1`");
  problems.require(Reach::kSearch, context.rank_last >= 0 && context.rank_last < kRankBins, "calib",
                   "rank_last", context.rank_last, "0 to 9", "write `rank_last: 1`");
  problems.require(Reach::kSearch, context.score_tbl_size >= 0 && context.score_tbl_size <= kMaxScoreTable,
                   "calib", "score_tbl_size", context.score_tbl_size, "0 to 16777216",
                   "write `score_tbl_size: 4096`");
  if (problems.count() != before) return;
  const auto [retry, level] = first_level_of_too_many(context);
  problems.add_section(
      Reach::kSearch, section_of(retry),
      fmt::format("ranges that make too many candidates at level {}", level),
      fmt::format(
          "at most {} million: the product of all `div` of a level and `knn`, without what limits such "
          "as `pan_max` exclude",
          kMaxLevelCandidates / 1'000'000),
      fmt::format("write smaller `div`{}",
                  context.unit_scale == 1.0
                      ? ""
                      : fmt::format("; those of offsets are multiplied by {:g}, as `unit` is {}",
                                    context.unit_scale, context.unit)));
}

// Of a fault that the levels of a retry mostly share, only the first is told.
void check_levels(KeyProblems& problems, const CalibContext& context, std::int32_t retry) {
  const auto r = static_cast<std::size_t>(retry);
  const auto levels = static_cast<std::size_t>(std::clamp(context.num_levels[r], 0, kMaxLevels));
  bool good_mode = true;
  bool good_sigma = true;
  for (std::size_t l = 0; l < levels && good_mode; ++l) {
    if (context.skip[r][l] != 0) continue;
    const std::int32_t mode = context.score_weight_mode[r][l];
    good_mode = is_weight_mode(mode);
    problems.require(Reach::kSearch, good_mode, section_that_gives(problems, retry, "score_weight_mode"),
                     "score_weight_mode", fmt::format("{} for level {} of retry {}", mode, l, retry),
                     "0 to 13 at every level", "write `score_weight_mode: 1`");
    if (!good_sigma) continue;
    good_sigma = mode == kModeWithoutSigma || context.sigma[r][l] != 0.0;
    problems.require(Reach::kResult, good_sigma, section_that_gives(problems, retry, "sigma"), "sigma",
                     fmt::format("0 for level {} of retry {}", l, retry),
                     "the error in pixels that a match may have at that level, above 0",
                     "write a list with a value for each level, from about 12 down to 1");
  }
}

}  // namespace

void check_search_sections(KeyProblems& problems, ParamDocument& document, std::int32_t frame_width,
                           CalibContext& context) {
  if (param_is_none(param_root_child(document, "calib"))) {
    problems.add_section(
        Reach::kSearch, "calib", "no such section", "the ranges and steps of the search",
        "add `calib:` with `mode: 28`, or start from the preset that comes with the program");
    return;
  }
  if (!load_calib_settings(context, document, frame_width)) {
    explain_refusal(problems, document, context);
    return;
  }
  problems.require(Reach::kSearch, context.mode == kSearchMode, "calib", "mode", context.mode,
                   "28, the only mode of the search", "write `mode: 28`");
  problems.require(Reach::kSearch, is_weight_mode(context.score_weight_mode_last), "calib",
                   "score_weight_mode_last", context.score_weight_mode_last, "0 to 13",
                   "write `score_weight_mode_last: 1`");
  for (std::int32_t r = 0; r <= std::max(context.retry_count, 0); ++r) check_levels(problems, context, r);
}

}  // namespace twintrue::cli
