// Verdicts on matches of known truth.

#include "verdict/Verdict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "search/CalibContext.h"
#include "search/SyntheticRig.h"

namespace twintrue {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing_support::kDegree;
using testing_support::kFrameWidth;
using testing_support::make_matches;
using testing_support::nominal_rig;

CalibResult some_truth() {
  CalibResult truth{};
  truth.right_pan = 0.4 * kDegree;
  truth.right_tilt = -0.5 * kDegree;
  truth.right_roll = 0.3 * kDegree;
  truth.left_roll = -0.2 * kDegree;
  truth.left_offset_y = 1.0;
  return truth;
}

// Sweeps that reach 6 degrees in the angles of both eyes.
std::unique_ptr<CalibContext> wide_context() {
  auto context = std::make_unique<CalibContext>();
  for (auto* table : {&context->right_table, &context->left_table}) {
    for (SweepRange EyeSweep::*const range : {&EyeSweep::pan, &EyeSweep::tilt, &EyeSweep::roll}) {
      ((*table)[0][0].*range).max = 6.0 * kDegree;
    }
  }
  context->num_levels[0] = 1;
  return context;
}

using Matches = std::vector<RayMatch>;

Matches good_matches(std::uint32_t seed = 1) {
  return make_matches(some_truth(), {.count = 2000, .noise_px = 0.3, .outliers = 0.05, .seed = seed});
}

Evidence evidence_of(const Matches& matches, const CalibResult& pose) {
  return gather_evidence(*wide_context(), nominal_rig(), matches, pose);
}

struct Case {
  const char* name;
  Verdict::Outcome outcome;
  std::vector<std::string> keys;  // reasons that must be among those given
  std::function<void(Matches&, CalibResult&)> spoil;
};

void keep(Matches& matches, const std::function<bool(const RayMatch&)>& wanted) {
  matches.erase(std::remove_if(matches.begin(), matches.end(), std::not_fn(wanted)), matches.end());
}

// The same directions for both eyes, as of things far away.
void move_far(Matches& matches, CalibResult& truth) {
  using testing_support::see;
  matches.clear();
  for (int i = 0; i < 2000; ++i) {
    const double theta = 70.0 * kDegree * std::sqrt((i + 0.5) / 2000.0);
    const double phi = 2.4 * i;
    constexpr double kFar = 1e5;
    const testing_support::Point p{kFar * std::sin(theta) * std::cos(phi),
                                   kFar * std::sin(theta) * std::sin(phi), -kFar * std::cos(theta)};
    const auto a = see(false, truth.right_pan, truth.right_tilt, truth.right_roll, truth.right_offset_x,
                       truth.right_offset_y, p);
    const auto b = see(true, truth.left_pan, truth.left_tilt, truth.left_roll, truth.left_offset_x,
                       truth.left_offset_y, p);
    RayMatch match;
    match.x_a = std::round(static_cast<float>(a[0]));
    match.y_a = std::round(static_cast<float>(a[1]));
    match.x_b = std::round(static_cast<float>(b[0] - kFrameWidth / 2));
    match.y_b = std::round(static_cast<float>(b[1]));
    matches.push_back(match);
  }
}

TEST(Verdict, TellsTrueResultsFromFalseOnes) {
  using Outcome = Verdict::Outcome;
  const std::vector<Case> cases{
      {"the truth", Outcome::kCalibrated, {}, [](Matches&, CalibResult&) {}},
      {"the truth with both eyes tilted alike",
       Outcome::kCalibrated,
       {},
       [](Matches&, CalibResult& pose) {
         pose.right_tilt += 0.5 * kDegree;
         pose.left_tilt += 0.5 * kDegree;
       }},
      {"a few more outliers",
       Outcome::kCalibratedBut,
       {"misfit"},
       [](Matches& matches, CalibResult&) {
         matches = make_matches(some_truth(), {.count = 2000, .noise_px = 0.3, .outliers = 0.25});
       }},
      {"outliers by half",
       Outcome::kNotCalibrated,
       {"misfit"},
       [](Matches& matches, CalibResult&) {
         matches = make_matches(some_truth(), {.count = 2000, .noise_px = 0.3, .outliers = 0.5});
       }},
      {"right tilt off by 0.2 degrees",
       Outcome::kNotCalibrated,
       {"systematic", "search_stopped_short"},
       [](Matches&, CalibResult& pose) { pose.right_tilt += 0.2 * kDegree; }},
      {"right roll off by 0.3 degrees",
       Outcome::kNotCalibrated,
       {"systematic", "search_stopped_short"},
       [](Matches&, CalibResult& pose) { pose.right_roll += 0.3 * kDegree; }},
      {"left pan off by 3 degrees",
       Outcome::kNotCalibrated,
       {"misfit"},
       [](Matches&, CalibResult& pose) { pose.left_pan += 3.0 * kDegree; }},
      {"lens file as it is",
       Outcome::kNotCalibrated,
       {"misfit"},
       [](Matches&, CalibResult& pose) { pose = CalibResult{}; }},
      {"one small object",
       Outcome::kNotCalibrated,
       {"poor_cover"},
       [](Matches& matches, CalibResult&) {
         const Matches from = make_matches(some_truth(), {.count = 40000, .noise_px = 0.3});
         matches = from;
         keep(matches, [](const RayMatch& m) { return std::hypot(m.x_a - 560.0f, m.y_a - 480.0f) < 40.0f; });
       }},
      {"nothing but far things", Outcome::kNotCalibrated, {"no_parallax"}, move_far},
      {"one picture twice",
       Outcome::kNotCalibrated,
       {"same_picture"},
       [](Matches& matches, CalibResult&) {
         for (RayMatch& match : matches) {
           match.x_b = match.x_a;
           match.y_b = match.y_a;
         }
       }},
      {"each eye in the place of the other",
       Outcome::kNotCalibrated,
       {"behind"},
       [](Matches& matches, CalibResult&) {
         // Each picture still lies about the circle of its half, so that nothing else tells.
         matches = make_matches(CalibResult{}, {.count = 2000, .noise_px = 0.3});
         constexpr auto kAcross = static_cast<float>(2.0 * testing_support::kCircleX - kFrameWidth / 2);
         for (RayMatch& match : matches) {
           std::swap(match.x_a, match.x_b);
           std::swap(match.y_a, match.y_b);
           match.x_a -= kAcross;
           match.x_b += kAcross;
         }
       }},
      {"halves exchanged",
       Outcome::kNotCalibrated,
       {"exchanged_halves"},
       [](Matches& matches, CalibResult&) {
         for (RayMatch& match : matches) {
           std::swap(match.x_a, match.x_b);
           std::swap(match.y_a, match.y_b);
         }
       }},
      {"partners drawn at random",
       Outcome::kNotCalibrated,
       {"misfit", "poor_cover"},
       [](Matches& matches, CalibResult&) {
         for (std::size_t i = 0; i < matches.size(); ++i)
           matches[i].y_b += static_cast<float>(i * 37 % 121) - 60.0f;
       }},
      {"no match at all",
       Outcome::kNotCalibrated,
       {"misfit", "poor_cover"},
       [](Matches& matches, CalibResult&) { matches.clear(); }},
  };
  for (const Case& one : cases) {
    Matches matches = good_matches();
    CalibResult pose = some_truth();
    if (std::string(one.name) == "each eye in the place of the other") pose = CalibResult{};
    one.spoil(matches, pose);
    const Verdict verdict = judge_evidence(evidence_of(matches, pose));
    std::vector<std::string> keys;
    for (const VerdictReason& reason : verdict.reasons) keys.push_back(reason.key);
    EXPECT_EQ(verdict.outcome, one.outcome) << one.name << ": " << testing::PrintToString(keys);
    for (const std::string& key : one.keys) EXPECT_THAT(keys, Contains(key)) << one.name;
    EXPECT_EQ(verdict.outcome == Verdict::Outcome::kCalibrated, keys.empty()) << one.name;
    // It explains all else, and nothing else is taken for it.
    const auto exchanged = std::count(keys.begin(), keys.end(), kExchangedHalves);
    EXPECT_EQ(exchanged, std::string(one.name).find("exchanged") != std::string::npos) << one.name;
    EXPECT_TRUE(exchanged == 0 || keys.size() == 1U) << one.name;
  }
}

// Evidence that nothing speaks against, of a frame whose radian takes `unit` times the usual pixels.
Evidence good_evidence(double unit) {
  Evidence evidence;
  evidence.pixels_per_radian = 316.0 * unit;
  evidence.within = {0.9, 0.97, 0.98};
  evidence.parallax_spread = 100.0;
  return evidence;
}

// On either side of every bound.
TEST(Verdict, HoldsItsBounds) {
  constexpr double kNone = 1e9;
  struct Bound {
    const char* key;
    bool refined;
    double good;   // up to here calibrated ...
    double worst;  // ... up to here with a doubt; the same: no doubt between
    bool grows;    // with the pixels a radian
    std::function<void(Evidence&, double)> put;
  };
  const auto misfit = [](Evidence& e, double v) { e.within[1] = 1.0 - v; };
  const auto systematic = [](Evidence& e, double v) { e.systematic = v; };
  const auto gap = [](Evidence& e, double v) { e.fit.gap = v; };
  const auto gap_beyond_limit = [](Evidence& e, double v) {
    e.fit.gap = v;
    e.right_at_limit = {"pan"};
  };
  const auto expected_error = [](Evidence& e, double v) { e.fit.expected_error = v; };
  const auto uneven = [](Evidence& e, double v) { e.uneven = v; };
  const auto behind = [](Evidence& e, double v) { e.behind = v; };
  const auto parallax = [](Evidence& e, double v) { e.parallax_spread = -v; };
  const std::vector<Bound> bounds{
      {"same_picture", false, 0.5, 0.5, false, [](Evidence& e, double v) { e.unmoved = v; }},
      {"misfit", false, 0.2, 0.35, false, misfit},
      {"misfit", true, 0.4, 0.5, false, misfit},
      {"systematic", false, 0.3, 0.6, true, systematic},
      {"systematic", true, 0.4, kNone, true, systematic},
      {"search_stopped_short", false, 0.6, 1.0, true, gap},
      {"search_stopped_short", true, kNone, kNone, true, gap},
      {"search_stopped_short", true, 0.6, 0.6, true, gap_beyond_limit},
      {"poor_cover", false, 0.4, 0.6, true, expected_error},
      {"poor_cover", true, 0.07, 0.6, true, expected_error},
      {"uneven", false, 0.07, kNone, true, uneven},
      {"uneven", true, kNone, kNone, true, uneven},
      {"behind", false, 0.05, 0.5, false, behind},
      {"behind", true, 0.5, kNone, false, behind},
      {"no_parallax", false, -3.0, -3.0, true, parallax},
      {"no_parallax", true, -3.0, kNone, true, parallax},  // for want of an expected error
  };
  using Outcome = Verdict::Outcome;
  for (const double unit : {1.0, 2.5}) {
    for (const Bound& bound : bounds) {
      const double scale = bound.grows ? unit : 1.0;
      const auto expect_at = [&](double value, Outcome outcome) {
        Evidence evidence = good_evidence(unit);
        evidence.refined = bound.refined;
        bound.put(evidence, value * scale);
        const Verdict verdict = judge_evidence(evidence);
        for (const VerdictReason& reason : verdict.reasons) EXPECT_EQ(reason.key, bound.key);
        EXPECT_EQ(verdict.outcome, outcome) << bound.key << " " << value << " refined " << bound.refined;
      };
      constexpr double kLittle = 1e-6;
      expect_at(std::min(bound.good, 1e3) - kLittle, Outcome::kCalibrated);
      if (bound.worst < kNone) expect_at(bound.worst + kLittle, Outcome::kNotCalibrated);
      if (bound.good == bound.worst) continue;
      expect_at(bound.good + kLittle, Outcome::kCalibratedBut);
      expect_at(std::min(bound.worst, 1e3) - kLittle, Outcome::kCalibratedBut);
    }
  }
  // Whole-pixel keypoints make two pixels of parallax out of nothing, however small the frame.
  Evidence small = good_evidence(0.5);
  small.parallax_spread = 1.9;
  EXPECT_EQ(judge_evidence(small).outcome, Outcome::kNotCalibrated);
  small.parallax_spread = 2.1;
  small.systematic = 0.29;
  EXPECT_EQ(judge_evidence(small).outcome, Outcome::kCalibrated);
  // A far scene serves as far as refined matches do.
  Evidence far = good_evidence(1.0);
  far.refined = true;
  far.parallax_spread = 1.0;
  far.fit.expected_error = 0.049;
  EXPECT_EQ(judge_evidence(far).outcome, Outcome::kCalibratedBut);
  far.fit.expected_error = 0.051;
  EXPECT_EQ(judge_evidence(far).outcome, Outcome::kNotCalibrated);
}

// Eyes of unequal scale, told apart from noise and from small ones that do no harm.
TEST(Verdict, TellsOfUnequalShapesWhereTheyMatter) {
  Evidence evidence = good_evidence(1.0);
  evidence.fit.shapes.log_scale_ratio = std::log(1.0404);
  evidence.fit.shapes_sd.log_scale_ratio = 0.0195;
  evidence.fit.shapes_sd.shift_y = 0.001;
  evidence.fit.shape_error = 0.31;
  evidence.systematic = 0.21;
  const Verdict verdict = judge_evidence(evidence);
  ASSERT_EQ(verdict.reasons.size(), 1U);
  EXPECT_EQ(verdict.outcome, Verdict::Outcome::kCalibratedBut);
  EXPECT_THAT(verdict.reasons[0].found, HasSubstr("4.04 % larger"));
  EXPECT_THAT(verdict.reasons[0].to_do, HasSubstr("--fit-scale"));
  EXPECT_EQ(verdict.reasons[0].key, "unequal_scale");
  evidence.systematic = 0.5;
  EXPECT_THAT(judge_evidence(evidence).reasons[0].to_do, HasSubstr("--fit-scale"));

  evidence = good_evidence(1.0);
  evidence.fit.shapes.log_scale_ratio = -std::log(1.0404);
  evidence.fit.shapes_sd.log_scale_ratio = 0.02;  // not sure enough
  evidence.fit.shapes.shift_y = 0.003;
  evidence.fit.shapes_sd.shift_y = 0.0016;
  evidence.fit.shape_error = 0.31;
  evidence.systematic = 0.21;
  EXPECT_EQ(judge_evidence(evidence).outcome, Verdict::Outcome::kCalibrated);
  evidence.fit.shapes_sd.shift_y = 0.0014;
  EXPECT_EQ(judge_evidence(evidence).reasons.at(0).key, "decentred");
  EXPECT_THAT(judge_evidence(evidence).reasons[0].found, HasSubstr("decentred by +0.0030"));
  evidence.fit.shapes_sd.log_scale_ratio = 0.001;
  EXPECT_THAT(judge_evidence(evidence).reasons.at(0).found, HasSubstr("3.88 % smaller"));
  evidence.systematic = 0.19;  // nothing to explain
  EXPECT_EQ(judge_evidence(evidence).outcome, Verdict::Outcome::kCalibrated);
  evidence.systematic = 0.21;
  evidence.fit.shape_error = 0.29;
  EXPECT_EQ(judge_evidence(evidence).outcome, Verdict::Outcome::kCalibrated);
}

// What fits as it is has its halves in place, and one picture twice is its own exchange.
TEST(Verdict, TakesHalvesForExchangedByMostMatches) {
  struct Share {
    double exchanged;
    double fitting;
    double behind;
    double unmoved;
    bool told;
  };
  for (const Share& share : {Share{0.6, 0.2, 0.0, 0.0, true},
                             {0.4, 0.2, 0.0, 0.0, false},
                             {0.6, 0.9, 0.0, 0.0, false},
                             {0.6, 0.9, 0.9, 0.0, true},
                             {0.6, 0.2, 0.0, 1.0, false}}) {
    Evidence evidence;
    evidence.exchanged = share.exchanged;
    evidence.within[1] = share.fitting;
    evidence.behind = share.behind;
    evidence.unmoved = share.unmoved;
    evidence.parallax_spread = 10.0;
    const Verdict verdict = judge_evidence(evidence);
    EXPECT_EQ(!verdict.reasons.empty() && verdict.reasons[0].key == kExchangedHalves, share.told)
        << share.exchanged << " " << share.fitting << " " << share.behind << " " << share.unmoved;
  }
}

TEST(Verdict, TellsAResultAtTheLimitOfTheSearch) {
  for (const bool of_right_eye : {true, false}) {
    CalibResult pose{};
    pose.right_roll = 5.9 * kDegree;
    if (!of_right_eye) pose.left_roll = 5.9 * kDegree;
    const Matches matches = make_matches(pose, {.count = 2000, .noise_px = 0.3});
    const Verdict verdict = judge_evidence(evidence_of(matches, pose));
    ASSERT_EQ(verdict.reasons.size(), 1U);
    EXPECT_THAT(verdict.reasons[0].found, HasSubstr("roll"));
    EXPECT_EQ(verdict.outcome,
              of_right_eye ? Verdict::Outcome::kNotCalibrated : Verdict::Outcome::kCalibratedBut);
    // A fit goes farther, and what both eyes have in common is then the lens file's or the matches'.
    Polished polished;
    polished.settled = settle_pose(nominal_rig(), matches, pose);
    polished.pose = polished.settled.pose;
    const Verdict after = judge_evidence(gather_evidence(*wide_context(), nominal_rig(), matches, polished));
    EXPECT_EQ(after.outcome, of_right_eye ? Verdict::Outcome::kCalibratedBut : Verdict::Outcome::kCalibrated);
  }
}

// What it says about a wrong pose is what is wrong with the pose: a tilt moves the middle of a picture by
// scale pixels for 90 degrees, and the rest of it by less.
TEST(Evidence, MeasuresHowFarThePoseIsOff) {
  const Matches matches = make_matches(some_truth(), {.count = 1500});
  CalibResult pose = some_truth();
  const Evidence none = evidence_of(matches, pose);
  EXPECT_LT(none.fit.gap, 0.01);
  EXPECT_LT(none.systematic, 0.01);
  EXPECT_EQ(none.within[0], 1.0);
  pose.right_tilt += 0.1 * kDegree;
  const Evidence off = evidence_of(matches, pose);
  const double whole = 0.1 / 90.0 * testing_support::kScale;
  EXPECT_LT(off.fit.gap, whole);
  EXPECT_GT(off.fit.gap, 0.75 * whole);
  EXPECT_LT(off.systematic, whole);
  EXPECT_GT(off.systematic, 0.75 * whole);
}

// The error that the fit expects of its pose is the one that poses have that are fitted to other draws of the
// matches' noise, and of the error that the matches of a field have in common.
TEST(Evidence, ExpectsTheErrorThatNoiseMakes) {
  constexpr int kDraws = 24;
  constexpr double kOfAField = 0.2;  // pixels: the least that the fit reckons with
  PairView view(nominal_rig());
  view.put(some_truth());
  double expected = 0.0;
  double found = 0.0;
  for (int i = 0; i < kDraws; ++i) {
    const auto seed = static_cast<std::uint32_t>(i + 1);
    Matches matches = make_matches(some_truth(), {.count = 600, .noise_px = 0.4, .seed = seed});
    std::mt19937 engine(seed);
    std::normal_distribution<float> normal(0.0f, static_cast<float>(kOfAField));
    std::array<float, kFields> shared{};
    for (float& error : shared) error = normal(engine);
    for (RayMatch& match : matches) match.y_b += shared[field_of(view.look(match))];
    const PoseFit fit = fit_pose(nominal_rig(), matches, some_truth());
    expected += fit.expected_error * fit.expected_error / kDraws;
    found += fit.gap * fit.gap / kDraws;
  }
  // A mean square of 24 draws of some seven free values is good to about a tenth.
  EXPECT_NEAR(std::sqrt(found / expected), 1.0, 0.3);
}

// Thousands of matches on one thing tell no more than what is wrong with that thing lets them.
TEST(Evidence, LearnsLittleFromManyMatchesInOnePlace) {
  const auto error_with = [](int count) {
    Matches matches = make_matches(some_truth(), {.count = count, .noise_px = 0.3});
    keep(matches, [](const RayMatch& m) { return std::hypot(m.x_a - 600.0f, m.y_a - 480.0f) < 60.0f; });
    return fit_pose(nominal_rig(), matches, some_truth()).expected_error;
  };
  EXPECT_GT(error_with(100000), 0.7 * error_with(5000));
}

// Turning both eyes about the baseline changes no match; how the eyes stand to each other does.
TEST(Evidence, KnowsWhatMatchesCannotTell) {
  const Evidence evidence = evidence_of(good_matches(), some_truth());
  const double angle = prior_of(1, kFrameWidth);
  EXPECT_TRUE(is_open(evidence.fit.common_sd[1], angle / std::sqrt(2.0)));
  for (std::size_t i = 0; i < 5; ++i) {
    const double prior = prior_of(i, kFrameWidth);
    EXPECT_FALSE(is_open(evidence.fit.difference_sd[i], prior * std::sqrt(2.0))) << i;
  }
}

// Points near the rim belong to the lens: however wrong, they change nothing.
TEST(Evidence, LeavesTheRimOut) {
  Matches matches = good_matches();
  const Evidence without = evidence_of(matches, some_truth());
  constexpr int kCount = 500;
  constexpr double kAtRim = 85.0 / 90.0 * testing_support::kScale;
  constexpr double kInside = 70.0 / 90.0 * testing_support::kScale;
  for (int i = 0; i < kCount; ++i) {
    // In one eye is enough.
    const double right = i % 2 == 0 ? kAtRim : kInside;
    const double left = i % 3 == 0 || i % 2 != 0 ? kAtRim : kInside;
    RayMatch match;
    match.x_a = static_cast<float>(kFrameWidth / 2 - testing_support::kCircleX + right * std::cos(i));
    match.y_a = static_cast<float>(512.0 + right * std::sin(i));
    match.x_b = static_cast<float>(testing_support::kCircleX + left * std::cos(i));
    match.y_b = static_cast<float>(521.0 + left * std::sin(i));
    matches.push_back(match);
  }
  const Evidence with = evidence_of(matches, some_truth());
  EXPECT_EQ(with.at_rim, kCount);
  EXPECT_EQ(with.within, without.within);
  EXPECT_EQ(with.fit.gap, without.fit.gap);
}

// A view takes shapes as a rig does that has them put in.
TEST(PairView, PutsTheShapesIn) {
  const RigState rig = nominal_rig();
  PairView view(rig);
  const EyeShapes shapes{std::log(1.01), 0.02};
  view.put(some_truth(), shapes);
  PairView changed(with_shapes(rig, shapes));
  changed.put(some_truth());
  const RayMatch match = good_matches()[7];
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(view.right_ray(match)[i], changed.right_ray(match)[i], 1e-12);
    EXPECT_NEAR(view.left_ray(match)[i], changed.left_ray(match)[i], 1e-12);
  }
}

// A caption of 40 letters at the same place of both halves.
void burn_in(Matches& matches, float slowest) {
  for (int i = 0; i < 40; ++i) {
    RayMatch match;
    match.x_a = 400.0f + 3.0f * static_cast<float>(i % 20);
    match.y_a = 830.0f + 9.0f * static_cast<float>(i / 20);
    match.x_b = match.x_a + slowest * static_cast<float>(i % 2);
    match.y_b = match.y_a;
    matches.push_back(match);
  }
}

TEST(Evidence, LeavesBurnedInGraphicsOut) {
  Matches matches = good_matches();
  burn_in(matches, 0.0f);
  const Evidence drawn = evidence_of(matches, some_truth());
  EXPECT_EQ(drawn.graphics, 40);
  EXPECT_NEAR(drawn.graphics_at[0], 430.0, 5.0);
  EXPECT_NEAR(drawn.graphics_at[1], 835.0, 5.0);
  EXPECT_EQ(drawn.within, evidence_of(good_matches(), some_truth()).within);

  // Things that move a little among those that do not are far away, and one picture twice is no caption.
  matches = good_matches();
  burn_in(matches, 2.0f);
  EXPECT_EQ(evidence_of(matches, some_truth()).graphics, 0);
  matches.clear();
  burn_in(matches, 0.0f);
  EXPECT_EQ(evidence_of(matches, some_truth()).graphics, 0);
}

}  // namespace
}  // namespace twintrue
