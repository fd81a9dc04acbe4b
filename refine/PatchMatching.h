#pragma once

// Matches of hundredths of a pixel: the patch round a match's pixel in the right eye's picture is held
// against the left eye's picture, laid out by the lens model as the left eye sees it, and moved until both
// differ least.

#include <cstdint>
#include <vector>

#include "imaging/XMat.h"
#include "refine/PairGeometry.h"
#include "search/RayMatch.h"

namespace twintrue {

// Both halves of the frame, coded: the left half, which is the right eye's picture, and the right half. Both
// of the same size; the right half starts at column `half_width` of the frame. Headers over one picture or
// over two.
struct CodedHalves {
  cve::XMat_<std::int16_t> left_half;
  cve::XMat_<std::int16_t> right_half;
  std::int32_t half_width = 0;
};

enum class PatchEnd : std::uint8_t {
  kConverged,
  kOutside,  // the patch or what it is held against leaves the picture or the field of view
  kFlat,     // nothing to hold on to
  kNoEnd,    // steps did not come to an end
  kMoved,    // went too far from where the match was
  kUnlike,   // the patches differ too much
};

// A match with its position refined in the left eye's picture.
struct PatchMatch {
  PatchEnd end = PatchEnd::kOutside;
  Vec2 right{};  // frame pixels; as the match had it
  Vec2 left{};   // frame pixels
  Vec2 along{};  // unit direction of the epipolar curve in the left eye's picture
  double variance_across =
      0.0;                   // of the left position across `along`, by the noise of the patch, squared pixels
  double correlation = 0.0;  // of the two patches
  double moved_across = 0.0;  // pixels
};

struct PatchSettings {
  double most_moved = 2.5;  // pixels
  double least_correlation = 0.8;
  double added_noise = 0.3;  // grey levels: what even a perfect patch is trusted to
  int most_steps = 12;
  double last_step = 0.03;  // a step of fewer pixels is the last
};

// Whether a window can be cut round the pixel of a half.
bool fits_window(const cve::XMat_<std::int16_t>& half, double x, double y);

// Refines each match; the order stays. Runs on all threads.
std::vector<PatchMatch> match_patches(const CodedHalves& halves, const PairGeometry& geometry,
                                      const std::vector<RayMatch>& matches, const PatchSettings& settings);

}  // namespace twintrue
