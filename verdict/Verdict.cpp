#include "verdict/Verdict.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace twintrue {
namespace {

// Bounds. `kLeast...` and `kMost...` end as "not calibrated", `kGood...` as "calibrated, but ...". Beside
// each stand the numbers that bench/false_success found under the default preset: of the good frames, 2048 to
// 8192 wide, and of the inputs that the bound has to catch. Most bad inputs break several bounds.

// Good frames 0.00, one picture in both halves 1.00.
constexpr double kMostUnmoved = 0.5;
// Share of fitting matches: good frames 0.96 and more, an object moved over a tenth of a half 0.85, over a
// third 0.60 (these poses are right still); most matches on one object 0.60, one half larger by a hundredth
// 0.59, one half out of focus 0.48, two scenes 0.11.
constexpr double kLeastFitting = 0.65;
constexpr double kGoodFitting = 0.8;
// Pixels, of a frame 2048 wide: good frames up to 0.17, a lens file 10 % off in scale 0.26; pans 10 degrees
// apart 0.52, an object moved over two thirds of a half 0.59, one half out of focus 0.77, one half larger by
// a hundredth 1.6. A shifted frame lies between, with 0.30.
constexpr double kMostSystematic = 0.4;
constexpr double kGoodSystematic = 0.3;
// Pixels, of a frame 2048 wide: good frames up to 0.31; the object over two thirds 1.2, 10 degrees of
// pan 1.7, one object 3.8. A shifted frame lies between, with 0.85, and its pose is off by 0.96.
constexpr double kMostGap = 1.0;
constexpr double kGoodGap = 0.6;
// Pixels, of a frame 2048 wide: good frames up to 0.16, texture on one side 0.32, far scenes 0.43; two scenes
// 0.92, halves exchanged 1.7, no match 16.
constexpr double kMostExpectedError = 0.6;
constexpr double kGoodExpectedError = 0.4;
// Pixels, likewise, between the rig of the lens file's shapes and that of the shapes found, where these
// differ by more than two standard deviations.
constexpr double kGoodShapeError = 0.3;
constexpr double kSoundSystematic = 0.2;
constexpr double kSureShape = 2.0;
// Good frames up to 0.00; 10 cm tiles 0.30 with the pose right; halves exchanged 0.64 and 1.00.
constexpr double kMostBehind = 0.5;
constexpr double kGoodBehind = 0.05;
// Pixels, of a frame 2048 wide: good frames 8.3 and more, texture in a band 4.6; far scenes 2.1 and less,
// with poses off by up to 1.3. In small frames the noise alone makes more than their share.
constexpr double kLeastParallax = 3.0;
constexpr double kLeastParallaxPixels = 2.0;

// Frames with exchanged halves, rendered and photographed, 0.82 and more; two scenes 0.09, good frames 0.01.
constexpr double kLeastExchanged = 0.5;

// Pixels a radian of a frame 2048 wide whose circles fill it, which the bounds in pixels are of.
constexpr double kReference = 316.0;

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
  const bool unequal = shapes_differ(evidence, unit);
  const double fitting = evidence.within[1];
  judge.weigh(1.0 - fitting, 1.0 - kGoodFitting, 1.0 - kLeastFitting,
              {"misfit",
               fmt::format("Only {:.0f} % of the matches fit the pose within {:.0f} pixels.", 100.0 * fitting,
                           kFitting),
               fmt::format("{} {}", kCheckLens, kOtherFrame)});
  judge.weigh(
      evidence.systematic, kGoodSystematic * unit, kMostSystematic * unit,
      {"systematic",
       fmt::format("Whole parts of the picture are off by {:.2f} pixels (rms) under the pose found.",
                   evidence.systematic),
       unequal ? kShapeAdvice
               : fmt::format("{} An object that moved, or errors beyond the range of the search, look alike.",
                             kCheckLens)});
  if (unequal) judge.doubt(unequal_shapes(evidence.fit));
  judge_limit(evidence, judge);
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
  if (!(evidence.parallax_spread >=
        std::max(kLeastParallax * evidence.pixels_per_radian / kReference, kLeastParallaxPixels))) {
    judge.fail({"no_parallax",
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

}  // namespace twintrue
