#pragma once

// Second-derivative response of a working image.

#include "features/Region.h"
#include "features/StageTap.h"
#include "imaging/XMat.h"

namespace fpu {

// Pixels outside the scan area that the response depends on.
inline constexpr std::int32_t kResponseReach = 3;

// Both have the size of the scan area; coordinates are relative to its corner.
struct ResponseImages {
  cve::XMat_<float> response;  // smaller eigenvalue magnitude where the determinant is positive, else 0
  // Determinant of the second derivatives, with a margin of 1 that holds the last row pass instead. The
  // sub-pixel step may reach into it.
  cve::XMat_<float> det;
};

// `area` must lie at least kResponseReach pixels inside the image. Rows run in parallel; the result doesn't
// depend on the number of threads. Throws std::bad_alloc where memory is short.
ResponseImages computeResponse(const cve::XMat_<unsigned char>& working, const Region& area, StageTap* tap);

}  // namespace fpu
