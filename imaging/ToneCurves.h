#pragma once

// Between linear light and the integers that images are kept in. The constants of the curves are 32-bit
// floats, and so is the arithmetic; what doesn't fit its integer wraps as told at each conversion.

#include <cmath>
#include <cstdint>

#include "base/Saturate.h"
#include "imaging/XMat.h"

namespace cve {

// Linear light from 0 to 1 of a display byte.
inline float linearFromByte(unsigned char value) {
  constexpr float kOneOver255 = 0.003921569f;
  return std::pow(static_cast<float>(value) * kOneOver255, 2.2f);
}

// Linear light from 0 to 4095 of a display byte.
inline short linear12FromByte(unsigned char value) {
  return static_cast<short>(twintrue::truncate_to_int32(linearFromByte(value) * 4095.0f));
}

// Display curve of linear light: 1 a power law, 2 a power law with a linear foot, any other none. A negative
// value gives a NaN where the power law applies.
inline float gammaCurve(float linear, int gamma_mode) {
  if (gamma_mode == 1) return std::pow(linear, 0.45454544f);
  if (gamma_mode != 2) return linear;
  return linear < 0.0031308f ? linear * 12.92f : std::pow(linear, 0.41666666f) * 1.055f - 0.055f;
}

// Display value from 0 to 1023 of linear light; keeps the low 16 bits of what lies beyond, and a NaN gives 0.
inline short tone10FromLinear(float linear, int gamma_mode) {
  return static_cast<short>(twintrue::truncate_to_int32(1023.0f * gammaCurve(linear, gamma_mode)));
}

// Display byte of a display value from 0 to 1023; what lies beyond wraps.
inline unsigned char byteFromTone10(short value) { return static_cast<unsigned char>(value >> 2); }

// Display byte of linear light from 0 to 4095, to the nearest. What lies above wraps, what lies below gives
// 0.
inline unsigned char byteFromLinear12(short value) {
  constexpr float kOneOver4095 = 0.00024420026f;
  const float tone = std::pow(static_cast<float>(value) * kOneOver4095, 0.45454544f) * 255.0f;
  return static_cast<unsigned char>(twintrue::truncate_to_int32(tone < 0.0f ? tone - 0.5f : tone + 0.5f));
}

// The conversions over whole images or views, rows in parallel. An empty destination is created; else it must
// have the source's size (std::invalid_argument), and its own stride is kept to. An empty source changes
// nothing.
void bytesToLinear(const XMat_<unsigned char>& source, XMat_<float>& destination);
void bytesToLinear12(const XMat_<unsigned char>& source, XMat_<short>& destination);
void linearToTone10(const XMat_<float>& source, XMat_<short>& destination, int gamma_mode);
void tone10ToBytes(const XMat_<short>& source, XMat_<unsigned char>& destination);
void linear12ToBytes(const XMat_<short>& source, XMat_<unsigned char>& destination);

}  // namespace cve
