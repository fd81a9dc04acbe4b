#include "imaging/ByteCurve.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "imaging/ToneCurves.h"

namespace {

unsigned char working_byte(float light, std::int32_t gamma_mode) {
  return cve::byteFromTone10(cve::tone10FromLinear(light, gamma_mode));
}

unsigned char display_byte(float light, std::int32_t /*mode*/) {
  const float level =
      light < 0.0031308f ? light * 3294.6f : std::pow(light, 0.41666666f) * 269.025f - 14.025f;
  return static_cast<unsigned char>(level > 0.0f ? std::fmin(level, 255.0f) : 0.0f);
}

// Steeper than a table can be: two steps within a few floats.
unsigned char steep_byte(float light, std::int32_t mode) {
  if (mode == 0) return static_cast<unsigned char>(light > 0.0f ? std::fmin(light * 1000.0f, 255.0f) : 0.0f);
  return light > 1e-30f ? 1 : 0;
}

// Floats by their bits: all round every step of the curve, all ends of ranges, and many between.
std::vector<float> tried_values(cve::ByteCurve::Formula formula, std::int32_t mode) {
  std::vector<std::uint32_t> centres{0,          0x80000000, 0x3f800000, 0x40000000, 0x7f800000, 0xff800000,
                                     0x7fc00000, 0x35800000, 0xbf800000, 0x4f000000, 0xcf000000, 0x00800000};
  constexpr std::uint32_t kStride = 4099;
  const auto byte_at = [&](std::uint32_t bits) { return formula(std::bit_cast<float>(bits), mode); };
  for (std::uint32_t bits = 0x35000000; bits < 0x40000000; bits += kStride) {
    std::uint32_t low = bits;
    std::uint32_t high = bits + kStride;
    if (byte_at(low) == byte_at(high)) continue;
    while (high - low > 1) {
      const std::uint32_t middle = low + (high - low) / 2;
      (byte_at(middle) == byte_at(low) ? low : high) = middle;
    }
    centres.push_back(high);
  }
  EXPECT_GT(centres.size(), 200u);
  std::vector<float> values;
  for (const std::uint32_t centre : centres) {
    for (std::uint32_t i = 0; i < 40; ++i) values.push_back(std::bit_cast<float>(centre - 20 + i));
  }
  std::mt19937 engine(5);
  for (int i = 0; i < 200000; ++i)
    values.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(engine())));
  for (int i = 0; i < 200000; ++i) values.push_back(static_cast<float>(engine()) / 4294967296.0f);
  return values;
}

TEST(ByteCurve, EqualsItsFormulaForEveryKindOfFloatAndSet) {
  const struct {
    cve::ByteCurve::Formula formula;
    std::int32_t mode;
  } cases[] = {{working_byte, 0}, {working_byte, 1}, {working_byte, 2}, {display_byte, 0}, {steep_byte, 0}};
  for (const auto& test : cases) {
    const cve::ByteCurve curve(test.formula, test.mode);
    const std::vector<float> values = tried_values(test.formula, test.mode);
    std::vector<float> inside;
    for (const float value : values) {
      if (value >= 0.0f && value < 2.0f) inside.push_back(value);
    }
    for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
      for (const auto& list : {values, inside}) {
        std::vector<unsigned char> bytes(list.size());
        curve.convert(list.data(), list.size(), bytes.data(), set);
        for (std::size_t i = 0; i < list.size(); ++i) {
          ASSERT_EQ(bytes[i], test.formula(list[i], test.mode))
              << std::hexfloat << list[i] << " mode " << test.mode << " set " << static_cast<int>(set);
        }
      }
    }
  }
}

TEST(ByteCurve, WritesAsManyBytesAsItIsGiven) {
  const cve::ByteCurve curve(working_byte, 2);
  const cve::ByteCurve step_at_the_start(steep_byte, 1);
  for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
    for (std::size_t count = 0; count < 140; ++count) {
      std::vector<float> values(count, 0.25f);
      std::vector<unsigned char> bytes(count + 1, 99);
      curve.convert(values.data(), count, bytes.data(), set);
      EXPECT_EQ(bytes[count], 99);
      bytes[count] = working_byte(0.25f, 2);
      EXPECT_EQ(bytes, std::vector<unsigned char>(count + 1, bytes[count]));
    }
    unsigned char byte = 0;
    const float value = 1e-20f;
    step_at_the_start.convert(&value, 1, &byte, set);
    EXPECT_EQ(byte, 1);
  }
}

}  // namespace
