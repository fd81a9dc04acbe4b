#pragma once

// What a run leaves for its page beyond its result.

#include <cstdint>
#include <string>
#include <vector>

#include "search/RayMatch.h"

namespace twintrue::cli {

struct LevelRecord {
  std::int32_t retry = 0;
  std::int32_t level = 0;
  bool skipped = false;
  std::int64_t candidates = 0;
  double best_score = 0.0;  // larger is better; of no meaning if skipped
};

struct RetryRecord {
  std::int32_t retry = 0;
  double score = 0.0;
  std::int32_t within4 = 0;  // matches within 4 and 16 pixels
  std::int32_t within16 = 0;
};

struct StageRecord {
  std::string name;
  double seconds = 0.0;
  std::int64_t peak_bytes = 0;  // the most memory that the process had held by its end
};

struct RunRecord {
  std::vector<StageRecord> stages;
  std::vector<LevelRecord> levels;
  std::vector<RetryRecord> retries;
  std::vector<RayMatch> matches;  // that the search had
};

// Measures stages that follow each other. Not for use on several threads.
class StageClock {
 public:
  // `record` takes the stages; null: nothing is measured.
  explicit StageClock(RunRecord* record);
  // Ends a stage; the next one begins.
  void end(const char* name);

 private:
  RunRecord* record_;
  std::int64_t last_ = 0;  // nanoseconds of the steady clock
};

}  // namespace twintrue::cli
