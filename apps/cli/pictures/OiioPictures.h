#pragma once

// Pictures through OpenImageIO. Linked to the picture helper alone, and called nowhere else: among the many
// libraries underneath there are some that a damaged file makes crash or run for ever.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {

// Room for width x height x 3 samples, which the caller owns.
using PictureRoom =
    std::function<std::uint8_t*(std::int32_t width, std::int32_t height, render::SampleType type)>;

enum class Depth { kBytes, kAsStored };

// What is told of a picture beside its samples.
struct PictureFacts {
  std::uint32_t pictures = 0;  // in its file, as far as kMostPicturesCounted
  render::Light light = render::Light::kEncoded;
};

// Reads the first picture of `path` by OpenImageIO's reader of that name into the room that it asks for once,
// in the layout of a Frame or a DeepFrame. Alpha is dropped, and one channel becomes three. As bytes, more
// than 8 bits are rounded to 8, and linear light is encoded by the sRGB curve. As stored, samples of more
// than 8 bits become 16 bits or floats, and stay on the scale that they are on. Throws std::bad_alloc, and
// whatever OpenImageIO throws.
std::optional<PictureProblem> decode_picture(const std::string& reader, const std::string& path, Depth depth,
                                             const PictureRoom& room, PictureFacts* facts);

// Writes a picture by OpenImageIO's writer of that name. Equal pixels give equal files. Throws as
// decode_picture.
std::optional<PictureProblem> write_samples(const std::string& writer, const std::string& path,
                                            const PictureSamples& picture);

}  // namespace twintrue::cli
