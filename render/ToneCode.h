#pragma once

// Samples to numbers and back: what the layer computes with, and what pictures hold.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "render/Pixels.h"

namespace twintrue::render {

// The curve of IEC 61966-2-1 (sRGB) between what displays take and light, both with 1 for white. Beyond 0 it
// goes on as the mirror image, beyond 1 as the power that it is.
float light_of_display(float value);
float display_of_light(float light);

// Writes numbers of one scale, light or display values, as samples of one kind.
class ToneCode {
 public:
  // `from`: what the numbers are; `to`: how the samples stand to light.
  ToneCode(Light from, SampleType type, Light to);

  // `count` pixels of red, green, blue and one number that is left out. What is no number becomes 0; whole
  // numbers take what lies beyond 0 and 1 as that, and are rounded to the nearest. Threads: any number.
  void write(const float* pixels, std::size_t count, std::byte* samples) const;

 private:
  float coded(float value) const;
  void write_bytes(const float* pixels, std::size_t count, std::uint8_t* bytes) const;

  Light from_;
  SampleType type_;
  Light to_;
  std::vector<std::uint8_t> bytes_;  // of numbers in steps of 1/65535, for bytes alone
};

}  // namespace twintrue::render
