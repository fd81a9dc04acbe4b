#pragma once

// One level of the search: list the poses around the seeds, score each over the matches, keep the best.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/CandidateGrid.h"
#include "search/MatchScore.h"
#include "search/PoseCandidate.h"
#include "search/RayMatch.h"
#include "search/SweepScorer.h"

namespace twintrue {

// The best candidates so far, best first, and the score that the next one must reach.
class TopList {
 public:
  // `kept` slots are in use: 1 to 3; any other number keeps nothing.
  explicit TopList(std::int32_t kept) : kept_(kept) {}

  // To be called in the order of the list: of equal scores the order decides.
  void offer(const PoseCandidate& candidate);

  // Scores below this are not taken. Starts at 0, so a negative score never opens the list.
  double entry() const { return entry_; }
  std::int32_t kept() const { return kept_; }
  const Seeds& slots() const { return slots_; }

 private:
  void insert(const PoseCandidate& candidate);

  std::int32_t kept_;
  double entry_ = 0.0;
  Seeds slots_;
};

// Bytes of rays that are kept ready at once: a level of more pixel offsets is evaluated in parts.
inline constexpr std::size_t kMostRayBytes = std::size_t{64} << 20;

// Evaluates the levels of one search.
class LevelEvaluator {
 public:
  // The context, the rig and the matches must outlive the object; the context's score table is filled by the
  // levels whose weight mode reads one.
  LevelEvaluator(CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches);
  // A rig that ends with the call would leave the object without one.
  LevelEvaluator(CalibContext&, RigState&&, const std::vector<RayMatch>&) = delete;

  // Evaluates level `l` of retry `r` around `seed_count` of the seeds and replaces all three by the best
  // found; slots that nothing filled are pose zero with score -1. Returns the number of candidates. Aborts on
  // an unknown weight mode.
  //
  // Candidates are scored in parallel; the result is the same for every number of threads.
  std::int64_t evaluate(Seeds& seeds, std::int32_t seed_count, std::int32_t l, std::int32_t r);

 private:
  // Scores a batch and offers the list what it may keep. `alone`: the batch is the whole level.
  void offer_batch(const ScorePass& pass, bool alone, std::vector<PoseCandidate>& batch, TopList& top_list);
  PoseCandidate plainly_scored(PoseCandidate candidate, const ScorePass& pass) const;

  CalibContext& context_;
  const RigState& rig_;
  const std::vector<RayMatch>& matches_;
  SweepScorer scorer_;
};

// Settings of the passes of a level.
ScorePass level_pass(const CalibContext& context, std::size_t match_count, std::int32_t l, std::int32_t r);

// Fills the score table for a level whose weight mode reads it; else leaves it as it is.
void build_score_table(CalibContext& context, std::int32_t l, std::int32_t r);

}  // namespace twintrue
