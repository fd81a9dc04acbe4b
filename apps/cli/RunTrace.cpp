#include "apps/cli/RunTrace.h"

#include <fmt/format.h>

#include "refine/CodedPicture.h"

namespace twintrue::cli {

void StepLog::tell(const std::string& text) {
  if (!on_) return;
  const auto now = std::chrono::steady_clock::now();
  fmt::print(stderr, "{:8.2f} s  {}\n", std::chrono::duration<double>(now - last_).count(), text);
  last_ = now;
}

void RunTrace::on_halves(const RigState& rig, const HalfFrames& halves) {
  clock_.end("conversion to linear light");
  if (!polishes_) return;
  halves_ = {code_picture(halves.left), code_picture(halves.right), rig.half_width};
}

void RunTrace::on_keypoints(bool left_half, std::int32_t count, bool enough) {
  clock_.end(left_half ? "keypoints of the left half" : "keypoints of the right half");
  (left_half ? counts_.left_half_keypoints : counts_.right_half_keypoints) = count;
  if (!enough) counts_.few = left_half ? RunCounts::Few::kLeftHalf : RunCounts::Few::kRightHalf;
  log_.tell(fmt::format("keypoints in the {}: {}",
                        left_half ? "left half (right eye)" : "right half (left eye)", count));
}

void RunTrace::on_records(std::int32_t count, bool enough) {
  clock_.end("matching");
  counts_.records = count;
  if (!enough) counts_.few = RunCounts::Few::kRecords;
  log_.tell(fmt::format("matches between the halves: {}", count));
}

void RunTrace::on_accepted(std::int32_t count) {
  clock_.end("acceptance");
  counts_.accepted = count;
  log_.tell(fmt::format("matches accepted: {}", count));
}

void RunTrace::on_level(std::int32_t retry, std::int32_t level, bool skipped, std::int64_t candidates,
                        const Seeds& seeds) {
  if (record_ != nullptr) record_->levels.push_back({retry, level, skipped, candidates, seeds[0].score});
  const std::string outcome =
      skipped ? "skipped" : fmt::format("{} candidates, best score {:.6g}", candidates, seeds[0].score);
  log_.tell(fmt::format("retry {}, level {}: {}", retry, level, outcome));
}

void RunTrace::on_final(std::int32_t retry, double score, const MatchScoreSums& sums) {
  if (record_ != nullptr) record_->retries.push_back({retry, score, sums.count4, sums.count16});
  log_.tell(fmt::format("retry {}: score {:.6g}, {} matches within 4 pixels, {} within 16", retry, score,
                        sums.count4, sums.count16));
}

void RunTrace::on_searched(const CalibContext& context, const RigState& rig,
                           const std::vector<RayMatch>& matches, const CalibResult& result) {
  clock_.end("search");
  if (record_ != nullptr) record_->matches = matches;
  counts_.searched = static_cast<std::int32_t>(matches.size());
  log_.tell(fmt::format("matches that the search had: {}", matches.size()));
  if (!polishes_) {
    evidence_ = gather_evidence(context, rig, matches, result);
  } else {
    polished_ = polish_pose(halves_, rig, matches, result, fits_shapes_);
    const Refinement& refinement = polished_->refinement;
    log_.tell(fmt::format("refined: {} of {} matches converge, {} fit to {:.3f} pixels; {}",
                          refinement.converged, refinement.tried, refinement.kept, refinement.scatter,
                          refinement.taken ? "taken" : "not taken: " + refinement.reason));
    clock_.end("fit and refining");
    evidence_ = gather_evidence(context, rig, matches, *polished_);
  }
  clock_.end("evidence for the verdict");
  halves_ = {};
  log_.tell("looked at for the verdict");
}

}  // namespace twintrue::cli
