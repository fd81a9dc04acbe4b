#include "base/ThreadTeam.h"
#include "imaging/Filters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "PlainFilter.h"
#include "imaging/TapSums.h"

namespace {

using cve::XMat_;

// Pixels in no order, by a small generator; beyond 0 to 1 for floats.
template <typename T>
XMat_<T> noise(int rows, int cols) {
  XMat_<T> image;
  image.create(rows, cols);
  std::uint32_t state = 12345;
  for (T& pixel : *image.owner) {
    state = state * 1664525u + 1013904223u;
    const auto draw = static_cast<std::int32_t>(state >> 16) - 32768;
    pixel =
        std::is_same_v<T, float> ? static_cast<T>(static_cast<float>(draw) / 16384.0f) : static_cast<T>(draw);
  }
  return image;
}

template <typename T>
void expect_same_bits(const XMat_<T>& actual, const XMat_<T>& expected, const std::string& what) {
  ASSERT_EQ(actual.rows, expected.rows) << what;
  ASSERT_EQ(actual.cols, expected.cols) << what;
  for (int y = 0; y < actual.rows; ++y) {
    for (int x = 0; x < actual.cols; ++x) {
      ASSERT_EQ(std::memcmp(&actual.at(y, x), &expected.at(y, x), sizeof(T)), 0)
          << what << " at " << x << ", " << y << ": " << actual.at(y, x) << " for " << expected.at(y, x);
    }
  }
}

cve::FilterKernel general_kernel() {
  cve::FilterKernel kernel;
  kernel.symmetric = false;
  kernel.radius = 2;
  const float weights[] = {0.5f, -1.25f, 0.3f, 1.0f, -0.7f};
  std::copy(std::begin(weights), std::end(weights), kernel.coefficients.begin());
  kernel.centre = &kernel.coefficients[2];
  return kernel;
}

TEST(Filters, ConvolutionIsBitExactAtAwkwardSizesAndOnViews) {
  const XMat_<float> parent = noise<float>(340, 180);
  // The last two are more than one band of rows.
  const std::pair<int, int> sizes[] = {{1, 1},   {1, 9},    {40, 1},   {5, 7},   {21, 33},
                                       {32, 64}, {37, 101}, {257, 33}, {300, 70}};
  const cve::FilterKernel kernels[] = {cve::make_float_kernel(19), cve::make_float_kernel(11),
                                       general_kernel()};
  for (const auto& [rows, cols] : sizes) {
    const XMat_<float> view = parent.view(20, 13, cols, rows);
    for (const cve::FilterKernel& kernel : kernels) {
      for (const bool borders : {true, false}) {
        const std::string what = std::to_string(cols) + "x" + std::to_string(rows) + (borders ? " b" : "") +
                                 " radius " + std::to_string(kernel.radius);
        const XMat_<float> expected = plain::filter(kernel, view, borders);
        for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
          const std::string form = what + " set " + std::to_string(static_cast<int>(set));
          XMat_<float> fresh;
          cve::convolveFloat(kernel, view, fresh, borders, set);
          expect_same_bits(fresh, expected, form);
          // Into a view: its surroundings stay untouched. Threads share what is more than one band.
          for (const int count : rows > 128 ? std::vector{1, 2, 7} : std::vector{1}) {
            XMat_<float> canvas = noise<float>(parent.rows, parent.cols);
            XMat_<float> part = canvas.view(3, 5, cols, rows);
            const twintrue::ThreadTeam team(count);
            cve::convolveFloat(kernel, view, part, borders, set);
            expect_same_bits(part, expected, form + " into a view");
            for (int y = 0; y < rows; ++y) std::copy_n(parent.row(y + 5) + 3, cols, part.row(y));
            expect_same_bits(canvas, parent, form + " round the view");
          }
        }
      }
    }
  }
}

// Each kernel by what it is: a low pass cut off at that share of the Nyquist frequency and faded out by a
// window, a normal curve, or a row of Pascal's triangle.
TEST(Filters, KernelsHaveTheirClosedForms) {
  constexpr double kPi = 3.14159265358979323846;
  using Weight = std::function<double(int)>;  // by distance, whatever their sum
  const auto low_pass = [](double cutoff, const Weight& window) -> Weight {
    return [=](int i) { return (i == 0 ? cutoff : std::sin(cutoff * kPi * i) / (kPi * i)) * window(i); };
  };
  const auto hamming = [](int size) -> Weight {
    return [=](int i) { return 0.54 + 0.46 * std::cos(kPi * i / size); };
  };
  const Weight blackman = [](int i) {
    return 0.42 + 0.5 * std::cos(kPi * i / 7) + 0.08 * std::cos(2 * kPi * i / 7);
  };
  const auto normal = [](double sigma, double raised) -> Weight {
    return [=](int i) { return std::exp(-i * i / (2 * sigma * sigma)) + raised; };
  };
  const auto pascal = [](int row) -> Weight {
    return [=](int i) { return 1.0 / (std::tgamma(row / 2 + i + 1) * std::tgamma(row / 2 - i + 1)); };
  };
  // Nearly normal, in whole numbers over 64 and 256.
  const Weight seven = [](int i) { return std::array{18.0, 14.0, 7.0, 2.0}[static_cast<std::size_t>(i)]; };
  const Weight nine = [](int i) {
    return std::array{60.0, 51.0, 30.0, 13.0, 4.0}[static_cast<std::size_t>(i)];
  };
  // What is added to all weights, as a share of the curve's top.
  const double raised15 = 0.01 / 0.204163685;
  const double raised17 = 0.05 * std::sqrt(2 * kPi);
  const struct {
    int taps;
    Weight weight;
  } kernels[] = {
      {6, low_pass(0.99998, hamming(7))},
      {5, low_pass(0.66666, hamming(7))},
      {5, low_pass(0.6, hamming(7))},
      {5, low_pass(0.5, hamming(7))},
      {5, low_pass(0.4, hamming(7))},
      {6, low_pass(0.32, hamming(7))},
      {8, low_pass(0.2, hamming(7))},
      {5, low_pass(0.16666, hamming(7))},
      {6, low_pass(0.1, hamming(7))},
      {8, low_pass(0.8, hamming(7))},
      {8, low_pass(0.9, hamming(7))},
      {11, low_pass(0.2, hamming(10))},
      {11, low_pass(0.4, hamming(10))},
      {7, normal(3, 0)},
      {5, normal(2, 0)},
      {5, normal(2, raised15)},
      {3, normal(1, 0)},
      {3, normal(1, raised17)},
      {8, low_pass(0.2, blackman)},
      {2, pascal(2)},
      {3, pascal(4)},
      {4, seven},
      {5, nine},
      {11, normal(4, 0)},
  };
  static_assert(std::size(kernels) == cve::kKernelCount);
  for (int number = 0; number < cve::kKernelCount; ++number) {
    const auto& [taps, weight] = kernels[number];
    const cve::FilterKernel kernel = cve::make_float_kernel(number);
    ASSERT_EQ(kernel.radius, taps - 1) << number;
    ASSERT_EQ(cve::kernel_radius(number), taps - 1);
    double sum = weight(0);
    for (int i = 1; i < taps; ++i) sum += 2 * weight(i);
    for (int i = 0; i < taps; ++i) {
      // The table's weights have six to nine digits.
      EXPECT_NEAR(kernel.coefficients[static_cast<std::size_t>(i)], weight(i) / sum, 1e-6)
          << number << " at " << i;
    }
  }
}

TEST(Filters, DestinationsMayOverlapTheSource) {
  const cve::FilterKernel kernel = cve::make_float_kernel(23);
  const XMat_<float> expected = plain::filter(kernel, noise<float>(300, 90).view(15, 4, 60, 280), false);
  for (const auto& [dx, dy] : {std::pair{0, 0}, {0, 7}, {-12, -3}, {11, 1}}) {
    XMat_<float> canvas = noise<float>(300, 90);
    XMat_<float> destination = canvas.view(15 + dx, 4 + dy, 60, 280);
    cve::convolveFloat(kernel, canvas.view(15, 4, 60, 280), destination, false);
    expect_same_bits(destination, expected, std::to_string(dx) + ", " + std::to_string(dy));
  }
}

// Each pass by itself, at both kinds of rim: it writes its margins and no pixel more.
TEST(Filters, PassesCoverTheirMarginsOrClampTheirReads) {
  const auto canvas = [] { return noise<float>(60, 80); };
  const XMat_<float> source = canvas().view(10, 10, 41, 33);
  for (const cve::FilterKernel& kernel : {general_kernel(), cve::make_float_kernel(21)}) {
    for (const bool by_rows : {true, false}) {
      for (const bool borders : {true, false}) {
        const int margin_rows = borders ? 0 : 2;
        const int margin_columns = borders ? 0 : 3;
        const auto pixel = [&](int y, int x) {
          return borders ? source.at(std::clamp(y, 0, source.rows - 1), std::clamp(x, 0, source.cols - 1))
                         : source.at(y, x);
        };
        XMat_<float> expected = canvas().view(10, 10, 41, 33);
        for (int y = -margin_rows; y < source.rows + margin_rows; ++y) {
          for (int x = -margin_columns; x < source.cols + margin_columns; ++x) {
            expected.at(y, x) =
                plain::sum_of(kernel, [&](int d) { return by_rows ? pixel(y, x + d) : pixel(y + d, x); });
          }
        }
        XMat_<float> actual = canvas().view(10, 10, 41, 33);
        const auto pass = by_rows ? cve::convolveRows : cve::convolveColumns;
        // With borders the margins count for nothing.
        pass(kernel, source, actual, borders, 2, 3);
        expect_same_bits(actual.view(-10, -10, 80, 60), expected.view(-10, -10, 80, 60),
                         std::string(by_rows ? "rows" : "columns") + (borders ? " with borders" : ""));
      }
    }
  }
}

// At counts about those of a strip, with pixels at the ends of their range.
TEST(Filters, FixedSumsAreTheSameForEverySet) {
  constexpr int kLongest = 130;
  const cve::FixedKernel kernel = cve::make_fixed_kernel(12);
  XMat_<short> rows = noise<short>(2 * kernel.radius + 1, kLongest);
  for (int y = 0; y < rows.rows; ++y) {
    for (int x = 0; x < 9; ++x) rows.at(y, x) = static_cast<short>((x + y) % 2 == 0 ? 32767 : -32768);
  }
  std::vector<const short*> taps;
  for (int y = 0; y < rows.rows; ++y) taps.push_back(rows.row(y));
  for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
    for (const int count : {0, 1, 63, 64, 65, kLongest}) {
      std::vector<short> sums(kLongest + 1, short{77});
      cve::tap_sums(set).fixed(kernel.coefficients.data(), kernel.radius, taps.data() + kernel.radius,
                               sums.data(), count);
      for (int x = 0; x <= kLongest; ++x) {
        std::int64_t exact = 0;
        for (int d = -kernel.radius; d <= kernel.radius; ++d) {
          const auto weight = kernel.coefficients[static_cast<std::size_t>(std::abs(d))];
          exact += std::int64_t{rows.at(kernel.radius + d, std::min(x, kLongest - 1))} * weight;
        }
        // The low 16 bits of the sum, rounded down.
        const auto wanted =
            static_cast<short>(static_cast<std::int32_t>(std::floor(static_cast<double>(exact) / 4096.0)));
        ASSERT_EQ(sums[static_cast<std::size_t>(x)], x < count ? wanted : 77) << x << " of " << count;
      }
    }
  }
}

TEST(Filters, FixedFilterIsBitExact) {
  const XMat_<short> parent = noise<short>(60, 150);
  for (int number = 0; number < cve::kKernelCount; ++number) {
    const XMat_<short> view = parent.view(7, 3, 32 + number * 3, 32 + number);
    XMat_<short> filtered;
    cve::filterFixed(view, filtered, number);
    expect_same_bits(filtered, plain::filter(cve::make_fixed_kernel(number), view, true),
                     std::to_string(number));
  }
}

TEST(Filters, FixedKernelsCutTheirWeights) {
  for (int number = 0; number < cve::kKernelCount; ++number) {
    const cve::FixedKernel kernel = cve::make_fixed_kernel(number);
    const cve::FilterKernel wanted = cve::make_float_kernel(number);
    EXPECT_EQ(kernel.radius, wanted.radius);
    for (std::size_t i = 0; i < kernel.coefficients.size(); ++i) {
      const double exact = double{wanted.coefficients[i]} * 4096.0;
      EXPECT_NEAR(kernel.coefficients[i], exact, 1.0) << number;
      EXPECT_LE(std::abs(kernel.coefficients[i]), std::abs(exact) + 1e-3) << number;
    }
  }
}

TEST(Filters, NoNumberOrASmallImagePassesThrough) {
  const struct {
    int rows, cols, number;
  } cases[] = {{31, 100, 19}, {100, 31, 19}, {40, 40, -1}, {8, 8, 99}, {0, 0, 3}};
  for (const auto& c : cases) {
    const XMat_<float> floats = noise<float>(120, 120).view(2, 2, c.cols, c.rows);
    XMat_<float> canvas = noise<float>(120, 120);
    XMat_<float> destination = canvas.view(1, 1, c.cols, c.rows);
    cve::filterFloat(floats, destination, c.number, true, true);
    EXPECT_EQ(destination.data, floats.data);
    EXPECT_EQ(destination.owner, floats.owner);
    EXPECT_EQ(destination.stride, floats.stride);
    expect_same_bits(canvas, noise<float>(120, 120), "no pixel written");
    EXPECT_EQ(cve::filterFloatImage(floats, c.number).data, floats.data);
    const XMat_<short> shorts = noise<short>(c.rows, c.cols);
    XMat_<short> fixed;
    cve::filterFixed(shorts, fixed, c.number);
    EXPECT_EQ(fixed.owner, shorts.owner);
  }
}

TEST(Filters, SharedPixelsTakeOnlyTheClampedResult) {
  XMat_<float> image = noise<float>(50, 60);
  const XMat_<float> original = noise<float>(50, 60);
  XMat_<float> destination = image;
  cve::filterFloat(image, destination, 8, false, true);
  expect_same_bits(image, original, "lost");

  XMat_<float> expected = plain::filter(cve::make_float_kernel(8), original, true);
  expect_same_bits(cve::filterFloatImage(original, 8), expected, "a new image");
  for (float& pixel : *expected.owner) pixel = std::min(std::max(pixel, 0.0f), 1.0f);
  XMat_<float> apart;
  cve::filterFloat(image, apart, 8, true, true);
  expect_same_bits(apart, expected, "clamped");
  cve::filterFloat(image, image, 8, true, true);
  expect_same_bits(image, expected, "clamped in place");

  XMat_<short> shorts = noise<short>(50, 60);
  cve::filterFixed(shorts, shorts, 8);
  expect_same_bits(shorts, noise<short>(50, 60), "lost in integers");
}

TEST(Filters, RefusesWhatItCannotCarryOut) {
  const XMat_<float> image = noise<float>(40, 40);
  XMat_<float> destination;
  EXPECT_EQ(cve::kernel_radius(-5), 0);
  EXPECT_THROW(cve::kernel_radius(24), std::invalid_argument);
  EXPECT_THROW(cve::filterFloat(image, destination, 24, false, true), std::invalid_argument);
  destination.create(40, 39);
  EXPECT_THROW(cve::filterFloat(image, destination, 3, false, true), std::invalid_argument);
  cve::FilterKernel beyond;
  beyond.radius = 64;
  EXPECT_THROW(cve::convolveFloat(beyond, image, destination, true), std::invalid_argument);
  cve::FilterKernel before = general_kernel();
  before.radius = 3;
  EXPECT_THROW(cve::convolveRows(before, image, destination, true, 0, 0), std::invalid_argument);
}

TEST(Filters, KernelCopiesPointIntoThemselves) {
  const cve::FilterKernel copy = general_kernel();
  EXPECT_EQ(copy.centre, &copy.coefficients[2]);
}

TEST(Filters, PadBorderReplicatesTheNearestPixel) {
  const int top = 3, bottom = 1, left = 2, right = 4;
  XMat_<unsigned char> padded = noise<unsigned char>(12, 15);
  const XMat_<unsigned char> before = noise<unsigned char>(12, 15);
  const int rows = padded.rows - top - bottom, cols = padded.cols - left - right;
  const XMat_<unsigned char> image = padded.view(left, top, cols, rows);
  cve::padBorder(image, padded, top, bottom, left, right);
  for (int y = 0; y < padded.rows; ++y) {
    for (int x = 0; x < padded.cols; ++x) {
      EXPECT_EQ(padded.at(y, x),
                before.at(std::clamp(y, top, top + rows - 1), std::clamp(x, left, left + cols - 1)));
    }
  }
  EXPECT_THROW(cve::padBorder(image, padded, top, bottom, left + 1, right - 1), std::invalid_argument);
  EXPECT_THROW(cve::padBorder(image, padded, top, bottom + 1, left, right), std::invalid_argument);
}

}  // namespace
