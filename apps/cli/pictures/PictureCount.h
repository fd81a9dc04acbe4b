#pragma once

// How many pictures a JPEG or a PNG says that it holds. The libraries that read these two know of the first
// one alone.

#include <cstdint>
#include <string_view>

namespace twintrue::cli {

// From the whole file as bytes, whatever it holds; 1 if it tells of no others, and at most
// kMostPicturesCounted.
//
// A JPEG tells by the index of the multi-picture format (CIPA DC-007), which cameras with two lenses write.
// Thumbnails in it don't count, nor what has no type, such as the gain maps that telephones add.
std::uint32_t jpeg_picture_count(std::string_view file);
// A PNG tells by the chunk acTL of moving ones.
std::uint32_t png_picture_count(std::string_view file);

}  // namespace twintrue::cli
