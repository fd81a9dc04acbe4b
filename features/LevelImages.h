#pragma once

// The working pyramid between detection and description.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "imaging/XMat.h"

namespace fpu {

// One 8-bit working image a level. With `external` false they are derived, when first asked for, from the
// 10-bit images of the floating-point path; with `external` true they were filled directly. Copies share the
// pixels. Thread-safety: levelImage writes only where the image isn't there yet.
struct LevelImages {
  LevelImages() = default;
  LevelImages(std::int32_t levels, bool external_);

  // Shared header of the level's working image; empty where the level has none. The eight low bits of
  // value >> 2 are kept, without saturation: what overshoots 1023 wraps round.
  cve::XMat_<unsigned char> levelImage(std::size_t level);

  std::vector<cve::XMat_<unsigned char>> images;
  std::vector<cve::XMat_<short>> fixedImages;
  bool external = false;
  std::int32_t spare = 0;
};

}  // namespace fpu
