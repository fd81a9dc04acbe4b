#pragma once

// Rendered frames of known truth: a furnished room seen by a dual fisheye through bench/accuracy's own model
// of the lens.

#include <cstdint>
#include <filesystem>

namespace twintrue::refine_bench {

struct RoomSettings {
  std::uint64_t seed = 1;
  int width = 2048;    // of the frame
  int format = 1;      // of the lens file
  double noise = 1.0;  // grey levels of a bright pixel, by photons
  double angle_error_deg = 0.5;
  double offset_error_px = 3.0;  // of a frame 4096 wide
};

// Writes frame.png, nominal.lens and truth.lens. Throws std::runtime_error.
void render_room(const RoomSettings& settings, const std::filesystem::path& folder);

}  // namespace twintrue::refine_bench
