#pragma once

// A frame in memory, and why a file may give none.

#include <cstdint>
#include <string>
#include <vector>

#include "render/Pixels.h"

namespace twintrue::cli {

// The largest picture that is taken: the largest frame that a lens file speaks of, and what memory holds with
// ease.
inline constexpr int kLargestPictureSide = 65536;
inline constexpr std::int64_t kMostPicturePixels = std::int64_t{1} << 28;

// True for the size of a picture that is taken.
constexpr bool is_picture_size(std::int64_t width, std::int64_t height) {
  return width >= 1 && height >= 1 && width <= kLargestPictureSide && height <= kLargestPictureSide &&
         width * height <= kMostPicturePixels;
}

// Counting ends there: a damaged file may have its pictures in a circle.
inline constexpr std::uint32_t kMostPicturesCounted = 1000;

// Rows from top to bottom without gaps, three bytes a pixel: red, green, blue.
struct Frame {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> pixels;
  std::uint32_t pictures = 1;  // how many its file holds, as far as kMostPicturesCounted
};

// A frame whose samples are as deep as those of its file: bytes, 16 bits or floats, three a pixel.
struct DeepFrame {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  render::SampleType type = render::SampleType::kByte;
  render::Light light = render::Light::kEncoded;
  std::vector<std::uint8_t> samples;  // in the machine's order of bytes, rows as those of a Frame
  std::uint32_t pictures = 1;         // as in a Frame
};

// Samples to write: rows from top to bottom without gaps.
struct PictureSamples {
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::uint32_t channels = 1;
  render::SampleType type = render::SampleType::kFloat;
  const void* samples = nullptr;
};

// Why a picture can't be used, in the words of a Problem.
struct PictureProblem {
  std::string found;
  std::string expected;
  std::string remedy;
};

}  // namespace twintrue::cli
