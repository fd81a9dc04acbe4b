#include "features/ResponseKernels.h"

#include <cmath>

namespace fpu {

void gradient_x_row(const unsigned char* above, const unsigned char* row, const unsigned char* below,
                    float* out, std::ptrdiff_t count) {
  for (std::ptrdiff_t x = 0; x < count; ++x) {
    const int corners = below[x + 1] - below[x - 1] - above[x - 1] + above[x + 1];
    out[x] = static_cast<float>(corners * 3 + (row[x + 1] - row[x - 1]) * 10);
  }
}

void gradient_y_row(const unsigned char* above, const unsigned char* below, float* out,
                    std::ptrdiff_t count) {
  for (std::ptrdiff_t x = 0; x < count; ++x) {
    const int corners = below[x - 1] - above[x + 1] - above[x - 1] + below[x + 1];
    out[x] = static_cast<float>(corners * 3 + (below[x] - above[x]) * 10);
  }
}

void response_row(float* __restrict lxx_then_response, const float* __restrict lxy,
                  const float* __restrict lyy, float* __restrict det, std::ptrdiff_t count) {
  for (std::ptrdiff_t x = 0; x < count; ++x) {
    const float xx = lxx_then_response[x];
    const float xy = lxy[x];
    const float yy = lyy[x];
    const float d = xx * yy - xy * xy;
    const float m = yy * 0.5f + xx * 0.5f;
    const float h = xx * 0.5f - yy * 0.5f;
    const float q = std::sqrt(h * h + xy * xy);
    const float low = std::fabs(m - q);
    const float high = std::fabs(q + m);
    const float smaller = low < high ? low : high;
    det[x] = d;
    lxx_then_response[x] = d > 0.0f ? smaller : 0.0f;
  }
}

}  // namespace fpu
