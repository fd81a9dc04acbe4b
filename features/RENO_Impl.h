#pragma once

// The detector and describer: one level, second-derivative response, per-cell selection, chain descriptors.

#include <array>
#include <cstdint>
#include <vector>

#include "features/DetectorSettings.h"
#include "features/RENO.h"
#include "features/Region.h"
#include "features/StageTap.h"
#include "features/TestPattern.h"

namespace fpu {

// Pixels beyond half the patch that stay free between a grid's area and the frame's edge: the filters of
// detection reach there.
inline constexpr std::int32_t kReachBeyondPatch = 8;

// What needs more than the interface tells: settings that can't be carried out (see each) abort without a
// message. Images have the frame size of the store's grid; a grid whose area isn't well inside the image gets
// no keypoints.
class RENO_Impl final : public RENO {
 public:
  // Aborts on a slot other than 0 and 1, an image type other than 8-bit and 32-bit float, float input with
  // lpf_bit set, det_type 8, and levels that the pyramid path does not carry out. Ends the process with exit
  // code -1 where the scratch memory of the selection is short. Throws std::bad_alloc where that of images
  // is.
  void detect(std::int32_t slot, const cve::XMat& image, KeyPointStore& store) override;

  // Makes the pattern, smooths the working image (once for each detect) and describes. Writes the histogram
  // file of the pattern. Aborts on a wta_k other than 1 (2: at the first keypoint) and a desc_image_mode
  // other than 0; ends the process with exit code 1 on an unknown rnd_mode.
  void compute(std::int32_t slot, KeyPointStore& store, cve::XMat_<unsigned char>& descriptors) override;

  // Prints a line break to standard output.
  void read(const twintrue::ParamNode& node) override;

  std::int32_t patchSize() const override { return settings_.patchSize; }
  void levelImages(LevelImages& out) const override { out = levels_; }
  std::int32_t weightDist() const override { return settings_.weightDist; }

  // Whether the settings can be carried out on frames of that size, the selection of the chain included.
  bool usable(std::int32_t frameWidth, std::int32_t frameHeight) const;

  const DetectorSettings& settings() const { return settings_; }
  CandidatePattern candidates() const;

  // Looks on until it is taken away by null. Not owned.
  void setTap(StageTap* tap) { tap_ = tap; }

 private:
  void build_levels(const cve::XMat& image, const GridIF& grid);
  Region filter_region(const cve::XMat& image, const GridIF& grid) const;
  std::int64_t pyramid_border() const;
  void find_keypoints(std::int32_t slot, const cve::XMat& image, KeyPointStore& store);
  std::vector<PatternPoint> pattern() const;
  void smooth_levels();

  DetectorSettings settings_;
  LevelImages levels_;
  std::vector<float> scales_;
  std::array<cve::XMat_<float>, 2> determinants_;  // of each slot's last image, where points were refined
  bool smoothed_ = false;                          // since the last detect
  StageTap* tap_ = nullptr;
};

}  // namespace fpu
