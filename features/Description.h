#pragma once

// Binary descriptors: chains of comparisons of working-image pixels.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/InstructionSet.h"
#include "features/FeatureFrame.h"
#include "features/TestPattern.h"
#include "imaging/XMat.h"

namespace fpu {

// Smoothed copy of a working image. `desc_gaus_size` above 0: the hundreds choose the light that is smoothed
// (1: power 2.2, 2: sRGB, other: the bytes as they are), half of the rest one of six kernels. Images with a
// side below 32 aren't filtered. Bands of rows in parallel; the result depends neither on the number of
// threads nor on the set.
cve::XMat_<unsigned char> smoothForDescription(
    const cve::XMat_<unsigned char>& image, std::int32_t desc_gaus_size,
    twintrue::InstructionSet set = twintrue::best_instruction_set());

// Light of a byte, by the hundreds of desc_gaus_size, and the way back, cut to whole numbers and to 0 to 255.
float linear_of_byte(unsigned char value, std::int32_t tone);
unsigned char byte_of_linear(float value, std::int32_t tone);

// Where to look: the working image of each octave and the reciprocal of its scale.
struct DescribedLevel {
  cve::XMat_<unsigned char> image;
  float inverse_scale = 1.0f;
};

// Descriptors of all live records into the rows of their indices: bit k of byte j is set when the pixel of
// point 8 * j + k of the chain is at most the pixel of the next point. Rows hold at most kMaxDescriptorBytes.
// Keypoints of an octave without an image are left out. Cells run in parallel.
void describeKeypoints(const std::vector<DescribedLevel>& levels, const std::vector<PatternPoint>& chain,
                       const KeyPointStore& store, cve::XMat_<unsigned char>& descriptors);

}  // namespace fpu
