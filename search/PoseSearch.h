#pragma once

// The coarse-to-fine search for the ten corrections: retries of levels, each level a grid around the best of
// the level before. Nothing is derived or fitted; the search sweeps and compares, and larger scores win.

#include <cstdint>
#include <vector>

#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/CandidateGrid.h"
#include "search/PoseCandidate.h"
#include "search/RayMatch.h"

namespace twintrue {

// Watches a search. All calls come from the searching thread.
class SearchObserver {
 public:
  virtual ~SearchObserver() = default;
  // After a level; `seeds` are what it leaves. A skipped level has no candidates.
  virtual void on_level(std::int32_t retry, std::int32_t level, bool skipped, std::int64_t candidates,
                        const Seeds& seeds) = 0;
  // After the final scoring of a retry: its score, and the sums of the pass as they were counted.
  virtual void on_final(std::int32_t retry, double score, const MatchScoreSums& sums) = 0;
};

// Searches over the sorted matches. `rig` is as read from the lens file and is only read; `result` receives
// the best pose, its score and sums. The context's score table is scratch. `observer` may be null.
void pose_search(CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                 PoseCandidate& result, SearchObserver* observer = nullptr);

}  // namespace twintrue
