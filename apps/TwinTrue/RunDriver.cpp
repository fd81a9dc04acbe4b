#include "apps/TwinTrue/RunDriver.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

#include <fmt/format.h>

#include "lens/LensParameters.h"
#include "matching/MatchPipeline.h"
#include "search/MatchFiltering.h"
#include "search/PoseCandidate.h"

namespace twintrue {
namespace {

constexpr std::int32_t kHalfFrameGranule = 16;

// A host may have closed standard output; that must not end a run.
void say(const std::string& text) { std::fputs(text.c_str(), stdout); }

std::int32_t round_down(std::int32_t size) { return size & ~(kHalfFrameGranule - 1); }

}  // namespace

CountTest::CountTest(const CalibContext& context, std::int32_t cells)
    : reciprocal_(1.0 / ((context.rank_last + 1) * cells)), threshold_(context.detection_ratio_th) {}

bool CountTest::passes(std::int32_t count, const char* message) const {
  if (count * reciprocal_ >= threshold_) return true;
  say(fmt::format(fmt::runtime(message), count));
  return false;
}

CalibResult starting_result() { return PoseCandidate(); }

cve::Size half_frame_size(const RigState& rig) {
  return {round_down(rig.frame_width / 2), round_down(rig.frame_height)};
}

HalfFrames half_frames(cve::XMat_<float>& frame, const RigState& rig) {
  const cve::Size size = half_frame_size(rig);
  const std::int32_t needed_cols = rig.half_width + size.cols;
  if (frame.cols < needed_cols || frame.rows < size.rows) {
    cve::XMat_<float> enlarged;
    enlarged.create(std::max(frame.rows, size.rows), std::max(frame.cols, needed_cols));
    for (std::int32_t y = 0; y < frame.rows; ++y) {
      std::copy_n(frame.row(y), frame.cols, enlarged.row(y));
    }
    frame = std::move(enlarged);
  }
  return {frame.view(0, 0, size.cols, size.rows), frame.view(rig.half_width, 0, size.cols, size.rows)};
}

bool read_lens(RigState& rig, const std::string& path) {
  try {
    return load_lens_description(rig, path, kLensSection) != 0 && rig_is_usable(rig);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return false;
  }
}

std::int32_t detect_half(const cve::XMat_<float>& half, fpu::FeatureFrame& frame) {
  const fpu::FeatureUnit& unit = *frame.unit;
  if (half.cols != unit.frameWidth || half.rows != unit.frameHeight) return 0;
  return frame.unit->detectAndDescribe(half, frame.store, frame.descriptors);
}

fpu::MatchSet make_match_set(fpu::FeatureUnit& unit) {
  const fpu::MatchingSettings& settings = unit.matchingSettings;
  if (settings.out_mode != 0 && settings.out_mode != 2) std::abort();
  return fpu::MatchSet(unit, settings.out_mode == 2 ? 1 : settings.k);
}

std::vector<RayMatch> accepted_matches(const fpu::MatchSet& set) {
  const std::int32_t count = fpu::export_matches(&set, nullptr, 0, kRecordBytes);
  if (count < 1) return {};
  std::vector<std::byte> words(static_cast<std::size_t>(count) * kRecordBytes);
  fpu::export_matches(&set, words.data(), count, kRecordBytes);
  std::vector<RayMatch> accepted;
  for (std::size_t at = 0; at < words.size(); at += kRecordBytes) {
    RayMatch match;
    std::memcpy(static_cast<void*>(&match), &words[at], kRecordBytes);
    if (match.accepted != 0) accepted.push_back(match);
  }
  return accepted;
}

void write_corrected_lens(const std::string& lens_path, const CalibResult& result,
                          const std::string& out_path) {
  RigState rig;
  load_lens_description(rig, lens_path, kLensSection);
  rig_apply_pose(rig, result);
  write_lens_description(rig.current, out_path);
}

std::int32_t run_driver(cve::XMat_<float>& frame, const RunPaths& paths, bool ignore_thresholds,
                        CalibResult& result, RunObserver* observer) {
  RigState rig;
  if (!read_lens(rig, paths.lens)) {
    say("read error lens ini path\n");
    return TWINTRUE_LENS_UNREADABLE;
  }

  const cve::Size size = half_frame_size(rig);
  const std::unique_ptr<fpu::FeatureUnit> unit = fpu::createFeatureUnit(paths.params, size.cols, size.rows);
  if (!unit) {
    say("invalid param file\n");
    return TWINTRUE_FAILED;
  }
  fpu::FeatureFrame left(*unit);
  fpu::FeatureFrame right(*unit);
  fpu::MatchSet match_set = make_match_set(*unit);

  const auto context = std::make_unique<CalibContext>();
  // From the document that the unit was made of: the file may have become another one.
  if (!load_calib_settings(*context, unit->document, rig.frame_width)) {
    say("invalid param file\n");
    return TWINTRUE_FAILED;
  }
  context->verbose = false;
  if (frame.empty()) return TWINTRUE_FAILED;
  HalfFrames halves = half_frames(frame, rig);

  std::int32_t cell_rows = 0;
  std::int32_t cell_columns = 0;
  const bool counted =
      unit->getParam("num_vert_cell", &cell_rows) >= 0 && unit->getParam("num_horz_cell", &cell_columns) >= 0;
  const std::int32_t cells = cell_rows * cell_columns;
  if (!counted || cells < 0) {
    say("Failed to get num cells\n");
    return TWINTRUE_FAILED;
  }

  RunObserver nobody;
  RunObserver& watcher = observer != nullptr ? *observer : nobody;
  const CountTest test(*context, cells);
  const auto goes_on = [&](std::int32_t count, const char* message) {
    return test.passes(count, message) || ignore_thresholds;
  };
  watcher.on_halves(rig, halves);
  // The picture goes as soon as both halves have been looked at: the search needs room for its rays.
  const std::int32_t left_count = detect_half(halves.left, left);
  halves.left = {};
  bool enough = goes_on(left_count, kFewLeftKeypoints);
  watcher.on_keypoints(true, left_count, enough);
  if (!enough) return TWINTRUE_TOO_FEW_MATCHES;
  const std::int32_t right_count = detect_half(halves.right, right);
  halves.right = {};
  frame = {};
  enough = goes_on(right_count, kFewRightKeypoints);
  watcher.on_keypoints(false, right_count, enough);
  if (!enough) return TWINTRUE_TOO_FEW_MATCHES;
  const std::int32_t records = fpu::match_frames(left, right, &match_set, false);
  enough = goes_on(records, kFewMatches);
  watcher.on_records(records, enough);
  if (!enough) return TWINTRUE_TOO_FEW_MATCHES;

  std::vector<RayMatch> matches;
  if (records > 0) matches = accepted_matches(match_set);
  watcher.on_accepted(static_cast<std::int32_t>(matches.size()));
  PoseCandidate found;
  const std::int32_t status =
      filter_and_search(*context, rig, matches, found, cells, ignore_thresholds, watcher.search_observer());
  result = found;
  const bool searched = status != TWINTRUE_TOO_FEW_MATCHES;
  if (searched) watcher.on_searched(*context, rig, matches, result);
  if (!paths.out_lens.empty()) write_corrected_lens(paths.lens, result, paths.out_lens);
  return status;
}

}  // namespace twintrue
