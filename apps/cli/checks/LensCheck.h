#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace twintrue::cli {

// What the program needs to know of a lens file.
struct LensFacts {
  std::uint32_t format = 0;      // 1 or 2
  std::int32_t frame_width = 0;  // pixels, both halves together
  std::int32_t frame_height = 0;
  std::int32_t half_width = 0;
  double circle_radius_px = 0.0;
  bool has_rays = true;  // of both eyes

  // One half as the features see it: whole multiples of 16.
  std::int32_t view_width() const { return (frame_width / 2) & ~15; }
  std::int32_t view_height() const { return frame_height & ~15; }
};

// Reads a lens file as calib() will. Throws Failure: input unreadable, or lens file unusable with what the
// lens reader had to say.
LensFacts check_lens(const std::string& path);

// Throws Failure (lens file unusable) if a frame of that size lacks pixels that the lens file speaks of. Of
// one that has more, tells what becomes of them.
std::optional<std::string> check_frame_size(const LensFacts& lens, const std::string& lens_path,
                                            std::uint32_t width, std::uint32_t height);

// True if the file describes a usable lens with a frame of the same size: what a rewritten file must do.
bool is_whole_lens(const std::string& path, const LensFacts& original);

}  // namespace twintrue::cli
