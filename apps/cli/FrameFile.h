#pragma once

// Picture files in, 8-bit frames out.

#include <cstdint>
#include <string>
#include <vector>

namespace twintrue::cli {

// A frame in memory: rows from top to bottom without gaps, three bytes a pixel: red, green, blue.
struct Frame {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> pixels;
};

// Reads the first picture of any file that OpenImageIO knows. Alpha is dropped and does not darken the
// colours; one channel becomes three equal ones. Values of more than 8 bits are rounded to 8; those of a file
// that says they are linear light (as OpenEXR does) are encoded by the sRGB curve first, which is what 8-bit
// pictures hold. Throws Failure (input unreadable): no such file, no picture, a damaged one, or one of an
// absurd size.
Frame read_frame(const std::string& path);

// The same without a word: the libraries under OpenImageIO write messages of their own, and what matters of
// them is in the Failure.
Frame read_frame_quietly(const std::string& path);

}  // namespace twintrue::cli
