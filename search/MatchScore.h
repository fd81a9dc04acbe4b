#pragma once

// How well a pose explains the matches.
//
// One match gives one geometric test: shoot the two rays of the match from the two eyes, find the point
// midway between the lines, put each eye's ray at that depth before the other eye and measure how far it
// lands from the keypoint there. This file is the plain form of the test, the reference for the faster one
// that sweeps use (SweepScorer.h).
//
// Left and right: the right eye sees (x_a, y_a) in the left half of the frame, the left eye (x_b, y_b) in the
// right half. Projections work in frame pixels, so half_width is added to the left eye's x on the way in and
// taken off on the way out. Errors are in squared pixels. All functions only read their inputs and may run on
// many threads.

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/PoseCandidate.h"
#include "search/RayMatch.h"

namespace twintrue {

using Vec3 = std::array<double, 3>;

// Stands for "no value": a match whose rays or projections fail doesn't count.
inline constexpr double kInvalid = std::numeric_limits<double>::max();

// Two weight modes, 6 and 10, count down from here.
inline constexpr double kScoreCeiling = 100000000.0;

// How far inside its bounds a depth must lie to count, in metres.
inline constexpr double kDepthMargin = 0.0001;

// Pixels that a keypoint must stand off vertically before the bias of the one-eye error changes its sign.
inline constexpr double kBiasStep = 2.0;

// How one pass over the matches is to be run.
struct ScorePass {
  bool final = false;           // the scoring of a retry's end: always with the full reprojection
  double sigma = 0.0;           // pixels
  std::int32_t rank_limit = 0;  // matches of higher rank end the walk
  std::int32_t count_limit = 0;
  std::int32_t weight_mode = 0;
  std::int32_t div_mode = 0;
  std::int32_t mid_point = 0;  // 1: test the common point instead of each eye's ray
};

// Scores the rig's current pose over the sorted matches. Aborts on an unknown weight mode.
MatchScoreSums score_matches(const CalibContext& context, const ScorePass& pass, const RigState& rig,
                             const std::vector<RayMatch>& matches);

// The same to the last bit, the matches shared out among the threads.
MatchScoreSums score_matches_in_parallel(const CalibContext& context, const ScorePass& pass,
                                         const RigState& rig, const std::vector<RayMatch>& matches);

// How many matches from the front a pass walks, unless it ends at the first valid one.
std::size_t walked_count(const CalibContext& context, const ScorePass& pass,
                         const std::vector<RayMatch>& matches);

struct MatchValue {
  double value = kInvalid;  // score term times weight
  double error = 0.0;
  double weight = 0.0;
};

// Scores the match at place `index` of the list. `sigma_squared` in squared pixels.
MatchValue score_one_match(const CalibContext& context, std::int32_t index, const RigState& rig,
                           const RayMatch& match, double sigma_squared, std::int32_t weight_mode,
                           std::int32_t fast_mode, std::int32_t mid_point);

// Reprojection error in both eyes, halved. `point_1` lies on the left eye's ray and `point_2` on the right
// eye's (metres, each as seen from its own eye); `depth` is how far before the rig they are taken. kInvalid
// if a projection fails.
double full_reprojection_error(const RigState& rig, const RayMatch& match, double depth, const Vec3& point_1,
                               const Vec3& point_2);

// Error in one eye only, not halved: in the right eye if `right_side`. A bias other than 0 weighs the
// vertical part by its sign.
double single_side_error(const RigState& rig, bool right_side, const RayMatch& match, double depth,
                         const Vec3& point_1, const Vec3& point_2, double bias);

// Score term of an error. Aborts on a mode outside 0 to 13.
double weight_match_error(const CalibContext& context, double error, double sigma_squared, std::int32_t mode);

// Whether the integer part of a column is even; sweeps may take one eye's error by it. False if not finite.
bool is_even_pixel(float x);

// True if the weight mode reads the score table.
bool uses_score_table(std::int32_t mode);

// What an error is multiplied by in the exponent of a weight mode whose term is an exponential, or whose
// table holds one; 0 for the other modes. The one definition for terms, sweeps and table.
double weight_exponent(std::int32_t mode, double sigma_squared);

// Point midway between the lines p0 + t d0 and p1 + u d1. False, with nothing written, for parallel lines.
bool intersect_rays(const Vec3& p0, const Vec3& d0, const Vec3& p1, const Vec3& d1, Vec3* midpoint);

// Divides the sum of score terms as the divider mode says; every match weighs 1.
double divide_score(double score_sum, double weight_sum, std::int32_t div_mode);

}  // namespace twintrue
