#pragma once

// Description by its definition: every pixel of the smoothed image and every bit of a descriptor by itself.

#include <cstdint>
#include <vector>

#include "features/FeatureFrame.h"
#include "features/TestPattern.h"
#include "imaging/XMat.h"

namespace plain {

// Light of a byte (tone 1: power 2.2, 2: sRGB, other: as it is) and the way back, cut to 0 to 255.
float light_of(unsigned char byte, std::int32_t tone);
unsigned char byte_of(float light, std::int32_t tone);

// Working image in light, filtered with the kernel of that number, and back.
cve::XMat_<unsigned char> smooth(const cve::XMat_<unsigned char>& image, std::int32_t tone, int kernel);

// Descriptors of all live records on one image of scale 1, `length` bytes each, in rows of their index.
cve::XMat_<unsigned char> describe(const cve::XMat_<unsigned char>& image,
                                   const std::vector<fpu::PatternPoint>& chain, std::int32_t length,
                                   const fpu::KeyPointStore& store);

}  // namespace plain
