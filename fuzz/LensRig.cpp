// A lens file becomes a rig, the rig a lens file, and that the same rig again, to the digits that a file
// holds. What the file says is a complete lens with the input's statements behind it, or the input alone.

#include <array>
#include <cmath>
#include <fstream>
#include <iterator>

#include "LensTexts.h"
#include "Support.h"
#include "lens/LensParameters.h"
#include "lens/RigModel.h"

namespace {

using namespace twintrue;

std::string bytes_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

bool load(RigState& rig, const std::string& path) {
  try {
    return load_lens_description(rig, path, "OPTRA") != 0;
  } catch (const LensModelError&) {
    return false;
  }
}

std::array<double, 20> numbers_of(const EyeModel& eye) {
  return {eye.lambda,
          eye.psi,
          eye.roll,
          eye.shift_x,
          eye.shift_y,
          eye.magnify_v,
          eye.magnify_h,
          eye.offset_x,
          eye.offset_y,
          eye.scale,
          eye.center_x,
          eye.center_y,
          eye.rotation[0],
          eye.rotation[4],
          eye.rotation[8],
          eye.distortion.coeff[0],
          eye.distortion.coeff[1],
          eye.distortion.coeff[2],
          eye.distortion.coeff[4],
          eye.distortion.coeff[5]};
}

// Rays and pixels of any rig, however odd: nothing but numbers comes out, and rotations stay rotations.
void project(const EyeModel& eye, std::int32_t width, std::int32_t height) {
  for (const double px : {-1.0, 0.0, 0.25 * width, 0.75 * width, 1e9}) {
    double x = 0, y = 0, z = 0, u = 0, v = 0;
    eye_image_to_ray(eye, &x, &y, &z, px, 0.5 * height);
    eye_ray_to_image(eye, &u, &v, x, y, z);
  }
  for (int row = 0; row < 3; ++row) {
    double squares = 0.0;
    for (int col = 0; col < 3; ++col) {
      const double entry = eye.rotation[static_cast<std::size_t>(3 * row + col)];
      squares += entry * entry;
    }
    fuzzing::require(std::abs(squares - 1.0) < 1e-9, "rows of a rotation are of unit length");
  }
}

// Values written with ten digits behind the point come back to half a unit of the last one, in the file's
// units; the factor of those units is at most 2^27 for the numbers compared, hence the slack for large ones.
void compare(const EyeModel& a, const EyeModel& b) {
  const auto before = numbers_of(a);
  const auto after = numbers_of(b);
  for (std::size_t i = 0; i < before.size(); ++i) {
    const double slack = 1e-6 * std::abs(before[i]) + 1e-4;
    fuzzing::require(std::abs(before[i] - after[i]) <= slack, "a written lens reads back");
  }
}

// Whether the inverse of the curve is found quickly also with the fineness that a written file falls back to.
bool has_gentle_curve(const LensDistortion& distortion) {
  double sum = 0.0;
  for (const double c : distortion.coeff) sum += std::abs(c);
  return sum < 30.0;
}

// Whether the values are such that ten digits behind the point can hold them.
bool is_moderate(const RigState& rig) {
  const RigModel& model = rig.current;
  for (const EyeModel* eye : {&model.left, &model.right}) {
    for (const double number : numbers_of(*eye)) {
      if (!(std::abs(number) < 1e5)) return false;
    }
    if (!(eye->fov_degrees > 1.0 && eye->fov_degrees < 1e5 && eye->scale > 1e-3 && eye->magnify_h > 1e-3 &&
          eye->magnify_v > 1e-3)) {
      return false;
    }
  }
  for (const double length : {model.sensor_pitch, model.circle_distance, model.circle_radius}) {
    if (!(length > 1e-4 && length < 1e5)) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::MemoryFile file;
  static const fuzzing::MemoryFile written;
  static const fuzzing::MemoryFile again;
  fuzzing::Input input(data, size);
  const unsigned base = input.pick(2);
  std::string text = base == 0   ? fuzzing::lens_of_format_1(256, 128)
                     : base == 1 ? fuzzing::lens_of_format_2(256, 128)
                                 : "";
  text += input.rest();
  if (!fuzzing::has_small_table(file.write(text))) return 0;

  RigState rig;
  if (!load(rig, file.path()) || !rig_is_usable(rig)) return 0;
  project(rig.current.left, rig.frame_width, rig.frame_height);
  project(rig.current.right, rig.frame_width, rig.frame_height);

  CalibResult pose{};
  pose.right_pan = input.take<std::int8_t>() * 0.001;
  rig_apply_pose(rig, pose);
  written.write("");
  write_lens_description(rig.current, written.path());
  fuzzing::require(!bytes_of(written.path()).empty(), "a lens file is written");
  if (!has_gentle_curve(rig.current.left.distortion)) return 0;
  RigState reread;
  fuzzing::require(load(reread, written.path()), "a written lens can be read");
  if (!is_moderate(rig)) return 0;
  compare(rig.current.left, reread.current.left);
  compare(rig.current.right, reread.current.right);
  fuzzing::require(rig_is_usable(reread), "a written lens is usable");

  again.write("");
  write_lens_description(reread.current, again.path());
  RigState third;
  fuzzing::require(load(third, again.path()), "a lens written twice can be read");
  compare(reread.current.left, third.current.left);
  return 0;
}
