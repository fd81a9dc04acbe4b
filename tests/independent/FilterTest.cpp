// The separable filters against OpenCV's.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "imaging/Filters.h"

namespace {

// Sums of some twenty products of values up to 1, whose order differs between the two.
constexpr double kTolerance = 2e-6;

cve::XMat_<float> random_image(std::int32_t rows, std::int32_t cols) {
  std::mt19937_64 engine(static_cast<std::uint64_t>(rows) * 10007 + static_cast<std::uint64_t>(cols));
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  cve::XMat_<float> image;
  image.create(rows, cols);
  for (std::int32_t y = 0; y < rows; ++y) std::generate_n(image.row(y), cols, [&] { return unit(engine); });
  return image;
}

// The same pixels.
cv::Mat as_mat(const cve::XMat_<float>& image) {
  return cv::Mat(image.rows, image.cols, CV_32F, image.data, static_cast<std::size_t>(image.stride));
}

double difference(const cve::XMat_<float>& image, const cv::Mat& expected) {
  return cv::norm(as_mat(image), expected, cv::NORM_INF);
}

// All weights of a kernel, left to right.
cv::Mat weights_of(int number) {
  const cve::FilterKernel kernel = cve::make_float_kernel(number);
  cv::Mat weights(1, 2 * kernel.radius + 1, CV_32F);
  for (int d = -kernel.radius; d <= kernel.radius; ++d) {
    weights.at<float>(d + kernel.radius) = kernel.coefficients[static_cast<std::size_t>(std::abs(d))];
  }
  return weights;
}

TEST(Filters, GaussianKernelsBlurAsTheirWidthsSay) {
  struct Case {
    int number;
    double sigma;  // 0: what is usual for the size
    int size;
  };
  for (const Case& c : {Case{13, 3, 13}, Case{14, 2, 9}, Case{16, 1, 5}, Case{19, 0, 3}, Case{20, 0, 5},
                        Case{21, 0, 7}, Case{22, 0, 9}, Case{23, 4, 21}}) {
    for (const auto& [rows, cols] : {std::pair{32, 32}, std::pair{33, 97}, std::pair{120, 61}}) {
      const cve::XMat_<float> source = random_image(rows, cols);
      cv::Mat expected;
      cv::GaussianBlur(as_mat(source), expected, cv::Size(c.size, c.size), c.sigma, c.sigma,
                       cv::BORDER_REPLICATE);
      EXPECT_LT(difference(cve::filterFloatImage(source, c.number), expected), kTolerance) << c.number;
    }
  }
}

TEST(Filters, EveryKernelWithReplicatedBorders) {
  const cve::XMat_<float> source = random_image(71, 140);
  for (int number = 0; number < cve::kKernelCount; ++number) {
    const cv::Mat weights = weights_of(number);
    cv::Mat expected;
    cv::sepFilter2D(as_mat(source), expected, CV_32F, weights, weights, cv::Point(-1, -1), 0,
                    cv::BORDER_REPLICATE);
    cve::XMat_<float> filtered;
    cve::filterFloat(source, filtered, number, false, true);
    EXPECT_LT(difference(filtered, expected), kTolerance) << number;
    cve::filterFloat(source, filtered, number, true, true);
    EXPECT_LT(difference(filtered, cv::min(cv::max(expected, 0.0), 1.0)), kTolerance) << number;
  }
}

// Without borders the pixels beside a view count, and those above and below it don't.
TEST(Filters, EveryKernelOnAView) {
  const cve::XMat_<float> parent = random_image(90, 150);
  constexpr int kLeft = 13, kTop = 11, kCols = 101, kRows = 47;
  const cve::XMat_<float> view = parent.view(kLeft, kTop, kCols, kRows);
  const cv::Mat strip = as_mat(parent).rowRange(kTop, kTop + kRows).clone();
  for (int number = 0; number < cve::kKernelCount; ++number) {
    const cv::Mat weights = weights_of(number);
    cv::Mat expected;
    cv::sepFilter2D(strip(cv::Rect(kLeft, 0, kCols, kRows)), expected, CV_32F, weights, weights,
                    cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    cve::XMat_<float> filtered;
    cve::filterFloat(view, filtered, number, false, false);
    EXPECT_LT(difference(filtered, expected), kTolerance) << number;
  }
}

TEST(Filters, PaddingReplicates) {
  for (const auto& [top, bottom, left, right] :
       {std::array{3, 5, 2, 7}, std::array{0, 0, 4, 0}, std::array{6, 0, 0, 0}}) {
    cve::XMat_<float> padded = random_image(20 + top + bottom, 30 + left + right);
    const cve::XMat_<float> image = padded.view(left, top, 30, 20);
    cv::Mat expected;
    cv::copyMakeBorder(as_mat(image).clone(), expected, top, bottom, left, right, cv::BORDER_REPLICATE);
    cve::padBorder(image, padded, top, bottom, left, right);
    EXPECT_EQ(difference(padded, expected), 0.0);
  }
}

}  // namespace
