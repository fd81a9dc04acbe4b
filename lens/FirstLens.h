#pragma once

// A first lens file from what is known of a lens: where the centres of its pictures lie, how many pixels a
// radian takes, what curve it follows. The file's own curve is fitted to that one, and the result tells how
// well.
//
// Frame, pixels, axes and eyes are as in RigModel.h. Nothing here may be used by several threads at a time.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "lens/FisheyeCurve.h"
#include "lens/LensParameters.h"
#include "lens/RigModel.h"

namespace twintrue {

enum class EyeSide { kLeft, kRight };

struct FirstEye {
  double center_x = 0.0;  // frame pixels; the left eye's lie in the right half
  double center_y = 0.0;
  double focal_x =
      0.0;  // pixels: a small angle off the axis, in radians, takes as many times the focal length
  double focal_y = 0.0;
  FisheyeCurve curve;
  // Radians, as the corrections have them: to the right, down, clockwise as seen from behind. The eye is
  // panned first, then tilted, then rolled, each about its own axes, whatever the order of the file's format.
  double pan = 0.0;
  double tilt = 0.0;
  double roll = 0.0;
};

struct FirstLensInput {
  LensFormat format = LensFormat::k2;
  std::int32_t frame_width = 0;  // pixels, both halves
  std::int32_t frame_height = 0;
  double fov_degrees = 0.0;      // full field of view: half of it is the farthest angle off the axis
  double baseline = 0.06;        // metres
  double sensor_pitch = 0.0044;  // mm per pixel; lengths on the sensor are pixels times this
  FirstEye left;
  FirstEye right;
};

// How far the pixels of the file's curve lie from where they should, over all directions and the angles from
// the axis to the edge of the field, evenly spaced.
struct CurveResidual {
  double rms_px = 0.0;
  double worst_px = 0.0;
  double worst_deg = 0.0;  // angle off the axis of the worst one
};

struct FirstLens {
  RigModel rig;
  CurveResidual left;
  CurveResidual right;
  // What the inverse table must reach if the usual one does not cover the field; the file says so then.
  std::optional<double> lut_max;
  std::string text;  // of the lens file, from its section on
};

// Why there is no lens file.
class FirstLensError : public std::runtime_error {
 public:
  enum class Fault {
    kFrame,           // width odd, or a length not within 2 and 65536
    kNumber,          // not finite, or a focal length, baseline or pitch not above 0
    kCentre,          // outside the eye's half of the frame
    kField,           // not above 0, or wider than `limit` degrees, which is all that format and curve hold
    kCurveTurnsBack,  // the curve as given, `limit` degrees off the axis
    kFit,             // the format's curve can't follow the one that was given
  };
  FirstLensError(Fault fault, EyeSide side, double limit = 0.0)
      : std::runtime_error("no lens file can be made of these values"),
        fault_(fault),
        side_(side),
        limit_(limit) {}
  Fault fault() const { return fault_; }
  EyeSide side() const { return side_; }  // of kCentre, kNumber, kCurveTurnsBack
  double limit() const { return limit_; }

 private:
  Fault fault_;
  EyeSide side_;
  double limit_;
};

// Focal length, in pixels, of a lens whose picture of `fov_degrees` has that diameter.
double focal_of_circle(const FisheyeCurve& curve, double diameter_px, double fov_degrees);

// Fits the format's curve, one for both eyes, by least squares. Eyes of unequal focal lengths differ by their
// magnification, which is exact in format 2 and part of the fit's residual in format 1. Throws
// FirstLensError.
FirstLens make_first_lens(const FirstLensInput& input);

}  // namespace twintrue
