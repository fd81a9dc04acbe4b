#pragma once

// Row kernels of the response: pointers and lengths only. No kernel allocates or starts threads. Rows of the
// output must not overlap other arguments.

#include <cstddef>

namespace fpu {

// First derivatives over 3 x 3 pixels with the weights 3, 10, 3. The row pointers name the pixel under the
// first output; reads reach one pixel to each side. Results are whole numbers.
void gradient_x_row(const unsigned char* above, const unsigned char* row, const unsigned char* below,
                    float* out, std::ptrdiff_t count);
void gradient_y_row(const unsigned char* above, const unsigned char* below, float* out, std::ptrdiff_t count);

// Determinant of the symmetric matrix (lxx, lxy; lxy, lyy) of each pixel, and, where that is above 0, the
// smaller magnitude of its eigenvalues, else 0. The response takes lxx's place.
void response_row(float* lxx_then_response, const float* lxy, const float* lyy, float* det,
                  std::ptrdiff_t count);

}  // namespace fpu
