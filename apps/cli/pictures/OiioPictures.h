#pragma once

// Pictures through OpenImageIO. Linked to the picture helper alone, and called nowhere else: among the many
// libraries underneath there are some that a damaged file makes crash or run for ever.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {

// Room for width x height x 3 bytes, which the caller owns.
using PictureRoom = std::function<std::uint8_t*(std::int32_t width, std::int32_t height)>;

// Reads the first picture of `path` by OpenImageIO's reader of that name into the room that it asks for once,
// in the layout of a Frame, and tells how many pictures the file holds, as far as kMostPicturesCounted. Alpha
// is dropped, one channel becomes three, more than 8 bits are rounded to 8, and linear light is encoded by
// the sRGB curve. Throws std::bad_alloc, and whatever OpenImageIO throws.
std::optional<PictureProblem> decode_picture(const std::string& reader, const std::string& path,
                                             const PictureRoom& room, std::uint32_t* pictures);

// Writes rows of floats, from top to bottom without gaps, as a TIFF of one channel. Equal pixels give equal
// files. Throws as decode_picture.
std::optional<PictureProblem> write_floats(const std::string& path, std::int32_t width, std::int32_t height,
                                           const float* pixels);

}  // namespace twintrue::cli
