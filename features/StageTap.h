#pragma once

#include <cstdint>
#include <string_view>

#include "imaging/XMat.h"

namespace fpu {

// Looks at the images between the steps of detection and description, for tools that show them. Without a tap
// nothing is kept for it.
//
// Names, in the order of their coming: `linear` (32-bit float), `filtered` (float), `fixed` (16-bit, 10 bits
// used), `working` (8-bit); then, of the scan area alone, `gx`, `lxx`, `lxy`, `gy`, `lyy`, `det`, `response`
// (float); at description `smoothed` (8-bit). Paths that lack a step leave its image out.
class StageTap {
 public:
  StageTap() = default;
  StageTap(const StageTap&) = delete;
  StageTap& operator=(const StageTap&) = delete;
  virtual ~StageTap() = default;

  // (x, y) is where the image's pixel (0, 0) lies in the frame. The header holds for the length of the call:
  // the memory is used again afterwards.
  virtual void image(std::string_view name, const cve::XMat& image, std::int32_t x, std::int32_t y) = 0;
};

}  // namespace fpu
