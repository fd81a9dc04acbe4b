#pragma once

// Geometry of the rig: two fisheye eyes in one frame, image point to ray and ray to image point.
//
// Conventions, used by every stage that speaks of eyes, pixels or rays:
//
//  - Frame. One captured frame holds both pictures side by side. The optics cross them: the right eye's
//  picture
//    lies in the LEFT half of the frame and the left eye's in the RIGHT half. "Left" and "right" in names
//    always mean the eye. Wherever both eyes stand in one record, the left eye comes first.
//  - Pixels. Coordinates are those of the whole frame, x to the right, y downward. Whole numbers are pixel
//    centres: the first pixel's centre is (0, 0).
//  - Axes. x to the right, y upward, z backward: an eye looks along -z, and the point straight ahead has the
//    ray (0, 0, -1). y of a picture is flipped on its way into the projection.
//  - Rotations. Radians. lambda (pan) turns about y, psi (tilt) about x, roll about z. `rotation` is
//    eye_from_rig, `rotation_t` its transpose rig_from_eye.
//  - Normalised angle. The angle from the optical axis divided by 90 degrees. The distorted radius has the
//  same
//    unit: a radius of 1 lies `scale` pixels off the image centre.
//  - Lengths. Metres in the rig, millimetres on the sensor.

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "twintrue/calib.h"

namespace twintrue {

// What the operations below throw. what() is one of four UTF-8 texts:
//   "バージョンが不正"        `kind` is neither 1 nor 2
//   "精度ビットが不正"        `precision_bit` below 1, above 24, or a table of more than 2^26 entries, or of
//                             so many that the search for them would take seconds
//   "最大値が不正"            `lut_max` not above 0
//   "distortionが未初期化"    lookup with no table
class LensModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The curve from normalised angle to distorted radius, with its inverse as a table.
//
// A copy takes the fields that describe the curve and gets its table by distortion_copy_table(), so copying a
// record without a table builds one, and copying one with impossible fields throws. Tables are never written
// once built; equal records share one. Copies may be made of one record on several threads.
struct LensDistortion {
  std::uint32_t kind = 0;         // format of the lens file, 1 or 2; selects the curve's form
  std::array<double, 6> coeff{};  // c1 to c6, percent of the radius
  std::int32_t precision_bit = 12;
  double lut_max = 1.12;  // largest distorted radius of the table
  std::int32_t table_scale = 0;
  std::int32_t table_size = 0;
  std::shared_ptr<const std::vector<double>> table;  // table_size normalised angles, or none

  LensDistortion() = default;
  LensDistortion(const LensDistortion& from);
  LensDistortion& operator=(const LensDistortion& from);
  LensDistortion(LensDistortion&&) noexcept = default;
  LensDistortion& operator=(LensDistortion&&) noexcept = default;
  ~LensDistortion() = default;
};

// One eye's projection. `rotation`, `rotation_t` and `position` are derived: see eye_update_rotation() and
// rig_update_positions().
struct EyeModel {
  std::array<double, 3> position{};  // in the rig, metres
  double lambda = 0.0;               // about y
  double psi = 0.0;                  // about x
  double roll = 0.0;                 // about z
  double shift_x = 0.0;              // ray shear per unit of z
  double shift_y = 0.0;
  std::array<double, 3> translate{};   // added to the ray before rotation; source of `position`
  std::array<double, 9> rotation{};    // eye_from_rig, row by row
  std::array<double, 9> rotation_t{};  // rig_from_eye, row by row
  std::int32_t view_width = 0;         // size of the eye's picture
  std::int32_t view_height = 0;
  double scale = 0.0;     // pixels per unit of distorted radius
  double center_x = 0.0;  // image centre, frame pixels
  double center_y = 0.0;
  double fov_degrees = 190.0;  // full field of view; half of it is the angular limit
  std::int32_t valid_x_begin = 0;
  std::int32_t valid_x_end = 0;  // frame columns of this eye, end excluded
  // The names say the opposite of what they act on: magnify_v belongs to x and magnify_h to y.
  double magnify_v = 1.0;
  double magnify_h = 1.0;
  double offset_x = 0.0;  // pixels, x to the right
  double offset_y = 0.0;  // pixels; added to the picture's y it moves the centre up
  LensDistortion distortion;
};

// Both eyes and what they have in common.
struct RigModel {
  EyeModel left;
  EyeModel right;
  std::int32_t output_width = 0;
  std::int32_t output_height = 0;
  std::int32_t input_width = 0;  // the whole frame, pixels
  std::int32_t input_height = 0;
  double baseline = 0.0;         // distance of the eyes, metres
  double sensor_pitch = 0.0;     // mm per pixel
  double circle_distance = 0.0;  // between the centres of the two image circles, mm
  double circle_radius = 0.0;    // radius of the image at 90 degrees off the axis, mm
};

// A rig under search: the model of the lens file and the model under the candidate applied last.
//
// A copy is a fresh start from where its source stands: `reference` becomes what the source's `current` was
// (the eyes alone, the numbers behind them are zero), and `pose` is that of a new record. A move keeps all.
struct RigState {
  CalibResult pose = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1.0, -1.0, -1.0, -1.0};  // applied last
  RigModel current;                                                           // under the candidate
  RigModel reference;  // as the lens file gave it; only its eyes are in use
  std::int32_t half_width = 0;
  std::int32_t frame_width = 0;
  std::int32_t frame_height = 0;
  double circle_radius_px = 0.0;  // current.circle_radius in pixels

  RigState() = default;
  RigState(const RigState& from);
  RigState& operator=(const RigState& from);
  RigState(RigState&&) noexcept = default;
  RigState& operator=(RigState&&) noexcept = default;
  ~RigState() = default;
};

// Recomputes `rotation` and `rotation_t` from `lambda`, `psi`, `roll`. Due after every change of them. With
// the elementary rotations about the axes, rotation is Ry(lambda) Rx(psi) Rz(roll) for kind 1 and the reverse
// product for kind 2. Throws LensModelError for any other kind.
void eye_update_rotation(EyeModel& eye);

// Frame pixel to ray in the rig's frame of axes; the ray starts at eye.position. It is of unit length only
// without shear and translation.
//
// Returns false, and the ray (0, 0, 1), for a pixel beyond the angular limit: that is no ray of the pixel, so
// the result has to be tested. Throws LensModelError for a kind other than 1 and 2 and if the distortion has
// no table. Allocates nothing and only reads the eye: safe on any number of threads while nobody changes it.
bool eye_image_to_ray(const EyeModel& eye, double* x_out, double* y_out, double* z_out, double px, double py);

// Ray in the rig's frame of axes, seen from eye.position and of any length, to frame pixel.
//
// Returns false with the outputs untouched for a ray beyond the angular limit. Otherwise stores the pixel and
// returns whether its column is one of the eye's; rows aren't tested. With a `translate` along z it is not
// quite the inverse of eye_image_to_ray(). Throws LensModelError for a kind other than 1 and 2. Threads as
// above.
bool eye_ray_to_image(const EyeModel& eye, double* px_out, double* py_out, double x, double y, double z);

// Normalised angle to distorted radius: with P(r) = c1 r + ... + c6 r^6 in percent, r / (1 - P) for kind 1
// and r (1 + P) for any other.
double distortion_forward(const LensDistortion& distortion, double r);

// Distorted radius to normalised angle, from the table by linear interpolation. Takes |r|; beyond the table's
// end it extrapolates from the last two entries. Throws LensModelError with no table.
double distortion_inverse_lookup(const LensDistortion& distortion, double r);

// Computes the table: entry i is the inverse of the curve at i / 2^precision_bit. Throws LensModelError, the
// old table kept, if precision_bit or lut_max can't be, or can't be in time: the search for all entries may
// take 2^27 steps, some hundred for each entry of a usual curve. Runs on the threads of OpenMP; the result,
// refusal included, is the same for any number of them. If a coefficient isn't a finite number the entries
// are NaN.
void distortion_build_table(LensDistortion& distortion);

// Gives `to` the table that its own fields ask for: that of `from` if both describe the same curve and `from`
// has one, otherwise by distortion_build_table(). Throws as that does.
void distortion_copy_table(LensDistortion& to, const LensDistortion& from);

// Recomputes both positions from `translate` and `baseline`: the eyes stand half the baseline to the left and
// right of the rig's middle.
void rig_update_positions(RigModel& rig);

// Puts ten corrections into `current`: right and left pan, tilt, roll and offsets are added to those of
// `reference`, never to the last candidate's. Then brings rotations and positions up to date and keeps the
// fourteen numbers in `pose`. A writer: nobody may read the record meanwhile. Throws LensModelError if the
// eyes were never filled.
void rig_apply_pose(RigState& rig_state, const CalibResult& pose);

// Whether a run can work with what load_lens_description() made of a file: both eyes filled, a frame of 1 to
// 65536 pixels each way, and every number that the projection takes finite.
bool rig_is_usable(const RigState& rig_state);

}  // namespace twintrue
