#include "apps/cli/pictures/PictureModule.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <memory>

namespace twintrue::cli {
namespace {

// OpenImageIO's messages may end in newlines.
std::string trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text.empty() ? "no reason given" : text;
}

bool is_linear_light(const OIIO::ImageSpec& spec) {
  std::string space = spec.get_string_attribute("oiio:ColorSpace");
  std::transform(space.begin(), space.end(), space.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return space == "linear" || space == "scene_linear" || space == "lin_srgb" || space == "lin_rec709";
}

float srgb_from_linear(float v) {
  return v <= 0.0031308f ? v * 12.92f : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f;
}

std::uint8_t byte_from_unit(float v) {
  // The first comparison also takes what is no number.
  if (!(v > 0.0f)) return 0;
  return static_cast<std::uint8_t>(std::lround(std::min(v, 1.0f) * 255.0f));
}

std::optional<PictureProblem> size_problem(const OIIO::ImageSpec& spec) {
  if (spec.deep || spec.depth > 1) {
    return PictureProblem{"a picture with depth (deep or a volume)", "a flat picture",
                          "save the frame as PNG, TIFF or JPEG"};
  }
  if (spec.width < 1 || spec.height < 1 || spec.nchannels < 1) {
    return PictureProblem{fmt::format("an empty picture of {} x {} pixels, {} channels", spec.width,
                                      spec.height, spec.nchannels),
                          "both fisheye pictures side by side", "check how the frame was saved"};
  }
  if (spec.width > kLargestPictureSide || spec.height > kLargestPictureSide ||
      std::int64_t{spec.width} * spec.height > kMostPicturePixels) {
    return PictureProblem{fmt::format("{} x {} pixels", spec.width, spec.height),
                          fmt::format("at most {} pixels a side and {} million in all", kLargestPictureSide,
                                      kMostPicturePixels / 1000000),
                          "give the frame as the lens captured it"};
  }
  return std::nullopt;
}

// The channels that hold red, green and blue: the first three that are not alpha, or the first one alone.
std::vector<int> colour_channels(const OIIO::ImageSpec& spec) {
  std::vector<int> channels;
  for (int c = 0; c < spec.nchannels && channels.size() < 3; ++c) {
    if (c != spec.alpha_channel) channels.push_back(c);
  }
  if (channels.empty()) channels.push_back(0);
  if (channels.size() < 3) channels.assign(3, channels.front());
  return channels;
}

std::optional<PictureProblem> read_frame(const std::string& path, Frame* frame) {
  OIIO::ImageSpec hints;
  hints.attribute("oiio:UnassociatedAlpha", 1);  // else colours come multiplied by alpha
  const std::unique_ptr<OIIO::ImageInput> input = OIIO::ImageInput::open(path, &hints);
  if (!input) {
    return PictureProblem{trimmed(OIIO::geterror()),
                          "a picture that OpenImageIO reads: PNG, JPEG, TIFF, BMP, PPM, ...",
                          "check that the file is a picture, or convert it to PNG"};
  }
  const OIIO::ImageSpec spec = input->spec();
  if (auto problem = size_problem(spec)) return problem;

  const auto width = static_cast<std::size_t>(spec.width);
  const auto channel_count = static_cast<std::size_t>(spec.nchannels);
  const std::vector<int> channels = colour_channels(spec);
  const bool plain_bytes = spec.format == OIIO::TypeUInt8;
  const bool encode = !plain_bytes && is_linear_light(spec);

  frame->width = static_cast<std::uint32_t>(spec.width);
  frame->height = static_cast<std::uint32_t>(spec.height);
  frame->pixels.resize(width * static_cast<std::size_t>(spec.height) * 3);

  // A band of rows at a time, so that a float picture of many channels is never held whole. Tiled files give
  // whole rows of tiles.
  const int band = spec.tile_height > 1 ? spec.tile_height : 64;
  std::vector<float> floats;
  std::vector<std::uint8_t> bytes;
  for (int row = 0; row < spec.height; row += band) {
    const int end = std::min(row + band, spec.height);
    const std::size_t samples = width * static_cast<std::size_t>(end - row) * channel_count;
    const auto read_rows = [&](OIIO::TypeDesc type, auto& values) {
      values.resize(samples);
      return spec.tile_width > 0
                 ? input->read_tiles(0, 0, spec.x, spec.x + spec.width, spec.y + row, spec.y + end, spec.z,
                                     spec.z + 1, 0, spec.nchannels, type, values.data())
                 : input->read_scanlines(0, 0, spec.y + row, spec.y + end, spec.z, 0, spec.nchannels, type,
                                         values.data());
    };
    const bool good = plain_bytes ? read_rows(OIIO::TypeUInt8, bytes) : read_rows(OIIO::TypeFloat, floats);
    if (!good) {
      return PictureProblem{trimmed(input->geterror()), "a whole picture",
                            "the file is damaged or cut short: copy or capture it again"};
    }
    std::uint8_t* out = frame->pixels.data() + width * static_cast<std::size_t>(row) * 3;
    for (std::size_t pixel = 0; pixel < samples; pixel += channel_count) {
      for (const int channel : channels) {
        const std::size_t sample = pixel + static_cast<std::size_t>(channel);
        if (plain_bytes) {
          *out++ = bytes[sample];
        } else {
          *out++ = byte_from_unit(encode ? srgb_from_linear(floats[sample]) : floats[sample]);
        }
      }
    }
  }
  return std::nullopt;
}

std::optional<PictureProblem> write_floats(const std::string& path, std::int32_t width, std::int32_t height,
                                           const float* pixels) {
  std::string reason;
  // By the format's name: the path is of a temporary file that may have any ending.
  const std::unique_ptr<OIIO::ImageOutput> output = OIIO::ImageOutput::create("tiff");
  const OIIO::ImageSpec spec(width, height, 1, OIIO::TypeFloat);
  if (!output) {
    reason = OIIO::geterror();
  } else if (!output->open(path, spec) || !output->write_image(OIIO::TypeFloat, pixels) || !output->close()) {
    reason = output->geterror();
  } else {
    return std::nullopt;
  }
  return PictureProblem{fmt::format("the picture could not be written: {}", trimmed(reason)),
                        "room for it on the disk", "free some space or choose another folder"};
}

}  // namespace
}  // namespace twintrue::cli

// Found by the name that kPictureModuleSymbol holds.
extern "C" __attribute__((visibility("default"))) const twintrue::cli::PictureModule twintrue_picture_module;
const twintrue::cli::PictureModule twintrue_picture_module{&twintrue::cli::read_frame,
                                                           &twintrue::cli::write_floats};
