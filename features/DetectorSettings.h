#pragma once

// Settings of the detector and describer: the section `RENO` of the parameter file.

#include <array>
#include <cstdint>
#include <string>

#include "params/ParamDocument.h"

namespace fpu {

inline constexpr std::int32_t kMaxLevels = 20;
inline constexpr std::int32_t kMaxDescriptorBytes = 64;

// The keys that lay down how long a descriptor is; of both, DetectorSettings keeps the length alone.
struct DescriptorSize {
  std::int32_t bytes = 0;  // `desc_bytes`
  std::int32_t bits = 0;   // `desc_bits`; absent: four, not eight, for each of `desc_bytes`

  std::int32_t length() const { return bits / 8; }  // whole bytes
};

// Reads the two keys; `bytes` stands for an absent or unreadable `desc_bytes`.
DescriptorSize read_descriptor_size(const twintrue::ParamNode& section, std::int32_t bytes);

// In the order in which the keys are read. "Unused": the key is accepted and kept, and nothing depends on it.
struct DetectorSettings {
  std::int32_t nfeatures = 0;       // unused
  double scaleFactor = 2.0;         // ratio of level scales; pyramid path
  std::int32_t nlevels = 1;         // 1 to kMaxLevels
  std::int32_t edgeThreshold = 15;  // least border of the pyramid path, pixels
  std::int32_t firstLevel = 0;      // level of scale 1; pyramid path
  std::int32_t wta_k = 1;           // 1: chain of comparisons, the only form that description carries out
  std::int32_t scoreType = 1;       // unused
  std::int32_t patchSize = 13;      // side of the square of the test pattern, pixels
  bool rotating = false;            // widens the border of the pyramid path
  std::int32_t refining = 1;    // 0: no sub-pixel step; 1: drop points that fail it; 2 and above: keep them
  std::int32_t ds_mode = 2;     // unused
  std::int32_t gamma_mode = 2;  // tone curve of the working image: 0 linear, 1 power 1/2.2, 2 sRGB
  std::int32_t desc_gaus_size = 7;          // hundreds: tone of the smoothing; the rest: kernel size
  std::int32_t desc_bytes = 16;             // after a read: the descriptor's length in bytes
  std::int32_t filter_mode = 7;             // region and border of the detection filter
  std::int32_t det_type = 0;                // 6 detects; any other but 8 finds nothing, 8 aborts
  std::int32_t no_extrema_suppression = 0;  // unused
  float h_sigma = 1.0f;                     // unused
  std::int32_t desc_image_mode = 0;         // must be 0, else description aborts
  std::int32_t lpf_bit = 0;        // 0: floating-point path; else the 12-bit pyramid path, 8-bit input only
  std::int32_t shift_abd = 0;      // unused
  std::int32_t shift_det = 0;      // unused
  std::int32_t shift_res = 0;      // unused
  std::int32_t mul_subpixel = 32;  // unused
  std::int32_t rnd_mode = 0;       // draws of the candidate pattern: 0 uniform, 1 normal
  float rSigma = 1.0f;             // deviation of the normal draws, pixels
  std::int32_t weightDist = 0;     // non-zero: first points of the chain near the centre, the others outside
  std::int32_t posLimit = 0;       // bits 1, 2, 4: rules against neighbouring points in the chain
  std::int32_t patchIntCalcPattern = 0;  // unused
  std::string rndSeedMake = "2520318559576078924";
  std::string rndSeedSelect = "8247538000375353181";
  std::array<std::int32_t, kMaxLevels> filter_type{};  // kernel of the detection filter, negative for none
  std::array<float, kMaxLevels> threshold{};  // `fastThreshold`, then `res_th`: 100 times the response

  // The two seed texts as numbers.
  std::uint64_t seedMake = 0;
  std::uint64_t seedSelect = 0;

  // Loads the section over what the record holds; absent and unreadable keys leave their value. Throws
  // std::invalid_argument "invalid stoull argument" or std::out_of_range "stoull argument out of range" for
  // a bad seed. Looking keys up adds them to the document's tree.
  void read(const twintrue::ParamNode& section);

  // Whether detection and description can run on frames of that size without leaving their arrays. False for
  // nlevels outside 1 to kMaxLevels, a patch smaller than a pixel or larger than the frame, a descriptor
  // outside 1 to kMaxDescriptorBytes, an unknown kernel number.
  bool usable(std::int32_t frameWidth, std::int32_t frameHeight) const;
};

}  // namespace fpu
