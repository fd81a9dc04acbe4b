#pragma once

// What the matches of a run say about its result: how many fit, where, and which values they fix.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"
#include "verdict/PoseFit.h"

namespace twintrue {

// Pixels of disparity across at which a match counts as fitting: six times the noise of whole-pixel
// keypoints, a fortieth of the height in which partners are sought.
inline constexpr double kFitting = 2.0;

// A part of the picture.
struct PartEvidence {
  std::int64_t matches = 0;
  double fitting = 0.0;  // share of them
  double bias = 0.0;     // median disparity across of those within twice kFitting, pixels
};

struct Evidence {
  std::int64_t matches = 0;        // that the search had
  std::array<double, 3> within{};  // share of them within 1, 2 and 4 pixels
  double before = 0.0;             // share within 2 pixels under the lens file as it is
  double noise = 0.0;    // robust standard deviation of the disparity across of those within 4, pixels
  double unmoved = 0.0;  // share of the matches at the very same pixel of both halves
  double behind = 0.0;   // share of the fitting ones whose rays meet clearly behind the rig
  // Share of the matches that come near the lens file as it is, their rays meeting before the rig, if each
  // half is taken for the other eye's picture.
  double exchanged = 0.0;
  double parallax_spread = 0.0;           // from the 10th to the 90th percentile of the fitting ones, pixels
  double coverage = 0.0;                  // share of the picture's fields that hold fitting matches
  std::array<PartEvidence, 3> rings;      // from the middle outward, 30 degrees each
  std::array<PartEvidence, 4> quadrants;  // upper right, upper left, lower left, lower right
  double systematic = 0.0;                // rms of the fields' biases, less what noise explains, pixels
  PoseFit fit;
  // Values that ended where the search could go no farther: of the right eye, which takes what tells the eyes
  // apart, and of the left one, which moves only where both do.
  std::vector<std::string> right_at_limit;
  std::vector<std::string> left_at_limit;
};

// Looks at the matches of a search that ended. `rig` is as read from the lens file.
Evidence gather_evidence(const CalibContext& context, const RigState& rig,
                         const std::vector<RayMatch>& matches, const CalibResult& result);

}  // namespace twintrue
