#pragma once

// Detection by its definition, step after step and pixel by pixel. The response by its definition is
// fpu::computeResponse.

#include <cstdint>

#include "features/DetectorSettings.h"
#include "features/FeatureFrame.h"
#include "features/Region.h"
#include "imaging/XMat.h"

namespace plain {

// Display value from 0 to 1023 of linear light, as 16 bits hold it.
short tone10(float light, std::int32_t gamma_mode);

// Working image of linear light: `view` filtered with the kernel of that number (negative: as it is), cut to
// 0 to 1 with `clamp`, and encoded. Outside the view light is 0.
cve::XMat_<unsigned char> working_image(const cve::XMat_<float>& linear, const fpu::Region& view, int number,
                                        bool borders, bool clamp, std::int32_t gamma_mode);

// Candidates of a response and the best of each cell into a store.
void select(const cve::XMat_<float>& response, float threshold, fpu::KeyPointStore& store);

// Sub-pixel step of one point, (x, y) relative to flat samples in rows of `pitch`, of which the first stands
// at `origin`.
bool refine(const float* origin, std::int32_t pitch, float& x, float& y);

// Sub-pixel step of a store; `det` as fpu::computeResponse makes it.
void refine(const cve::XMat_<float>& det, bool drop, fpu::KeyPointStore& store);

}  // namespace plain
