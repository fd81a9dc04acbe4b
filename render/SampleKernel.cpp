#include "render/SampleKernel.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace twintrue::render {
namespace {

// Two pixels, as vectors that every processor's compiler splits as it needs. They are handed on by reference:
// by value their place would depend on the instruction set.
using Floats = float __attribute__((vector_size(32)));
using Ints = std::int32_t __attribute__((vector_size(32)));

constexpr std::size_t kNumbers = 4;  // of a pixel
constexpr float kOneOver65535 = 1.0f / 65535.0f;

TWINTRUE_INLINE void load(const float* from, Floats& two) { std::memcpy(&two, from, sizeof two); }

TWINTRUE_INLINE void load(const std::uint16_t* from, Floats& two) {
  // Through an array: the compilers make one widening load of it, where they take their own conversion of
  // vectors to pieces.
  std::int32_t whole[2 * kNumbers];
  for (std::size_t i = 0; i < 2 * kNumbers; ++i) whole[i] = from[i];
  Ints ints;
  std::memcpy(&ints, whole, sizeof ints);
  two = __builtin_convertvector(ints, Floats);
}

constexpr float unit(const float* /*numbers*/) { return 1.0f; }
constexpr float unit(const std::uint16_t* /*numbers*/) { return kOneOver65535; }

// Weights of the values at -1, 0, 1 and 2 for a point at t.
TWINTRUE_INLINE void keys_weights(float t, float& w0, float& w1, float& w2, float& w3) {
  const float s = 1.0f - t;
  w0 = -0.5f * t * s * s;
  w1 = 1.0f + t * t * (1.5f * t - 2.5f);
  w2 = 1.0f + s * s * (1.5f * s - 2.5f);
  w3 = -0.5f * s * t * t;
}

// Points in pixels of the picture, some at a time, so that what is worked out for each becomes vectors.
struct Points {
  static constexpr int kMost = 64;
  std::int32_t column[kMost];  // of the upper left one of the 2 x 2 nearest pixels
  std::int32_t row[kMost];     // kNowhere: the point is not in the picture
  float tx[kMost], ty[kMost];  // from that pixel to the point
  float wx[4][kMost], wy[4][kMost];
};
constexpr std::int32_t kNowhere = -2;

TWINTRUE_INLINE void place(const EyePicture& picture, const double* x, const double* y, int count,
                           Points& points) {
  const double scale = 1.0 / picture.reduction();
  const double from_left = (0.5 - picture.left()) * scale - 0.5;
  const double from_top = 0.5 * scale - 0.5;
  const double width = picture.width();
  const double height = picture.height();
  for (int i = 0; i < count; ++i) {
    const double px = x[i] * scale + from_left;
    const double py = y[i] * scale + from_top;
    // Before the conversion to whole numbers: the point may be anything, a NaN included.
    const bool within = (px > -1.0) & (px < width) & (py > -1.0) & (py < height);
    const double safe_x = within ? px : 0.0;
    const double safe_y = within ? py : 0.0;
    const std::int32_t column = static_cast<std::int32_t>(safe_x + 1.0) - 1;
    const std::int32_t row = static_cast<std::int32_t>(safe_y + 1.0) - 1;
    const auto tx = static_cast<float>(safe_x - column);
    const auto ty = static_cast<float>(safe_y - row);
    points.column[i] = column;
    points.row[i] = within ? row : kNowhere;
    points.tx[i] = tx;
    points.ty[i] = ty;
    keys_weights(tx, points.wx[0][i], points.wx[1][i], points.wx[2][i], points.wx[3][i]);
    keys_weights(ty, points.wy[0][i], points.wy[1][i], points.wy[2][i], points.wy[3][i]);
  }
}

// `first`: the upper left one of 4 x 4 pixels.
template <typename Number>
TWINTRUE_INLINE void sample_whole(const Number* first, std::size_t row_step, const Points& points, int i,
                                  float* out) {
  Floats near{};  // columns 0 and 1, and 2 and 3
  Floats far{};
  for (std::size_t row = 0; row < 4; ++row) {
    const float weight = points.wy[row][i];
    Floats a, b;
    load(first + row * row_step, a);
    load(first + row * row_step + 2 * kNumbers, b);
    near += a * weight;
    far += b * weight;
  }
  const float w0 = points.wx[0][i], w1 = points.wx[1][i], w2 = points.wx[2][i], w3 = points.wx[3][i];
  const Floats near_weights = {w0, w0, w0, w0, w1, w1, w1, w1};
  const Floats far_weights = {w2, w2, w2, w2, w3, w3, w3, w3};
  const Floats sum = near * near_weights + far * far_weights;
  for (std::size_t k = 0; k < kNumbers; ++k) out[k] = (sum[k] + sum[k + kNumbers]) * unit(first);
}

// (column, row): the upper left one of the 2 x 2 nearest pixels.
template <typename Number>
TWINTRUE_INLINE void sample_edge(const EyePicture& picture, const Number* numbers, int column, int row,
                                 float tx, float ty, float* out) {
  float sum[kNumbers] = {0.0f, 0.0f, 0.0f, 0.0f};
  float weights = 0.0f;
  for (int i = 0; i < 4; ++i) {
    const int x = column + (i & 1);
    const int y = row + (i >> 1);
    if (y < 0 || y >= picture.height() || !picture.inside(y).holds(x)) continue;
    const float weight = ((i & 1) != 0 ? tx : 1.0f - tx) * ((i >> 1) != 0 ? ty : 1.0f - ty);
    const Number* const pixel =
        numbers + (static_cast<std::size_t>(y) * static_cast<std::size_t>(picture.width()) +
                   static_cast<std::size_t>(x)) *
                      kNumbers;
    for (std::size_t k = 0; k < kNumbers; ++k) sum[k] += weight * static_cast<float>(pixel[k]);
    weights += weight;
  }
  const float share = weights > 0.0f ? unit(numbers) / weights : 0.0f;
  for (std::size_t k = 0; k < kNumbers; ++k) out[k] = sum[k] * share;
}

template <typename Number>
TWINTRUE_INLINE void sample_numbers(const EyePicture& picture, const Number* numbers, const double* x,
                                    const double* y, int count, float* out) {
  const std::size_t row_step = static_cast<std::size_t>(picture.width()) * kNumbers;
  Points points;
  for (int begin = 0; begin < count; begin += Points::kMost) {
    const int some = count - begin < Points::kMost ? count - begin : Points::kMost;
    place(picture, x + begin, y + begin, some, points);
    for (int i = 0; i < some; ++i, out += kNumbers) {
      const int column = points.column[i];
      const int row = points.row[i];
      if (row >= 0 && row < picture.height() && picture.whole(row).holds(column)) {
        const std::size_t first =
            static_cast<std::size_t>(row - 1) * row_step + static_cast<std::size_t>(column - 1) * kNumbers;
        sample_whole(numbers + first, row_step, points, i, out);
      } else {
        sample_edge(picture, numbers, column, row, points.tx[i], points.ty[i], out);
      }
    }
  }
}

TWINTRUE_INLINE void sample(const EyePicture& picture, const double* x, const double* y, int count,
                            float* out) {
  if (picture.words() != nullptr) {
    sample_numbers(picture, picture.words(), x, y, count, out);
  } else {
    sample_numbers(picture, picture.floats(), x, y, count, out);
  }
}

void sample_portable(const EyePicture& picture, const double* x, const double* y, int count, float* out) {
  sample(picture, x, y, count, out);
}

TWINTRUE_TARGET_AVX2 void sample_avx2(const EyePicture& picture, const double* x, const double* y, int count,
                                      float* out) {
  sample(picture, x, y, count, out);
}

TWINTRUE_TARGET_AVX512 void sample_avx512(const EyePicture& picture, const double* x, const double* y,
                                          int count, float* out) {
  sample(picture, x, y, count, out);
}

}  // namespace

SampleRow sample_row(InstructionSet set) {
  return for_set<SampleRow>(set, sample_portable, sample_avx2, sample_avx512);
}

}  // namespace twintrue::render
