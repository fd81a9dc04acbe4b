#pragma once

#include <cstdint>

namespace fpu {

// A rectangle of pixels in a frame.
struct Region {
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
};

// Whether the region holds pixels, all of them at least `margin` pixels inside a frame of that size.
inline bool lies_inside(const Region& region, std::int32_t cols, std::int32_t rows, std::int32_t margin) {
  return region.width > 0 && region.height > 0 && region.x >= margin && region.y >= margin &&
         region.width <= cols - margin - region.x && region.height <= rows - margin - region.y;
}

}  // namespace fpu
