#pragma once

// The stages of a run on a frame, for the subcommands that look at them: the steps are those of a
// calibration, in its order.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/OutputFile.h"
#include "apps/cli/RunOptions.h"
#include "apps/cli/SettingsSource.h"
#include "apps/cli/checks/KeyProblems.h"
#include "base/ThreadTeam.h"
#include "features/FeatureUnit.h"
#include "imaging/XMat.h"
#include "lens/RigModel.h"
#include "matching/MatchSet.h"

namespace twintrue::cli {

// What such a subcommand is given.
struct RunArguments {
  std::string frame;
  std::string lens;
  SettingsChoice settings;
  int threads = 0;   // 1 to kMostThreads; 0: default_thread_count()
  std::string side;  // left or right half of the frame
  std::optional<std::string> out;
};

// Files that no output may replace.
std::vector<NamedPath> inputs_of(const RunArguments& arguments);

// A frame with all that is set up before its halves are looked at.
struct FrameRun {
  explicit FrameRun(int threads) : team(threads) {}

  ThreadTeam team;  // of all stages that the command looks at
  RigState rig;
  std::unique_ptr<SettingsSource> settings;
  std::unique_ptr<fpu::FeatureUnit> unit;
  cve::XMat_<float> frame;
  HalfFrames halves;

  const cve::XMat_<float>& half(const std::string& side) const {
    return side == "left" ? halves.left : halves.right;
  }
  std::int32_t cells() const { return unit->grid.numCells(); }
};

// Reads the files of the arguments, checks them as `calibrate` does and sets the run up. Throws Failure.
// The library's messages go to standard error.
std::unique_ptr<FrameRun> open_frame_run(const RunArguments& arguments, Reach reach);

// Both halves after detection and matching. No count ends the run here.
struct MatchedHalves {
  explicit MatchedHalves(FrameRun& run);

  fpu::FeatureFrame left_half;  // of the frame: the right eye's picture
  fpu::FeatureFrame right_half;
  fpu::MatchSet set;
  std::int32_t left_half_keypoints = 0;
  std::int32_t right_half_keypoints = 0;
  std::int32_t records = 0;
};

}  // namespace twintrue::cli
