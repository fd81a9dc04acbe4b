#include "apps/cli/Verdict.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace twintrue::cli {
namespace {

// Bounds. `kLeast...` and `kMost...` end as "not calibrated", `kGood...` as "calibrated, but ...". Beside
// each stand the numbers that bench/false_success found: of the good frames, all widths up to 4096, and of
// the inputs that the bound has to catch. Bounds overlap on purpose, since most bad inputs break several.

// Good frames 0.00, one picture in both halves 1.00.
constexpr double kMostUnmoved = 0.5;
// Share of fitting matches: good frames 0.96 and more, one half out of focus 0.62, two thirds of a half moved
// 0.70 (and off as a whole, see below), 4 cm tiles 0.50, two scenes 0.00.
constexpr double kLeastFitting = 0.65;
constexpr double kGoodFitting = 0.85;
// Pixels, of a frame up to 2048 wide: good frames up to 0.27; a pair beyond the range by 10 degrees of pan
// difference 0.73, an object moved by 2 pixels 0.75, one half out of focus 0.89, all others more. Between the
// two stand inputs whose pose is off by 0.5 to 0.9 pixels: circles 0.3 mm off 0.37, shifted frame 0.38.
constexpr double kMostSystematic = 0.5;
constexpr double kGoodSystematic = 0.35;
// Pixels, of a frame up to 2048 wide: good frames up to 0.32; 10 degrees of tilt 2.6, most matches on one
// object 4.8, a third of a half moved 2.7. Between them is a search that has not found its best pose.
constexpr double kMostGap = 2.0;
constexpr double kGoodGap = 0.6;
// Pixels, of a frame up to 2048 wide: good frames up to 0.19; texture on one side 0.38, far scene 0.44,
// circles 1 mm off 1.7, no match 16.
constexpr double kMostExpectedError = 1.0;
constexpr double kGoodExpectedError = 0.3;
// Good frames up to 0.01; 10 cm tiles 0.29 with the pose right; halves exchanged 1.00.
constexpr double kMostBehind = 0.5;
constexpr double kGoodBehind = 0.05;
// Pixels, of a frame 2048 wide: good frames 8.0 and more, far scenes 1.8 and less. In small frames the noise
// alone makes more than their share.
constexpr double kGoodParallax = 3.0;
constexpr double kLeastGoodParallax = 2.0;

constexpr double kReferenceWidth = 2048.0;

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

}  // namespace

Verdict judge_evidence(const ResultEvidence& evidence, double frame_width) {
  Judge judge;
  // In a wider picture the same harm takes more pixels; in a smaller one whole-pixel keypoints set the noise.
  const double unit = std::max(frame_width / kReferenceWidth, 1.0);
  if (evidence.unmoved > kMostUnmoved) {
    judge.fail(
        {"same_picture",
         fmt::format("{:.0f} % of the matches lie at the same pixel of both halves: they show one picture.",
                     100.0 * evidence.unmoved),
         "Give the frame as captured, with each eye's own picture in its half."});
  }
  const double fitting = evidence.within[1];
  judge.weigh(1.0 - fitting, 1.0 - kGoodFitting, 1.0 - kLeastFitting,
              {"misfit",
               fmt::format("Only {:.0f} % of the matches fit the pose within {:.0f} pixels.", 100.0 * fitting,
                           kFitting),
               fmt::format("{} {}", kCheckLens, kOtherFrame)});
  judge.weigh(evidence.systematic, kGoodSystematic * unit, kMostSystematic * unit,
              {"systematic",
               fmt::format("Whole parts of the picture are off by {:.2f} pixels (rms) under the pose found.",
                           evidence.systematic),
               fmt::format("{} An object that moved, or errors beyond the range of the search, look alike.",
                           kCheckLens)});
  if (!evidence.right_at_limit.empty()) {
    judge.fail({"at_limit",
                fmt::format("The search ended at its limit in the right eye's {}.",
                            fmt::join(evidence.right_at_limit, ", ")),
                fmt::format("{} If the eyes really are that far apart, take settings with wider ranges.",
                            kCheckLens)});
  }
  judge.weigh(evidence.fit.gap, kGoodGap * unit, kMostGap * unit,
              {"search_stopped_short",
               fmt::format("The best pose for these matches lies {:.2f} pixels (rms) from the one found.",
                           evidence.fit.gap),
               "Take settings with finer or more levels, or another frame."});
  judge.weigh(evidence.fit.expected_error, kGoodExpectedError * unit, kMostExpectedError * unit,
              {"poor_cover",
               fmt::format("The matches hold the pair of eyes only to {:.2f} pixels (rms) over the picture.",
                           evidence.fit.expected_error),
               kOtherFrame});
  judge.weigh(evidence.behind, kGoodBehind, kMostBehind,
              {"behind",
               fmt::format("The rays of {:.0f} % of the fitting matches meet behind the camera.",
                           100.0 * evidence.behind),
               fmt::format("{} Repeated texture does it too.", kCheckLens)});
  if (evidence.parallax_spread <
      std::max(kGoodParallax * frame_width / kReferenceWidth, kLeastGoodParallax)) {
    judge.doubt({"no_parallax",
                 fmt::format("The scene shows next to no depth: {:.1f} pixels of parallax from near to far.",
                             evidence.parallax_spread),
                 "Take a frame with near things in it; pan and offset x rest on them."});
  }
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

}  // namespace twintrue::cli
