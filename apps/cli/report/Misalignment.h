#pragma once

// How far each match is off under the lens file as given and under the corrected one.
//
// Measure and signs are those of verdict/PairView.h: the disparity across the plane of a match's rays and the
// baseline, in pixels of the middle of the right eye's picture.

#include <array>
#include <cstddef>
#include <limits>
#include <vector>

#include "lens/RigModel.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"
#include "verdict/PairView.h"

namespace twintrue::cli {

using Point = std::array<double, 2>;  // frame pixels, or a difference of them

// An eye's image circle in the frame.
struct Circle {
  Point centre{};
  double radius = 0.0;
};

struct SeenMatch {
  // What the verdict makes of it: kGraphics, burned into both halves, and kRim, near the rim of the lens, are
  // left out; kUnseen has no ray under one of the lens files and fits nothing.
  enum class Use { kCounted, kGraphics, kRim, kUnseen };
  Use use = Use::kCounted;
  // Right eye, left eye.
  std::array<Point, 2> at{};
  // From where the other eye's ray says that it should be, to where it is: given lens file, corrected one.
  std::array<std::array<Point, 2>, 2> arrow{};
  // Disparity across, pixels; infinite without a ray.
  double before = std::numeric_limits<double>::infinity();
  double after = std::numeric_limits<double>::infinity();
  double parallax = 0.0;  // under the corrected lens file, pixels
  double distance = 0.0;  // likewise, metres; infinite for rays that do not meet before the rig
  // Direction under the corrected lens file: right and up of straight ahead, as tangents; of no meaning
  // unless `ahead`.
  Point direction{};
  bool ahead = false;
};

struct Misalignment {
  std::vector<SeenMatch> matches;  // in the search's order
  std::array<Circle, 2> circles;   // right eye, left eye; as the lens file has them
  double pixels_per_radian = 0.0;

  double arc_minutes(double pixels) const;
};

// `rig` as read from the lens file, the matches of its search, and what is written. A pure function.
Misalignment look_at_matches(const RigState& rig, const std::vector<RayMatch>& matches,
                             const CalibResult& pose, const EyeShapes& shapes);

// Where both circles lie and what a radian is, with no matches.
Misalignment look_at_lens(const RigState& rig);

// Median and 90th percentile of distances from 0, and the share within kFitting pixels.
struct Summary {
  std::size_t count = 0;
  double median = 0.0;
  double most = 0.0;
  double fitting = 0.0;
};
enum class Lens { kGiven, kCorrected };
Summary summary_of(const std::vector<const SeenMatch*>& matches, Lens lens);

// Those that the verdict judges by, ...
std::vector<const SeenMatch*> judged(const Misalignment& misalignment);
// ... and of these the ones that have rays under both lens files.
std::vector<const SeenMatch*> drawable(const Misalignment& misalignment);

}  // namespace twintrue::cli
