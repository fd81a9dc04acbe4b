#pragma once

// A second, plain model of the rig, for judging lens files: it reads `key = value;` lines itself, uses no
// table, and inverts the distortion for each point by bisection. It shares no code with the library.

#include <array>
#include <string>
#include <vector>

namespace cli_test {

// Error of a lens file against the true one, over pairs of pixels that see the same scene points.
struct LensError {
  double rms_px =
      0.0;  // of the distance at which each eye's ray, cut at the pair's depth, misses the other's pixel
  int pairs = 0;  // pairs that have such a distance
  int lost = 0;   // pairs whose rays don't meet before the rig, or can't be projected
};

// Throws std::runtime_error for files out of the plain subset of lens files.
LensError judge_lens(const std::string& true_lens, const std::string& other_lens);

}  // namespace cli_test
