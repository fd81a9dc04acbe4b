#pragma once

// Rigs and frames for the tests of views.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "lens/LensParameters.h"
#include "lens/RigModel.h"
#include "render/Pixels.h"
#include "render/View.h"

namespace render_test {

inline constexpr double kDegree = 3.141592653589793 / 180;

// Crooked eyes with distortion, in a frame of 512 x 256 pixels whose circles its sides cut.
inline twintrue::RigModel small_rig(std::uint32_t kind, double fov_degrees = 190.0) {
  twintrue::RigModel rig;
  for (twintrue::EyeModel* const eye : {&rig.left, &rig.right}) {
    const bool right = eye == &rig.right;
    eye->distortion.kind = kind;
    eye->distortion.coeff = {1.5, 0, -2.0, 0, 0.5, 0};
    twintrue::distortion_build_table(eye->distortion);
    eye->view_width = 256;
    eye->view_height = 256;
    eye->scale = 122.0;
    eye->fov_degrees = fov_degrees;
    eye->center_x = right ? 127.5 : 383.5;
    eye->center_y = 127.5;
    eye->offset_x = right ? 1.25 : -0.75;
    eye->offset_y = 0.5;
    eye->magnify_v = 1.004;
    eye->valid_x_begin = right ? 0 : 256;
    eye->valid_x_end = right ? 256 : 512;
    eye->lambda = right ? 0.01 : -0.02;
    eye->psi = right ? 0.015 : 0.0;
    eye->roll = right ? -0.03 : 0.02;
    twintrue::eye_update_rotation(*eye);
  }
  rig.baseline = 0.06;
  twintrue::rig_update_positions(rig);
  return rig;
}

inline twintrue::RigModel example_rig(const std::string& name) {
  twintrue::RigState state;
  if (twintrue::load_lens_description(state, TWINTRUE_SOURCE_DIR "/examples/" + name, "OPTRA") == 0) {
    throw std::runtime_error("no lens file " + name);
  }
  return state.current;
}

// Samples with edges, ramps and noise, of any type.
template <typename Sample>
std::vector<Sample> textured(int width, int height, double largest) {
  std::vector<Sample> samples;
  std::uint32_t state = 12345;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width * 3; ++x) {
      state = state * 1664525U + 1013904223U;
      const double noise = (state >> 16) / 65535.0;
      const bool tile = (x / 30 + y / 7) % 2 == 0;
      const double value = (tile ? 0.1 : 0.75) + 0.2 * noise;
      samples.push_back(static_cast<Sample>(value * largest));
    }
  }
  return samples;
}

inline twintrue::render::View view_of(twintrue::render::Projection projection, int width, int height,
                                      double fov_deg = 0.0, double pan_deg = 0.0, double tilt_deg = 0.0) {
  return {projection, width, height, fov_deg * kDegree, pan_deg * kDegree, tilt_deg * kDegree};
}

}  // namespace render_test
