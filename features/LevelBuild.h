#pragma once

// From an input image to the working pyramid.

#include <cstdint>

#include "base/InstructionSet.h"
#include "features/DetectorSettings.h"
#include "features/LevelImages.h"
#include "features/Region.h"
#include "features/StageTap.h"
#include "imaging/XMat.h"

namespace fpu {

// Floating-point path: low-pass filter and 10-bit tone curve of level 0, the only level with an image.
// `region` is the part of the frame that detection and description may read; outside the filter's view the
// result is 0. The linear image is taken over, so that its memory goes before the next is made. Rows in
// parallel.
LevelImages buildFloatLevels(cve::XMat_<float> linear, const DetectorSettings& settings, const Region& region,
                             StageTap* tap);

// The working image of the same level at one go: filter and tone curve row by row, so that no other image is
// made. Empty where a filter without borders would read on past the ends of a row, which only packed rows
// allow: buildFloatLevels has to do it. Bands of rows in parallel; the result depends neither on the number
// of threads nor on the set.
cve::XMat_<unsigned char> buildWorkingImage(const cve::XMat_<float>& linear, const DetectorSettings& settings,
                                            const Region& region,
                                            twintrue::InstructionSet set = twintrue::best_instruction_set());

// View of the detection filter in a frame of that size, by filter_mode; `radius` is the filter kernel's.
// Empty for an unknown mode.
Region filterView(std::int32_t filter_mode, const Region& region, std::int32_t radius, std::int32_t cols,
                  std::int32_t rows);

// Pyramid path: 12-bit filter of an 8-bit image, with `border` replicated pixels round the result. One level
// at scale 1 is all that this path carries out; other settings abort.
LevelImages buildPyramidLevels(const cve::XMat_<unsigned char>& image, const DetectorSettings& settings,
                               std::int64_t border);

// Scale of a level in the pyramid path.
float levelScale(const DetectorSettings& settings, std::int32_t level);

}  // namespace fpu
