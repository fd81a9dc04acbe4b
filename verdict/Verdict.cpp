#include "verdict/Verdict.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

namespace twintrue {
namespace {

// Bounds. `kLeast...` and `kMost...` end as "not calibrated", `kGood...` as "calibrated, but ...". They are
// set by the inputs of even number of bench/false_success; beside each stands what it found there. Errors are
// those of the core in pixels of a frame 4096 wide, lengths in the bounds those of a frame 2048 wide.
//
// Refined poses have bounds of their own. Of 178 that refining took, of inputs that a frame can show, 7 were
// off by more than 0.5, however many matches of the search lie elsewhere, on things that moved or on repeated
// texture; of 115 others 64 were.

// Good frames 0.00, one picture in both halves 1.00.
constexpr double kMostUnmoved = 0.5;
// Share of fitting matches. Others: right ones 0.73 and more but for two, most matches on one object 0.73,
// one half out of focus 0.69. Refined: right ones 0.56 and more, since what moved may be much; where it is
// more than the rest the pose is that of what moved.
constexpr double kLeastFitting = 0.65;
constexpr double kGoodFitting = 0.8;
constexpr double kLeastFittingRefined = 0.5;
constexpr double kGoodFittingRefined = 0.6;
// Others: errors above 0.5 in 24 of 61 below 0.3, in 14 of 23 up to 0.6, in 26 of 31 beyond. Refined: right
// beside things that moved by up to 2.9, but 0.43 too where all but the rim moved as one, with errors of 13.
constexpr double kMostSystematic = 0.6;
constexpr double kGoodSystematic = 0.3;
constexpr double kGoodSystematicRefined = 0.4;
// Others: right ones up to 0.4, an object that moved over a third of a half 2.4. Refined poses beyond the
// limits of the search: right ones up to 0.2, those of a large thing that moved, off by 35 and more, 1.0
// and 1.5; within the limits it is the matches on things that moved that make a gap, and says nothing.
constexpr double kMostGap = 1.0;
constexpr double kGoodGap = 0.6;
// Others: 0.10 to 0.38 for right ones, as whole-pixel keypoints leave, two scenes 0.92, halves exchanged 1.7.
// Refined: 0.085 and less for right ones, four of those above 0.07, as are four of the wrong ones (to 0.31).
constexpr double kMostExpectedError = 0.6;
constexpr double kGoodExpectedError = 0.4;
constexpr double kGoodExpectedErrorRefined = 0.07;
// What the picture is off by whatever the pose, where refining was not taken: photographs 0.07 to 0.45 with
// the lens file's shapes; of errors above 0.5, 60 of 62 above 0.07 and 52 above 0.2, of right ones 38 and 15
// of 42.
constexpr double kGoodUneven = 0.07;
// Between the rig of the lens file's shapes and that of the shapes found, where these differ by more than two
// standard deviations.
constexpr double kGoodShapeError = 0.3;
constexpr double kSoundSystematic = 0.2;
constexpr double kSureShape = 2.0;
// Good frames 0.00, halves exchanged 0.64 and 1.00. Repeated texture does it beside poses that refining found
// right, up to 0.52.
constexpr double kMostBehind = 0.5;
constexpr double kGoodBehind = 0.05;
// Right ones 3.4 and more but for scenes 15 and more metres off, where refined poses are right: these expect
// errors of 0.04 and less, and far scenes with errors of 1 and more 0.10 and more. In small frames the noise
// alone makes more than their share.
constexpr double kLeastParallax = 3.0;
constexpr double kLeastParallaxPixels = 2.0;
constexpr double kFarExpectedError = 0.05;

// Frames with exchanged halves, rendered and photographed, 0.82 and more; two scenes 0.09, good frames 0.01.
constexpr double kLeastExchanged = 0.5;

// Pixels a radian of a frame 2048 wide whose circles fill it, which the bounds in pixels are of.
constexpr double kReference = 316.0;

constexpr double kNoBound = std::numeric_limits<double>::infinity();

constexpr const char* kCheckLens =
    "Check that the lens file belongs to this lens and that the frame is as captured: unscaled, uncropped, "
    "halves in place.";
constexpr const char* kOtherFrame =
    "Take another frame: sharp, of a scene that stands still, with texture all over both pictures and near "
    "things among it.";

class Judge {
 public:
  void fail(VerdictReason reason) { failures_.push_back(std::move(reason)); }
  void doubt(VerdictReason reason) { doubts_.push_back(std::move(reason)); }

  // A number that ought to be small.
  void weigh(double value, double good, double most, const VerdictReason& reason) {
    if (!(value <= most)) {
      fail(reason);
    } else if (value > good) {
      doubt(reason);
    }
  }

  Verdict verdict() {
    Verdict verdict;
    verdict.outcome = !failures_.empty() ? Verdict::Outcome::kNotCalibrated
                      : !doubts_.empty() ? Verdict::Outcome::kCalibratedBut
                                         : Verdict::Outcome::kCalibrated;
    verdict.reasons = std::move(failures_);
    verdict.reasons.insert(verdict.reasons.end(), doubts_.begin(), doubts_.end());
    return verdict;
  }

 private:
  std::vector<VerdictReason> failures_;
  std::vector<VerdictReason> doubts_;
};

// Nothing else is to be told of a frame whose halves are exchanged: all that is wrong follows from it.
std::optional<VerdictReason> exchanged_halves(const Evidence& evidence) {
  const bool fits = evidence.within[1] > kLeastFitting && evidence.behind < kMostBehind;
  // One picture twice is its own exchange.
  if (fits || evidence.unmoved > kMostUnmoved || evidence.exchanged < kLeastExchanged) return std::nullopt;
  return VerdictReason{
      kExchangedHalves,
      fmt::format("{:.0f} % of the matches make sense only if each half holds the other eye's picture.",
                  100.0 * evidence.exchanged),
      "Swap the halves of the frame: the right eye's picture belongs on the left."};
}

bool is_sure(double value, double deviation) { return std::abs(value) > kSureShape * deviation; }

// Whether unequal shapes are what is wrong with the picture. Where nothing is, shapes other than the lens
// file's rest on the last tenths of a pixel of a scene that hardly shows them.
bool shapes_differ(const Evidence& evidence, double unit) {
  const PoseFit& fit = evidence.fit;
  return evidence.systematic > kSoundSystematic * unit && fit.shape_error > kGoodShapeError * unit &&
         (is_sure(fit.shapes.log_scale_ratio, fit.shapes_sd.log_scale_ratio) ||
          is_sure(fit.shapes.shift_y, fit.shapes_sd.shift_y));
}

// What makes the shapes of the eyes' pictures those that were found.
constexpr const char* kShapeAdvice =
    "Run again with --fit-scale, which writes it into the lens file (..._magnify_v, ..._magnify_h, "
    "..._shift_y).";

VerdictReason unequal_shapes(const PoseFit& fit) {
  std::string found;
  const double ratio = std::exp(fit.shapes.log_scale_ratio);
  const bool scale = is_sure(fit.shapes.log_scale_ratio, fit.shapes_sd.log_scale_ratio);
  if (scale) {
    found = fmt::format("{:.2f} % {} (+- {:.2f} %)", 100.0 * std::abs(ratio - 1.0),
                        ratio > 1.0 ? "larger" : "smaller", 100.0 * fit.shapes_sd.log_scale_ratio);
  }
  if (is_sure(fit.shapes.shift_y, fit.shapes_sd.shift_y)) {
    found += fmt::format("{}decentred by {:+.4f} (+- {:.4f})", found.empty() ? "" : " and ",
                         fit.shapes.shift_y, fit.shapes_sd.shift_y);
  }
  return {
      scale ? "unequal_scale" : "decentred",
      fmt::format(
          "Beside the left eye's, the right eye's picture is {} against what the lens file says; that leaves "
          "{:.2f} pixels (rms) in the picture.",
          found, fit.shape_error),
      kShapeAdvice};
}

// A search that ended at its limit is somewhere else than it should be; a fit that went on from there is to
// be believed as far as the rest of the evidence goes, and refined matches tell by themselves where the eyes
// are.
void judge_limit(const Evidence& evidence, Judge& judge) {
  if (evidence.right_at_limit.empty() || evidence.refined) return;
  const std::string values = fmt::format("{}", fmt::join(evidence.right_at_limit, ", "));
  constexpr const char* kWider = "If the eyes really are that far apart, take settings with wider ranges.";
  if (evidence.polished) {
    judge.doubt({"at_limit",
                 fmt::format("The eyes stand farther apart than the search looks, in {}.", values),
                 fmt::format("{} {}", kCheckLens, kWider)});
  } else {
    judge.fail({"at_limit", fmt::format("The search ended at its limit in the right eye's {}.", values),
                fmt::format("{} {}", kCheckLens, kWider)});
  }
}

void judge_fitting(const Evidence& evidence, Judge& judge) {
  const double fitting = evidence.within[1];
  judge.weigh(1.0 - fitting, 1.0 - (evidence.refined ? kGoodFittingRefined : kGoodFitting),
              1.0 - (evidence.refined ? kLeastFittingRefined : kLeastFitting),
              {"misfit",
               fmt::format("Only {:.0f} % of the matches fit the pose within {:.0f} pixels.", 100.0 * fitting,
                           kFitting),
               fmt::format("{} {}", kCheckLens, kOtherFrame)});
}

// What parts of the picture have in common.
void judge_parts(const Evidence& evidence, double unit, Judge& judge) {
  const bool unequal = !evidence.refined && shapes_differ(evidence, unit);
  const std::string to_do =
      unequal ? kShapeAdvice
              : fmt::format("{} An object that moved, or errors beyond the range of the search, look alike.",
                            kCheckLens);
  judge.weigh(evidence.systematic, (evidence.refined ? kGoodSystematicRefined : kGoodSystematic) * unit,
              evidence.refined ? kNoBound : kMostSystematic * unit,
              {"systematic",
               fmt::format("Whole parts of the picture are off by {:.2f} pixels (rms) under the pose found.",
                           evidence.systematic),
               to_do});
  if (unequal) judge.doubt(unequal_shapes(evidence.fit));
  if (evidence.refined) return;
  judge.weigh(
      evidence.uneven, kGoodUneven * unit, kNoBound,
      {"uneven",
       fmt::format("Whatever the pose, the picture stays off by {:.2f} pixels (rms) in some parts.",
                   evidence.uneven),
       fmt::format(
           "{}A curve of the lens other than the lens file's does that, a sheared eye and rows read at "
           "other times: take a lens file fitted to this lens, or another frame.",
           evidence.shaped ? "" : "Run again with --fit-scale, if it is eyes of unequal scale. ")});
}

// How well the matches hold the pose.
void judge_hold(const Evidence& evidence, double unit, Judge& judge) {
  const bool astray = evidence.refined && !evidence.right_at_limit.empty();
  const bool is_theirs = evidence.refined && !astray;  // the gap is that of things that moved
  judge.weigh(evidence.fit.gap, is_theirs ? kNoBound : kGoodGap * unit,
              is_theirs ? kNoBound
              : astray  ? kGoodGap * unit
                        : kMostGap * unit,
              {"search_stopped_short",
               fmt::format("The best pose for these matches lies {:.2f} pixels (rms) from the one found.",
                           evidence.fit.gap),
               "Take settings with finer or more levels, or another frame."});
  judge.weigh(evidence.fit.expected_error,
              (evidence.refined ? kGoodExpectedErrorRefined : kGoodExpectedError) * unit,
              kMostExpectedError * unit,
              {"poor_cover",
               fmt::format("The matches hold the pair of eyes only to {:.2f} pixels (rms) over the picture.",
                           evidence.fit.expected_error),
               kOtherFrame});
}

void judge_depth(const Evidence& evidence, double unit, Judge& judge) {
  judge.weigh(evidence.behind, evidence.refined ? kMostBehind : kGoodBehind,
              evidence.refined ? kNoBound : kMostBehind,
              {"behind",
               fmt::format("The rays of {:.0f} % of the fitting matches meet behind the camera.",
                           100.0 * evidence.behind),
               fmt::format("{} Repeated texture does it too.", kCheckLens)});
  if (evidence.parallax_spread >=
      std::max(kLeastParallax * evidence.pixels_per_radian / kReference, kLeastParallaxPixels)) {
    return;
  }
  const VerdictReason reason{
      "no_parallax",
      fmt::format("The scene shows next to no depth: {:.1f} pixels of parallax from near to far.",
                  evidence.parallax_spread),
      "Take a frame with near things in it; pan and offset x rest on them."};
  if (evidence.refined && evidence.fit.expected_error <= kFarExpectedError * unit) {
    judge.doubt(reason);
  } else {
    judge.fail(reason);
  }
}

}  // namespace

Verdict judge_evidence(const Evidence& evidence) {
  Judge judge;
  if (const auto reason = exchanged_halves(evidence)) {
    judge.fail(*reason);
    return judge.verdict();
  }
  // Where a radian takes more pixels the same harm does; where it takes fewer whole-pixel keypoints set the
  // noise.
  const double unit = std::max(evidence.pixels_per_radian / kReference, 1.0);
  if (evidence.unmoved > kMostUnmoved) {
    judge.fail(
        {"same_picture",
         fmt::format("{:.0f} % of the matches lie at the same pixel of both halves: they show one picture.",
                     100.0 * evidence.unmoved),
         "Give the frame as captured, with each eye's own picture in its half."});
  }
  judge_fitting(evidence, judge);
  judge_parts(evidence, unit, judge);
  judge_limit(evidence, judge);
  judge_hold(evidence, unit, judge);
  judge_depth(evidence, unit, judge);
  if (!evidence.left_at_limit.empty()) {
    judge.doubt(
        {"common_at_limit",
         fmt::format("What turns or moves both eyes alike ended at the limit of the search ({}).",
                     fmt::join(evidence.left_at_limit, ", ")),
         "Trust the right eye against the left one only, or take a frame with more texture and depth."});
  }
  return judge.verdict();
}

const char* name_of(Verdict::Outcome outcome) {
  switch (outcome) {
    case Verdict::Outcome::kCalibrated:
      return "calibrated";
    case Verdict::Outcome::kCalibratedBut:
      return "calibrated_but";
    default:
      return "not_calibrated";
  }
}

const char* words_of(Verdict::Outcome outcome) {
  switch (outcome) {
    case Verdict::Outcome::kCalibrated:
      return "calibrated";
    case Verdict::Outcome::kCalibratedBut:
      return "calibrated, but ...";
    default:
      return "not calibrated";
  }
}

bool is_open(double deviation, double prior) {
  constexpr double kHardlyLess = 0.7;
  return !(deviation <= kHardlyLess * prior);
}

double prior_of(std::size_t value, double frame_width) {
  constexpr std::size_t kAngles = 3;
  return value < kAngles ? kPriorAngle : kPriorOffsetShare * frame_width;
}

}  // namespace twintrue
