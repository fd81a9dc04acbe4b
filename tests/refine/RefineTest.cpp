#include "base/ThreadTeam.h"
#include "refine/FieldError.h"
#include "refine/Refine.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "refine/CodedPicture.h"
#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing_support::kBaseline;
using testing_support::kCircleX;
using testing_support::kDegree;
using testing_support::kFrameHeight;
using testing_support::kFrameWidth;
using testing_support::kHalfPi;
using testing_support::kScale;
using testing_support::nominal_rig;
using testing_support::Point;
using testing_support::see;

constexpr std::int32_t kHalf = kFrameWidth / 2;
constexpr double kRadius = 1.5;  // metres; of the ball that the rig stands in

// The right eye turned and moved; the left one is as the lens file says.
CalibResult truth() {
  return {0.25 * kDegree, -0.15 * kDegree, 0.2 * kDegree, 0.8, -0.6, 0, 0, 0, 0, 0, -1, -1, -1, -1};
}

// Brightness of the ball's inside, grey levels: waves of 8 pixels and more.
double paint(const Point& p) {
  return 110.0 + 30.0 * std::sin(60.0 * p[0] + 25.0 * p[1]) + 30.0 * std::sin(55.0 * p[1] - 30.0 * p[2]) +
         25.0 * std::sin(70.0 * p[2] + 20.0 * p[0] + 4.0 * std::sin(9.0 * p[1]));
}

// What an eye with the corrections of `pose` sees at a pixel: `see` the other way round. False outside its
// circle.
bool point_at(bool left, const CalibResult& pose, double x, double y, Point& p) {
  const double u = x - kFrameWidth / 2.0 - (left ? kCircleX : -kCircleX) - (left ? 0.0 : pose.right_offset_x);
  const double v = kFrameHeight / 2.0 - y - (left ? 0.0 : pose.right_offset_y);
  const double radius = std::hypot(u, v);
  const double theta = radius / kScale * kHalfPi;
  if (theta > 95.0 * kDegree || radius == 0.0) return false;
  const Point c{std::sin(theta) * u / radius, std::sin(theta) * v / radius, -std::cos(theta)};
  const double pan = left ? 0.0 : pose.right_pan, tilt = left ? 0.0 : pose.right_tilt;
  const double roll = left ? 0.0 : pose.right_roll;
  const Point b{c[0] * std::cos(pan) - c[2] * std::sin(pan), c[1],
                c[0] * std::sin(pan) + c[2] * std::cos(pan)};
  const Point a{b[0], b[1] * std::cos(tilt) + b[2] * std::sin(tilt),
                -b[1] * std::sin(tilt) + b[2] * std::cos(tilt)};
  const Point ray{a[0] * std::cos(roll) + a[1] * std::sin(roll),
                  -a[0] * std::sin(roll) + a[1] * std::cos(roll), a[2]};
  // From the eye to the ball.
  const double from = (left ? -0.5 : 0.5) * kBaseline;
  const double along = from * ray[0];
  const double t = -along + std::sqrt(along * along + kRadius * kRadius - from * from);
  p = {from + t * ray[0], t * ray[1], t * ray[2]};
  return true;
}

struct Shot {
  RigState rig = nominal_rig();
  CodedHalves halves;
  std::vector<RayMatch> matches;
};

// A frame of the ball; `bend` changes what is painted at a place of the left eye's picture.
using Bend = std::function<void(double& x, double& y)>;
cve::XMat_<std::int16_t> draw(bool left, const Bend& bend = {}) {
  cve::XMat_<std::int16_t> half;
  half.create(kFrameHeight, kHalf);
  for (std::int32_t row = 0; row < kFrameHeight; ++row) {
    for (std::int32_t column = 0; column < kHalf; ++column) {
      double x = column + (left ? kHalf : 0), y = row;
      if (bend) bend(x, y);
      Point p{};
      if (point_at(left, truth(), x, y, p)) {
        half.at(row, column) = static_cast<std::int16_t>(std::lround(kCodeSteps * paint(p)));
      }
    }
  }
  return half;
}

// Matches on whole pixels of points of the ball, a tenth of them wrong.
std::vector<RayMatch> whole_matches() {
  std::mt19937 engine(7);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<RayMatch> matches;
  while (matches.size() < 3000) {
    const double theta = 72.0 * kDegree * std::sqrt(unit(engine)), phi = 4.0 * kHalfPi * unit(engine);
    const Point p{kRadius * std::sin(theta) * std::cos(phi), kRadius * std::sin(theta) * std::sin(phi),
                  -kRadius * std::cos(theta)};
    const CalibResult t = truth();
    const auto a = see(false, t.right_pan, t.right_tilt, t.right_roll, t.right_offset_x, t.right_offset_y, p);
    const auto b = see(true, 0, 0, 0, 0, 0, p);
    RayMatch match;
    match.x_a = static_cast<float>(std::round(a[0]));
    match.y_a = static_cast<float>(std::round(a[1]));
    match.x_b = static_cast<float>(std::round(b[0])) - kHalf;
    match.y_b = static_cast<float>(std::round(b[1]) + (unit(engine) < 0.1 ? 2.0 : 0.0));
    matches.push_back(match);
  }
  return matches;
}

const Shot& good_shot() {
  static const Shot shot = [] {
    Shot made;
    made.halves = {draw(false), draw(true), kHalf};
    made.matches = whole_matches();
    return made;
  }();
  return shot;
}

// About where a search ends.
CalibResult near_truth() {
  CalibResult start = truth();
  start.right_pan += 0.01 * kDegree;
  start.right_tilt -= 0.015 * kDegree;
  start.right_offset_y += 0.1;
  start.score = 12.0;
  return start;
}

double error_of(const Refinement& refined) { return field_difference(nominal_rig(), truth(), refined.pose); }

TEST(Refine, FindsThePoseToHundredthsOfAPixel) {
  const Shot& shot = good_shot();
  const Refinement refined = refine(shot.halves, shot.rig, shot.matches, near_truth());
  ASSERT_TRUE(refined.taken) << refined.reason;
  EXPECT_EQ(refined.pose.score, 12.0);
  EXPECT_LT(error_of(refined), 0.005);
  EXPECT_GT(refined.expected_error, 0.3 * error_of(refined));
  EXPECT_LT(refined.expected_error, 0.01);
  EXPECT_NEAR(refined.moved, field_difference(shot.rig, truth(), near_truth()), 0.005);
  EXPECT_GT(static_cast<double>(refined.kept), 0.8 * static_cast<double>(refined.tried));
  // Pan and offset x do the same but at the rim.
  EXPECT_LT(refined.correlation[0][3] * refined.correlation[3][0], 1.0);
  EXPECT_GT(std::abs(refined.correlation[0][3]), 0.5);
  // The matches themselves are where the eyes see the points.
  double sum = 0.0;
  for (const RefinedMatch& match : refined.matches) {
    Point p{};
    ASSERT_TRUE(point_at(false, truth(), match.right[0], match.right[1], p));
    const auto left = see(true, 0, 0, 0, 0, 0, p);
    sum += std::pow(match.left[1] - left[1], 2) / static_cast<double>(refined.matches.size());
  }
  EXPECT_LT(std::sqrt(sum), 0.05);
}

TEST(Refine, StartDoesNotMatter) {
  const Shot& shot = good_shot();
  CalibResult far = truth();
  far.right_pan -= 1.0 * kDegree;
  far.right_tilt += 1.0 * kDegree;
  far.left_roll += 1.0 * kDegree;
  far.left_offset_y -= 5.0;
  const Refinement wanted = refine(shot.halves, shot.rig, shot.matches, near_truth());
  const Refinement refined = refine(shot.halves, shot.rig, shot.matches, far);
  EXPECT_TRUE(refined.taken) << refined.reason;
  EXPECT_LT(field_difference(shot.rig, wanted.pose, refined.pose), 0.002);
}

TEST(Refine, BrightnessAndContrastDoNotMatter) {
  Shot shot = good_shot();
  const Refinement wanted = refine(shot.halves, shot.rig, shot.matches, near_truth());
  cve::XMat_<std::int16_t> other;
  other.create(kFrameHeight, kHalf);
  for (std::int32_t y = 0; y < kFrameHeight; ++y) {
    for (std::int32_t x = 0; x < kHalf; ++x) {
      other.at(y, x) = static_cast<std::int16_t>(1200 + shot.halves.right_half.at(y, x) / 2);
    }
  }
  shot.halves.right_half = other;
  const Refinement refined = refine(shot.halves, shot.rig, shot.matches, near_truth());
  ASSERT_TRUE(refined.taken) << refined.reason;
  EXPECT_LT(field_difference(shot.rig, wanted.pose, refined.pose), 0.001);
}

TEST(Refine, SameBytesForEveryThreadCount) {
  const Shot& shot = good_shot();
  const auto refined_by = [&shot](int threads) {
    const ThreadTeam team(threads);
    return refine(shot.halves, shot.rig, shot.matches, near_truth());
  };
  const Refinement one = refined_by(1);
  const Refinement five = refined_by(5);
  EXPECT_EQ(std::memcmp(&one.pose, &five.pose, sizeof one.pose), 0);
  EXPECT_EQ(one.covariance, five.covariance);
  ASSERT_EQ(one.matches.size(), five.matches.size());
  for (std::size_t m = 0; m < one.matches.size(); ++m) {
    ASSERT_EQ(std::memcmp(&one.matches[m], &five.matches[m], sizeof one.matches[m]), 0) << m;
  }
}

// Rows and columns of cells, each moved by itself: `share` of them up or down by as much as `most` pixels.
Bend shaken_cells(double share, double most) {
  return [share, most](double& x, double& y) {
    constexpr double kCell = 32.0;
    const auto hash = [&](double salt) {
      const double value =
          std::sin(std::floor(x / kCell) * 12.9898 + std::floor(y / kCell) * 78.233 + salt) * 43758.5453;
      return value - std::floor(value);
    };
    const double draw = hash(0.0);
    const double size = hash(1.0);
    if (draw < share) y += most * (2.0 * size - 1.0);
  };
}

// Rows moved up and down by turns.
Bend waves(double size) {
  return [size](double&, double& y) { y += size * std::sin(y / 45.0); };
}

TEST(Refine, RefusesWhatCanNotBeTrusted) {
  struct Case {
    const char* name;
    RefineRefusal wanted;
    std::function<void(Shot&, CalibResult&)> change;
  };
  const std::vector<Case> cases{
      {"no matches", RefineRefusal::kFewPatches, [](Shot& shot, CalibResult&) { shot.matches.clear(); }},
      {"few matches", RefineRefusal::kFewPatches, [](Shot& shot, CalibResult&) { shot.matches.resize(90); }},
      {"black halves", RefineRefusal::kFewPatches,
       [](Shot& shot, CalibResult&) {
         shot.halves.left_half.create(kFrameHeight, kHalf);
         shot.halves.right_half.create(kFrameHeight, kHalf);
       }},
      {"pictures of other things in most cells", RefineRefusal::kFewConverge,
       [](Shot& shot, CalibResult&) { shot.halves.right_half = draw(true, shaken_cells(0.8, 400.0)); }},
      {"two pictures in one", RefineRefusal::kFewFit,
       [](Shot& shot, CalibResult&) {
         shot.halves.right_half = draw(true, [](double& x, double& y) {
           const auto cell = static_cast<int>(x / 40.0) + static_cast<int>(y / 40.0);
           if (cell % 9 < 4) y += 1.8;
         });
       }},
      {"texture in a corner", RefineRefusal::kFewFields,
       [](Shot& shot, CalibResult&) {
         std::erase_if(shot.matches, [](const RayMatch& m) { return m.x_a > 330.0f || m.y_a > 480.0f; });
       }},
      {"all cells shaken", RefineRefusal::kScatter,
       [](Shot& shot, CalibResult&) { shot.halves.right_half = draw(true, shaken_cells(1.0, 2.4)); }},
      {"rows that sway", RefineRefusal::kSystematic,
       [](Shot& shot, CalibResult&) { shot.halves.right_half = draw(true, waves(0.7)); }},
      {"matches that say otherwise", RefineRefusal::kMisfit,
       [](Shot& shot, CalibResult& start) {
         for (RayMatch& match : shot.matches) match.y_b += 1.0f;
         start.right_tilt += 1.0 / kScale * kHalfPi;
       }},
      {"refined already", RefineRefusal::kNoBetter,
       [](Shot& shot, CalibResult& start) {
         start = refine(shot.halves, shot.rig, shot.matches, start).pose;
       }},
  };
  for (const Case& one : cases) {
    Shot shot = good_shot();
    CalibResult start = near_truth();
    one.change(shot, start);
    const Refinement refined = refine(shot.halves, shot.rig, shot.matches, start);
    EXPECT_FALSE(refined.taken) << one.name;
    EXPECT_EQ(refined.refusal, one.wanted)
        << one.name << ": " << refined.reason << " tried " << refined.tried << " converged "
        << refined.converged << " kept " << refined.kept << " fields " << refined.fields << " scatter "
        << refined.scatter << " moved " << refined.moved << " common " << refined.common << " foresight "
        << refined.foresight << " expected " << refined.expected_error;
    EXPECT_FALSE(refined.reason.empty()) << one.name;
  }
}

}  // namespace
}  // namespace twintrue
