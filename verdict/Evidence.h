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
#include "verdict/Polish.h"
#include "verdict/PoseFit.h"
#include "verdict/Spread.h"

namespace twintrue {

// A part of the picture.
struct PartEvidence {
  std::int64_t matches = 0;
  double fitting = 0.0;  // share of them
  double bias = 0.0;     // median disparity across of those within twice kFitting, pixels
};

struct Evidence {
  double pixels_per_radian = 0.0;       // in the middle of the right eye's picture
  std::int64_t matches = 0;             // that the search had
  std::int64_t at_rim = 0;              // of them left out of all below: farther off an eye's axis than kRim,
  std::int64_t graphics = 0;            // and on graphics burned into both halves,
  std::array<double, 2> graphics_at{};  // in the middle of them, pixels of a half; zeros without any
  std::array<double, 3> within{};       // share of the others within 1, 2 and 4 pixels
  double before = 0.0;                  // share within 2 pixels under the lens file as it is
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
  bool polished = false;                  // looked at under a polished pose and not under the search's
  bool shaped = false;                    // with the shapes of the eyes' pictures fitted
  bool refined = false;  // and that was refined, its guards having found little that matches have in common
  // What the picture is off by whatever the pose, as refined matches have it: what neighbours among them have
  // in common and what they leave open of the pose, rms pixels. 0 without any.
  double uneven = 0.0;
  double change =
      0.0;  // rms disparity across over the field between the lens file's pose and this one, pixels
  double systematic = 0.0;  // rms of the fields' biases, less what noise explains, pixels
  PoseFit fit;
  // Values that ended where the search could go no farther: in what tells the eyes apart, which is the right
  // one's to take, and of the left one, which moves only where both do.
  std::vector<std::string> right_at_limit;
  std::vector<std::string> left_at_limit;
};

// Looks at the matches of a search that ended, under the search's pose. `rig` is as read from the lens file.
Evidence gather_evidence(const CalibContext& context, const RigState& rig,
                         const std::vector<RayMatch>& matches, const CalibResult& pose);

// The same under the pose and the shapes that are to be written. No limit of the search holds what both eyes
// have in common there, and deviations and expected error are those of that pose.
Evidence gather_evidence(const CalibContext& context, const RigState& rig,
                         const std::vector<RayMatch>& matches, const Polished& polished);

}  // namespace twintrue
