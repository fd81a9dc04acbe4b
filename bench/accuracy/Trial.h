#pragma once

// One case searched under one parameter file, beside the optimum of its matches.

#include <cstdint>
#include <string>

#include "Case.h"
#include "SceneError.h"
#include "search/CalibContext.h"

namespace twintrue::accuracy {

struct TrialSettings {
  double sigma = 0.0;    // of the optimum, pixels; 0: that of the search's last level
  int threads = 1;       // of the optimum
  bool verbose = false;  // the search tells its levels on standard output
};

struct Trial {
  std::string name;
  int format = 0;
  int width = 0;
  int matches = 0;
  std::int32_t status = 0;
  SceneError before;  // of the lens file
  SceneError after;   // of the search's result
  SceneError optimum;
  double score = 0.0;          // of the result, summed over all matches under `sigma`
  double optimum_score = 0.0;  // likewise
  double sigma = 0.0;
  std::int64_t candidates = 0;
  std::int64_t work = 0;     // candidates times the matches that their level looks at
  double seconds = 0.0;      // of the search
  double cpu_seconds = 0.0;  // of the search, all threads together
  Pose found{};              // corrections
  Pose wanted{};

  // Core error above the optimum's, pixels.
  double excess() const { return after.core - optimum.core; }
  // The same as if the frame were 4096 wide.
  double excess_at_4096() const { return excess() * 4096.0 / width; }
};

// Runs the search. The thresholds of the settings decide the status only.
Trial run_trial(Case& one, CalibContext& context, const TrialSettings& settings);

}  // namespace twintrue::accuracy
