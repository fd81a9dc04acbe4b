#pragma once

#include <optional>
#include <string>

#include "apps/cli/ExitCode.h"
#include "apps/cli/RunOptions.h"
#include "apps/cli/frames/FrameSource.h"

namespace twintrue::cli {

// What `twintrue calibrate` is given.
struct CalibrateArguments {
  FrameRequest frames;
  std::string lens;
  SettingsChoice settings;
  std::optional<std::string> out_lens;
  std::optional<std::string> json;    // "-": standard output
  std::optional<std::string> report;  // page that explains the run
  bool no_refine = false;
  bool fit_scale = false;  // not together with no_refine
  int threads = 0;         // 1 to kMostThreads; 0: default_thread_count()
  bool ignore_thresholds = false;
  bool verbose = false;
};

// Calibrates and tells the result. Throws Failure, after it has been told as JSON too if that is asked for.
ExitCode calibrate(const CalibrateArguments& arguments);

}  // namespace twintrue::cli
