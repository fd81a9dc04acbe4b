#include "apps/cli/commands/LensNewReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <numbers>

namespace twintrue::cli {
namespace {

constexpr double kDegree = std::numbers::pi / 180.0;
constexpr double kLooseFitPx = 0.5;  // half a pixel is what a good calibration is to find

const char* name_of(EyeSide side) { return side == EyeSide::kLeft ? "left" : "right"; }
const char* half_of(EyeSide side) { return side == EyeSide::kLeft ? "right" : "left"; }

std::string name_of(const FisheyeCurve& curve) {
  switch (curve.kind) {
    case FisheyeKind::kEquidistant:
      return "equidistant";
    case FisheyeKind::kEquisolid:
      return "equisolid";
    case FisheyeKind::kStereographic:
      return "stereographic";
    case FisheyeKind::kOrthographic:
      return "orthographic";
    case FisheyeKind::kPolynomial:
      break;
  }
  return fmt::format("k {}", fmt::join(curve.k, ", "));
}

std::string describe_eye(EyeSide side, const FirstEye& eye, const CurveResidual& residual) {
  return fmt::format(
      "{} eye, in the {} half of the frame:\n"
      "  centre {:.3f}, {:.3f} (0, 0 is the centre of the frame's first pixel)\n"
      "  focal length {:.4f} px along x, {:.4f} px along y, curve {}\n"
      "  pan {:.4f}, tilt {:.4f}, roll {:.4f} degrees\n"
      "  fit of the file's curve: off by {:.4f} px (rms), {:.4f} px at worst, {:.1f} degrees off the axis\n",
      name_of(side), half_of(side), eye.center_x, eye.center_y, eye.focal_x, eye.focal_y, name_of(eye.curve),
      eye.pan / kDegree, eye.tilt / kDegree, eye.roll / kDegree, residual.rms_px, residual.worst_px,
      residual.worst_deg);
}

Problem problem_of_field(const FirstLensError& error, const FirstLensInput& input) {
  const bool narrow = input.format == LensFormat::k1;
  return {
      "--fov", fmt::format("{} degrees", input.fov_degrees),
      fmt::format("above 0 and at most {} degrees, which is what format {} can hold", error.limit(),
                  static_cast<int>(input.format)),
      narrow ? "take --format 2, or give the field that is to be used" : "give the full angle, in degrees"};
}

}  // namespace

std::string describe_first_lens(const FirstLensInput& input, const FirstLens& lens) {
  return fmt::format(
             "format {}, frame {} x {} pixels, field of view {} degrees, baseline {:.3f} mm\n"
             "Fits are over all angles up to {} degrees off the axis.\n",
             static_cast<int>(input.format), input.frame_width, input.frame_height, input.fov_degrees,
             input.baseline * 1000.0, 0.5 * input.fov_degrees) +
         describe_eye(EyeSide::kLeft, input.left, lens.left) +
         describe_eye(EyeSide::kRight, input.right, lens.right);
}

std::string first_lens_notes(const FirstLensInput& input, const FirstLens& lens) {
  std::string notes;
  if (std::max(lens.left.worst_px, lens.right.worst_px) > kLooseFitPx) {
    const bool one_curve = input.left.curve == input.right.curve;
    notes += fmt::format(
        "note: the curve of format {} does not follow closely{}. What would narrow the gap: a smaller "
        "--fov{}.\n",
        static_cast<int>(input.format),
        one_curve ? "" : ", since both eyes of a lens file share one and those given differ",
        input.format == LensFormat::k1 ? ", or --format 2" : "");
  }
  if (lens.lut_max) {
    notes += fmt::format(
        "note: the edge of the field lies beyond the usual inverse table. ideal_height_lut_max = {:.2f}; "
        "widens\n"
        "it; corrected lens files come without this line, so copy it over to them.\n",
        *lens.lut_max);
  }
  if (input.format == LensFormat::k1 && input.fov_degrees < 190.0) {
    notes +=
        "note: format 1 has no key for the field of view: all within 95 degrees off the axis counts as "
        "seen.\n";
  }
  return notes;
}

Problem problem_of(const FirstLensError& error, const FirstLensInput& input) {
  using Fault = FirstLensError::Fault;
  const EyeSide side = error.side();
  const FirstEye& eye = side == EyeSide::kLeft ? input.left : input.right;
  switch (error.fault()) {
    case Fault::kFrame:
      return {"--size", fmt::format("{} x {}", input.frame_width, input.frame_height),
              "an even width and a height, from 2 to 65536 pixels",
              "give the size of the whole frame, with both halves"};
    case Fault::kCentre:
      return {
          fmt::format("the {} eye's centre", name_of(side)),
          fmt::format("{:.2f}, {:.2f}", eye.center_x, eye.center_y),
          fmt::format("a place in the {} half of the frame, columns {} to {} and rows 0 to {}: that is where "
                      "the {} eye's picture lies",
                      half_of(side), side == EyeSide::kLeft ? input.frame_width / 2 : 0,
                      (side == EyeSide::kLeft ? input.frame_width : input.frame_width / 2) - 1,
                      input.frame_height - 1, name_of(side)),
          "exchange the values of left and right if they name halves and not eyes; add --coordinates half "
          "if they count within the halves"};
    case Fault::kField:
      return problem_of_field(error, input);
    case Fault::kCurveTurnsBack:
      return {"--fov",
              fmt::format("{} degrees, and a curve that turns back {:.1f} degrees off the axis ({} eye)",
                          input.fov_degrees, error.limit(), name_of(side)),
              "a radius that grows up to the edge of the field",
              fmt::format("give --fov {:.0f} or less, or a calibration that covers the whole field",
                          std::max(0.0, 2.0 * error.limit() - 0.5))};
    case Fault::kFit:
      return {"--fov",
              fmt::format("{} degrees, over which no curve of format {} follows the one that was given",
                          input.fov_degrees, static_cast<int>(input.format)),
              "a curve that a polynomial of the seventh degree can follow without turning back",
              input.format == LensFormat::k1 ? "take --format 2, or give a smaller --fov"
                                             : "give a smaller --fov"};
    case Fault::kNumber:
      break;
  }
  return {"the values given", "a length or an angle that is out of all bounds", "values of a real lens",
          "look at the options' units"};
}

}  // namespace twintrue::cli
