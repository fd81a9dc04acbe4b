#pragma once

// A frame searched as a run does it, with what refining needs of it kept.

#include <filesystem>
#include <string>
#include <vector>

#include "imaging/XMat.h"
#include "lens/RigModel.h"
#include "refine/PatchMatching.h"
#include "search/RayMatch.h"

namespace twintrue::refine_bench {

struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bytes;  // three a pixel
};

// Throw std::runtime_error.
Pixels read_pixels(const std::filesystem::path& path);
RigState read_rig(const std::filesystem::path& path);

struct FrameRun {
  RigState rig;
  CalibResult found{};
  std::int32_t status = 0;
  std::vector<RayMatch> matches;  // that the search had
  cve::XMat_<float> linear;
  double search_seconds = 0.0;  // from the converted frame to the pose
};
// `memory`: a file that keeps what a search found, so that it is done once; none if empty.
FrameRun run_frame(const Pixels& pixels, const std::filesystem::path& lens, const std::string& params,
                   const std::filesystem::path& memory = {});

// Coded halves of the frame as the stage takes them.
CodedHalves code_halves(const cve::XMat_<float>& linear, const RigState& rig);

double seconds_now();

}  // namespace twintrue::refine_bench
