#pragma once

// Pictures as the layer takes and gives them: red, green and blue beside each other, rows from top to bottom.

#include <cstddef>
#include <cstdint>

namespace twintrue::render {

enum class SampleType : std::uint32_t { kByte = 1, kWord = 2, kFloat = 4 };  // the number of its bytes

constexpr std::size_t bytes_of(SampleType type) { return static_cast<std::size_t>(type); }

// How samples stand to light: as displays take them (by the sRGB curve), or in proportion to it. Whole
// numbers are 0 to 1 in steps of 1/255 or 1/65535; floats may lie beyond 0 and 1.
enum class Light { kEncoded, kLinear };

// The whole frame, both eyes in it. Rows have no gaps. The caller keeps the samples alive.
struct FramePixels {
  int width = 0;
  int height = 0;
  SampleType type = SampleType::kByte;
  Light light = Light::kEncoded;
  const void* samples = nullptr;
};

// Room for a picture, or for a part of a larger one.
struct PictureRoom {
  int width = 0;
  int height = 0;
  SampleType type = SampleType::kByte;
  Light light = Light::kEncoded;
  std::byte* samples = nullptr;
  std::size_t row_bytes = 0;  // from a row to the next

  std::byte* row(int y) const { return samples + row_bytes * static_cast<std::size_t>(y); }
  // The part of that size whose upper left pixel is (x, y).
  PictureRoom part(int x, int y, int part_width, int part_height) const {
    PictureRoom room = *this;
    room.width = part_width;
    room.height = part_height;
    room.samples = row(y) + static_cast<std::size_t>(x) * 3 * bytes_of(type);
    return room;
  }
};

}  // namespace twintrue::render
