#include "imaging/ToneCurves.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace {

// The curves in double precision, with exact constants.
double display_to_linear(double v) { return std::pow(v, 2.2); }
double linear_to_display(double v, int mode) {
  if (mode == 1) return std::pow(v, 1.0 / 2.2);
  if (mode == 2) return v < 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
  return v;
}

TEST(ToneCurves, BytesFollowTheClosedForm) {
  for (int v = 0; v < 256; ++v) {
    const auto byte = static_cast<unsigned char>(v);
    const double linear = display_to_linear(v / 255.0);
    EXPECT_NEAR(cve::linearFromByte(byte), linear, 1e-6) << v;
    // Cut, so up to one below; the constants are a little above the exact ones.
    EXPECT_GT(cve::linear12FromByte(byte), linear * 4095.0 - 1.001) << v;
    EXPECT_LT(cve::linear12FromByte(byte), linear * 4095.0 + 0.001) << v;
  }
  EXPECT_EQ(cve::linear12FromByte(255), 4095);
}

TEST(ToneCurves, TonesFollowTheClosedForm) {
  for (const int mode : {-1, 0, 1, 2, 3}) {
    for (int i = 0; i <= 2000; ++i) {
      const float linear = static_cast<float>(i) / 1800.0f;
      const double exact = 1023.0 * linear_to_display(double{linear}, mode);
      const short tone = cve::tone10FromLinear(linear, mode);
      EXPECT_GT(tone, exact - 1.001) << linear << " mode " << mode;
      EXPECT_LT(tone, exact + 0.001) << linear << " mode " << mode;
    }
  }
  EXPECT_EQ(cve::tone10FromLinear(0.003f, 2), static_cast<short>(1023.0 * 0.003 * 12.92));
}

TEST(ToneCurves, ValuesOutOfRangeAreDefined) {
  const float infinity = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const struct {
    float linear;
    int mode;
    short tone;
  } cases[] = {
      {nan, 0, 0},      {-0.5f, 1, 0},     {-0.001f, 2, -13}, {-0.5f, 0, -511},
      {infinity, 0, 0}, {-infinity, 0, 0}, {1e10f, 0, 0},     {64.0f, 0, -64},  // 65472 in 16 bits
  };
  for (const auto& c : cases) EXPECT_EQ(cve::tone10FromLinear(c.linear, c.mode), c.tone) << c.linear;
}

TEST(ToneCurves, TonesToBytesKeepTheLowEightBits) {
  for (int s = -32768; s <= 32767; ++s) {
    const int expected = ((static_cast<int>(std::floor(s / 4.0)) % 256) + 256) % 256;
    ASSERT_EQ(cve::byteFromTone10(static_cast<short>(s)), expected) << s;
  }
}

TEST(ToneCurves, TwelveBitsToBytesRoundToTheNearest) {
  for (int s = 0; s <= 32767; ++s) {
    const double tone = linear_to_display(s / 4095.0, 1) * 255.0;
    const auto nearest = static_cast<long>(std::floor(tone + 0.5));
    const double to_tie = std::abs(tone + 0.5 - static_cast<double>(std::lround(tone + 0.5)));
    if (to_tie < 1e-3) continue;
    ASSERT_EQ(cve::byteFromLinear12(static_cast<short>(s)), nearest % 256) << s;
  }
  EXPECT_EQ(cve::byteFromLinear12(4095), 255);
  for (const int below : {-1, -4095, -32768}) EXPECT_EQ(cve::byteFromLinear12(static_cast<short>(below)), 0);
}

// An image of the given pixels inside a larger one, of the value `rim`.
template <typename T, class Pixel>
cve::XMat_<T> framed(int rows, int cols, T rim, Pixel pixel) {
  cve::XMat_<T> canvas;
  canvas.create(rows + 4, cols + 6);
  std::fill(canvas.owner->begin(), canvas.owner->end(), rim);
  cve::XMat_<T> image = canvas.view(3, 2, cols, rows);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) image.at(y, x) = static_cast<T>(pixel(y * cols + x));
  }
  return image;
}

template <typename From, typename To, class Convert, class Value>
void expect_pixelwise(const cve::XMat_<From>& source, Convert convert, Value value) {
  cve::XMat_<To> fresh;
  convert(source, fresh);
  cve::XMat_<To> view = framed<To>(source.rows, source.cols, To{7}, [](int) { return 9; });
  convert(source, view);
  for (int y = -1; y <= source.rows; ++y) {
    for (int x = -1; x <= source.cols; ++x) {
      if (y < 0 || x < 0 || y == source.rows || x == source.cols) {
        ASSERT_EQ(view.at(y, x), To{7});
      } else {
        ASSERT_EQ(fresh.at(y, x), value(source.at(y, x)));
        ASSERT_EQ(view.at(y, x), value(source.at(y, x)));
      }
    }
  }
  cve::XMat_<To> wrong;
  wrong.create(source.rows, source.cols + 1);
  EXPECT_THROW(convert(source, wrong), std::invalid_argument);
}

TEST(ToneCurves, ImagesConvertPixelByPixel) {
  const auto bytes = framed<unsigned char>(13, 21, 0, [](int i) { return i; });
  const auto shorts = framed<short>(13, 21, 0, [](int i) { return i * 17; });
  const auto floats = framed<float>(13, 21, 0.0f, [](int i) { return static_cast<float>(i) / 250.0f; });
  expect_pixelwise<unsigned char, float>(bytes, cve::bytesToLinear, cve::linearFromByte);
  expect_pixelwise<unsigned char, short>(bytes, cve::bytesToLinear12, cve::linear12FromByte);
  expect_pixelwise<short, unsigned char>(shorts, cve::tone10ToBytes, cve::byteFromTone10);
  expect_pixelwise<short, unsigned char>(shorts, cve::linear12ToBytes, cve::byteFromLinear12);
  for (const int mode : {0, 1, 2}) {
    expect_pixelwise<float, short>(
        floats, [mode](const auto& from, auto& to) { cve::linearToTone10(from, to, mode); },
        [mode](float value) { return cve::tone10FromLinear(value, mode); });
  }
}

}  // namespace
