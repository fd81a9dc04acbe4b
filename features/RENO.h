#pragma once

// Interface of the feature detector and describer.

#include <cstdint>

#include "features/FeatureFrame.h"
#include "features/LevelImages.h"
#include "imaging/XMat.h"
#include "params/ParamDocument.h"

namespace fpu {

// Use: read once, then for each image detect followed by compute. Thread-safety: one caller; the parallel
// work happens inside.
class RENO {
 public:
  RENO() = default;
  RENO(const RENO&) = delete;
  RENO& operator=(const RENO&) = delete;
  virtual ~RENO() = default;

  // Keypoints of an image (8-bit, or 32-bit float with linear values 0 to 1) into a store that is sized for
  // its grid. `slot` is 0 or 1. An empty image changes nothing.
  virtual void detect(std::int32_t slot, const cve::XMat& image, KeyPointStore& store) = 0;

  // Descriptors of the store's keypoints, made on the working image of the last detect: row =
  // KeyPointRecord::index. No keypoints: descriptors.data becomes null.
  virtual void compute(std::int32_t slot, KeyPointStore& store, cve::XMat_<unsigned char>& descriptors) = 0;

  // Loads the settings from a section. Throws std::invalid_argument or std::out_of_range for a seed that is
  // no number or too large.
  virtual void read(const twintrue::ParamNode& node) = 0;

  virtual std::int32_t patchSize() const = 0;            // side in pixels of the square that descriptors read
  virtual void levelImages(LevelImages& out) const = 0;  // copy; the pixels are shared
  virtual std::int32_t weightDist() const = 0;
};

}  // namespace fpu
