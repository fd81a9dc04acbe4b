#pragma once

// The picture as the patches are cut from it: two bytes a pixel, on a scale on which noise is about even.

#include <cstdint>

#include "imaging/XMat.h"

namespace twintrue {

// Steps of a coded value in a grey level; white, 255 grey levels, is a linear luminance of 1.
inline constexpr double kCodeSteps = 64.0;

// The square root of linear luminance. The noise of photons is the same at every brightness on this scale,
// and the usual transfer curves are close to it, so what coding and compression add is about even as well.
// The result is packed, of the frame's size, 64 steps a grey level, and holds luminances up to 4; what lies
// outside, NaN included, becomes one of the ends. Runs on all threads; throws std::bad_alloc.
cve::XMat_<std::int16_t> code_picture(const cve::XMat_<float>& linear);

}  // namespace twintrue
