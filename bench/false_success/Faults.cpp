#include "Faults.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "LensText.h"
#include "PictureFaults.h"
#include "Scene.h"

namespace twintrue::false_success {
namespace {

using accuracy::Draws;

constexpr double kCircle = 0.486;  // radius at 90 degrees, in heights of the frame
constexpr std::array<double, 2> kStays{};

double pixel_of(const Input& input) { return input.frame.width / 2048.0; }

// --- Whole pictures stand elsewhere, or are of another shape, than the lens file says.

void shift_y(Input& input, double strength, Draws&) {
  const double by = std::round(strength * pixel_of(input));
  take_from(input.frame, [by](bool, double, double) { return std::array<double, 2>{0.0, -by}; });
  for (const char* eye : {"right", "left"}) input.true_lens = with_offset(input.true_lens, eye, 0.0, -by);
}

void shift_x(Input& input, double strength, Draws&) {
  const double by = std::round(strength * pixel_of(input));
  take_from(input.frame, [by](bool, double, double) { return std::array<double, 2>{-by, 0.0}; });
  for (const char* eye : {"right", "left"}) input.true_lens = with_offset(input.true_lens, eye, by, 0.0);
}

void warp_with(Input& input, const Warp& warp) {
  take_from(input.frame, warp);
  input.warps.push_back(warp);
}

void shear_sideways(Input& input, double strength, Draws&) {
  const double slope = strength * pixel_of(input) / kCircle;
  warp_with(input, [=](bool left, double, double v) {
    return left ? std::array<double, 2>{slope * v, 0.0} : kStays;
  });
}

void shear_upright(Input& input, double strength, Draws&) {
  const double slope = strength * pixel_of(input) / kCircle;
  warp_with(input, [=](bool left, double u, double) {
    return left ? std::array<double, 2>{0.0, slope * u} : kStays;
  });
}

void delay_half(Input& input, double strength, Draws& draws) {
  const double by = strength * pixel_of(input);
  const double way = draws.between(0.0, 6.28);
  warp_with(input, [=](bool left, double, double v) {
    return left && v > 0.0 ? std::array<double, 2>{by * std::cos(way), by * std::sin(way)} : kStays;
  });
}

void roll_rows(Input& input, double strength, Draws& draws) {
  const double by = strength * pixel_of(input);
  const double from = draws.between(0.0, 6.28);
  constexpr double kWaves = 11.0;  // in radians over the height
  warp_with(input, [=](bool left, double, double v) {
    const double sway = by * std::sin(kWaves * v + from);
    return left ? std::array<double, 2>{sway, 0.25 * sway} : kStays;
  });
}

void magnify_eye(Input& input, double strength, Draws&) {
  const double height = input.frame.height;
  const double share = 0.01 * strength;
  warp_with(input, [=](bool left, double u, double v) {
    return left ? std::array<double, 2>{-share * height * u, -share * height * v} : kStays;
  });
}

void decentre_eye(Input& input, double strength, Draws&) {
  // What lies off the axis goes up with the square of its angle.
  const double by = strength * pixel_of(input) / (kCircle * kCircle);
  warp_with(input, [=](bool left, double u, double v) {
    return left ? std::array<double, 2>{0.0, by * (u * u + v * v)} : kStays;
  });
}

void curve_eye(Input& input, double strength, Draws&) {
  const double by = strength * pixel_of(input) / (kCircle * kCircle * kCircle);
  warp_with(input, [=](bool left, double u, double v) {
    const double square = u * u + v * v;
    return left ? std::array<double, 2>{by * square * u, by * square * v} : kStays;
  });
}

void turn_late(Input& input, double strength, Draws& draws) {
  const std::string later = with_turn(input.true_lens, "left", strength * draws.between(-1.0, 1.0), strength,
                                      strength * draws.between(-1.0, 1.0));
  input.frame = turned(input.frame, rig_of(input.true_lens), rig_of(later));
}

void misalign(Input& input, double strength, Draws& draws) {
  const RigState taken = rig_of(input.true_lens);
  for (const char* eye : {"right", "left"}) {
    std::array<double, 3> turn{};
    for (double& angle : turn) angle = strength * draws.between(-0.5, 0.5);
    input.true_lens = with_turn(input.true_lens, eye, turn[0], turn[1], turn[2]);
  }
  input.frame = turned(input.frame, taken, rig_of(input.true_lens));
}

// --- Parts of the scene moved between the eyes' exposures.

void move_disc(Input& input, double radius, double by, Draws& draws) {
  const double way = draws.between(0.0, 6.28);
  const double far = draws.between(0.0, std::max(0.4 - radius, 0.0));
  const double u0 = far * std::cos(way), v0 = far * std::sin(way);
  const double length = by * pixel_of(input);
  take_from(input.frame, [=](bool left, double u, double v) {
    return left && std::hypot(u - u0, v - v0) < radius ? std::array<double, 2>{0.3 * length, length} : kStays;
  });
}
void move_by_2(Input& input, double radius, Draws& draws) { move_disc(input, radius, 2.0, draws); }
void move_by_4(Input& input, double radius, Draws& draws) { move_disc(input, radius, 4.0, draws); }
void move_by_15(Input& input, double radius, Draws& draws) { move_disc(input, radius, 15.0, draws); }
void move_many(Input& input, double count, Draws& draws) {
  for (int i = 0; i < static_cast<int>(count); ++i) move_disc(input, 0.03, draws.between(-8.0, 8.0), draws);
}

void move_all_but_rim(Input& input, double strength, Draws&) {
  const double by = strength * pixel_of(input);
  take_from(input.frame, [by](bool left, double u, double v) {
    return left && std::hypot(u, v) < 0.43 ? std::array<double, 2>{0.0, by} : kStays;
  });
}

// --- Parts of the picture without texture.

void keep_side(Input& input, double from, Draws&) {
  grey(input.frame, [=](double u, double) { return u > from; });
}
void keep_below(Input& input, double from, Draws&) {
  grey(input.frame, [=](double, double v) { return v > from; });
}
void keep_middle(Input& input, double radius, Draws&) {
  grey(input.frame, [=](double u, double v) { return std::hypot(u, v) < radius; });
}
void keep_ring(Input& input, double radius, Draws&) {
  grey(input.frame, [=](double u, double v) { return std::hypot(u, v) > radius; });
}
void keep_band(Input& input, double height, Draws&) {
  grey(input.frame, [=](double, double v) { return std::abs(v) < height; });
}

// --- The lens file.

void scale_lens(Input& input, double percent, Draws& draws) {
  input.lens = of_scale(input.lens, 1.0 + (draws.unit() < 0.5 ? -0.01 : 0.01) * percent);
}
void bend_lens(Input& input, double percent, Draws& draws) {
  input.lens = plus(input.lens, "distortion_coeff1", draws.unit() < 0.5 ? -percent : percent);
}

}  // namespace

const std::vector<Fault>& all_faults() {
  static const std::vector<Fault> faults{
      {"noise", "noise of {} levels", {3, 6, 12, 24}, add_noise},
      {"exposure", "one eye {} stops off", {0.5, 1, 2, 3}, expose},
      {"JPEG", "JPEG, {} below the best", {30, 60, 80, 90}, code_as_jpeg},
      {"blur", "both eyes blurred by {} px", {0.7, 1.2, 2, 3}, blur_both},
      {"one eye blurred", "one eye blurred by {} px", {0.6, 1, 1.6, 2.5}, blur_one},
      {"vignetting", "vignetting by {}", {0.3, 0.6, 0.9}, vignette},
      {"lights", "{} specular lights", {10, 40, 120}, add_lights},
      {"dirt", "{} spots on one lens", {4, 12, 30}, add_dirt},
      {"low contrast", "contrast of {}", {0.3, 0.1, 0.04}, lower_contrast},
      {"graphics", "logo of {} heights", {0.06, 0.12, 0.2}, draw_logo},
      {"graphics", "timecode in {} lines", {1, 2, 4}, draw_timecode},
      {"graphics", "{} marks", {4, 12, 30}, draw_marks},
      {"moved object", "object of {} moved by 2 px", {0.08, 0.16, 0.24, 0.32}, move_by_2},
      {"moved object", "object of {} moved by 4 px", {0.08, 0.16, 0.24, 0.32}, move_by_4},
      {"moved object", "object of {} moved by 15 px", {0.08, 0.16, 0.24, 0.32}, move_by_15},
      {"moved object", "{} small objects moved", {6, 20, 60}, move_many},
      {"all but the rim moved", "all but the rim moved by {} px", {1, 2, 6}, move_all_but_rim, false},
      {"one eye later", "one eye later, turned by {} deg", {0.03, 0.1, 0.4}, turn_late, false},
      {"frame shifted", "frame shifted by {} px in y", {4, 16, 64}, shift_y},
      {"frame shifted", "frame shifted by {} px in x", {10, 40}, shift_x},
      {"sheared", "one eye sheared sideways by {} px", {0.5, 1, 2.5, 5}, shear_sideways},
      {"sheared", "one eye sheared upright by {} px", {0.5, 1, 2.5, 5}, shear_upright},
      {"half delayed", "half an eye's rows {} px late", {0.3, 0.7, 1.5, 4}, delay_half},
      {"rolling rows", "rows of one eye sway by {} px", {0.5, 1, 2, 4}, roll_rows},
      {"scale ratio", "one eye larger by {} %", {0.05, 0.2, 0.5, 1.2}, magnify_eye},
      {"decentred", "one eye decentred by {} px", {0.5, 1.5, 4}, decentre_eye},
      {"curve", "one eye's curve off by {} px", {0.3, 1, 3}, curve_eye},
      {"lens file", "lens file's scale {} % off", {1, 3, 6}, scale_lens},
      {"lens file", "lens file's curve {} % off", {1, 3, 8}, bend_lens},
      {"large misalignment", "misaligned by {} deg", {2, 4, 6, 9}, misalign},
      {"texture", "texture to the right of {}", {-0.2, 0.0, 0.15}, keep_side},
      {"texture", "texture below {}", {-0.2, 0.0, 0.15}, keep_below},
      {"texture", "texture within {}", {0.35, 0.25, 0.17}, keep_middle},
      {"texture", "texture beyond {}", {0.2, 0.3, 0.36}, keep_ring},
      {"texture", "texture within {} of the middle row", {0.2, 0.12, 0.07}, keep_band},
  };
  return faults;
}

}  // namespace twintrue::false_success
