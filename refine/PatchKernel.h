#pragma once

// The inner loops of least-squares matching: cut a window from the picture, take the template from one, and
// hold it against the other under an affine map. A call does one patch on the calling thread; nothing
// allocates or fails. All forms give the same bits.
//
// The pictures are smoothed by a binomial filter and read through a cubic B-spline without prefilter: its
// smoothing is the same at every phase, so neither the template, which lies on whole pixels, nor the other
// patch, which does not, is the sharper one. The other patch is read in two passes, first downward at each
// column of the window on the line of a row of the template, then along that line: all reads are of
// neighbours, as vectors want them. Where the line is inclined the spline is sheared with it; the slopes
// allow for that.

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/InstructionSet.h"

namespace twintrue {

// A patch is a disc in a square of kPatchSide; a row is filled up to kPatchLanes with pixels that count
// nothing.
inline constexpr int kPatchReach = 7;
inline constexpr int kPatchSide = 2 * kPatchReach + 1;
inline constexpr int kPatchLanes = 16;
// Side of a window, and its pixel that is the middle of the match.
inline constexpr int kWindowSide = 32;
inline constexpr int kWindowMiddle = 15;
// Pixels round a match's middle that a window is made from, before and behind it.
inline constexpr int kSmoothReach = 2;
inline constexpr int kCutBefore = kWindowMiddle + kSmoothReach;
inline constexpr int kCutBehind = kWindowSide - 1 - kWindowMiddle + kSmoothReach;

// A smoothed cut-out, grey levels, row by row. What follows the last row is read and counts nothing.
struct PatchWindow {
  alignas(64) std::array<float, kWindowSide*(kWindowSide + 1)> value{};
};

struct PatchPixels {
  alignas(64) std::array<float, kPatchSide * kPatchLanes> value;
};

// Weight of each pixel: a Gaussian cut to the disc. They add up to 1.
struct PatchWeights {
  PatchWeights();
  PatchPixels weight;
};

// The patch of the first picture, less its weighted mean, and its slopes to the right and downward.
struct PatchTemplate {
  PatchPixels value;
  PatchPixels by_x;
  PatchPixels by_y;
  double square = 0.0;  // weighted mean of the squared values
};

// Where the pixels of the template lie in the other window, and what they are expected to show there:
// gain * template + level.
struct PatchPlace {
  std::array<float, 2> middle{};     // of the template's middle pixel, x and y in the window
  std::array<float, 2> by_column{};  // one pixel to the right in the template
  std::array<float, 2> by_row{};     // one pixel downward
  std::array<float, 2> along{};      // directions of the first and the second shift in the window ...
  std::array<float, 2> across{};
  std::array<float, 2> along_back{};  // ... and in the template, times the gain
  std::array<float, 2> across_back{};
  float gain = 1.0f;
  float level = 0.0f;
};

// Whether a kernel can take a place: the whole patch lies in the window and the map is near enough to a
// shift. False for what is not a number.
bool place_fits(const PatchPlace& place);

// Unknowns of a step: shift along, its growth a column and a row, shift across, gain, level.
inline constexpr std::size_t kPatchUnknowns = 6;

// Normal equations of a step, as weighted means over the patch. The slope of a shift is the mean of both
// patches' slopes.
struct PatchSums {
  std::array<std::array<double, kPatchUnknowns>, kPatchUnknowns> normal{};  // lower triangle
  std::array<double, kPatchUnknowns> pull{};                                // slopes times residual
  double square = 0.0;                                                      // of the residual
};

struct PatchKernel {
  // `pixel` is the middle's in a coded picture; `pitch` elements from row to row. Reads kCutBefore pixels
  // before it and kCutBehind behind, each way.
  void (*cut)(const std::int16_t* pixel, std::ptrdiff_t pitch, PatchWindow& window);
  // The template round the window's middle.
  void (*take)(const PatchWindow& window, const PatchWeights& weights, PatchTemplate& patch);
  // The place must fit.
  void (*measure)(const PatchWindow& window, const PatchWeights& weights, const PatchTemplate& patch,
                  const PatchPlace& place, PatchSums& sums);
};

PatchKernel patch_kernel(InstructionSet set);

}  // namespace twintrue
