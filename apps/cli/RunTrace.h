#pragma once

// What a run says while it goes.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/RunReport.h"
#include "apps/cli/report/RunRecord.h"
#include "search/PoseSearch.h"
#include "verdict/Evidence.h"
#include "verdict/Polish.h"

namespace twintrue::cli {

// Tells steps on standard error, each with the seconds since the one before. Silent unless switched on.
class StepLog {
 public:
  explicit StepLog(bool on) : on_(on) {}
  bool on() const { return on_; }
  void tell(const std::string& text);

 private:
  bool on_;
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

// Keeps the counts of a run and what its matches say, and tells each step.
class RunTrace final : public RunObserver, private SearchObserver {
 public:
  // `polishes`: whether the pose of the search is polished before it is judged, `fits_shapes`: and the shapes
  // of the eyes' pictures with it. `record` takes what a page tells of the run beyond its result; null: none
  // is wanted.
  RunTrace(StepLog& log, bool polishes, bool fits_shapes, RunRecord* record = nullptr)
      : log_(log), polishes_(polishes), fits_shapes_(fits_shapes), record_(record), clock_(record) {}

  void on_halves(const RigState& rig, const HalfFrames& halves) override;
  void on_keypoints(bool left_half, std::int32_t count, bool enough) override;
  void on_records(std::int32_t count, bool enough) override;
  void on_accepted(std::int32_t count) override;
  void on_searched(const CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                   const CalibResult& result) override;
  SearchObserver* search_observer() override { return this; }

  const RunCounts& counts() const { return counts_; }
  std::optional<Evidence> take_evidence() { return std::move(evidence_); }
  std::optional<Polished> take_polished() { return std::move(polished_); }

 private:
  void on_level(std::int32_t retry, std::int32_t level, bool skipped, std::int64_t candidates,
                const Seeds& seeds) override;
  void on_final(std::int32_t retry, double score, const MatchScoreSums& sums) override;

  StepLog& log_;
  bool polishes_;
  bool fits_shapes_;
  RunRecord* record_;
  StageClock clock_;
  CodedHalves halves_;
  RunCounts counts_;
  std::optional<Evidence> evidence_;
  std::optional<Polished> polished_;
};

}  // namespace twintrue::cli
